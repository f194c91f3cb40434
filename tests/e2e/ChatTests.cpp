#include "tests/e2e/WriterTest.h"

#include "devservice/StandInService.h"
#include "modules/chat/ChatPayload.h"
#include "modules/chat/ChatResource.h"
#include "tests/support/ChatTrace.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <span>
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

bool IsShownChat(HWND hWnd)
{
    wchar_t szTitle[MAX_PATH] = {};
    GetWindowTextW(hWnd, szTitle, static_cast<int>(std::size(szTitle)));
    return IsWindowVisible(hWnd) && std::wstring_view(szTitle) == CHAT_TITLE;
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

    /// Waits until the history of a chat window holds the text.
    static bool WaitForLine(const std::function<HWND()>& findChat, std::wstring_view text)
    {
        for (DWORD dwWaited = 0; dwWaited < PATIENCE_MS; dwWaited += LOOK_MS)
        {
            if (ControlText(findChat(), IDC_CHAT_HISTORY).find(text) != std::wstring::npos)
            {
                return true;
            }
            PumpMessages(LOOK_MS);
        }
        return false;
    }
    static bool WaitForLine(std::wstring_view text)
    {
        return WaitForLine([] { return FindShownWindow(CHAT_TITLE); }, text);
    }

    /// Types the text into the chat window and sends it.
    static void Answer(const wchar_t* pszText) { Answer(FindShownWindow(CHAT_TITLE), pszText); }
    static void Answer(HWND hChat, const wchar_t* pszText)
    {
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

/// Two agents, a resident one and a one-time one beside it, and one stand-in for the service of both.
class TwoChatsTest : public ChatTest
{
  protected:
    static constexpr unsigned int AGENTS = 2;

    void SetUp() override
    {
        ASSERT_TRUE(m_service.Listen(0));
        const std::wstring port = std::to_wstring(m_service.GetPort());
        for (const std::wstring& commandLine : {port, L"-onetimesession " + port})
        {
            m_agents.push_back(
                std::make_unique<AgentProcess>(m_folder, AgentStart{commandLine, {}, {}, false}));
            ASSERT_EQ(m_service.WaitForReadyAgents(static_cast<unsigned int>(m_agents.size()), PATIENCE_MS),
                      WAIT_RESULT::Met)
                << m_folder.Log();
        }
    }

    void SayTo(unsigned int uAgent, std::wstring_view text)
    {
        const std::vector<char> record = MakeChatRecord(L"Alice", text);
        ASSERT_TRUE(m_service.Send(uAgent + 1,
                                   std::span(reinterpret_cast<const BYTE*>(record.data()), record.size())));
    }

    /// The chat window of that agent; null while there is none.
    HWND ChatOf(unsigned int uAgent) const { return m_agents[uAgent]->FindOwnWindow(IsShownChat); }

    bool WaitForLineOf(unsigned int uAgent, std::wstring_view text) const
    {
        return WaitForLine([&] { return ChatOf(uAgent); }, text);
    }

    std::wstring HistoryOf(unsigned int uAgent) const
    {
        return ControlText(ChatOf(uAgent), IDC_CHAT_HISTORY);
    }

    /// What that agent's person says next; empty when nothing comes in time.
    std::wstring TakeAnswerOf(unsigned int uAgent, DWORD dwMilliseconds = PATIENCE_MS)
    {
        const auto isChat = [](const AGENT_RECORD& record) {
            return record.pMessage != nullptr && record.pMessage->dwType == MSG_TYPE_CHAT_MESSAGE;
        };
        AGENT_RECORD record = {};
        if (m_service.TakeRecord(uAgent + 1, isChat, dwMilliseconds, record) != WAIT_RESULT::Met)
        {
            return L"";
        }
        return ReadChatText(*reinterpret_cast<const MSG_CHAT_MESSAGE*>(record.bytes.data()));
    }

    CStandInService m_service;
    std::vector<std::unique_ptr<AgentProcess>> m_agents;
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

TEST_F(TwoChatsTest, EachTalkStaysBetweenItsOwnTwo)
{
    constexpr int ROUNDS = 10;
    const auto words = [](const wchar_t* pszWho, unsigned int uAgent, int nRound) {
        return pszWho + std::to_wstring(uAgent) + L" says " + std::to_wstring(nRound) + L".";
    };
    for (int nRound = 0; nRound < ROUNDS; ++nRound)
    {
        for (unsigned int uAgent = 0; uAgent < AGENTS; ++uAgent)
        {
            SayTo(uAgent, words(L"viewer ", uAgent, nRound));
        }
        for (unsigned int uAgent = 0; uAgent < AGENTS; ++uAgent)
        {
            ASSERT_TRUE(WaitForLineOf(uAgent, words(L"viewer ", uAgent, nRound))) << uAgent;
            Answer(ChatOf(uAgent), words(L"person ", uAgent, nRound).c_str());
        }
    }
    for (unsigned int uAgent = 0; uAgent < AGENTS; ++uAgent)
    {
        for (int nRound = 0; nRound < ROUNDS; ++nRound)
        {
            EXPECT_EQ(TakeAnswerOf(uAgent), words(L"person ", uAgent, nRound));
        }
        EXPECT_EQ(TakeAnswerOf(uAgent, SILENCE_MS), L"");
        EXPECT_EQ(HistoryOf(uAgent).find(words(L"viewer ", 1 - uAgent, 0)), std::wstring::npos);
    }
    PostMessageW(ChatOf(0), WM_CLOSE, 0, 0);
    SayTo(1, L"one more");
    EXPECT_TRUE(WaitForLineOf(1, L"one more")) << "the other talk goes on";
}
