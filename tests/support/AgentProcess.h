#pragma once

#include "tests/support/AgentFolder.h"

#include "Include/Handles.h"

#include <functional>
#include <map>
#include <optional>
#include <string>

class LogonSession;

/// What an agent is started with, beside its folder.
struct AgentStart
{
    std::wstring commandLine;                         // behind the program's name
    std::map<std::wstring, std::wstring> environment; // added to the test's own, or replacing it
    std::wstring desktop;                             // of the test's window station; empty: the test's own
    bool bInheritHandles = false;                     // the test's inheritable ones
    std::filesystem::path currentFolder = {};         // empty: the agent's own
    const LogonSession* pSession = nullptr;           // null: the test's own
};

/// A running TKDAST.exe. Its whole process tree ends with the object at the latest.
class AgentProcess
{
  public:
    /// IsStarted tells whether the program could be started.
    explicit AgentProcess(const AgentFolder& folder, const AgentStart& start = {});
    ~AgentProcess();
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    bool IsStarted() const { return static_cast<bool>(m_hProcess); }
    /// Why the last try to start it failed; 0 if none did.
    DWORD StartError() const { return m_dwStartError; }
    bool IsRunning() const;
    HANDLE Handle() const { return m_hProcess.get(); }
    DWORD Id() const { return m_dwProcessId; }
    /// All 32 bits of the exit code; empty when the agent still runs after the time.
    std::optional<DWORD> WaitForExit(DWORD dwTimeoutMs) const;
    /// The agent's hidden window, waited for; null when there is none in time or the agent has ended.
    HWND WaitForTrayWindow(DWORD dwTimeoutMs) const;
    /// The agent's hidden window, if it is there now.
    HWND FindTrayWindow() const;
    /// A window of the agent on its desktop for which the test holds; null when there is none. It looks at
    /// one list of all windows: going from window to window would pass one by that is raised meanwhile.
    HWND FindOwnWindow(const std::function<bool(HWND hWnd)>& test) const;

  private:
    std::wstring m_desktop;
    CKernelHandle m_hJob;
    CKernelHandle m_hProcess;
    DWORD m_dwProcessId = 0;
    DWORD m_dwStartError = 0;
};
