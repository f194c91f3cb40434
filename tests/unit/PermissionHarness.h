#pragma once

#include "channel/TrayMessages.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tests/support/StartedThreads.h"
#include "tests/unit/DialogHarness.h"

#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// The permission prompt, with the test as the service at the other end of its socket. The desktop can be
/// reached until m_desktop says otherwise.
///
/// The trace says, besides what DialogHarness writes, "end 2" (the dialog's result) and "flash 1".
class PermissionHarness : public DialogHarness
{
  protected:
    void SetUp() override;
    void TearDown() override;

    /// What a service asks: every field that the agent isn't to touch holds something.
    static MSG_PERMISSION_PROMPT Prompt();

    /// Runs the whole exchange, and the scenario in the dialog, which it has to end; without a scenario no
    /// dialog is expected. Returns what CreatePermissionDialog returned. The watcher has ended then.
    int RunPrompt(const MSG_PERMISSION_PROMPT& prompt, const std::function<void(HWND)>& scenario);

    /// The same with the first cbReply bytes of a reply.
    int RunReply(const void* pReply, size_t cbReply, const std::function<void(HWND)>& scenario);

    /// The service withdraws the prompt. Any thread, while the dialog runs.
    bool Withdraw();

    /// A datagram of that size from the service, while the dialog runs.
    bool SendBytes(size_t cb);

    /// All that the service has got after the request of the last exchange.
    std::vector<std::vector<BYTE>> Datagrams();

    /// The one answer of the last exchange; anything else than exactly one is a failure.
    MSG_PERMISSION_PROMPT OnlyAnswer();

    /// What a person does.
    static void Click(HWND hDlg, int nButton) { SendDlgItemMessageW(hDlg, nButton, BM_CLICK, 0, 0); }
    static void Command(HWND hDlg, WPARAM wCommand) { PostMessageW(hDlg, WM_COMMAND, wCommand, 0); }
    static void Allow(HWND hDlg) { Click(hDlg, IDOK); }
    static void Deny(HWND hDlg) { Click(hDlg, IDCANCEL); }

    /// So many seconds go by at once.
    static void Tick(HWND hDlg, int nSeconds);

    std::wstring m_desktop = L"Screen-saver"; // which needs no look at the session
    std::vector<BYTE> m_request;              // of the last exchange
    StartedThreads m_threads;                 // the watchers

  private:
    static PermissionHarness* s_pThis;
    static BOOL WINAPI NameDesktop(HANDLE hObject, int nIndex, PVOID pvName, DWORD cbName, LPDWORD pcbNeeded);
    static BOOL WINAPI RecordEnd(HWND hDlg, INT_PTR nResult);
    static BOOL WINAPI RecordFlash(HWND hWnd, BOOL bInvert);

    std::optional<LoopbackResponder> m_service;
    ImportHook<decltype(GetUserObjectInformationW)> m_object{"user32.dll", "GetUserObjectInformationW",
                                                             &NameDesktop};
    ImportHook<decltype(EndDialog)> m_end{"user32.dll", "EndDialog", &RecordEnd};
    ImportHook<decltype(FlashWindow)> m_flash{"user32.dll", "FlashWindow", &RecordFlash};
};
