#include "channel/MessageHandlers.h"

#include "channel/TrayMessages.h"
#include "startup/TKDAST.h"
#include "tray/TKDASTWindow.h"

bool OnVersion(CHANNEL_CONTEXT& context)
{
    MSG_VERSION& version = RecordOf<MSG_VERSION>(context);
    version.dblAgentVersion = TRAY_AGENT_VERSION;
    version.dblAgentVersion2 = TRAY_AGENT_VERSION;
    version.dwSessionId = g_dwSessionId;
    if (!WriteRecord(context, sizeof(version)))
    {
        return false;
    }
    Sleep(0);
    // Releases the threads that watch the desktop: the service hears nothing of them before the handshake.
    if (context.pWindow->m_hDesktopEvent)
    {
        SetEvent(context.pWindow->m_hDesktopEvent.get());
    }
    return true;
}

bool OnExitReadFixBlockingMode(CHANNEL_CONTEXT& context)
{
    // The agent's sockets have no other mode than blocking; the echo is all there is to it.
    return WriteRecord(context, sizeof(MSG_TRAYICON_TYPE_ONLY));
}
