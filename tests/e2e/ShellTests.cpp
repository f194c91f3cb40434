#include "tests/e2e/AgentTest.h"
#include "tests/support/DesktopInForce.h"
#include "tests/support/ShellTrayCatcher.h"
#include "tests/support/ShelllessDesktop.h"
#include "tests/support/ShownTrayIcon.h"
#include "tests/support/Watchdog.h"

#include "Include/BoundedText.h"
#include "resources/resource.h"

#include <shellapi.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace
{
constexpr DWORD LOOK_AGAIN_MS = 30;
constexpr DWORD CLOCK_STEP_MS = 32;

/// The shell paints when it likes, and tells nobody.
bool WaitUntil(const std::function<bool()>& isSo)
{
    const ULONGLONG qwEnd = GetTickCount64() + PATIENCE_MS;
    while (!isSo())
    {
        if (GetTickCount64() >= qwEnd)
        {
            return false;
        }
        Sleep(LOOK_AGAIN_MS);
    }
    return true;
}

/// An agent in the tray of the desktop's own shell.
class RealShellTest : public AgentTest
{
  protected:
    void SetUp() override
    {
        m_hModule.reset(LoadLibraryExW((StageFolder() / L"TKDASTRES.dll").c_str(), nullptr,
                                       LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
        ASSERT_TRUE(m_hModule);
        MeetLockedAgent();
    }

    /// Which of the agent's images stands in the tray: the number of the nearest one, 0 when none is near.
    int ShownImage(const ShownTrayIcon& shown) const
    {
        constexpr double NEAR_ENOUGH = 0.02; // the shell draws from bits that were sent to it
        constexpr int IMAGES[] = {IDI_TRAY_IDLE, IDI_TRAY_PERMISSION, IDI_TRAY_ACTIVE,
                                  IDI_TRAY_RECONFIGURING};
        const auto distance = [&](int nImage) {
            return DistanceFromIcon(shown, LoadIconW(m_hModule.get(), MAKEINTRESOURCEW(nImage)));
        };
        const int nNearest = *std::min_element(std::begin(IMAGES), std::end(IMAGES),
                                               [&](int a, int b) { return distance(a) < distance(b); });
        return distance(nNearest) <= NEAR_ENOUGH ? nNearest : 0;
    }

    void ExpectShown(int nImage, const std::wstring& tip)
    {
        std::vector<ShownTrayIcon> icons;
        EXPECT_TRUE(WaitUntil([&] {
            icons = ReadShownTrayIcons();
            return icons.size() == 1 && icons[0].tip == tip && ShownImage(icons[0]) == nImage;
        })) << "expected image "
            << nImage;
        ASSERT_EQ(icons.size(), 1u);
        EXPECT_EQ(icons[0].tip, tip);
        EXPECT_EQ(ShownImage(icons[0]), nImage);
    }

    CModule m_hModule;
};

TEST_F(RealShellTest, TheTrayShowsImageAndTipOfEachStateAndNothingBehindTheEnd)
{
    MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
    ASSERT_TRUE(m_channel->Send(settings));
    ExpectShown(IDI_TRAY_IDLE, L"Kestrel...");
    settings.bPermissionRequired = 1;
    ASSERT_TRUE(m_channel->Send(settings));
    ExpectShown(IDI_TRAY_PERMISSION, L"Permission required\r\nKestre...");
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    ExpectShown(IDI_TRAY_ACTIVE, L"Permission required\r\nKestre...");
    MSG_TRAYICON_SERVER_RECONFIGURE record = {MSG_TYPE_TRAYICON_SERVER_RECONFIGURE, 1, {}};
    CopyText(record.szMessage, L"Please wait");
    ASSERT_TRUE(m_channel->Send(record));
    ExpectShown(IDI_TRAY_RECONFIGURING, L"Please wait");
    EXPECT_TRUE(WaitUntil([] { return ReadShownBalloons() == std::vector<std::wstring>{L"Please wait"}; }));
    record.bReconfiguring = 0;
    ASSERT_TRUE(m_channel->Send(record));
    ExpectShown(IDI_TRAY_ACTIVE, L"Permission required\r\nKestre...");
    EXPECT_TRUE(WaitUntil([] { return ReadShownBalloons().empty(); })) << "the balloon is taken away";
    ExpectEndWithService();
    EXPECT_TRUE(WaitUntil([] { return ReadShownTrayIcons().empty(); }));
}

constexpr char ADD_TRIED[] = "dwMsg=0 "; // NIM_ADD

/// An agent where no shell is.
class ShelllessTest : public AgentTest
{
  protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_desktop.IsThere());
        AgentStart start;
        start.commandLine = ServicePort();
        start.desktop = ShelllessDesktop::Name();
        MeetLockedAgent(start);
    }

    ShelllessDesktop m_desktop;
};

TEST_F(ShelllessTest, AShellThatNeverComesIsAskedForAgainAndHindersNothing)
{
    ASSERT_TRUE(SendSettings());
    for (const size_t nTries : {2u, 3u, 4u})
    {
        EXPECT_TRUE(m_folder.WaitForLog(ADD_TRIED, PATIENCE_MS, nTries)) << nTries;
        ExpectEcho();
    }
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1));
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0));
    ExpectEcho();
    ExpectEndWithService();
}

TEST_F(ShelllessTest, AShellThatComesLateGetsTheIconAndAMomentLaterTheDesktopOptions)
{
    constexpr ULONGLONG SHELL_SETTLING_MS = 2500;
    constexpr DWORD FULL_WINDOW_DRAG = 0x0020;
    constexpr DWORD DROP_SHADOW = 0x0040;
    Watchdog::Allow(4 * PATIENCE_MS);
    const DesktopInForce before = ReadDesktopInForce();
    DesktopInForce own = before;
    own["full-window drag"] = own["drop shadow"] = "on";
    PutDesktopInForce(own);

    MSG_TRAYICON_INIT init = {};
    init.dwType = MSG_TYPE_TRAYICON_INIT;
    init.dwDesktopEffects = FULL_WINDOW_DRAG;
    ASSERT_TRUE(m_channel->Send(init));
    ASSERT_TRUE(SendSettings());
    ASSERT_TRUE(SendDesktopEffects(DROP_SHADOW)); // comes during the wait, so it is dropped
    EXPECT_TRUE(m_folder.WaitForLog(ADD_TRIED, PATIENCE_MS, 2));
    EXPECT_EQ(ReadDesktopInForce(), own) << "nothing changes before the shell is there";

    const ULONGLONG qwShellCame = GetTickCount64();
    const ShellTrayCatcher shell(&m_desktop);
    ASSERT_TRUE(shell.WaitForCalls(1, PATIENCE_MS));
    EXPECT_EQ(shell.Calls()[0].dwMessage, static_cast<DWORD>(NIM_ADD));
    EXPECT_EQ(shell.Calls()[0].tip, L"Kestrel...");
    const DesktopInForce off = SwitchedOff(own, FULL_WINDOW_DRAG);
    EXPECT_TRUE(WaitUntil([&] { return ReadDesktopInForce() != own; }));
    EXPECT_GE(GetTickCount64() - qwShellCame, SHELL_SETTLING_MS - CLOCK_STEP_MS);
    EXPECT_EQ(ReadDesktopInForce(), off);
    ExpectEndWithService();
    EXPECT_EQ(shell.Calls().back().dwMessage, static_cast<DWORD>(NIM_DELETE));
    EXPECT_EQ(ReadDesktopInForce(), own);
    PutDesktopInForce(before);
}
} // namespace
