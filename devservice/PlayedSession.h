#pragma once

#include "Include/Handles.h"

#include <string>

struct SESSION_SCRIPT;

/// Plays what the system tells of the logon session: for agents that have the module of devservice/wtsapi32
/// beside them in place of the system's own. Agents without it go on asking the system. One thread; one
/// object at a time in one logon session.
class CPlayedSession
{
  public:
    CPlayedSession() = default;
    ~CPlayedSession();
    CPlayedSession(const CPlayedSession&) = delete;
    CPlayedSession& operator=(const CPlayedSession&) = delete;

    /// True when an agent started from that folder would ask the module.
    static bool IsModuleIn(const std::wstring& folder);

    /// From now on the session is locked and nobody is at it, or it is in use again; the agents of this
    /// desktop get the system's notice of the change. False leaves the reason as the last error.
    bool SetLocked(bool bLocked);

  private:
    bool Open();

    CKernelHandle m_hMapping;
    SESSION_SCRIPT* m_pScript = nullptr;
};
