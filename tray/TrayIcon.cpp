#include "tray/TrayIcon.h"

#include <algorithm>

namespace
{
constexpr int QUICK_RETRIES = 60;
constexpr UINT QUICK_RETRY_PERIOD = 1000; // milliseconds
constexpr UINT SLOW_RETRY_PERIOD = 60000; // milliseconds

constexpr std::wstring_view TIP_END = L"...";
constexpr size_t ROOM_FOR_TIP_END = 4; // the dots and the terminator
constexpr size_t MAX_TIP_SOURCE = 756; // characters
} // namespace

TRAY_ICON_PRESENCE DecideTrayIconPresence(DWORD dwMode, DWORD dwConnectionType, bool bOneTimeSession,
                                          bool bConnected)
{
    if (dwConnectionType == ORDINARY_CONNECTION_TYPE)
    {
        if (dwMode == TRAY_ICON_HIDDEN && !bOneTimeSession)
        {
            return TRAY_ICON_PRESENCE::Hidden;
        }
        if (dwMode == TRAY_ICON_WHILE_CONNECTED && !bConnected)
        {
            return TRAY_ICON_PRESENCE::HiddenAlways;
        }
    }
    return TRAY_ICON_PRESENCE::Shown;
}

TRAY_ICON_IMAGE ChooseTrayIconImage(bool bConnected, bool bPermissionRequired)
{
    if (bConnected)
    {
        return TRAY_ICON_IMAGE::Active;
    }
    return bPermissionRequired ? TRAY_ICON_IMAGE::Permission : TRAY_ICON_IMAGE::Idle;
}

UINT GetTrayRetryPeriod(int nRetries)
{
    return nRetries <= QUICK_RETRIES ? QUICK_RETRY_PERIOD : SLOW_RETRY_PERIOD;
}

std::wstring ComposeTrayTip(std::wstring_view text, std::wstring_view prefix, bool bPrefixed, size_t cchTip)
{
    if (text.empty())
    {
        return {};
    }
    std::wstring tip(prefix);
    tip.append(text);
    size_t cchCopy = cchTip - ROOM_FOR_TIP_END;
    if (bPrefixed)
    {
        tip.resize(std::min(tip.size(), MAX_TIP_SOURCE));
        cchCopy = std::min(cchCopy, tip.size());
    }
    // One character less than the length, as a copy that counts its terminator takes.
    tip.resize(std::min(tip.size(), cchCopy - 1));
    return tip.append(TIP_END);
}
