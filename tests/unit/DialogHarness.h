#pragma once

#include <winsock2.h>
#include <windows.h>
#include <shellapi.h>

#include "Include/Handles.h"
#include "tests/support/ImportHook.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/AgentHarness.h"
#include "tests/unit/LateBinding.h"
#include "tray/TKDASTWindow.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

/// A staged language module as the agent's own, for as long as the object lives.
class StagedLanguageModule
{
  public:
    explicit StagedLanguageModule(const wchar_t* pszLanguage = L"en");
    ~StagedLanguageModule();
    StagedLanguageModule(const StagedLanguageModule&) = delete;
    StagedLanguageModule& operator=(const StagedLanguageModule&) = delete;

    /// A text of the module, as it stands there.
    std::wstring Text(UINT uString) const;

  private:
    CModule m_hModule;
};

/// What the taskbar answers to the agent's dialogs, which keep the function they have once found: the program
/// puts a stand-in there before any test runs. Between tests the taskbar doesn't answer.
struct TASKBAR_ANSWER
{
    bool bAnswers = false;
    UINT uEdge = ABE_BOTTOM;
    RECT rect = {};
    DWORD dwMessage = 0; // asked last
    DWORD cbData = 0;
};
extern TASKBAR_ANSWER g_taskbarAnswer;

std::wstring ControlText(HWND hDlg, int nControl);

/// Handles all messages that wait for this thread, until there are none.
void PumpMessages();

/// Expects that the process holds no more of the system's objects than before, but for those that the system
/// makes once, in whatever round.
void ExpectNoMoreThan(const ObjectCounts& before);

/// Plays some rounds, in which is made what is made once, and then so many more; expects that these leave
/// nothing. A round is told its number, from 0 on in either part.
void ExpectNothingLeftBy(int nRounds, const std::function<void(int nRound)>& play);

/// The agent's window on the test's thread, without a service, and the dialogs of a staged module. Timers are
/// recorded and run; sounds are recorded, and succeed.
///
/// The trace says "timer 222 5000", "kill 222", "sound WindowsLogon 73730 painted", "beep 0", "message 273
/// 40005" (posted to the agent's window).
class DialogHarness : public testing::Test
{
  protected:
    void SetUp() override;
    void TearDown() override;

    CTaskBarWindow& Window() { return *m_pWindow; }

    /// Shows a popup in that mode, past the filter of the settings, and paints it. Null when there is none.
    HWND ShowPopup(NOTIFY_MODE mode);

    static MSG_TRAYICON_CONNECT Alice();

    SystemTrace m_trace;
    StagedLanguageModule m_language;
    std::wstring m_userName = L"alice";
    bool m_bSoundWorks = true;
    LateBinding m_binding;

  private:
    static DialogHarness* s_pThis;
    static UINT_PTR WINAPI RecordTimer(HWND hWnd, UINT_PTR uTimer, UINT uPeriod, TIMERPROC pfnTimer);
    static BOOL WINAPI RecordKillTimer(HWND hWnd, UINT_PTR uTimer);
    static BOOL WINAPI RecordSound(LPCWSTR pszSound, HMODULE hModule, DWORD dwFlags);
    static BOOL WINAPI RecordBeep(UINT uType);
    static BOOL WINAPI AnswerUserName(LPWSTR pszName, LPDWORD pcchName);
    static LRESULT CALLBACK RecordMessage(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

    std::unique_ptr<CTaskBarWindow> m_pWindow;
    WNDPROC m_pfnWindow = nullptr;
    ImportHook<decltype(SetTimer)> m_setTimer{"user32.dll", "SetTimer", &RecordTimer};
    ImportHook<decltype(KillTimer)> m_killTimer{"user32.dll", "KillTimer", &RecordKillTimer};
    ImportHook<decltype(MessageBeep)> m_beep{"user32.dll", "MessageBeep", &RecordBeep};
    ImportHook<decltype(GetUserNameW)> m_getUserName{"advapi32.dll", "GetUserNameW", &AnswerUserName};
    ImportHook<decltype(Sleep)> m_sleep{"kernel32.dll", "Sleep", +[](DWORD) {}};
};
