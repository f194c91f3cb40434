#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"

/*
 * Fonts of texts that a dialog draws itself. Main thread.
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

    HGDIOBJ get() const { return m_hLarger ? m_hLarger.get() : GetStockObject(ANSI_VAR_FONT); }

  private:
    CGdiObject m_hLarger;
};
