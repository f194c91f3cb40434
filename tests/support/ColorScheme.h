#pragma once

#include <winsock2.h>
#include <windows.h>

#include "tests/support/ImportHook.h"

#include <vector>

struct SCHEME_COLOR
{
    int nIndex; // COLOR_...
    COLORREF cr;
};

/// The system's colours and the user's wish for high contrast, which can be changed for as long as the object
/// lives; then the colours are again what they were. Every window is told of a change of colours, as the
/// system does; the wish is played to this executable alone, since the test system has none. One object at a
/// time.
class ColorScheme
{
  public:
    ColorScheme();
    ~ColorScheme();
    ColorScheme(const ColorScheme&) = delete;
    ColorScheme& operator=(const ColorScheme&) = delete;

    /// Colours that aren't named stay.
    void Use(const std::vector<SCHEME_COLOR>& colors, bool bHighContrast);

    /// The wish alone, which the windows of this thread are told as of a setting.
    void SetHighContrast(bool bHighContrast);

    /// White and bright on black.
    static std::vector<SCHEME_COLOR> Black();

    /// How often the wish was asked for.
    int Questions() const { return m_nQuestions; }

    bool m_bAnswers = true; // whether the system says anything about the wish

  private:
    static ColorScheme* s_pThis;
    static BOOL WINAPI Answer(UINT uAction, UINT uParameter, PVOID pvParameter, UINT uUpdate);

    std::vector<SCHEME_COLOR> m_before;
    bool m_bHighContrast = false;
    int m_nQuestions = 0;
    ImportHook<decltype(SystemParametersInfoW)> m_hook{"user32.dll", "SystemParametersInfoW", &Answer};
};
