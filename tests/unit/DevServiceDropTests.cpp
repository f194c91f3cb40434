#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "devservice/DroppedNames.h"
#include "drop/DroppedFiles.h"
#include "tests/support/ProgramDataFolder.h"
#include "tests/unit/DevServiceFixture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

namespace
{
class DevServiceDrop : public DevServiceRunner
{
  protected:
    void SetUp() override
    {
        DevServiceRunner::SetUp();
        const CClipboard clipboard(nullptr);
        ASSERT_TRUE(clipboard && EmptyClipboard());
        m_pAgent = Arrive();
        ExpectHeld(L"connect Alice");
        MSG_TRAYICON_CONNECT viewer = {};
        EXPECT_TRUE(m_pAgent->Receive(viewer));
        m_dwClientId = viewer.dwClientId;
    }

    MSG_TRAYICON_SFT_DROP_CLIENT ReceiveClient()
    {
        MSG_TRAYICON_SFT_DROP_CLIENT client = {};
        EXPECT_TRUE(m_pAgent->Receive(client));
        EXPECT_EQ(client.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_SFT_DROP_CLIENT));
        return client;
    }

    /// What an agent does at the end of a drop.
    static void SetDropEvent(const MSG_TRAYICON_SFT_DROP_CLIENT& client)
    {
        const CKernelHandle hEvent(
            OpenEventW(EVENT_MODIFY_STATE, FALSE, std::wstring(FixedText(client.szDropEventName)).c_str()));
        ASSERT_TRUE(hEvent);
        SetEvent(hEvent.get());
    }

    void WriteEntry(const wchar_t* pszKey, const wchar_t* pszValue) const
    {
        WritePrivateProfileStringW(std::to_wstring(m_dwClientId).c_str(), pszKey, pszValue,
                                   DropDataFile().c_str());
    }

    std::unique_ptr<TestAgent> m_pAgent;
    DWORD m_dwClientId = 0;

  private:
    ProgramDataFolder m_programData;
};
} // namespace

TEST_F(DevServiceDrop, ADropWindowIsAskedForByTheViewersIdAndAnEventThatExists)
{
    ExpectHeld(L"drop Alice event=\"drop of a test\"");
    const auto client = ReceiveClient();
    EXPECT_EQ(client.dwClientId, m_dwClientId);
    EXPECT_EQ(FixedText(client.szClientName), L"Alice");
    EXPECT_EQ(FixedText(client.szDropEventName), L"drop of a test");
    SetDropEvent(client);
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(DropDataFile())));
}

TEST_F(DevServiceDrop, NamesOfTheDataFileAreComparedAndTakenOut)
{
    ExpectHeld(L"drop Alice");
    const auto client = ReceiveClient();
    WriteEntry(L"0", L"C:\\a.txt");
    WriteEntry(L"1", L"C:\\Grüße \u4F60.txt");
    WriteEntry(L"Counter", L"2");
    SetDropEvent(client);
    ExpectHeld(L"drop expect C:\\a.txt \"C:\\\\Grüße \\u4F60.txt\"");
    EXPECT_TRUE(Logged(L"dropped for \"Alice\", by the data file: \"C:\\\\a.txt\""));
    EXPECT_TRUE(ReadDroppedEntries(m_dwClientId).empty());
    EXPECT_EQ(ErrorOf(L"drop expect C:\\a.txt"), "line 1: there is no drop window");
}

TEST_F(DevServiceDrop, WithoutASectionTheNamesAreLookedForOnTheClipboard)
{
    ExpectHeld(L"drop Alice");
    const auto client = ReceiveClient();
    {
        CGlobalBlock hBlock = MakeDroppedBlock({L"C:\\a", L"C:\\b"}, 2);
        const CClipboard clipboard(nullptr);
        ASSERT_TRUE(clipboard && EmptyClipboard() &&
                    GiveToClipboard(RegisterClipboardFormatW(DROP_CLIPBOARD_FORMAT), std::move(hBlock)));
    }
    SetDropEvent(client);
    EXPECT_EQ(ErrorOf(L"drop expect C:\\a"), "line 1: \"C:\\\\a\" \"C:\\\\b\" was dropped, not \"C:\\\\a\"");
    EXPECT_TRUE(Logged(L"by the clipboard: \"C:\\\\a\" \"C:\\\\b\""));
}

TEST_F(DevServiceDrop, NothingDroppedFailsAndTheWindowCanStillBeClosed)
{
    ExpectHeld(L"drop Alice");
    ReceiveClient();
    EXPECT_EQ(ErrorOf(L"drop expect C:\\a within=0"), "line 1: nothing was dropped within 0 ms");
    ExpectHeld(L"drop off");
    EXPECT_EQ(ReceiveClient().dwClientId, m_dwClientId) << "the same again closes";
    EXPECT_EQ(ErrorOf(L"drop off"), "line 1: there is no drop window");
}

TEST_F(DevServiceDrop, WhoIsNotConnectedGetsNoDropWindow)
{
    EXPECT_EQ(ErrorOf(L"drop Bob"), "line 1: agent 1 has no viewer \"Bob\"; it has Alice");
    EXPECT_EQ(ErrorOf(L"drop Alice Bob"), "line 1: use: drop NAME [event=NAME]");
    EXPECT_EQ(ErrorOf(L"drop off Alice"), "line 1: drop off takes no words");
    EXPECT_EQ(ErrorOf(L"drop-files C:\\a"), "line 1: there is no window to drop them on");
}

TEST_F(DevServiceDrop, AnOlderDataFileStaysAsItIs)
{
    ASSERT_TRUE(PrepareDropDataFile());
    WriteEntry(L"0", L"C:\\kept");
    WriteEntry(L"Counter", L"1");
    ASSERT_TRUE(PrepareDropDataFile());
    EXPECT_EQ(ReadDroppedEntries(m_dwClientId), std::vector<std::wstring>{L"C:\\kept"});
}
