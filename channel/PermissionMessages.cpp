#include "Include/UtilFile.h"
#include "channel/MessageHandlers.h"
#include "channel/TrayMessages.h"

// The prompt is a process of its own that speaks with the service by itself. The reader doesn't wait for it,
// and a prompt that can't start is a silence that the service has to live with.
bool OnPermission(CHANNEL_CONTEXT& context)
{
    const MSG_TRAYICON_PERMISSION& record = RecordOf<MSG_TRAYICON_PERMISSION>(context);
    ExecutePermission(static_cast<int>(record.nPort), static_cast<int>(record.nAfType));
    return true;
}
