#pragma once

#include <winsock2.h>
#include <windows.h>

/// One effect of the desktop: its bit in a mask of desktop options, and how the system is asked about it.
struct DESKTOP_EFFECT_CALLS
{
    DWORD dwOption;
    const char* pszName;
    UINT uGetAction;
    UINT uSetAction;
    bool bValueInUiParam; // the others take their value in the place of a pointer
};

constexpr DESKTOP_EFFECT_CALLS DESKTOP_EFFECT_TABLE[] = {
    {0x0010, "font smoothing", SPI_GETFONTSMOOTHING, SPI_SETFONTSMOOTHING, true},
    {0x0020, "full-window drag", SPI_GETDRAGFULLWINDOWS, SPI_SETDRAGFULLWINDOWS, true},
    {0x0040, "drop shadow", SPI_GETDROPSHADOW, SPI_SETDROPSHADOW, false},
    {0x0080, "menu fade", SPI_GETMENUFADE, SPI_SETMENUFADE, false},
    {0x0100, "menu animation", SPI_GETMENUANIMATION, SPI_SETMENUANIMATION, false},
    {0x0200, "gradient captions", SPI_GETGRADIENTCAPTIONS, SPI_SETGRADIENTCAPTIONS, false},
    {0x0400, "cursor shadow", SPI_GETCURSORSHADOW, SPI_SETCURSORSHADOW, false},
    {0x0800, "combo box animation", SPI_GETCOMBOBOXANIMATION, SPI_SETCOMBOBOXANIMATION, false},
    {0x1000, "selection fade", SPI_GETSELECTIONFADE, SPI_SETSELECTIONFADE, false},
    {0x2000, "tool-tip animation", SPI_GETTOOLTIPANIMATION, SPI_SETTOOLTIPANIMATION, false},
    {0x4000, "tool-tip fade", SPI_GETTOOLTIPFADE, SPI_SETTOOLTIPFADE, false},
};

constexpr DWORD PATTERN_OPTION = 0x0002;
constexpr DWORD WALLPAPER_OPTION = 0x0004;
constexpr char PATTERN_NAME[] = "pattern";
constexpr char WALLPAPER_NAME[] = "wallpaper";
