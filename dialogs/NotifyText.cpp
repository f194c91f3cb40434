#include "dialogs/NotifyText.h"

#include "Include/BoundedText.h"
#include "Include/UtilResource.h"
#include "resources/resource.h"
#include "tray/TrayIcon.h"

#include <algorithm>
#include <string_view>

namespace
{
constexpr size_t MAX_LABEL = 260; // characters, terminator included
constexpr DWORD MILLISECONDS = 1000;
constexpr wchar_t LINE_END[] = L"\r\n";

std::wstring LoadLabel(UINT uString)
{
    return LoadResourceText(uString, MAX_LABEL);
}

// What makes the person ask why there is a notice at all; empty for the ordinary type.
std::wstring LoadConnectionRemark(DWORD dwConnectionType)
{
    switch (dwConnectionType)
    {
    case ALWAYS_ANNOUNCED_CONNECTION_TYPE:
        return LINE_END + LoadLabel(IDS_NOTIFY_ALWAYS_ANNOUNCED) + LINE_END;
    case SECOND_KIND_CONNECTION_TYPE:
        return LINE_END + LoadLabel(IDS_NOTIFY_SECOND_KIND) + LINE_END;
    default:
        return {};
    }
}

std::wstring ComposeClient(const MSG_TRAYICON_CONNECT& connection)
{
    std::wstring text = LoadLabel(IDS_NOTIFY_NAME);
    text += FixedText(connection.szClientName);
    text += LINE_END;
    const std::wstring_view organisation = FixedText(connection.szClientDetail1);
    if (!organisation.empty())
    {
        text += LoadLabel(IDS_NOTIFY_ORGANISATION);
        text += organisation;
        text += LINE_END;
    }
    text += LoadLabel(IDS_NOTIFY_COMPUTER);
    text += FixedText(connection.szClientDetail2);
    return text + LoadConnectionRemark(connection.dwConnectionType);
}

std::wstring ComposeBody(std::wstring_view firstLine, const MSG_TRAYICON_CONNECT& connection)
{
    std::wstring text = std::wstring(firstLine) + LINE_END + ComposeClient(connection);
    text.resize(std::min(text.size(), MAX_NOTIFY_TEXT - 1));
    return text;
}
} // namespace

std::wstring ComposeConnectedText(const MSG_TRAYICON_SETTINGS& settings,
                                  const MSG_TRAYICON_CONNECT& connection)
{
    return ComposeBody(FixedText(settings.szNotifyConnectText), connection);
}

std::wstring ComposeDisconnectedText(const MSG_TRAYICON_CONNECT& connection)
{
    return ComposeBody(LoadLabel(IDS_NOTIFY_DISCONNECTED), connection);
}

std::wstring ComposeConnectedCount(DWORD dwClientCount)
{
    return FillPlaceholders(LoadLabel(IDS_NOTIFY_COUNT), {std::to_wstring(dwClientCount)});
}

bool MayNotifyClose(const MSG_TRAYICON_SETTINGS& settings, const MSG_TRAYICON_CONNECT& connection)
{
    if (connection.bListClients != 0)
    {
        return false;
    }
    return connection.dwConnectCount == 0 ||
           (connection.dwConnectionType == ORDINARY_CONNECTION_TYPE && settings.bKeepNoticeOpen == 0);
}

bool IsNotifySoundWanted(const MSG_TRAYICON_SETTINGS& settings, bool bSystemAccount)
{
    const bool bQuiet =
        settings.bQuietNotify != 0 && settings.dwDefaultConnectionType == ORDINARY_CONNECTION_TYPE;
    return !bSystemAccount && !bQuiet;
}

UINT GetNotifyPeriod(DWORD dwNotifySeconds)
{
    return std::min<DWORD>(dwNotifySeconds, USER_TIMER_MAXIMUM / MILLISECONDS) * MILLISECONDS;
}
