#include "tests/e2e/WriterTest.h"

#include "Include/BoundedText.h"

namespace
{
constexpr wchar_t POPUP_TITLE[] = L"Somebody looks at your screen";

class PopupTest : public WriterTest
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
        BeginLetter();
    }

    /// Waits, answering the letter's messages, until the popup is there or gone.
    static bool WaitForPopup(bool bThere)
    {
        return WaitForShownWindow(POPUP_TITLE, bThere, PATIENCE_MS, PumpMessages);
    }

    bool SendLockStateChange()
    {
        const DWORD dwType =
            MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE; // has a notice that is due shown at once
        return m_channel->Send(dwType);
    }
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
