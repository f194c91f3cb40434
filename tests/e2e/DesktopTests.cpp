#include "tests/e2e/AgentTest.h"
#include "tests/support/DesktopEffects.h"
#include "tests/support/DesktopInForce.h"

#include "Include/BoundedText.h"

#include <map>
#include <string>
#include <vector>

namespace
{
constexpr DWORD EVERYTHING = 0x7FF7; // the bit that means nothing included
constexpr wchar_t PROFILE_KEY[] = L"Control Panel\\Desktop";
constexpr char PATTERN[] = "1 2 3 4 5 6 7 8";

using Profile = std::map<std::wstring, std::vector<BYTE>>;

Profile ReadProfile()
{
    Profile profile;
    CRegKey hKey;
    RegOpenKeyW(HKEY_CURRENT_USER, PROFILE_KEY, hKey.put());
    wchar_t szName[256];
    BYTE abData[1024];
    DWORD cchName = ARRAYSIZE(szName);
    DWORD cbData = sizeof(abData);
    for (DWORD dwValue = 0; RegEnumValueW(hKey.get(), dwValue, szName, &cchName, nullptr, nullptr, abData,
                                          &cbData) == ERROR_SUCCESS;
         ++dwValue)
    {
        profile[szName] = std::vector<BYTE>(abData, abData + cbData);
        cchName = ARRAYSIZE(szName);
        cbData = sizeof(abData);
    }
    return profile;
}

/// The smallest picture that a desktop can show.
std::string OnePixelBitmap()
{
    BITMAPFILEHEADER file = {};
    BITMAPINFOHEADER info = {sizeof(info), 1, 1, 1, 24, BI_RGB, 4, 0, 0, 0, 0};
    file.bfType = 0x4D42; // "BM"
    file.bfOffBits = sizeof(file) + sizeof(info);
    file.bfSize = file.bfOffBits + info.biSizeImage;
    return std::string(reinterpret_cast<const char*>(&file), sizeof(file)) +
           std::string(reinterpret_cast<const char*>(&info), sizeof(info)) + std::string(4, '\x40');
}

/// An agent on the desktop of a user who has a wallpaper, a pattern and every effect, in the stored profile
/// and in force.
class DesktopTest : public AgentTest
{
  protected:
    DesktopTest()
        : m_wallpaper(m_folder.Path() / L"user.bmp"), m_before(ReadDesktopInForce()),
          m_profileWallpaper(HKEY_CURRENT_USER, PROFILE_KEY, L"Wallpaper", m_wallpaper.wstring()),
          m_profilePattern(HKEY_CURRENT_USER, PROFILE_KEY, L"Pattern",
                           std::wstring(std::begin(PATTERN), std::end(PATTERN) - 1)),
          m_profileSmoothing(HKEY_CURRENT_USER, PROFILE_KEY, L"FontSmoothing", std::wstring(L"2"))
    {
    }
    void TearDown() override { PutDesktopInForce(m_before); }

    void SetUp() override
    {
        ASSERT_TRUE(WriteFileText(m_wallpaper, OnePixelBitmap()));
        ASSERT_EQ(m_before.size(), std::size(DESKTOP_EFFECT_TABLE) + 2);
        DesktopInForce own = {{WALLPAPER_NAME, m_wallpaper.string()}, {PATTERN_NAME, PATTERN}};
        for (const DESKTOP_EFFECT_CALLS& effect : DESKTOP_EFFECT_TABLE)
        {
            own[effect.pszName] = "on";
        }
        ChooseDesktop(own);
    }

    /// The user's desktop from now on.
    void ChooseDesktop(const DesktopInForce& own)
    {
        PutDesktopInForce(own);
        m_own = ReadDesktopInForce();
        ASSERT_EQ(m_own, own);
    }

    void ConnectAgent()
    {
        MeetLockedAgent();
        ASSERT_TRUE(m_channel->Send(PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE)));
    }

    /// One viewer of so many leaves.
    void SendDisconnect(DWORD dwRemaining)
    {
        ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, dwRemaining));
        ExpectEcho();
    }

    const std::filesystem::path m_wallpaper;
    const DesktopInForce m_before;
    RegistryValue m_profileWallpaper;
    RegistryValue m_profilePattern;
    RegistryValue m_profileSmoothing;
    DesktopInForce m_own;
};

