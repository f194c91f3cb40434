// Keeps a Wine desktop alive: its shell leaves a second after the last window is gone. Owns a hidden
// window, says "ready" when the taskbar is there, and stays until it is ended.

#include <windows.h>
#include <cstdio>

namespace
{

constexpr DWORD SHELL_POLL_MS = 20;
constexpr DWORD SHELL_WAIT_MS = 30000;

bool WaitForTaskbar()
{
    const ULONGLONG ullEnd = GetTickCount64() + SHELL_WAIT_MS;
    while (FindWindowW(L"Shell_TrayWnd", nullptr) == nullptr)
    {
        if (GetTickCount64() >= ullEnd)
        {
            return false;
        }
        Sleep(SHELL_POLL_MS);
    }
    return true;
}

} // namespace

int main()
{
    const HWND hWnd = CreateWindowExW(0, L"STATIC", L"Desktop keeper", WS_OVERLAPPED, 0, 0, 1, 1, nullptr,
                                      nullptr, GetModuleHandleW(nullptr), nullptr);
    if (hWnd == nullptr || !WaitForTaskbar())
    {
        std::puts("failed");
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);

    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0)
    {
        DispatchMessageW(&msg);
    }
    return 0;
}
