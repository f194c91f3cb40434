#include "tests/e2e/AgentTest.h"

#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "Include/Handles.h"
#include "devservice/DroppedNames.h"
#include "devservice/FileDrag.h"
#include "devservice/Person.h"
#include "tests/support/ProgramDataFolder.h"

#include <string>
#include <vector>

namespace
{
constexpr wchar_t DROP_TITLE[] = L"Send files";
constexpr wchar_t EVENT_NAME[] = L"TKDAST e2e drop";
constexpr DWORD CLIENT = 5;
using Names = std::vector<std::wstring>;

/// The real agent with a viewer, and the service's side of a drop in this program.
class DropTest : public AgentTest
{
  protected:
    void SetUp() override
    {
        StartAgent();
        AcceptAgent();
        ShakeHands();
        ASSERT_TRUE(SendSettings());
        m_hEvent.reset(CreateEventW(nullptr, FALSE, FALSE, EVENT_NAME));
    }

    bool SendDropClient(DWORD dwClientId = CLIENT)
    {
        MSG_TRAYICON_SFT_DROP_CLIENT client = {};
        client.dwType = MSG_TYPE_TRAYICON_SFT_DROP_CLIENT;
        client.dwClientId = dwClientId;
        CopyText(client.szClientName, L"Alice");
        CopyText(client.szDropEventName, EVENT_NAME);
        return m_channel->Send(client);
    }

    static bool WaitForDropWindow(bool bThere)
    {
        return WaitForShownWindow(DROP_TITLE, bThere, PATIENCE_MS, [](DWORD dwMilliseconds) {
            Sleep(dwMilliseconds);
            return true;
        });
    }

    void OpenDropWindow()
    {
        ASSERT_TRUE(SendDropClient());
        ASSERT_TRUE(WaitForDropWindow(true));
    }

    /// Gives the keyboard to the drop window. Its thread takes it in its own time, and keys that come before
    /// are lost.
    static void ActivateDropWindow()
    {
        const HWND hDrop = FindShownWindow(DROP_TITLE);
        const DWORD dwThread = GetWindowThreadProcessId(hDrop, nullptr);
        const ULONGLONG uEnd = GetTickCount64() + PATIENCE_MS;
        GUITHREADINFO input = {};
        input.cbSize = sizeof(input);
        SetForegroundWindow(hDrop);
        while ((!GetGUIThreadInfo(dwThread, &input) || input.hwndFocus != hDrop) && GetTickCount64() < uEnd)
        {
            Sleep(1);
        }
        EXPECT_EQ(input.hwndFocus, hDrop);
    }

    /// Presses a key where the keyboard is, with another held down; 0: none.
    static void PressKeys(BYTE bKey, BYTE bHeld)
    {
        const auto strike = [](BYTE bStruck, DWORD dwFlags) { keybd_event(bStruck, 0, dwFlags, 0); };
        if (bHeld != 0)
        {
            strike(bHeld, 0);
        }
        strike(bKey, 0);
        strike(bKey, KEYEVENTF_KEYUP);
        if (bHeld != 0)
        {
            strike(bHeld, KEYEVENTF_KEYUP);
        }
    }

    bool WasTold() const { return WaitForSingleObject(m_hEvent.get(), PATIENCE_MS) == WAIT_OBJECT_0; }

    CKernelHandle m_hEvent;

