#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <winsock2.h>
#include <windows.h>

class ShelllessDesktop;

/// One Shell_NotifyIconW of any program, as the tray receives it.
struct TrayCall
{
    ULONGLONG qwTime = 0; // of its arrival, in the milliseconds of GetTickCount64
    DWORD dwMessage = 0;  // NIM_*
    HWND hWnd = nullptr;
    UINT uID = 0;
    UINT uFlags = 0; // NIF_*: which of the following were meant
    UINT uCallbackMessage = 0;
    std::wstring tip;
    DWORD dwState = 0;
    DWORD dwStateMask = 0;
    std::wstring info;
    std::wstring infoTitle;
    DWORD dwInfoFlags = 0; // NIIF_*
    UINT uVersion = 0;     // shared with the time-out, as in NOTIFYICONDATAW
    UINT nIconWidth = 0;
    UINT nIconHeight = 0;
    std::vector<BYTE> iconBits; // mask and colours: equal for equal icons
};

/// Stands in front of the shell's tray and receives every notification-area call of every program on this
/// desktop, on a thread of its own, so that the test's thread may be the caller. The layout that it decodes
/// is that of the test system's shell, not of Windows. One object at a time. Given a desktop without a shell,
/// it is the shell there, and that desktop must outlive it.
class ShellTrayCatcher
{
  public:
    explicit ShellTrayCatcher(const ShelllessDesktop* pDesktop = nullptr);
    ~ShellTrayCatcher();
    ShellTrayCatcher(const ShellTrayCatcher&) = delete;
    ShellTrayCatcher& operator=(const ShellTrayCatcher&) = delete;

    /// False makes each following call fail for its caller; it is recorded all the same.
    void SetAnswer(bool bSuccess);
    /// All calls so far, in their order.
    std::vector<TrayCall> Calls() const;
    /// True as soon as at least nCalls have come.
    bool WaitForCalls(size_t nCalls, DWORD dwTimeoutMs) const;
    void Forget();

  private:
    static DWORD WINAPI Run(void* pThis);
    static LRESULT CALLBACK WindowProcedure(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
    void Loop();
    LRESULT Record(const COPYDATASTRUCT& data);

    mutable std::mutex m_lock;
    mutable std::condition_variable m_arrived;
    std::vector<TrayCall> m_calls;
    bool m_bAnswer = true;
    const ShelllessDesktop* m_pDesktop;
    bool m_bInFront = false;
    HWND m_hWnd = nullptr;
    HANDLE m_hReady;
    HANDLE m_hThread;
};
