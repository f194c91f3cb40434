#pragma once

#include <winsock2.h>
#include <windows.h>

#include "tests/support/ImportHook.h"

#include <functional>

/// Sockets of the program that connect at once to nobody, for as long as the object lives: what they receive
/// comes from a function, what they send goes to another. "localhost" is resolved without the system. One
/// object at a time, on the thread that uses the sockets.
class CPlayedNetwork
{
  public:
    /// As recv: at most nMost bytes. SOCKET_ERROR with the last error set, 0 when the peer has closed.
    using RECEIVE = std::function<int(char* pTo, int nMost)>;
    /// What was sent in one call.
    using SENT = std::function<void(const char* pBytes, int nBytes)>;

    CPlayedNetwork(RECEIVE receive, SENT sent);
    ~CPlayedNetwork();
    CPlayedNetwork(const CPlayedNetwork&) = delete;
    CPlayedNetwork& operator=(const CPlayedNetwork&) = delete;

  private:
    static CPlayedNetwork* s_pThis;
    static SOCKET WSAAPI Open(int nFamily, int nType, int nProtocol);
    static int WSAAPI Connect(SOCKET hSocket, const sockaddr* pAddress, int cbAddress);
    static int WSAAPI Receive(SOCKET hSocket, char* pTo, int nMost, int nFlags);
    static int WSAAPI Send(SOCKET hSocket, const char* pBytes, int nBytes, int nFlags);
    static int WSAAPI Close(SOCKET hSocket);
    static int WSAAPI Shutdown(SOCKET hSocket, int nHow);
    static int WSAAPI SetOption(SOCKET hSocket, int nLevel, int nOption, const char* pValue, int cbValue);

    RECEIVE m_receive;
    SENT m_sent;
    ImportHook<decltype(Open)> m_open{"ws2_32.dll", "socket", &Open};
    ImportHook<decltype(Connect)> m_connect{"ws2_32.dll", "connect", &Connect};
    ImportHook<decltype(Receive)> m_recv{"ws2_32.dll", "recv", &Receive};
    ImportHook<decltype(Send)> m_send{"ws2_32.dll", "send", &Send};
    ImportHook<decltype(Close)> m_close{"ws2_32.dll", "closesocket", &Close};
    ImportHook<decltype(Shutdown)> m_shutdown{"ws2_32.dll", "shutdown", &Shutdown};
    ImportHook<decltype(SetOption)> m_setOption{"ws2_32.dll", "setsockopt", &SetOption};
};
