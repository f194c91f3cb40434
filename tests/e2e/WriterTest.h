#pragma once

#include "tests/e2e/TrayTest.h"

#include "Include/Handles.h"
#include "devservice/Person.h"

#include <iterator>
#include <string>

/// A person who writes in a window of another program while the agent has things to show.
class WriterTest : public TrayTest
{
  protected:
    static constexpr DWORD LOOK_MS = 10;

    /// Waits while the letter's window answers its messages.
    static bool PumpMessages(DWORD dwMilliseconds)
    {
        Sleep(dwMilliseconds);
        MSG message = {};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        return true;
    }

    static std::wstring TextOf(HWND hWnd)
    {
        wchar_t szText[256] = {};
        GetWindowTextW(hWnd, szText, static_cast<int>(std::size(szText)));
        return szText;
    }

    void BeginLetter()
    {
        m_letter = CWindow(CreateWindowExW(0, L"EDIT", L"", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 20, 20, 400,
                                           200, nullptr, nullptr, nullptr, nullptr));
        SetForegroundWindow(m_letter.get());
        SetFocus(m_letter.get());
        PumpMessages(LOOK_MS);
    }

    /// One more letter, and it must arrive where it was meant.
    void TypeLetter()
    {
        m_written += L'a';
        ASSERT_TRUE(PressKey(L"A"));
        for (DWORD dwWaited = 0; dwWaited < PATIENCE_MS && TextOf(m_letter.get()) != m_written;
             dwWaited += LOOK_MS)
        {
            PumpMessages(LOOK_MS);
        }
        ASSERT_EQ(TextOf(m_letter.get()), m_written);
        ASSERT_EQ(GetForegroundWindow(), m_letter.get());
    }

  private:
    CWindow m_letter;
    std::wstring m_written;
};
