#include "tests/e2e/TrayTest.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "devservice/Person.h"

#include <string>
#include <string_view>

namespace
{
constexpr wchar_t POPUP_TITLE[] = L"Somebody looks at your screen";
constexpr DWORD LOOK_MS = 10;

bool PumpMessages(DWORD dwMilliseconds)
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

std::wstring TextOf(HWND hWnd)
{
    wchar_t szText[256] = {};
    GetWindowTextW(hWnd, szText, static_cast<int>(std::size(szText)));
    return szText;
}

/// A person who writes in a window of another program while the agent has things to tell.
class PopupTest : public TrayTest
{
  protected:
    void SetUp() override
    {
        StartAgent();
        AcceptAgent();
        ShakeHands();
        MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
        settings.bNotifyConnect = 1;
        settings.bNotifyDisconnect = 1;
        settings.bQuietNotify = 1;
        CopyText(settings.szNotifyTitle, POPUP_TITLE);
        ASSERT_TRUE(m_channel->Send(settings));
        ExpectEcho();
        m_letter = CWindow(CreateWindowExW(0, L"EDIT", L"", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 20, 20, 400,
                                           200, nullptr, nullptr, nullptr, nullptr));
        SetForegroundWindow(m_letter.get());
        SetFocus(m_letter.get());
        PumpMessages(LOOK_MS);
    }

    /// Waits, answering the letter's messages, until the popup is there or gone.
    static bool WaitForPopup(bool bThere)
    {
        return WaitForShownWindow(POPUP_TITLE, bThere, PATIENCE_MS, PumpMessages);
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

    bool SendLockStateChange()
    {
        const DWORD dwType =
            MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE; // has a notice that is due shown at once
        return m_channel->Send(dwType);
    }

    CWindow m_letter;
    std::wstring m_written;
};

TEST_F(PopupTest, NoticesThatComeAndGoLeaveTheFocusToWhoIsWriting)
{
    TypeLetter();
    for (int nRound = 0; nRound < 5; ++nRound)
    {
        ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1) && SendLockStateChange());
        ASSERT_TRUE(WaitForPopup(true));
        TypeLetter();
        ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 2) && SendLockStateChange());
        TypeLetter();
        ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0));
        ExpectEcho(); // the earlier popup is gone
        ASSERT_TRUE(WaitForPopup(true));
        TypeLetter();
        PostMessageW(FindShownWindow(POPUP_TITLE), WM_CLOSE, 0, 0);
        ASSERT_TRUE(WaitForPopup(false));
        TypeLetter();
    }
}

TEST_F(PopupTest, TheEndOfTheServiceTakesThePopupAlong)
{
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1) && SendLockStateChange());
    ASSERT_TRUE(WaitForPopup(true));
    ExpectEndWithService();
    EXPECT_TRUE(WaitForPopup(false));
}
} // namespace