  private:
    ProgramDataFolder m_programData; // the agent inherits it
};

TEST_F(DropTest, WhatIsDroppedComesByTheDataFileAndTheWindowGoes)
{
    ASSERT_TRUE(PrepareDropDataFile());
    OpenDropWindow();
    const Names paths = {L"C:\\folder\\a.txt", L"C:\\Grüße \u4F60.txt"};
    EXPECT_TRUE(DragFilesOnto(paths, FindShownWindow(DROP_TITLE)));
    EXPECT_TRUE(WasTold());
    EXPECT_EQ(ReadDroppedEntries(CLIENT), paths);
    EXPECT_TRUE(WaitForDropWindow(false));
    OpenDropWindow(); // the agent has forgotten the other one
    ExpectEcho();
    ExpectEndWithService();
    EXPECT_TRUE(WaitForDropWindow(false));
}

TEST_F(DropTest, WithoutTheFolderItComesByTheClipboard)
{
    OpenDropWindow();
    const Names paths = {L"C:\\a.txt", L"C:\\b.txt", L"C:\\c.txt"};
    EXPECT_TRUE(DragFilesOnto(paths, FindShownWindow(DROP_TITLE)));
    EXPECT_TRUE(WasTold());
    EXPECT_EQ(ReadDroppedClipboard(), paths);
    EXPECT_TRUE(WaitForDropWindow(false));
    ExpectEcho();
}

TEST_F(DropTest, AClipboardThatAnotherProgramHoldsIsLeftToIt)
{
    OpenDropWindow();
    const CWindow owner(
        CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
    {
        const CClipboard held(owner.get());
        ASSERT_TRUE(held && EmptyClipboard());
        EXPECT_TRUE(DragFilesOnto({L"C:\\a.txt"}, FindShownWindow(DROP_TITLE)));
    }
    EXPECT_EQ(WaitForSingleObject(m_hEvent.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(ReadDroppedClipboard().empty());
    ASSERT_NE(FindShownWindow(DROP_TITLE), nullptr) << "for another try";
    EXPECT_TRUE(DragFilesOnto({L"C:\\b.txt"}, FindShownWindow(DROP_TITLE)));
    EXPECT_TRUE(WasTold());
    EXPECT_EQ(ReadDroppedClipboard(), Names{L"C:\\b.txt"});
    EXPECT_TRUE(WaitForDropWindow(false));
    ExpectEcho();
}

TEST_F(DropTest, OnTheKeyboardAltF4ClosesItAndEscapeDoesNot)
{
    OpenDropWindow();
    const HWND hDrop = FindShownWindow(DROP_TITLE);
    ActivateDropWindow();
    PressKeys(VK_ESCAPE, 0);
    Sleep(SILENCE_MS);
    EXPECT_TRUE(IsWindowVisible(hDrop));
    PressKeys(VK_F4, VK_MENU);
    EXPECT_TRUE(WaitForDropWindow(false));
    OpenDropWindow(); // the agent has forgotten the other one
    ExpectEcho();
}

TEST_F(DropTest, OnTheKeyboardCopiedFilesArePasted)
{
    ASSERT_TRUE(PrepareDropDataFile());
    OpenDropWindow();
    const Names paths = {L"C:\\a.txt", L"C:\\b.txt"};
    {
        const CClipboard clipboard(nullptr);
        ASSERT_TRUE(clipboard && EmptyClipboard());
        ASSERT_TRUE(GiveToClipboard(CF_HDROP, CGlobalBlock(MakeFileList(paths))));
    }
    ActivateDropWindow();
    PressKeys('V', VK_CONTROL);
    EXPECT_TRUE(WasTold());
    EXPECT_EQ(ReadDroppedEntries(CLIENT), paths);
    EXPECT_TRUE(WaitForDropWindow(false));
    ExpectEcho();
}

TEST_F(DropTest, ADropThatNobodyWaitsForIsWithdrawnAndTheWindowStays)
{
    ASSERT_TRUE(PrepareDropDataFile());
    OpenDropWindow();
    m_hEvent.reset();
    EXPECT_TRUE(DragFilesOnto({L"C:\\a.txt"}, FindShownWindow(DROP_TITLE)));
    ExpectEcho();
    EXPECT_TRUE(ReadDroppedEntries(CLIENT).empty());
    EXPECT_NE(FindShownWindow(DROP_TITLE), nullptr);
}

TEST_F(DropTest, ASecondRecordClosesTheWindowAndAThirdOpensOneAnew)
{
    OpenDropWindow();
    ASSERT_TRUE(SendDropClient());
    EXPECT_TRUE(WaitForDropWindow(false));
    OpenDropWindow();
    ExpectEcho();
}

TEST_F(DropTest, ThePersonsCloseAndTheViewersEndTakeItAway)
{
    OpenDropWindow();
    PostMessageW(FindShownWindow(DROP_TITLE), WM_CLOSE, 0, 0);
    EXPECT_TRUE(WaitForDropWindow(false));
    OpenDropWindow();
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0));
    EXPECT_TRUE(WaitForDropWindow(false));
    ExpectEcho();
}
} // namespace
