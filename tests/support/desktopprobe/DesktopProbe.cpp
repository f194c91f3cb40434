#include "tests/support/DesktopEffects.h"

#include <cstdio>

namespace
{
// The system has no question for the pattern. The test system keeps what is in force for the session only
// under the first of these keys, and what is stored for good under the second.
constexpr const wchar_t* PATTERN_KEYS[] = {
    L"Software\\Wine\\Temporary System Parameters\\Control Panel\\Desktop", L"Control Panel\\Desktop"};

void PrintPattern()
{
    wchar_t szPattern[MAX_PATH] = {};
    for (const wchar_t* const pszKey : PATTERN_KEYS)
    {
        DWORD cbPattern = sizeof(szPattern);
        if (RegGetValueW(HKEY_CURRENT_USER, pszKey, L"Pattern", RRF_RT_REG_SZ, nullptr, szPattern,
                         &cbPattern) == ERROR_SUCCESS)
        {
            break;
        }
    }
    std::printf("%s=%ls\n", PATTERN_NAME, szPattern);
}

void PrintWallpaper()
{
    wchar_t szPath[MAX_PATH] = {};
    SystemParametersInfoW(SPI_GETDESKWALLPAPER, MAX_PATH, szPath, 0);
    std::printf("%s=%ls\n", WALLPAPER_NAME, szPath);
}
} // namespace

/// Prints what is in force on the desktop, a line each. A process keeps what it has once read, so whoever
/// wants to know what has become of it starts this program anew.
int main()
{
    PrintPattern();
    PrintWallpaper();
    for (const DESKTOP_EFFECT_CALLS& effect : DESKTOP_EFFECT_TABLE)
    {
        DWORD bOn = 0;
        const bool bRead = SystemParametersInfoW(effect.uGetAction, 0, &bOn, 0) != FALSE;
        std::printf("%s=%s\n", effect.pszName, !bRead ? "?" : bOn != 0 ? "on" : "off");
    }
    return 0;
}
