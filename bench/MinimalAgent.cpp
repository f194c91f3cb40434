// The least that can stand in the agent's place: connects to the port on its command line, answers the
// service's first record and waits for the end of the stream. No log, no settings, no words, no icons; and
// no window, unless the word "window" follows the port.

#include "channel/TrayMessages.h"

#include <cwchar>

namespace
{
bool ReceiveRecord(SOCKET hSocket, MSG_VERSION* pVersion)
{
    char* const pBytes = reinterpret_cast<char*>(pVersion);
    int nHave = 0;
    while (nHave < static_cast<int>(sizeof(*pVersion)))
    {
        const int nReceived = recv(hSocket, pBytes + nHave, static_cast<int>(sizeof(*pVersion)) - nHave, 0);
        if (nReceived <= 0)
        {
            return false;
        }
        nHave += nReceived;
    }
    return true;
}

void AnswerService(SOCKET hSocket)
{
    MSG_VERSION version = {};
    while (ReceiveRecord(hSocket, &version))
    {
        version.dblAgentVersion = TRAY_AGENT_VERSION;
        version.dblAgentVersion2 = TRAY_AGENT_VERSION;
        ProcessIdToSessionId(GetCurrentProcessId(), &version.dwSessionId);
        send(hSocket, reinterpret_cast<const char*>(&version), sizeof(version), 0);
    }
}

// Never shown, as the agent's is not.
bool CreateHiddenWindow(HINSTANCE hInstance)
{
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = DefWindowProcW;
    windowClass.hInstance = hInstance;
    windowClass.lpszClassName = L"Minimal agent";
    RegisterClassW(&windowClass);
    return CreateWindowW(windowClass.lpszClassName, L"Minimal agent", WS_OVERLAPPEDWINDOW, 0, 0, 0, 0,
                         nullptr, nullptr, hInstance, nullptr) != nullptr;
}
} // namespace

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE, LPWSTR lpCmdLine, int)
{
    if (wcsstr(lpCmdLine, L"window") != nullptr && !CreateHiddenWindow(hInstance))
    {
        return 1;
    }
    WSADATA data = {};
    WSAStartup(MAKEWORD(2, 0), &data);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(wcstoul(lpCmdLine, nullptr, 10)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const SOCKET hSocket = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(hSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
    {
        AnswerService(hSocket);
    }
    closesocket(hSocket);
    WSACleanup();
    return 0;
}
