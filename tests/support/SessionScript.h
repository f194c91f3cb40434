#pragma once

#include "devservice/wtsapi32/SessionScript.h"
#include "tests/support/SharedRecord.h"

/// Steers the session module of all agents that run while this object lives, starting with an active,
/// unlocked session. One object at a time in one logon session.
class SessionScript : public SharedRecord<SESSION_SCRIPT>
{
  public:
    SessionScript() : SharedRecord(SESSION_SCRIPT_NAME, MakeActiveSession()) {}
};
