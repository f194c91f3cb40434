#pragma once

#include <winsock2.h>
#include <windows.h>

#include "tests/support/ImportHook.h"
#include "tests/unit/AgentHarness.h"

#include <functional>
#include <string>
#include <vector>

/// Adds to an agent's trace what its threads send and post, so that all they do stands in one order: "send
/// 50005" (a record, by its type), "shutdown", "look" (which desktop has the input), "sent 1031" and "posted
/// 16" (window messages). One object at a time.
class CallOrder
{
  public:
    explicit CallOrder(SystemTrace& trace);
    ~CallOrder();
    CallOrder(const CallOrder&) = delete;
    CallOrder& operator=(const CallOrder&) = delete;

    /// What the agent has done, without what it has only read and without the harness's own doings.
    std::vector<std::string> Calls() const;

    /// Records that go out; those behind them can't be written.
    int m_nWritable = ANY_NUMBER;

    /// Stands in the trace behind each window message that is sent or posted.
    std::function<std::string()> m_note;

  private:
    static constexpr int ANY_NUMBER = 1000000;

    static CallOrder* s_pThis;
    static int WSAAPI Send(SOCKET hSocket, const char* pData, int nBytes, int nFlags);
    static int WSAAPI Shutdown(SOCKET hSocket, int nHow);
    static HDESK WINAPI OpenInput(DWORD dwFlags, BOOL bInherit, ACCESS_MASK dwAccess);
    static LRESULT WINAPI SendWindowMessage(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
    static BOOL WINAPI PostWindowMessage(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
    void AddMessage(const char* pszWay, UINT uMessage) const;

    SystemTrace& m_trace;
    ImportHook<decltype(Send)> m_send{"ws2_32.dll", "send", &Send};
    ImportHook<decltype(Shutdown)> m_shutdown{"ws2_32.dll", "shutdown", &Shutdown};
    ImportHook<decltype(OpenInput)> m_openInput{"user32.dll", "OpenInputDesktop", &OpenInput};
    ImportHook<decltype(SendWindowMessage)> m_sendMessage{"user32.dll", "SendMessageW", &SendWindowMessage};
    ImportHook<decltype(PostWindowMessage)> m_postMessage{"user32.dll", "PostMessageW", &PostWindowMessage};
};
