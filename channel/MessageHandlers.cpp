#include "channel/MessageHandlers.h"

#include "Include/TKLogging.h"
#include "channel/CTKSocket.h"
#include "channel/TrayMessages.h"
#include "startup/TKDAST.h"
#include "tray/TKDASTWindow.h"

#include <algorithm>
#include <iterator>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ConnectionInfo");

bool WriteRecord(CHANNEL_CONTEXT& context, unsigned int uSize)
{
    return context.pSocket->WriteAll(reinterpret_cast<const char*>(context.pMessage), uSize) != 0;
}

bool OnVersion(CHANNEL_CONTEXT& context)
{
    MSG_VERSION& version = *reinterpret_cast<MSG_VERSION*>(context.pMessage);
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

bool OnChatMessage(CHANNEL_CONTEXT& context)
{
    DWORD dwMissing = reinterpret_cast<const MSG_CHAT_MESSAGE*>(context.pMessage)->dwMessageLength;
    while (dwMissing > 0)
    {
        const DWORD dwChunk = std::min<DWORD>(dwMissing, MESSAGE_BUFFER_SIZE);
        if (context.pSocket->ReadAll(reinterpret_cast<char*>(context.pMessage), static_cast<int>(dwChunk)) ==
            0)
        {
            const DWORD dwError = GetLastError();
            const int nSocketError = WSAGetLastError();
            TK_LOG_ERROR(g_pLogger, "Socket read failed. GetLastError=" << dwError << " WSAGetLastError="
                                                                        << nSocketError);
            return false;
        }
        dwMissing -= dwChunk;
    }
    return true;
}

#define MESSAGE_ROW(type, record, handler)                                                                   \
    {                                                                                                        \
        type, sizeof(record) - sizeof(DWORD), #type, false, handler                                          \
    }
#define INFO_MESSAGE_ROW(type, record, handler)                                                              \
    {                                                                                                        \
        type, sizeof(record) - sizeof(DWORD), #type, true, handler                                           \
    }

// In ascending order of the type.
constexpr MESSAGE_HANDLER_ROW s_aHandlers[] = {
    MESSAGE_ROW(MSG_TYPE_VERSION, MSG_VERSION, OnVersion),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_INIT, MSG_TRAYICON_INIT, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_EXIT, MSG_TRAYICON_EXIT, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_CONNECT_COUNT, MSG_TRAYICON_CONNECT, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SETTINGS, MSG_TRAYICON_SETTINGS, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_DISCONNECT_ALL, MSG_TRAYICON_TYPE_ONLY, nullptr),
    MESSAGE_ROW(MSG_TYPE_RESERVED_40005, MSG_TRAYICON_TYPE_ONLY, nullptr),
    MESSAGE_ROW(MSG_TYPE_RESERVED_40006, MSG_TRAYICON_TYPE_ONLY, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SETTINGS_UPDATE, MSG_TRAYICON_SETTINGS, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, MSG_TRAYICON_CONNECT, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, MSG_TRAYICON_CONNECT, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION, MSG_TRAYICON_DESKTOP_USER_INFORMATION, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL, MSG_TRAYICON_CONNECT_NOTIFY_ALL, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE, MSG_TRAYICON_TYPE_ONLY, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, MSG_TRAYICON_DESKTOP_EFFECTS, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SFT_DROP_CLIENT, MSG_TRAYICON_SFT_DROP_CLIENT, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SETTINGS_DIALOG, MSG_TRAYICON_SETTINGS_DIALOG, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, MSG_TRAYICON_SERVER_RECONFIGURE, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_IP_ADDRESSES, MSG_TRAYICON_IP_ADDRESSES, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_PERMISSION, MSG_TRAYICON_PERMISSION, nullptr),
    MESSAGE_ROW(MSG_TYPE_REVERSE_CONNECTION, MSG_REVERSE_CONNECTION, nullptr),
    INFO_MESSAGE_ROW(MSG_TYPE_TRAYICON_CHAT_OPEN, MSG_TRAYICON_CHAT_OPEN, nullptr),
    INFO_MESSAGE_ROW(MSG_TYPE_CHAT_MESSAGE, MSG_CHAT_MESSAGE, OnChatMessage),
    INFO_MESSAGE_ROW(MSG_TYPE_TRAYICON_CHAT_CLOSE, MSG_TRAYICON_TYPE_ONLY, nullptr),
    MESSAGE_ROW(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE, MSG_TRAYICON_TYPE_ONLY, OnExitReadFixBlockingMode),
};

constexpr bool IsBefore(const MESSAGE_HANDLER_ROW& row, DWORD dwType)
{
    return row.dwType < dwType;
}

static_assert(std::is_sorted(std::begin(s_aHandlers), std::end(s_aHandlers),
                             [](const MESSAGE_HANDLER_ROW& first, const MESSAGE_HANDLER_ROW& second) {
                                 return first.dwType < second.dwType;
                             }));
static_assert(std::all_of(std::begin(s_aHandlers), std::end(s_aHandlers), [](const MESSAGE_HANDLER_ROW& row) {
    return row.uBodySize <= MESSAGE_BUFFER_SIZE - sizeof(DWORD);
}));
} // namespace

const MESSAGE_HANDLER_ROW* FindMessageHandler(DWORD dwType)
{
    const MESSAGE_HANDLER_ROW* const pRow =
        std::lower_bound(std::begin(s_aHandlers), std::end(s_aHandlers), dwType, IsBefore);
    return pRow != std::end(s_aHandlers) && pRow->dwType == dwType ? pRow : nullptr;
}
