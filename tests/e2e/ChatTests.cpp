#include "tests/e2e/WriterTest.h"

#include "modules/chat/ChatPayload.h"
#include "modules/chat/ChatResource.h"
#include "tests/support/ChatTrace.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace
{

constexpr wchar_t CHAT_TITLE[] = L"Kestrel Desk Assist Chat";

std::wstring ControlText(HWND hWnd, int nControl)
{
    const HWND hControl = GetDlgItem(hWnd, nControl);
    std::wstring text(static_cast<size_t>(SendMessageW(hControl, WM_GETTEXTLENGTH, 0, 0)) + 1, L'\0');
    text.resize(static_cast<size_t>(
        SendMessageW(hControl, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()))));
    return text;
}

/// The real agent; a test chooses the chat module before it starts the agent.
class ChatTest : public WriterTest
{
  protected:
    void SetUp() override {}

    void MeetAgent()
    {
        StartAgent();
        AcceptAgent();
        ShakeHands();
        ASSERT_TRUE(m_channel->Send(PlainSettings()));
        ExpectEcho();
    }

    bool SendOpen()
    {
        MSG_TRAYICON_CHAT_OPEN record = {};
        record.dwType = MSG_TYPE_TRAYICON_CHAT_OPEN;
        CopyText(record.szUsername, L"Alice");
        return m_channel->Send(record);
    }

    bool Say(std::wstring_view text, std::wstring_view username = L"Alice")
    {
        const std::vector<char> record = MakeChatRecord(username, text);
        return m_channel->Send(record.data(), record.size());
    }

    bool SendClose() { return m_channel->Send(DWORD{MSG_TYPE_TRAYICON_CHAT_CLOSE}); }

    static bool WaitForChat(bool bThere, const wchar_t* pszTitle = CHAT_TITLE)
    {
        return WaitForShownWindow(pszTitle, bThere, PATIENCE_MS, PumpMessages);
    }

    /// Waits until the history holds the text.
    static bool WaitForLine(std::wstring_view text)
    {
        for (DWORD dwWaited = 0; dwWaited < PATIENCE_MS; dwWaited += LOOK_MS)
        {
            if (ControlText(FindShownWindow(CHAT_TITLE), IDC_CHAT_HISTORY).find(text) != std::wstring::npos)
            {
                return true;
            }
            PumpMessages(LOOK_MS);
        }
        return false;
    }

    /// Types the text into the chat window and sends it.
    static void Answer(const wchar_t* pszText)
    {
        const HWND hChat = FindShownWindow(CHAT_TITLE);
        SendDlgItemMessageW(hChat, IDC_CHAT_INPUT, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(pszText));
        SendDlgItemMessageW(hChat, IDC_CHAT_SEND, BM_CLICK, 0, 0);
    }

    /// The next that the person has said.
    ServiceChannel::Record TakeAnswer()
    {
        return m_channel->TakeRecord(MSG_TYPE_CHAT_MESSAGE, PATIENCE_MS).value_or(ServiceChannel::Record());
    }

    static ServiceChannel::Record AnswerOf(std::wstring_view text)
    {
        wchar_t szAccount[std::size(MSG_CHAT_MESSAGE().szUsername)] = {};
        DWORD cchAccount = static_cast<DWORD>(std::size(szAccount));
        GetUserNameW(szAccount, &cchAccount);
        const std::vector<char> record = MakeChatRecord(szAccount, text);
        return ServiceChannel::Record(record.begin(), record.end());
    }
};

/// The agent with the test's chat module.
class ChatModuleTest : public ChatTest
{
  protected:
    void UseModule(const std::wstring& missing)
    {
        std::filesystem::remove(m_folder.Path() / CHAT_MODULE);
        std::filesystem::copy_file(TestProgramFolder() / ChatModuleFolder(missing) / CHAT_MODULE,
                                   m_folder.Path() / CHAT_MODULE);
    }

    ChatTrace m_chat;
};
} // namespace

TEST_F(ChatTest, AMessageOfTheServiceOpensTheChatAndIsSeen)
{
    MeetAgent();
    ASSERT_TRUE(Say(L"Good day, may I help?"));
    ASSERT_TRUE(WaitForChat(true));
    EXPECT_TRUE(WaitForLine(L"Good day, may I help?"));
    EXPECT_NE(ControlText(FindShownWindow(CHAT_TITLE), IDC_CHAT_HISTORY).find(L"Alice"), std::wstring::npos);
    ExpectEcho();
}

TEST_F(ChatTest, WhatThePersonTypesArrivesAtTheServiceByteTrue)
{
    MeetAgent();
    ASSERT_TRUE(SendOpen() && WaitForChat(true));
    for (const wchar_t* const pszText : {L"x", L"Gr\u00fc\u00dfe \U0001F600", L"two\r\nlines"})
    {
        Answer(pszText);
        EXPECT_EQ(TakeAnswer(), AnswerOf(pszText));
        EXPECT_TRUE(WaitForLine(std::wstring_view(pszText).substr(0, 3)));
    }
    EXPECT_TRUE(m_channel->IsFrameIntact());
    ExpectEcho();
}

