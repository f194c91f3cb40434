#pragma once

#include <winsock2.h>
#include <windows.h>
#include <shellapi.h>

#include "channel/TrayMessages.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tray/TKDASTWindow.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// What the agent has asked of the system, in order, from all of its threads.
class SystemTrace
{
  public:
    void Add(const std::string& call);
    std::vector<std::string> Calls() const;
    /// The calls that begin with this text.
    std::vector<std::string> Calls(const std::string& prefix) const;
    /// True as soon as the call has been made.
    bool WaitFor(const std::string& call) const;
    void Forget();

  private:
    mutable std::mutex m_lock;
    mutable std::condition_variable m_added;
    std::vector<std::string> m_calls;
};

/// The agent's window on a thread with a message loop, its reader thread, and the test as the service. Timers
/// are recorded and never fire by themselves; the shell takes every icon and starts no program; desktop
/// parameters are made up.
///
/// The trace says "timer 1002 2000", "kill 1002", "message 1026 0", "icon 0 …" (NIM_*, see Icons), "set 20
/// …", "start runas -Settings".
class AgentHarness : public testing::Test
{
  public:
    static constexpr UINT RUN_WORK = WM_APP + 1000; // the harness's own message; lParam: the work

  protected:
    void SetUp() override;
    void TearDown() override;

    CTaskBarWindow& Window() { return *m_pWindow; }

    template <typename Record>
    void Send(const Record& record)
    {
        ASSERT_TRUE(m_service.SendAll(&record, sizeof(record)));
    }
    void SendType(DWORD dwType);

    template <typename Record>
    Record Receive()
    {
        Record record = {};
        EXPECT_TRUE(m_service.ReceiveExactly(&record, sizeof(record), PATIENCE_MS));
        return record;
    }

    /// Returns when the agent has handled all that was sent before.
    void Settle();

    /// Plays a timer, and returns when it has been handled.
    void Fire(UINT_PTR uTimer);

    /// Runs on the window's thread.
    void OnWindowThread(const std::function<void()>& work);

    /// Waits until the reader thread has ended.
    void JoinReader();

    /// Waits until the window's thread has ended, as it does once the channel is gone. It may still be on its
    /// way there when the reader has ended, so a test that goes on watching calls waits for both.
    void JoinWindow();

    /// Settings under which nothing is hidden and nothing is told.
    static MSG_TRAYICON_SETTINGS PlainSettings(DWORD dwType = MSG_TYPE_TRAYICON_SETTINGS);
    static MSG_TRAYICON_CONNECT Connection(DWORD dwType, DWORD dwConnectCount, DWORD dwConnectionType = 1);

    SystemTrace m_trace;

    // What the shell and the system answer; set before the agent asks.
    bool m_bShellAnswers = true;
    bool m_bShellIsUp = true;
    DWORD m_dwEffectsOn = 1;                    // of every effect
    std::wstring m_wallpaper = L"C:\\user.bmp"; // in force
    bool m_bParametersCanBeSet = true;
    std::vector<NOTIFYICONDATAW> m_icons; // of each call of the shell; read it when the agent is settled
    HWND m_hStartOwner = nullptr;         // of the program that was to start last

    LoopbackConnection m_service;

  private:
    static AgentHarness* s_pThis;
    static UINT_PTR WINAPI RecordTimer(HWND hWnd, UINT_PTR uTimer, UINT uPeriod, TIMERPROC pfnTimer);
    static BOOL WINAPI RecordKillTimer(HWND hWnd, UINT_PTR uTimer);
    static BOOL WINAPI RecordIcon(DWORD dwMessage, PNOTIFYICONDATAW pData);
    static BOOL WINAPI PlayParameters(UINT uAction, UINT uParam, PVOID pvParam, UINT uFlags);
    static HINSTANCE WINAPI RecordShellStart(HWND hOwner, LPCWSTR pszVerb, LPCWSTR pszFile,
                                             LPCWSTR pszParameters, LPCWSTR pszDirectory, INT nShow);
    static BOOL WINAPI RecordStartEx(SHELLEXECUTEINFOW* pInfo);
    static HWND WINAPI PlayFindWindow(LPCWSTR pszClass, LPCWSTR pszTitle);
    static LRESULT CALLBACK RecordMessage(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

    std::unique_ptr<CTaskBarWindow> m_pWindow;
    WNDPROC m_pfnWindow = nullptr;
    std::thread m_windowThread;
    std::thread m_reader;
    ImportHook<decltype(SetTimer)> m_setTimer{"user32.dll", "SetTimer", &RecordTimer};
    ImportHook<decltype(KillTimer)> m_killTimer{"user32.dll", "KillTimer", &RecordKillTimer};
    ImportHook<decltype(Shell_NotifyIconW)> m_icon{"shell32.dll", "Shell_NotifyIconW", &RecordIcon};
    ImportHook<decltype(SystemParametersInfoW)> m_parameters{"user32.dll", "SystemParametersInfoW",
                                                             &PlayParameters};
    ImportHook<decltype(ShellExecuteW)> m_start{"shell32.dll", "ShellExecuteW", &RecordShellStart};
    ImportHook<decltype(ShellExecuteExW)> m_startEx{"shell32.dll", "ShellExecuteExW", &RecordStartEx};
    ImportHook<decltype(FindWindowW)> m_findWindow{"user32.dll", "FindWindowW", &PlayFindWindow};
};
