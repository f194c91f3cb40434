#pragma once

#include "Include/Handles.h"

namespace HandleTraits
{
struct Socket
{
    using Handle = SOCKET;
    static Handle Invalid() noexcept { return INVALID_SOCKET; }
    static void Close(Handle h) noexcept { closesocket(h); }
};
} // namespace HandleTraits

using CSocketHandle = CUniqueAny<HandleTraits::Socket>;

/// Holds Winsock open for the life of its owner. Any thread.
class CWinsockUse
{
  public:
    CWinsockUse();
    ~CWinsockUse();
    CWinsockUse(const CWinsockUse&) = delete;
    CWinsockUse& operator=(const CWinsockUse&) = delete;

  private:
    bool m_bStarted;
};

/// A non-blocking socket of that type (SOCK_STREAM or SOCK_DGRAM) bound to 127.0.0.1, or to ::1 for the
/// family AF_INET6; port 0 takes any free one. Invalid on failure, with the reason as the last error. A
/// stream listens already. Any thread.
CSocketHandle OpenLoopbackSocket(int nType, unsigned short nPort, int nFamily = AF_INET);

/// The port that the socket is bound to, 0 if it isn't. Any thread.
unsigned short BoundPort(SOCKET hSocket);

/// Makes operations on the socket return at once. False leaves the reason as the last error. Any thread.
bool SetNonBlocking(SOCKET hSocket);