TEST_F(ChatTest, WhoComesAndWhoGoesIsToldInTheOpenChat)
{
    MeetAgent();
    ASSERT_TRUE(SendOpen() && WaitForChat(true));
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 1));
    EXPECT_TRUE(WaitForLine(L"Alice has connected"));
    ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0));
    EXPECT_TRUE(WaitForLine(L"Alice has left"));
    EXPECT_NE(FindShownWindow(CHAT_TITLE), nullptr) << "the chat outlives the session";
}

TEST_F(ChatTest, TheChatThatThePersonClosedComesBackWithTheNextMessage)
{
    MeetAgent();
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        ASSERT_TRUE(Say(L"again"));
        ASSERT_TRUE(WaitForChat(true));
        ASSERT_TRUE(WaitForLine(L"again"));
        PostMessageW(FindShownWindow(CHAT_TITLE), WM_CLOSE, 0, 0);
        ASSERT_TRUE(WaitForChat(false));
    }
    ExpectEcho();
}

TEST_F(ChatTest, TheServiceClosesTheChat)
{
    MeetAgent();
    ASSERT_TRUE(SendOpen() && WaitForChat(true));
    ASSERT_TRUE(SendClose() && WaitForChat(false));
    ASSERT_TRUE(SendClose()); // there is none any more
    ExpectEcho();
    ASSERT_TRUE(Say(L"again"));
    EXPECT_TRUE(WaitForChat(true));
}

TEST_F(ChatTest, AChatThatOpensLeavesTheKeyboardToWhoIsWriting)
{
    MeetAgent();
    BeginLetter();
    TypeLetter();
    ASSERT_TRUE(Say(L"Good day"));
    ASSERT_TRUE(WaitForChat(true) && WaitForLine(L"Good day"));
    TypeLetter();
}

TEST_F(ChatTest, EveryEndOfTheAgentTakesTheOpenChatAlong)
{
    for (const WAY_OUT wayOut : WAYS_OUT)
    {
        MeetAgent();
        ASSERT_TRUE(Say(L"Good day") && WaitForChat(true)) << wayOut;
        Leave(wayOut);
        EXPECT_TRUE(WaitForChat(false)) << wayOut;
        m_channel.reset();
    }
}

TEST_F(ChatTest, AServiceThatGoesWhileItTalksEndsTheAgentInOrder)
{
    MeetAgent();
    for (int nMessage = 0; nMessage < 200; ++nMessage)
    {
        ASSERT_TRUE(Say(L"one of many"));
    }
    ExpectEndWithService();
}

TEST_F(ChatModuleTest, TheModuleGetsTheWholeRecordInTheAgentsProcess)
{
    UseModule(L"nothing");
    MeetAgent();
    const std::vector<char> record = MakeChatRecord(L"Alice", L"to the first");
    ASSERT_TRUE(m_channel->Send(record.data(), record.size()));
    ExpectEcho();
    EXPECT_EQ(m_chat->nAppended, 1);
    EXPECT_EQ(m_chat->uHash, HashChatBytes(EMPTY_CHAT_HASH, record.data(), record.size()));
    DWORD dwProcess = 0;
    GetWindowThreadProcessId(m_chat->hChatWindow, &dwProcess);
    EXPECT_EQ(dwProcess, m_agent->Id());
}

TEST_F(ChatModuleTest, AnAgentWithoutAChatModuleGoesOn)
{
    std::filesystem::remove(m_folder.Path() / CHAT_MODULE);
    MeetAgent();
    ASSERT_TRUE(SendOpen() && Say(L"anybody?") && SendClose());
    ExpectEcho();
    EXPECT_EQ(m_folder.CountInLog("ERROR [main] TKDASTWindowChat Failed to load TKDAChat.dll. Error: 126"),
              2U);
    ExpectEndWithService();
}

TEST_F(ChatModuleTest, AnIncompleteChatModuleHarmsNothing)
{
    const wchar_t* const apszMissing[] = {L"create", L"append", L"close"};
    for (const wchar_t* const pszMissing : apszMissing)
    {
        UseModule(pszMissing);
        MeetAgent();
        ASSERT_TRUE(SendOpen() && Say(L"anybody?") && SendClose() && Say(L"hello?"));
        ExpectEcho();
        ExpectEndWithService();
    }
    EXPECT_EQ(m_folder.CountInLog("Failed to GetProcAddress for TKDA_"), 3U);
}

TEST_F(ChatModuleTest, AFloodOfMessagesIsShownInOrder)
{
    UseModule(L"nothing");
    MeetAgent();
    std::vector<char> burst;
    for (int nMessage = 0; nMessage < 1000; ++nMessage)
    {
        const std::vector<char> record = MakeChatRecord(L"Alice", std::to_wstring(nMessage));
        burst.insert(burst.end(), record.begin(), record.end());
    }
    constexpr int BURSTS = 2;
    ULONGLONG uHash = EMPTY_CHAT_HASH;
    for (int nBurst = 0; nBurst < BURSTS; ++nBurst)
    {
        ASSERT_TRUE(m_channel->Send(burst.data(), burst.size()));
        uHash = HashChatBytes(uHash, burst.data(), burst.size());
    }
    ExpectEcho();
    EXPECT_EQ(m_chat->nAppended, BURSTS * 1000);
    EXPECT_EQ(m_chat->uHash, uHash);
    EXPECT_EQ(m_chat->nCreated, 1);
}
