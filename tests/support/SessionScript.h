#pragma once

#include "devservice/wtsapi32/SessionScript.h"

/// Steers the session module of all agents that run while this object lives, starting with an active,
/// unlocked session. One object at a time in one logon session.
class SessionScript
{
  public:
    SessionScript();
    ~SessionScript();
    SessionScript(const SessionScript&) = delete;
    SessionScript& operator=(const SessionScript&) = delete;

    SESSION_SCRIPT* operator->() const { return m_pScript; }

  private:
    HANDLE m_hMapping;
    SESSION_SCRIPT* m_pScript;
};
