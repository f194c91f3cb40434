#pragma once

#include <winsock2.h>
#include <windows.h>
#include <shellapi.h>

#include "tests/support/ImportHook.h"

#include <string>
#include <vector>

// Dots per inch.
constexpr int USUAL_SCREEN = 96;
constexpr int FINE_SCREEN = 120;

// Pixels across.
constexpr LONG USUAL_BANNER = 399;
constexpr LONG FINE_BANNER = 798;

/// A screen of so many dots per inch, for as long as the object lives. One at a time.
class PlayedScreen
{
  public:
    PlayedScreen();
    ~PlayedScreen();
    PlayedScreen(const PlayedScreen&) = delete;
    PlayedScreen& operator=(const PlayedScreen&) = delete;

    int nDotsPerInch = USUAL_SCREEN;

  private:
    static PlayedScreen* s_pThis;
    static int WINAPI Answer(HDC hDC, int nIndex);

    ImportHook<decltype(GetDeviceCaps)> m_hook{"gdi32.dll", "GetDeviceCaps", &Answer};
};

/// What the shell was asked to open.
struct OPENED_DOCUMENT
{
    HWND hWnd;
    std::wstring verb;
    std::wstring address;
    int nShow;
};

/// Takes what the shell is asked to open, and fails, for as long as the object lives. One at a time.
class OpeningTrace
{
  public:
    OpeningTrace();
    ~OpeningTrace();
    OpeningTrace(const OpeningTrace&) = delete;
    OpeningTrace& operator=(const OpeningTrace&) = delete;

    const std::vector<OPENED_DOCUMENT>& Documents() const { return m_documents; }

  private:
    static OpeningTrace* s_pThis;
    static HINSTANCE WINAPI Record(HWND hWnd, LPCWSTR pszVerb, LPCWSTR pszFile, LPCWSTR pszParameters,
                                   LPCWSTR pszFolder, INT nShow);

    std::vector<OPENED_DOCUMENT> m_documents;
    ImportHook<decltype(ShellExecuteW)> m_hook{"shell32.dll", "ShellExecuteW", &Record};
};

/// Pixels across of the picture that a control shows; zero when there is none.
LONG BannerWidth(HWND hDialog, int nControl);

/// Sends the notification of a control. Result: the dialog procedure's.
LRESULT NotifyFrom(HWND hDialog, int nControl, UINT uCode);
