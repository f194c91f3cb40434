#include "tests/support/ColorScheme.h"

namespace
{
constexpr int COLORS = COLOR_MENUBAR + 1;

constexpr COLORREF BLACK = RGB(0, 0, 0);
constexpr COLORREF WHITE = RGB(255, 255, 255);
constexpr COLORREF YELLOW = RGB(255, 255, 0);
constexpr COLORREF GREEN = RGB(63, 242, 63);
constexpr COLORREF CYAN = RGB(26, 235, 255);
constexpr COLORREF GRAY = RGB(128, 128, 128);

BOOL CALLBACK TellWish(HWND hWnd, LPARAM)
{
    SendMessageW(hWnd, WM_SETTINGCHANGE, SPI_SETHIGHCONTRAST, 0);
    return TRUE;
}

void SetColors(const std::vector<SCHEME_COLOR>& colors)
{
    std::vector<int> indices;
    std::vector<COLORREF> values;
    for (const SCHEME_COLOR& color : colors)
    {
        indices.push_back(color.nIndex);
        values.push_back(color.cr);
    }
    SetSysColors(static_cast<int>(colors.size()), indices.data(), values.data());
}
} // namespace

ColorScheme* ColorScheme::s_pThis = nullptr;

ColorScheme::ColorScheme()
{
    s_pThis = this;
    for (int nIndex = 0; nIndex < COLORS; ++nIndex)
    {
        m_before.push_back({nIndex, GetSysColor(nIndex)});
    }
}

ColorScheme::~ColorScheme()
{
    SetColors(m_before);
    s_pThis = nullptr;
}

void ColorScheme::Use(const std::vector<SCHEME_COLOR>& colors, bool bHighContrast)
{
    m_bHighContrast = bHighContrast;
    SetColors(colors);
}

void ColorScheme::SetHighContrast(bool bHighContrast)
{
    m_bHighContrast = bHighContrast;
    EnumThreadWindows(GetCurrentThreadId(), &TellWish, 0);
}

std::vector<SCHEME_COLOR> ColorScheme::Black()
{
    return {{COLOR_SCROLLBAR, BLACK},
            {COLOR_BACKGROUND, BLACK},
            {COLOR_ACTIVECAPTION, BLACK},
            {COLOR_INACTIVECAPTION, BLACK},
            {COLOR_MENU, BLACK},
            {COLOR_WINDOW, BLACK},
            {COLOR_WINDOWFRAME, WHITE},
            {COLOR_MENUTEXT, WHITE},
            {COLOR_WINDOWTEXT, WHITE},
            {COLOR_CAPTIONTEXT, WHITE},
            {COLOR_ACTIVEBORDER, YELLOW},
            {COLOR_INACTIVEBORDER, GREEN},
            {COLOR_APPWORKSPACE, BLACK},
            {COLOR_HIGHLIGHT, CYAN},
            {COLOR_HIGHLIGHTTEXT, BLACK},
            {COLOR_BTNFACE, BLACK},
            {COLOR_BTNSHADOW, GRAY},
            {COLOR_GRAYTEXT, GREEN},
            {COLOR_BTNTEXT, WHITE},
            {COLOR_INACTIVECAPTIONTEXT, WHITE},
            {COLOR_BTNHIGHLIGHT, WHITE},
            {COLOR_3DDKSHADOW, WHITE},
            {COLOR_3DLIGHT, WHITE},
            {COLOR_INFOTEXT, YELLOW},
            {COLOR_INFOBK, BLACK},
            {COLOR_HOTLIGHT, YELLOW},
            {COLOR_GRADIENTACTIVECAPTION, BLACK},
            {COLOR_GRADIENTINACTIVECAPTION, BLACK},
            {COLOR_MENUHILIGHT, CYAN},
            {COLOR_MENUBAR, BLACK}};
}

BOOL WINAPI ColorScheme::Answer(UINT uAction, UINT uParameter, PVOID pvParameter, UINT uUpdate)
{
    if (uAction != SPI_GETHIGHCONTRAST)
    {
        return s_pThis->m_hook.Original()(uAction, uParameter, pvParameter, uUpdate);
    }
    ++s_pThis->m_nQuestions;
    HIGHCONTRASTW& answer = *static_cast<HIGHCONTRASTW*>(pvParameter);
    if (!s_pThis->m_bAnswers || uParameter != sizeof(answer) || answer.cbSize != sizeof(answer))
    {
        return FALSE;
    }
    answer.dwFlags = HCF_AVAILABLE | (s_pThis->m_bHighContrast ? HCF_HIGHCONTRASTON : 0);
    return TRUE;
}
