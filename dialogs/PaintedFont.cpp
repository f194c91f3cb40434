#include "dialogs/PaintedFont.h"

CPaintedFont::CPaintedFont(HDC hDC)
{
    const int nResolution = GetDeviceCaps(hDC, LOGPIXELSY);
    LOGFONTW font = {};
    if (nResolution > USER_DEFAULT_SCREEN_DPI &&
        GetObjectW(GetStockObject(ANSI_VAR_FONT), sizeof(font), &font) != 0)
    {
        font.lfHeight = MulDiv(font.lfHeight, nResolution, USER_DEFAULT_SCREEN_DPI);
        font.lfWidth = 0;
        m_hLarger.reset(CreateFontIndirectW(&font));
    }
}
