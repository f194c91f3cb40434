#pragma once

#include "Include/Handles.h"

/*
 * Marks, machine-wide, that a session is in progress, so that any process of any logon session can ask.
 * Nobody waits on the mutex and nobody owns it: it is there as long as some holder keeps a handle. The
 * service holds it; the agent asks.
 */
class CSimultanousSessionMutex
{
  public:
    /// Sets the marker of a session over the internet (true) or of a local one (false). A failure is logged,
    /// and the session goes on unmarked. Any thread.
    explicit CSimultanousSessionMutex(bool bOti);

    /// Ends this holder's part of the marker.
    ~CSimultanousSessionMutex();
    CSimultanousSessionMutex(const CSimultanousSessionMutex&) = delete;
    CSimultanousSessionMutex& operator=(const CSimultanousSessionMutex&) = delete;

    /// True when a mutex of that name exists, or can't be told. The answer may be stale as it returns. Any
    /// thread.
    static bool IsSession(const wchar_t* pszName);

    /// IsSession of the marker of local sessions. Any thread.
    static bool IsLocalSession();

    /// IsSession of the marker of sessions over the internet. Any thread.
    static bool IsOtiSession();

  private:
    CKernelHandle m_hMutex;
};
