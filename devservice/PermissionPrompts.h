#pragma once

#include "channel/TrayMessages.h"
#include "devservice/Datagrams.h"
#include "devservice/ServiceEvent.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// How far a permission exchange has come.
enum class PROMPT_STAGE
{
    Named,    // an agent may know the port; nobody has come
    Asked,    // an agent's prompt has come and has been told what to ask
    Answered, // there is an answer
};

struct PROMPT_STATE
{
    PROMPT_STAGE stage = PROMPT_STAGE::Named;
    MSG_PERMISSION_PROMPT answer = {}; // once answered
    std::wstring fault;                // what was against the protocol first; empty as long as nothing was
};

/// What is wrong with an answer to that question, in words; empty for a good one, whichever it is. Any
/// thread.
std::wstring FindAnswerFault(const MSG_PERMISSION_PROMPT& question, const MSG_PERMISSION_PROMPT& answer);

/// The service's side of one permission exchange, on a UDP port of its own, which stays open behind the
/// answer: a prompt answers once. One thread at a time; the owner waits for the socket to become readable.
class CPermissionPrompt
{
  public:
    using EVENT_FUNCTION = std::function<void(SERVICE_EVENT&)>;

    /// uPrompt: its number in the log.
    CPermissionPrompt(unsigned int uPrompt, const MSG_PERMISSION_PROMPT& question, EVENT_FUNCTION emit);

    /// nAfType: AF_INET or AF_INET6. False leaves the reason as the last error.
    bool Open(int nAfType);

    /// The object's own.
    SOCKET GetSocket() const { return m_hSocket.get(); }
    /// 0 before Open.
    unsigned short GetPort() const { return BoundPort(m_hSocket.get()); }

    /// Takes and answers whatever has arrived.
    void OnReadable();

    /// Ends the prompt at the agent. False when nobody has come, or when there is an answer.
    bool Withdraw();

    /// The object's own; changes with OnReadable.
    const PROMPT_STATE& GetState() const { return m_state; }

  private:
    void OnDatagram(const END_POINT& from, std::span<const BYTE> bytes);
    void OnOpened(const END_POINT& from, const MSG_PERMISSION_PROMPT& record);
    void OnAnswered(const END_POINT& from, const MSG_PERMISSION_PROMPT& record);
    void SendQuestion();
    void AddFault(std::wstring_view fault);
    void EmitDatagram(SERVICE_EVENT_KIND kind, const END_POINT& other, std::span<const BYTE> bytes);

    const unsigned int m_uPrompt;
    const MSG_PERMISSION_PROMPT m_question;
    const EVENT_FUNCTION m_emit;
    CSocketHandle m_hSocket;
    END_POINT m_asker; // once asked
    PROMPT_STATE m_state;
};

/// All permission exchanges of a service, numbered from 1 on in the order of their opening; they last as long
/// as the object. All operations may be called from any thread except from inside an event sink.
class CPermissionPrompts
{
  public:
    /// opened: called behind the opening of a socket, which the owner then has to watch.
    CPermissionPrompts(CPermissionPrompt::EVENT_FUNCTION emit, std::function<void()> opened)
        : m_emit(std::move(emit)), m_opened(std::move(opened))
    {
    }

    /// Opens a port for one prompt that asks that question. Result: the prompt's number; 0 leaves the reason
    /// as the last error.
    unsigned int Open(const MSG_PERMISSION_PROMPT& question, int nAfType);
    /// The prompts that were ever opened.
    unsigned int Count() const;
    /// 0 for a prompt that isn't there.
    unsigned short GetPort(unsigned int uPrompt) const;
    /// Empty for a prompt that isn't there.
    std::optional<PROMPT_STATE> Get(unsigned int uPrompt) const;

    /// Ends the prompt at the agent. False when there is none that could be ended.
    bool Withdraw(unsigned int uPrompt);

    /// Waits until the prompt's state passes the test, which runs with all prompts locked. False when the
    /// time is over, the wait was interrupted, or there is no such prompt.
    bool WaitFor(unsigned int uPrompt, const std::function<bool(const PROMPT_STATE&)>& test,
                 DWORD dwMilliseconds);
    /// Ends all waits, present and future.
    void Interrupt();

    /// The next fault that nobody has taken, with the prompt's number in front; empty when there is none.
    std::wstring TakeFault();

    /// What the owner's thread has to watch, and what it calls when there is something to read.
    std::vector<SOCKET> GetSockets() const;
    void OnReadable();

  private:
    struct NUMBERED_PROMPT
    {
        std::unique_ptr<CPermissionPrompt> pPrompt;
        bool bFaultTaken = false;
    };

    CPermissionPrompt* Find(unsigned int uPrompt) const;

    const CPermissionPrompt::EVENT_FUNCTION m_emit;
    const std::function<void()> m_opened;
    // Guards all below it. Datagrams go out, and are logged, under it.
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<NUMBERED_PROMPT> m_prompts;
    bool m_bInterrupted = false;
};
