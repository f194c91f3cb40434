// A service that does nothing but run until it is stopped.

#include <winsock2.h>
#include <windows.h>

namespace
{
SERVICE_STATUS_HANDLE g_hStatus;

void Report(DWORD dwState)
{
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = dwState;
    status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    SetServiceStatus(g_hStatus, &status);
}

void WINAPI Control(DWORD dwControl)
{
    if (dwControl == SERVICE_CONTROL_STOP)
    {
        Report(SERVICE_STOPPED);
    }
}

void WINAPI ServiceMain(DWORD, wchar_t** ppszArguments)
{
    g_hStatus = RegisterServiceCtrlHandlerW(ppszArguments[0], &Control);
    Report(SERVICE_RUNNING);
}
} // namespace

int main()
{
    wchar_t szAnyName[] = L""; // a process with one service answers to every name
    const SERVICE_TABLE_ENTRYW services[] = {{szAnyName, &ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(services) ? 0 : 1;
}
