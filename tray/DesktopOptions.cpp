#include "tray/DesktopOptions.h"

#include "Include/Handles.h"
#include "Include/SystemCall.h"
#include "Include/TKLogging.h"
#include "Include/UtilWTS.h"
#include "tray/TKDASTWindow.h"

#include <array>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("DesktopOptions");

constexpr UINT DESKTOP_READY_PERIOD = 250; // milliseconds

// For the session only: the user's stored profile keeps the user's own choice, and the restore reads it
// there.
constexpr UINT SESSION_ONLY = SPIF_SENDCHANGE;

constexpr wchar_t DESKTOP_PROFILE_KEY[] = L"Control Panel\\Desktop";
constexpr DWORD MAX_PROFILE_VALUE =
    260; // bytes: a wallpaper whose path is longer stays off until the next log-on

// An effect that the system can tell and switch.
struct DESKTOP_EFFECT
{
    DWORD dwOption;
    UINT uGetAction;
    UINT uSetAction;
    bool bValueInUiParam; // the others take their value in the place of a pointer
};

constexpr DESKTOP_EFFECT FONT_SMOOTHING = {DESKTOP_OPTION_FONT_SMOOTHING, SPI_GETFONTSMOOTHING,
                                           SPI_SETFONTSMOOTHING, true};

// In the order in which they are switched off, and back on.
constexpr DESKTOP_EFFECT s_aEffects[] = {
    {DESKTOP_OPTION_FULL_WINDOW_DRAG, SPI_GETDRAGFULLWINDOWS, SPI_SETDRAGFULLWINDOWS, true},
    {DESKTOP_OPTION_DROP_SHADOW, SPI_GETDROPSHADOW, SPI_SETDROPSHADOW, false},
    {DESKTOP_OPTION_MENU_FADE, SPI_GETMENUFADE, SPI_SETMENUFADE, false},
    {DESKTOP_OPTION_MENU_ANIMATION, SPI_GETMENUANIMATION, SPI_SETMENUANIMATION, false},
    {DESKTOP_OPTION_GRADIENT_CAPTIONS, SPI_GETGRADIENTCAPTIONS, SPI_SETGRADIENTCAPTIONS, false},
    {DESKTOP_OPTION_CURSOR_SHADOW, SPI_GETCURSORSHADOW, SPI_SETCURSORSHADOW, false},
    {DESKTOP_OPTION_COMBO_BOX_ANIMATION, SPI_GETCOMBOBOXANIMATION, SPI_SETCOMBOBOXANIMATION, false},
    {DESKTOP_OPTION_SELECTION_FADE, SPI_GETSELECTIONFADE, SPI_SETSELECTIONFADE, false},
    {DESKTOP_OPTION_TOOL_TIP_ANIMATION, SPI_GETTOOLTIPANIMATION, SPI_SETTOOLTIPANIMATION, false},
    {DESKTOP_OPTION_TOOL_TIP_FADE, SPI_GETTOOLTIPFADE, SPI_SETTOOLTIPFADE, false},
};

bool SetEffect(const DESKTOP_EFFECT& effect, bool bOn)
{
    const UINT uValue = bOn ? 1 : 0;
    return SystemParametersInfoW(
               effect.uSetAction, effect.bValueInUiParam ? uValue : 0,
               effect.bValueInUiParam ? nullptr : reinterpret_cast<void*>(static_cast<ULONG_PTR>(uValue)),
               SESSION_ONLY) != FALSE;
}

bool SwitchOffEffect(const DESKTOP_EFFECT& effect)
{
    DWORD bOn = 0;
    return SystemParametersInfoW(effect.uGetAction, 0, &bOn, 0) != FALSE && bOn != 0 &&
           SetEffect(effect, false);
}

bool SetDesktopText(UINT uAction, const wchar_t* pszText)
{
    // The call only reads the text.
    return SystemParametersInfoW(uAction, 0, const_cast<wchar_t*>(pszText), SESSION_ONLY) != FALSE;
}

bool SwitchOffPattern()
{
    return SetDesktopText(SPI_SETDESKPATTERN, L"");
}

bool SwitchOffWallpaper()
{
    wchar_t szPath[MAX_PATH] = {};
    return SystemParametersInfoW(SPI_GETDESKWALLPAPER, MAX_PATH, szPath, 0) != FALSE && szPath[0] != L'\0' &&
           SetDesktopText(SPI_SETDESKWALLPAPER, L"");
}

// Terminated, however it is stored.
using PROFILE_TEXT = std::array<wchar_t, MAX_PROFILE_VALUE / sizeof(wchar_t) + 1>;

