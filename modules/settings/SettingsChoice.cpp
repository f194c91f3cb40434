#include "modules/settings/SettingsChoice.h"

#include "Include/Placeholders.h"
#include "channel/TrayMessages.h"
#include "modules/common/ModuleLanguage.h"

#include <algorithm>

namespace
{
constexpr wchar_t BLANKS[] = L" \t\x00A0";
constexpr wchar_t DIGITS[] = L"0123456789";
constexpr DWORD DECIMAL = 10;
constexpr int MAX_LANGUAGE_NAME = 128; // characters, terminator included

bool IsInstalled(const std::vector<std::wstring>& installed, std::wstring_view code)
{
    return std::any_of(installed.begin(), installed.end(),
                       [code](const std::wstring& other) { return IsSameLanguage(other, code); });
}

// Stops growing as soon as it is too large for a port.
DWORD ValueOf(std::wstring_view digits)
{
    DWORD dwValue = 0;
    for (const wchar_t ch : digits)
    {
        dwValue = std::min(dwValue * DECIMAL + static_cast<DWORD>(ch - L'0'), LARGEST_PORT + 1);
    }
    return dwValue;
}

TRAY_ICON_MODE KnownMode(DWORD dwMode)
{
    switch (dwMode)
    {
    case TRAY_ICON_HIDDEN:
        return TRAY_ICON_HIDDEN;
    case TRAY_ICON_WHILE_CONNECTED:
        return TRAY_ICON_WHILE_CONNECTED;
    default:
        return TRAY_ICON_SHOWN;
    }
}

bool IsChanged(const SETTINGS& shown, const SETTINGS& wanted, SETTING setting)
{
    switch (setting)
    {
    case SETTING::PORT:
        return shown.dwPort != wanted.dwPort;
    case SETTING::TRAY_ICON:
        return shown.trayIcon != wanted.trayIcon;
    case SETTING::LANGUAGE:
        return !IsSameLanguage(shown.language, wanted.language);
    case SETTING::PERMISSION:
        return shown.bPermissionRequired != wanted.bPermissionRequired;
    }
    return false;
}
} // namespace

PORT_INPUT ParsePortInput(std::wstring_view text)
{
    const size_t nBegin = text.find_first_not_of(BLANKS);
    if (nBegin == std::wstring_view::npos)
    {
        return {PORT_FAULT::EMPTY, 0, 0, text.size()};
    }
    const size_t nEnd = text.find_last_not_of(BLANKS) + 1;
    const std::wstring_view digits = text.substr(nBegin, nEnd - nBegin);
    if (const size_t nStrange = digits.find_first_not_of(DIGITS); nStrange != std::wstring_view::npos)
    {
        const size_t nNextDigit = std::min(digits.find_first_of(DIGITS, nStrange), digits.size());
        return {PORT_FAULT::NO_NUMBER, 0, nBegin + nStrange, nBegin + nNextDigit};
    }
    const DWORD dwPort = ValueOf(digits);
    if (dwPort == 0 || dwPort > LARGEST_PORT)
    {
        return {PORT_FAULT::OUT_OF_RANGE, 0, nBegin, nEnd};
    }
    return {PORT_FAULT::NONE, dwPort, 0, 0};
}

SETTINGS ShownSettings(DWORD dwPort, DWORD dwTrayIcon, DWORD dwPermissionRequired, std::wstring_view language)
{
    return {dwPort != 0 ? dwPort : DWORD{DEFAULT_SERVICE_PORT}, KnownMode(dwTrayIcon),
            dwPermissionRequired != 0, std::wstring(!language.empty() ? language : DEFAULT_LANGUAGE)};
}

std::vector<SETTING> ChangedSettings(const SETTINGS& shown, const SETTINGS& wanted)
{
    std::vector<SETTING> changed;
    for (const SETTING setting : {SETTING::PORT, SETTING::TRAY_ICON, SETTING::LANGUAGE, SETTING::PERMISSION})
    {
        if (IsChanged(shown, wanted, setting))
        {
            changed.push_back(setting);
        }
    }
    return changed;
}

void TakeSetting(SETTINGS& to, const SETTINGS& from, SETTING setting)
{
    switch (setting)
    {
    case SETTING::PORT:
        to.dwPort = from.dwPort;
        break;
    case SETTING::TRAY_ICON:
        to.trayIcon = from.trayIcon;
        break;
    case SETTING::LANGUAGE:
        to.language = from.language;
        break;
    case SETTING::PERMISSION:
        to.bPermissionRequired = from.bPermissionRequired;
        break;
    }
}

HKEY RootOfSetting(SETTING setting, bool bApplicationMode)
{
    return bApplicationMode && setting == SETTING::LANGUAGE ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

std::wstring NearestLanguage(std::wstring_view windowsLocale, const std::vector<std::wstring>& installed)
{
    while (!windowsLocale.empty() && !IsInstalled(installed, windowsLocale))
    {
        const size_t nRegion = windowsLocale.rfind(L'-');
        windowsLocale = windowsLocale.substr(0, nRegion != std::wstring_view::npos ? nRegion : 0);
    }
    return std::wstring(!windowsLocale.empty() ? windowsLocale : DEFAULT_LANGUAGE);
}

std::wstring LanguageName(const std::wstring& code)
{
    wchar_t szName[MAX_LANGUAGE_NAME] = {};
    if (GetLocaleInfoEx(code.c_str(), LOCALE_SNATIVELANGUAGENAME, szName, MAX_LANGUAGE_NAME) == 0)
    {
        return code;
    }
    CharUpperBuffW(szName, 1); // many languages write their own names small, which looks lost in a list
    return szName;
}

std::vector<LANGUAGE_CHOICE> ListLanguages(const std::vector<std::wstring>& installed,
                                           std::wstring_view windowsLocale, const std::wstring& stored,
                                           const LANGUAGE_WORDS& words)
{
    const std::wstring nearest = NearestLanguage(windowsLocale, installed);
    std::vector<LANGUAGE_CHOICE> choices = {
        {nearest, FillPlaceholders(words.asWindows, {LanguageName(nearest)})}};
    for (const std::wstring& code : installed)
    {
        choices.push_back({code, LanguageName(code)});
    }
    if (!IsInstalled(installed, stored))
    {
        choices.push_back({stored, FillPlaceholders(words.notInstalled, {stored})});
    }
    return choices;
}

size_t FindLanguage(const std::vector<LANGUAGE_CHOICE>& choices, std::wstring_view code)
{
    size_t nChoice = 1; // behind Windows's own, which might have the same code
    while (nChoice + 1 < choices.size() && !IsSameLanguage(choices[nChoice].code, code))
    {
        ++nChoice;
    }
    return nChoice;
}
