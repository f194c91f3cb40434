#pragma once

#include <winsock2.h>
#include <windows.h>

#include "tests/support/ImportHook.h"

#include <functional>
#include <string>
#include <vector>

/// A message box that was asked for.
struct SHOWN_MESSAGE
{
    HWND hWndOwner;
    std::wstring text;
    std::wstring title;
    UINT uType;
};

/// Answers message boxes at once, for as long as the object lives. One at a time.
class BoxTrace
{
  public:
    BoxTrace();
    ~BoxTrace();
    BoxTrace(const BoxTrace&) = delete;
    BoxTrace& operator=(const BoxTrace&) = delete;

    /// On the thread that shows boxes, or when it shows none.
    const std::vector<SHOWN_MESSAGE>& Boxes() const { return m_boxes; }
    void Forget() { m_boxes.clear(); }

    int m_nAnswer = IDOK;

    /// Runs while the next box is open.
    std::function<void()> m_whileOpen;

  private:
    static BoxTrace* s_pThis;
    static int WINAPI Record(HWND hWnd, LPCWSTR pszText, LPCWSTR pszTitle, UINT uType);

    std::vector<SHOWN_MESSAGE> m_boxes;
    ImportHook<decltype(MessageBoxW)> m_box{"user32.dll", "MessageBoxW", &Record};
};