// What the user's profile holds, and the bytes of it. False when there is nothing or too much.
bool ReadProfileValue(const wchar_t* pszValue, PROFILE_TEXT& text, DWORD& cbText)
{
    text.fill(L'\0');
    cbText = MAX_PROFILE_VALUE;
    CRegKey hKey;
    return RegOpenKeyW(HKEY_CURRENT_USER, DESKTOP_PROFILE_KEY, hKey.put()) == ERROR_SUCCESS &&
           RegQueryValueExW(hKey.get(), pszValue, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()),
                            &cbText) == ERROR_SUCCESS;
}

void RestoreFontSmoothing()
{
    PROFILE_TEXT text;
    DWORD cbText = 0;
    if (ReadProfileValue(L"FontSmoothing", text, cbText) && text[0] != L'0')
    {
        SetEffect(FONT_SMOOTHING, true);
    }
}

void RestoreDesktopText(const wchar_t* pszValue, UINT uAction)
{
    PROFILE_TEXT text;
    DWORD cbText = 0;
    if (ReadProfileValue(pszValue, text, cbText) && cbText >= sizeof(wchar_t))
    {
        SetDesktopText(uAction, text.data());
    }
}

// Switches off what the mask names; the bits that really changed.
DWORD SwitchOffOptions(DWORD dwOptions)
{
    DWORD dwApplied = 0;
    const auto apply = [&](DWORD dwOption, auto&& switchOff) {
        if ((dwOptions & dwOption) != 0 && switchOff())
        {
            dwApplied |= dwOption;
        }
    };
    apply(DESKTOP_OPTION_PATTERN, SwitchOffPattern);
    apply(DESKTOP_OPTION_WALLPAPER, SwitchOffWallpaper);
    apply(FONT_SMOOTHING.dwOption, [] { return SwitchOffEffect(FONT_SMOOTHING); });
    for (const DESKTOP_EFFECT& effect : s_aEffects)
    {
        apply(effect.dwOption, [&] { return SwitchOffEffect(effect); });
    }
    return dwApplied;
}
} // namespace

void CTaskBarWindow::SetDesktopOptions(DWORD dwOptions)
{
    const TKLogBlock block(L"CTaskBarWindow::SetDesktopOptions", g_pLogger);
    if (m_uDesktopReadyTimer != 0)
    {
        return; // the wait for the shell ends with the mask that began it
    }
    if (dwOptions > DESKTOP_OPTIONS_NONE)
    {
        m_dwRequestedOptions = dwOptions;
    }
    if (!IsUserDesktopInitialized())
    {
        m_uDesktopReadyTimer = SetTimer(m_hWnd, TIMER_DESKTOP_READY, DESKTOP_READY_PERIOD, nullptr);
        return;
    }
    m_dwAppliedOptions |= SwitchOffOptions(dwOptions);
}

void CTaskBarWindow::SetDesktopOptionsDelayed()
{
    const TKLogBlock block(L"CTaskBarWindow::SetDesktopOptionsDelayed", g_pLogger);
    const DWORD dwRequested = m_dwRequestedOptions;
    if (dwRequested > DESKTOP_OPTIONS_NONE)
    {
        SetDesktopOptions(dwRequested);
    }
}

void CTaskBarWindow::RetoreDesktopOptions()
{
    const TKLogBlock block(L"CTaskBarWindow::RetoreDesktopOptions", g_pLogger);
    m_dwRequestedOptions = DESKTOP_OPTIONS_NONE; // nothing may bring the plain desktop back
    const DWORD dwApplied = m_dwAppliedOptions;
    if ((dwApplied & FONT_SMOOTHING.dwOption) != 0)
    {
        RestoreFontSmoothing();
    }
    for (const DESKTOP_EFFECT& effect : s_aEffects)
    {
        if ((dwApplied & effect.dwOption) != 0)
        {
            SetEffect(effect, true);
        }
    }
    if ((dwApplied & DESKTOP_OPTION_PATTERN) != 0)
    {
        RestoreDesktopText(L"Pattern", SPI_SETDESKPATTERN);
    }
    if ((dwApplied & DESKTOP_OPTION_WALLPAPER) != 0)
    {
        RestoreDesktopText(L"Wallpaper", SPI_SETDESKWALLPAPER);
    }
}

int Logoff(int bForce)
{
    const TKLogBlock block(L"Logoff", g_pLogger);
    TK_LOG_INFO(g_pLogger, L"bForce=" << bForce);
    return ExitWindowsEx(bForce != 0 ? EWX_FORCE : EWX_LOGOFF, 0);
}

int LockWorkstation()
{
    const TKLogBlock block(L"LockWorkstation", g_pLogger);
    const CSystemCall<decltype(&LockWorkStation)> lock(L"user32.dll", "LockWorkStation");
    if (!lock || !lock())
    {
        PostMessageW(GetForegroundWindow(), WM_SYSCOMMAND, SC_SCREENSAVE, 0);
    }
    return 1;
}
