#include "channel/MessageHandlers.h"

#include "channel/CTKSocket.h"
#include "channel/TrayMessages.h"

#include <algorithm>
#include <iterator>

namespace
{
#define ANY_MESSAGE_ROW(type, record, bOwnWords, handler, beforeBody)                                        \
    {                                                                                                        \
        type, sizeof(record) - sizeof(DWORD), #type, bOwnWords, handler, beforeBody                          \
    }
#define MESSAGE_ROW(type, record, handler) ANY_MESSAGE_ROW(type, record, false, handler, nullptr)
#define CHAT_MESSAGE_ROW(type, record, handler, beforeBody)                                                  \
    ANY_MESSAGE_ROW(type, record, true, handler, beforeBody)
#define PREPARED_MESSAGE_ROW(type, record, handler, beforeBody)                                              \
    ANY_MESSAGE_ROW(type, record, false, handler, beforeBody)

// In ascending order of the type.
constexpr MESSAGE_HANDLER_ROW s_aHandlers[] = {
    MESSAGE_ROW(MSG_TYPE_VERSION, MSG_VERSION, OnVersion),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_INIT, MSG_TRAYICON_INIT, OnTrayIconInit),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_EXIT, MSG_TRAYICON_EXIT, OnTrayIconExit),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_CONNECT_COUNT, MSG_TRAYICON_CONNECT, OnConnectCount),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SETTINGS, MSG_TRAYICON_SETTINGS, OnSettings),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_DISCONNECT_ALL, MSG_TRAYICON_TYPE_ONLY, nullptr),
    MESSAGE_ROW(MSG_TYPE_RESERVED_40005, MSG_TRAYICON_TYPE_ONLY, nullptr),
    MESSAGE_ROW(MSG_TYPE_RESERVED_40006, MSG_TRAYICON_TYPE_ONLY, nullptr),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SETTINGS_UPDATE, MSG_TRAYICON_SETTINGS, OnSettingsUpdate),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, MSG_TRAYICON_CONNECT, OnConnectNotify),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, MSG_TRAYICON_CONNECT, OnDisconnectNotify),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION, MSG_TRAYICON_DESKTOP_USER_INFORMATION,
                OnDesktopUserInformation),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL, MSG_TRAYICON_CONNECT_NOTIFY_ALL, OnConnectNotifyAll),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE, MSG_TRAYICON_TYPE_ONLY,
                OnPosibleLockStateChange),
    PREPARED_MESSAGE_ROW(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, MSG_TRAYICON_DESKTOP_EFFECTS, OnDesktopEffects,
                         BeforeDesktopEffects),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SFT_DROP_CLIENT, MSG_TRAYICON_SFT_DROP_CLIENT, OnSftDropClient),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SETTINGS_DIALOG, MSG_TRAYICON_SETTINGS_DIALOG, OnSettingsDialog),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, MSG_TRAYICON_SERVER_RECONFIGURE, OnServerReconfigure),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_IP_ADDRESSES, MSG_TRAYICON_IP_ADDRESSES, OnIpAddresses),
    MESSAGE_ROW(MSG_TYPE_TRAYICON_PERMISSION, MSG_TRAYICON_PERMISSION, OnPermission),
    PREPARED_MESSAGE_ROW(MSG_TYPE_REVERSE_CONNECTION, MSG_REVERSE_CONNECTION, OnReverseConnection,
                         BeforeReverseConnection),
    CHAT_MESSAGE_ROW(MSG_TYPE_TRAYICON_CHAT_OPEN, MSG_TRAYICON_CHAT_OPEN, OnChatOpen, nullptr),
    CHAT_MESSAGE_ROW(MSG_TYPE_CHAT_MESSAGE, MSG_CHAT_MESSAGE, OnChatMessage, BeforeChatMessage),
    CHAT_MESSAGE_ROW(MSG_TYPE_TRAYICON_CHAT_CLOSE, MSG_TRAYICON_TYPE_ONLY, OnChatClose, nullptr),
    MESSAGE_ROW(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE, MSG_TRAYICON_TYPE_ONLY, OnExitReadFixBlockingMode),
};

constexpr bool IsBefore(const MESSAGE_HANDLER_ROW& row, DWORD dwType)
{
    return row.dwType < dwType;
}

static_assert(std::is_sorted(std::begin(s_aHandlers), std::end(s_aHandlers),
                             [](const MESSAGE_HANDLER_ROW& first, const MESSAGE_HANDLER_ROW& second) {
                                 return first.dwType < second.dwType;
                             }),
              "the rows stand in ascending order of the type, which is what they are found by");
static_assert(std::all_of(std::begin(s_aHandlers), std::end(s_aHandlers),
                          [](const MESSAGE_HANDLER_ROW& row) {
                              return row.uBodySize <= MESSAGE_BUFFER_SIZE - sizeof(DWORD);
                          }),
              "a record is larger than MESSAGE_BUFFER_SIZE");
} // namespace

const MESSAGE_HANDLER_ROW* FindMessageHandler(DWORD dwType)
{
    const MESSAGE_HANDLER_ROW* const pRow =
        std::lower_bound(std::begin(s_aHandlers), std::end(s_aHandlers), dwType, IsBefore);
    return pRow != std::end(s_aHandlers) && pRow->dwType == dwType ? pRow : nullptr;
}

bool WriteRecord(CHANNEL_CONTEXT& context, unsigned int uSize)
{
    return context.pSocket->WriteAll(reinterpret_cast<const char*>(context.pMessage), uSize) != 0;
}