TEST_F(DesktopTest, WhatIsSwitchedOffStaysOffUntilTheLastOfTwoViewersHasLeft)
{
    ConnectAgent();
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 2));
    ASSERT_TRUE(SendDesktopEffects(EVERYTHING));
    const DesktopInForce off = SwitchedOff(m_own, EVERYTHING);
    EXPECT_EQ(ReadDesktopInForce(), off);
    SendDisconnect(1);
    EXPECT_EQ(ReadDesktopInForce(), off);
    SendDisconnect(0);
    EXPECT_EQ(ReadDesktopInForce(), m_own);
}

TEST_F(DesktopTest, TheUsersStoredProfileIsNeverTouched)
{
    const Profile profile = ReadProfile();
    ASSERT_GE(profile.size(), 3u);
    ConnectAgent();
    ASSERT_TRUE(SendDesktopEffects(EVERYTHING));
    EXPECT_EQ(ReadProfile(), profile);
    SendDisconnect(0);
    EXPECT_EQ(ReadProfile(), profile);
    ASSERT_TRUE(SendDesktopEffects(EVERYTHING));
    Leave(WAY_OUT::WindowIsClosed);
    EXPECT_EQ(ReadProfile(), profile);
}

TEST_F(DesktopTest, EachBitOfTheMaskSwitchesItsOwnEffectAndNoOther)
{
    ConnectAgent();
    for (DWORD dwOption = PATTERN_OPTION; dwOption <= EVERYTHING; dwOption <<= 1)
    {
        ASSERT_TRUE(SendDesktopEffects(dwOption));
        EXPECT_EQ(ReadDesktopInForce(), SwitchedOff(m_own, dwOption)) << std::hex << dwOption;
        SendDisconnect(0);
        EXPECT_EQ(ReadDesktopInForce(), m_own) << std::hex << dwOption;
    }
}

TEST_F(DesktopTest, MasksOfNoneAndOneLeaveTheDesktopAlone)
{
    ConnectAgent();
    for (const DWORD dwEffects : {0UL, 1UL})
    {
        ASSERT_TRUE(SendDesktopEffects(dwEffects));
        EXPECT_EQ(ReadDesktopInForce(), m_own);
    }
}

TEST_F(DesktopTest, TheFirstRecordsMaskIsInForceWhenItIsAcknowledged)
{
    ConnectAgent();
    MSG_TRAYICON_INIT init = {};
    init.dwType = MSG_TYPE_TRAYICON_INIT;
    init.dwDesktopEffects = EVERYTHING;
    ASSERT_TRUE(m_channel->Send(init));
    ASSERT_TRUE(m_channel->TakeRecord(MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK, PATIENCE_MS).has_value());
    EXPECT_EQ(ReadDesktopInForce(), SwitchedOff(m_own, EVERYTHING));
    SendDisconnect(0);
    EXPECT_EQ(ReadDesktopInForce(), m_own);
}

TEST_F(DesktopTest, WhatWasOffBeforeStaysOffBehindTheLastViewer)
{
    // No wallpaper, and every other effect.
    ChooseDesktop(SwitchedOff(m_own, WALLPAPER_OPTION | 0x5550));
    ConnectAgent();
    ASSERT_TRUE(SendDesktopEffects(EVERYTHING));
    EXPECT_EQ(ReadDesktopInForce(), SwitchedOff(m_own, EVERYTHING));
    SendDisconnect(0);
    EXPECT_EQ(ReadDesktopInForce(), m_own);
}

TEST_F(DesktopTest, SmoothingThatTheProfileDoesNotWantStaysOffBehindTheLastViewer)
{
    const RegistryValue smoothing(HKEY_CURRENT_USER, PROFILE_KEY, L"FontSmoothing", std::wstring(L"0"));
    ConnectAgent();
    ASSERT_TRUE(SendDesktopEffects(EVERYTHING));
    SendDisconnect(0);
    EXPECT_EQ(ReadDesktopInForce(), SwitchedOff(m_own, 0x0010));
}

class DesktopWayOutTest : public DesktopTest, public testing::WithParamInterface<WAY_OUT>
{
};

TEST_P(DesktopWayOutTest, TheGoingAgentPutsTheDesktopBack)
{
    ConnectAgent();
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
    ASSERT_TRUE(SendDesktopEffects(EVERYTHING));
    ASSERT_EQ(ReadDesktopInForce(), SwitchedOff(m_own, EVERYTHING));
    Leave(GetParam());
    EXPECT_EQ(ReadDesktopInForce(), m_own);
}

INSTANTIATE_TEST_SUITE_P(WaysOut, DesktopWayOutTest, testing::ValuesIn(WAYS_OUT),
                         testing::PrintToStringParamName());
} // namespace
