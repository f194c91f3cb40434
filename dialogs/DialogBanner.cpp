#include "dialogs/DialogBanner.h"

#include "resources/resource.h"
#include "startup/TKDAST.h"

namespace
{
bool IsScreenFine(HWND hDlg)
{
    const HDC hDC = GetDC(hDlg);
    const int nDotsPerInch = GetDeviceCaps(hDC, LOGPIXELSX);
    ReleaseDC(hDlg, hDC);
    return nDotsPerInch > USER_DEFAULT_SCREEN_DPI;
}

// What was shown before; the caller's to free.
HGDIOBJ Replace(HWND hDlg, int nControl, HGDIOBJ hPicture)
{
    return reinterpret_cast<HGDIOBJ>(
        SendDlgItemMessageW(hDlg, nControl, STM_SETIMAGE, IMAGE_BITMAP, reinterpret_cast<LPARAM>(hPicture)));
}
} // namespace

bool CDialogBanner::Show(HWND hDlg, int nControl)
{
    if (!IsScreenFine(hDlg))
    {
        return true;
    }
    m_hFine.reset(LoadImageW(g_hResourceModule, MAKEINTRESOURCEW(IDB_BITMAP_INTERNET_SESSION_BANNER),
                             IMAGE_BITMAP, 0, 0, LR_DEFAULTCOLOR));
    if (!m_hFine)
    {
        return false;
    }
    const CGdiObject hOwn(Replace(hDlg, nControl, m_hFine.get()));
    return true;
}

// Not every system frees the banner that a template has loaded, so it is taken off first.
void CDialogBanner::TakeOff(HWND hDlg, int nControl)
{
    CGdiObject hShown(Replace(hDlg, nControl, nullptr));
    if (hShown.get() == m_hFine.get())
    {
        (void)hShown.release();
    }
    m_hFine.reset();
}
