#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"

#include <cstddef>
#include <string>

/*
 * Texts that a dialog draws itself, and their fonts. Main thread.
 */

/// A font in a device context for one scope; it must outlive this object.
class CSelectedFont
{
  public:
    CSelectedFont(HDC hDC, HGDIOBJ hFont) : m_hDC(hDC), m_hPrevious(SelectObject(hDC, hFont)) {}
    ~CSelectedFont() { SelectObject(m_hDC, m_hPrevious); }
    CSelectedFont(const CSelectedFont&) = delete;
    CSelectedFont& operator=(const CSelectedFont&) = delete;

  private:
    const HDC m_hDC;
    const HGDIOBJ m_hPrevious;
};

/// The stock font for windows, which no resolution makes larger: above the usual one it is taken in
/// proportion.
class CPaintedFont
{
  public:
    explicit CPaintedFont(HDC hDC);

    /// The object's own, for as long as it lives.
    HGDIOBJ get() const { return m_hLarger ? m_hLarger.get() : GetStockObject(ANSI_VAR_FONT); }

  private:
    CGdiObject m_hLarger;
};

/// The text for a drawing format that takes an ampersand for the mark of a shortcut key; a name has none.
std::wstring DoubleAmpersands(std::wstring text);

/// Draws the text of a hidden control in the control's place, of at most cchText characters, terminator
/// included, in a DrawTextW format that knows shortcut keys.
void DrawControlText(HWND hDlg, HDC hDC, int nControl, UINT uFormat, size_t cchText);
