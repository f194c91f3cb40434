#pragma once

#include "channel/TrayMessages.h"
#include "devservice/StandInService.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"

#include <cstring>
#include <span>
#include <vector>

constexpr DWORD TEST_SESSION = 7;

/// The bytes of one record.
template <typename Record>
std::span<const BYTE> BytesOf(const Record& record)
{
    return {reinterpret_cast<const BYTE*>(&record), sizeof(record)};
}

inline std::span<const BYTE> BytesOf(const std::vector<BYTE>& bytes)
{
    return bytes;
}

inline SOCKET ConnectLoopback(unsigned short nPort, int nType = SOCK_STREAM)
{
    const SOCKET hSocket = socket(AF_INET, nType, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(nPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(hSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
    {
        return hSocket;
    }
    closesocket(hSocket);
    return INVALID_SOCKET;
}

/// Plays an agent with a plain socket.
class TestAgent
{
  public:
    explicit TestAgent(unsigned short nPort) : m_connection(ConnectLoopback(nPort)) {}

    bool IsOpen() const { return m_connection.IsOpen(); }
    LoopbackConnection& Connection() { return m_connection; }

    template <typename Record>
    bool Receive(Record& record)
    {
        return m_connection.ReceiveExactly(&record, sizeof(record), PATIENCE_MS);
    }

    bool Send(std::span<const BYTE> bytes, size_t nChunk = 0)
    {
        return m_connection.SendAll(bytes.data(), bytes.size(), nChunk);
    }

    bool SendType(DWORD dwType) { return Send(BytesOf(MSG_TRAYICON_TYPE_ONLY{dwType})); }

    /// Takes the service's record and answers as an agent of that session does.
    bool ShakeHands(DWORD dwSessionId = TEST_SESSION)
    {
        MSG_VERSION version = {};
        if (!Receive(version) || version.dwType != MSG_TYPE_VERSION)
        {
            return false;
        }
        version.dblAgentVersion = TRAY_AGENT_VERSION;
        version.dblAgentVersion2 = TRAY_AGENT_VERSION;
        version.dwSessionId = dwSessionId;
        return Send(BytesOf(version));
    }

  private:
    WinsockUse m_winsock;
    LoopbackConnection m_connection;
};
