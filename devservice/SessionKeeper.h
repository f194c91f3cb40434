#pragma once

#include "TKDAS/SimultanousSessionMutex.h"
#include "channel/TrayMessages.h"
#include "devservice/ReverseAttempts.h"
#include "devservice/StandInService.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Changes a record before it is kept and sent. False calls the whole thing off.
using RECORD_EDIT = std::function<bool(std::vector<BYTE>& record)>;

/// Keeps what a service knows of each agent's session (who is connected, the settings, the addresses) and
/// tells the agent whatever changes: a change and its record are one, whoever else changes something
/// meanwhile. The viewers and records of an agent go with its connection.
///
/// While anybody is connected the marker of a local session is set. All operations may be called from any
/// thread but an event sink's. Those that give a bool leave the reason in error when they fail, except where
/// the edit refused: then the reason is the edit's.
class CSessionKeeper
{
  public:
    explicit CSessionKeeper(CStandInService& service);
    ~CSessionKeeper();
    CSessionKeeper(const CSessionKeeper&) = delete;
    CSessionKeeper& operator=(const CSessionKeeper&) = delete;

    /// Adds a viewer. The edit gets a record with a fresh client id, connection type 1 and the new count, and
    /// has to fill in the name. Fails if one of that name is connected already.
    bool Connect(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error);
    /// The edit gets the viewer's own record with the count that is left.
    bool Disconnect(unsigned int uAgent, std::wstring_view name, const RECORD_EDIT& edit,
                    std::wstring& error);
    /// One after the other, in the order of their arrival.
    bool DisconnectAll(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error);
    /// The edit gets the record of who came last, if anybody is there, with the present count.
    bool SendCount(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error);
    /// The edit gets the record with the names of all who are connected, a line each.
    bool SendList(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error);
    /// Sends the settings as MSG_TYPE_TRAYICON_SETTINGS, or as the update. They start as zeros.
    bool SendSettings(unsigned int uAgent, bool bUpdate, const RECORD_EDIT& edit, std::wstring& error);
    /// The addresses start as zeros.
    bool SendAddresses(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error);

    /// Says how a reverse connection stands. The edit gets what the agent last asked for, without its secret;
    /// zeros if it hasn't.
    bool SendReverse(unsigned int uAgent, REVERSE_CODE code, const RECORD_EDIT& edit, std::wstring& error);

    /// Has the drop window of a viewer opened, or closed if it is open. The edit gets the record with the
    /// viewer's id and name.
    bool SendDropClient(unsigned int uAgent, std::wstring_view name, const RECORD_EDIT& edit,
                        std::wstring& error);

    /// Whether agents are answered what they ask for: settings, addresses, list, the end of all connections,
    /// another language, a reverse connection. Off at first.
    void SetAnswers(bool bAnswers);

    /// Sets or removes the marker of a session over the internet, or of a local one beside that of the
    /// viewers.
    void SetMarker(bool bOti, bool bSet);

  private:
    struct AGENT_SESSION
    {
        std::vector<MSG_TRAYICON_CONNECT> viewers; // in the order of their arrival
        MSG_TRAYICON_SETTINGS settings = {};
        MSG_TRAYICON_IP_ADDRESSES addresses = {};
        MSG_REVERSE_CONNECTION reverse = {}; // what was last asked for, without its secret
        bool bSettingsSent = false;
    };

    bool Send(unsigned int uAgent, std::span<const BYTE> record, std::wstring& error);
    bool RemoveViewer(unsigned int uAgent, size_t nViewer, const RECORD_EDIT& edit, std::wstring& error);
    void OnRecord(unsigned int uAgent, const AGENT_RECORD& record);
    bool Answer(unsigned int uAgent, const AGENT_RECORD& record, std::wstring& error);
    bool AnswerLanguage(unsigned int uAgent, std::span<const BYTE> record, std::wstring& error);
    bool AnswerReverse(unsigned int uAgent, std::span<const BYTE> record, std::wstring& error);
    void KeepReverse(unsigned int uAgent, const AGENT_RECORD& record);
    void EndReverse(unsigned int uAgent);
    bool WereSettingsSent(unsigned int uAgent);
    void ForgetAgent(unsigned int uAgent);
    void MarkViewers();

    CStandInService& m_service;
    std::atomic<bool> m_bAnswers = false;

    // Guards all below it. Held while records go out; taken behind the service's responder.
    std::mutex m_mutex;
    std::map<unsigned int, AGENT_SESSION> m_sessions;
    DWORD m_dwLastClientId = 0;
    std::unique_ptr<CSimultanousSessionMutex> m_pViewersMarker;
    std::unique_ptr<CSimultanousSessionMutex> m_pLocalMarker;
    std::unique_ptr<CSimultanousSessionMutex> m_pOtiMarker;

    CReverseAttempts m_attempts{[this](unsigned int uAgent) { EndReverse(uAgent); }}; // the first to go
};
