#include "Include/UtilDesktop.h"

#include "Include/Handles.h"

bool ReadDesktopName(HDESK hDesktop, wchar_t* pszName, DWORD cbName)
{
    return GetUserObjectInformationW(hDesktop, UOI_NAME, pszName, cbName, nullptr) != FALSE;
}

bool ReadInputDesktopName(wchar_t (&szName)[MAX_DESKTOP_NAME])
{
    const CDesktop hDesktop(OpenInputDesktop(0, FALSE, DESKTOP_READOBJECTS));
    return hDesktop && ReadDesktopName(hDesktop.get(), szName, sizeof(szName));
}

bool IsScreenSaverRunning()
{
    BOOL bRunning = FALSE;
    return SystemParametersInfoW(SPI_GETSCREENSAVERRUNNING, 0, &bRunning, 0) != FALSE && bRunning != FALSE;
}
