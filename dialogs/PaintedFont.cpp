#include "dialogs/PaintedFont.h"

#include "dialogs/DialogControls.h"

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

std::wstring DoubleAmpersands(std::wstring text)
{
    for (size_t nAt = text.find(L'&'); nAt != std::wstring::npos; nAt = text.find(L'&', nAt + 2))
    {
        text.insert(nAt, 1, L'&');
    }
    return text;
}

void DrawControlText(HWND hDlg, HDC hDC, int nControl, UINT uFormat, size_t cchText)
{
    RECT rect = ControlPlace(hDlg, nControl);
    const std::wstring text = DoubleAmpersands(ReadControl(hDlg, nControl, cchText));
    SetBkMode(hDC, TRANSPARENT);
    const CPaintedFont paintedFont(hDC);
    const CSelectedFont font(hDC, paintedFont.get());
    DrawTextW(hDC, text.c_str(), static_cast<int>(text.size()), &rect, uFormat);
}
