#include "tests/unit/BannerDialog.h"

#include <gtest/gtest.h>

PlayedScreen* PlayedScreen::s_pThis = nullptr;
OpeningTrace* OpeningTrace::s_pThis = nullptr;

PlayedScreen::PlayedScreen()
{
    s_pThis = this;
}

PlayedScreen::~PlayedScreen()
{
    s_pThis = nullptr;
}

int WINAPI PlayedScreen::Answer(HDC hDC, int nIndex)
{
    return nIndex == LOGPIXELSX ? s_pThis->nDotsPerInch : s_pThis->m_hook.Original()(hDC, nIndex);
}

OpeningTrace::OpeningTrace()
{
    s_pThis = this;
}

OpeningTrace::~OpeningTrace()
{
    s_pThis = nullptr;
}

HINSTANCE WINAPI OpeningTrace::Record(HWND hWnd, LPCWSTR pszVerb, LPCWSTR pszFile, LPCWSTR pszParameters,
                                      LPCWSTR pszFolder, INT nShow)
{
    EXPECT_TRUE(pszParameters == nullptr && pszFolder == nullptr);
    s_pThis->m_documents.push_back({hWnd, pszVerb, pszFile, nShow});
    return nullptr;
}

LONG BannerWidth(HWND hDialog, int nControl)
{
    const auto hBanner =
        reinterpret_cast<HBITMAP>(SendDlgItemMessageW(hDialog, nControl, STM_GETIMAGE, IMAGE_BITMAP, 0));
    BITMAP bitmap = {};
    GetObjectW(hBanner, sizeof(bitmap), &bitmap);
    return bitmap.bmWidth;
}

LRESULT NotifyFrom(HWND hDialog, int nControl, UINT uCode)
{
    NMHDR notification = {};
    notification.hwndFrom = GetDlgItem(hDialog, nControl);
    notification.idFrom = static_cast<UINT_PTR>(nControl);
    notification.code = uCode;
    return SendMessageW(hDialog, WM_NOTIFY, notification.idFrom, reinterpret_cast<LPARAM>(&notification));
}
