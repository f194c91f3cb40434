#include "channel/NoticeMessages.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/ChatHarness.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

std::vector<HWND> g_broughtToTop;

BOOL WINAPI RecordBringToTop(HWND hWnd)
{
    g_broughtToTop.push_back(hWnd);
    return TRUE;
}

struct Load
{
    std::wstring name;
    HANDLE hFile;
    DWORD dwFlags;
};
std::vector<Load> g_loads;
decltype(&LoadLibraryExW) g_pfnLoad = nullptr;

HMODULE WINAPI RecordLoad(const wchar_t* pszName, HANDLE hFile, DWORD dwFlags)
{
    g_loads.push_back({pszName, hFile, dwFlags});
    return g_pfnLoad(pszName, hFile, dwFlags);
}

/// Lines of that logger at ERROR.
class ChatErrors
{
  public:
    std::vector<std::string> Texts() const { return m_capture.Texts(); }

  private:
    LogCapture m_capture{"TKDASTWindowChat", log4cxx::Level::getError()};
};

class ChatBridgeTest : public ChatHarness
{
  protected:
    int InitChatWindow()
    {
        int nResult = -1;
        OnWindowThread([&] { nResult = Window().InitChatWindow(); });
        return nResult;
    }

    /// As the person at the desktop does.
    void CloseByPerson()
    {
        SendMessageW(m_chat->hChatWindow, WM_CLOSE, 0, 0);
        ASSERT_FALSE(IsWindow(m_chat->hChatWindow));
    }

    void ExpectNoChat()
    {
        EXPECT_EQ(Window().m_hChatWindow.load(), nullptr);
        EXPECT_EQ(m_chat->nWindows, 0);
    }
};

/// A current folder for as long as the object lives.
class CurrentFolder
{
  public:
    explicit CurrentFolder(const std::filesystem::path& path) : m_before(std::filesystem::current_path())
    {
        std::filesystem::current_path(path);
    }
    ~CurrentFolder() { std::filesystem::current_path(m_before); }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

  private:
    std::filesystem::path m_before;
};
} // namespace

TEST_F(ChatBridgeTest, AMessageWithNoWindowOpenOpensOneAndIsThenShown)
{
    OfferModule();
    SendChat();
    EXPECT_EQ(m_chat->nCreated, 1);
    EXPECT_EQ(m_chat->hOwner, Window().m_hWnd);
    EXPECT_EQ(m_chat->dwThreadId, GetWindowThreadProcessId(Window().m_hWnd, nullptr)) << "the main thread";
    EXPECT_EQ(Window().m_hChatWindow.load(), m_chat->hChatWindow);
    EXPECT_EQ(m_chat->nAppended, 1);
    EXPECT_EQ(m_chat->hAppendedTo, m_chat->hChatWindow);
}

TEST_F(ChatBridgeTest, OpeningAnOpenChatBringsItToTheTopAndMakesNoSecondOne)
{
    OfferModule();
    g_broughtToTop.clear();
    const ImportHook hook("user32.dll", "BringWindowToTop", &RecordBringToTop);
    SendChatOpen();
    EXPECT_EQ(m_chat->nCreated, 1);
    EXPECT_THAT(g_broughtToTop, IsEmpty());
    SendChatOpen();
    SendChat();
    EXPECT_EQ(m_chat->nCreated, 1);
    EXPECT_THAT(g_broughtToTop, ElementsAre(m_chat->hChatWindow, m_chat->hChatWindow));
    EXPECT_EQ(m_chat->nAppended, 1);
}

TEST_F(ChatBridgeTest, AfterThePersonHasClosedItTheNextMessageOpensAnotherWithoutLoadingAgain)
{
    OfferModule();
    g_loads.clear();
    const ImportHook hook("kernel32.dll", "LoadLibraryExW", &RecordLoad);
    g_pfnLoad = hook.Original();
    SendChat();
    const HMODULE hModule = Window().m_hChatModule;
    CloseByPerson();
    ExpectNoChat();
    SendChat();
    EXPECT_EQ(m_chat->nCreated, 2);
    EXPECT_EQ(m_chat->nAppended, 2);
    EXPECT_EQ(Window().m_hChatWindow.load(), m_chat->hChatWindow);
    EXPECT_TRUE(IsWindow(m_chat->hChatWindow));
    EXPECT_EQ(m_chat->nLoads, 1);
    EXPECT_THAT(g_loads, SizeIs(1));
    EXPECT_EQ(Window().m_hChatModule, hModule);
}

TEST_F(ChatBridgeTest, AWindowThatWentWithoutAWordIsReplaced)
{
    OfferModule();
    m_chat->bGoesSilently = 1;
    SendChat();
    CloseByPerson();
    EXPECT_NE(Window().m_hChatWindow.load(), nullptr) << "nobody has told the agent";
    SendChat();
    EXPECT_EQ(m_chat->nCreated, 2);
    EXPECT_EQ(m_chat->hAppendedTo, m_chat->hChatWindow);
}

TEST_F(ChatBridgeTest, TheServicesCloseDestroysTheWindowAndKeepsTheModule)
{
    OfferModule();
    SendChatOpen();
    SendChatClose();
    ExpectNoChat();
    EXPECT_EQ(m_chat->nClosed, 0) << "the entry must be there and is never called";
    EXPECT_NE(Window().m_hChatModule, nullptr);
    EXPECT_EQ(GetModuleHandleW(CHAT_MODULE), Window().m_hChatModule);
    SendChatOpen();
    EXPECT_EQ(m_chat->nCreated, 2);
    EXPECT_EQ(m_chat->nLoads, 1);
}

TEST_F(ChatBridgeTest, AWindowThatWentWithoutAWordIsForgottenByTheServicesClose)
{
    OfferModule();
    m_chat->bGoesSilently = 1;
    SendChatOpen();
    CloseByPerson();
    SendChatClose();
    ExpectNoChat();
}

TEST_F(ChatBridgeTest, AnyOrderOfOpenMessageAndCloseLeavesOneWindowOrNone)
{
    OfferModule();
    constexpr int ORDERS = 3 * 3 * 3 * 3 * 3;
    for (int nOrder = 0; nOrder < ORDERS; ++nOrder)
    {
        bool bOpen = false;
        for (int nStep = 0, nRest = nOrder; nStep < 5; ++nStep, nRest /= 3)
        {
            bOpen = nRest % 3 != 0;
            switch (nRest % 3)
            {
            case 0:
                SendChatClose();
                break;
            case 1:
                SendChatOpen();
                break;
            default:
                SendChat();
                break;
            }
        }
        ASSERT_EQ(m_chat->nWindows, bOpen ? 1 : 0) << nOrder;
        ASSERT_EQ(Window().m_hChatWindow.load(), bOpen ? m_chat->hChatWindow : nullptr) << nOrder;
    }
    EXPECT_EQ(m_chat->nLoads, 1);
}

TEST_F(ChatBridgeTest, CloseWithNoChatOpenDoesNothing)
{
    const ChatErrors errors;
    OfferModule();
    SendChatClose();
    SendChatClose();
    ExpectNoChat();
    EXPECT_EQ(m_chat->nLoads, 0) << "nothing to close needs no module";
    EXPECT_THAT(errors.Texts(), IsEmpty());
}

TEST_F(ChatBridgeTest, AMissingModuleIsComplainedOfAtEachAttemptAndHarmsNothing)
{
    const ChatErrors errors;
    SendChat();
    SendChatOpen();
    ExpectNoChat();
    EXPECT_EQ(Window().m_hChatModule, nullptr);
    EXPECT_THAT(errors.Texts(), ElementsAre(StartsWith("ERROR Failed to load TKDAChat.dll. Error: 126 - "),
                                            StartsWith("ERROR Failed to load TKDAChat.dll. Error: 126 - ")));
    EXPECT_EQ(InitChatWindow(), 0);
}

TEST_F(ChatBridgeTest, AModuleThatComesLaterIsTakenThen)
{
    SendChat();
    OfferModule();
    SendChat();
    EXPECT_EQ(m_chat->nCreated, 1);
    EXPECT_EQ(m_chat->nAppended, 1) << "the first message is gone";
}

TEST_F(ChatBridgeTest, ACompleteModuleIsReadyAndComplainedOfByNobody)
{
    const ChatErrors errors;
    OfferModule();
    EXPECT_EQ(InitChatWindow(), 1);
    EXPECT_NE(Window().m_pfnCreateChatWindow, nullptr);
    EXPECT_NE(Window().m_pfnAppendChatMessage, nullptr);
    EXPECT_NE(Window().m_pfnCloseChatWindow, nullptr);
    EXPECT_EQ(InitChatWindow(), 1);
    EXPECT_EQ(m_chat->nLoads, 1);
    EXPECT_EQ(m_chat->nCreated, 0);
    EXPECT_THAT(errors.Texts(), IsEmpty());
}

TEST_F(ChatBridgeTest, WithoutTheCreatingEntryNoWindowOpensAndMessagesAreDropped)
{
    const ChatErrors errors;
    OfferModule(L"create");
    SendChat();
    SendChatOpen();
    SendChatClose();
    ExpectNoChat();
    EXPECT_EQ(m_chat->nAppended, 0);
    EXPECT_NE(Window().m_hChatModule, nullptr) << "stays loaded";
    EXPECT_EQ(Window().m_pfnAppendChatMessage, nullptr) << "nothing is looked for behind what is missing";
    EXPECT_EQ(Window().m_pfnCloseChatWindow, nullptr);
    EXPECT_THAT(errors.Texts(),
                ElementsAre(StartsWith("ERROR Failed to GetProcAddress for "
                                       "TKDA_CreateChatWindow from TKDAChat.dll. Error: 127 - ")))
        << "once: the module is there and isn't loaded again";
}

TEST_F(ChatBridgeTest, WithoutTheAppendingEntryAWindowOpensAndMessagesAreDropped)
{
    const ChatErrors errors;
    OfferModule(L"append");
    SendChat();
    SendChat();
    EXPECT_EQ(m_chat->nCreated, 1);
    EXPECT_TRUE(IsWindow(Window().m_hChatWindow));
    EXPECT_NE(Window().m_pfnCreateChatWindow, nullptr) << "what was found stays";
    EXPECT_EQ(Window().m_pfnCloseChatWindow, nullptr);
    EXPECT_THAT(errors.Texts(),
                ElementsAre(StartsWith("ERROR Failed to GetProcAddress for "
                                       "TKDA_AppendChatMessage from TKDAChat.dll. Error: 127 - ")));
    SendChatClose();
    ExpectNoChat();
}

TEST_F(ChatBridgeTest, WithoutTheClosingEntryTheModuleHasFailed)
{
    const ChatErrors errors;
    OfferModule(L"close");
    EXPECT_EQ(InitChatWindow(), 0);
    EXPECT_THAT(errors.Texts(),
                ElementsAre(StartsWith("ERROR Failed to GetProcAddress for "
                                       "TKDA_CloseChatWindow from TKDAChat.dll. Error: 127 - ")));
    EXPECT_NE(Window().m_hChatModule, nullptr);
    EXPECT_NE(Window().m_pfnCreateChatWindow, nullptr);
    EXPECT_NE(Window().m_pfnAppendChatMessage, nullptr);
    EXPECT_EQ(Window().m_pfnCloseChatWindow, nullptr);
    EXPECT_EQ(InitChatWindow(), 1) << "a creating entry once found is enough from then on";
    EXPECT_THAT(errors.Texts(), SizeIs(1));
}

TEST_F(ChatBridgeTest, WhatAnIncompleteModuleHasIsUsed)
{
    OfferModule(L"close");
    SendChat();
    EXPECT_EQ(m_chat->nCreated, 1);
    EXPECT_EQ(m_chat->nAppended, 1);
    SendChatClose();
    ExpectNoChat();
}

TEST_F(ChatBridgeTest, AWindowThatCannotBeMadeIsTriedAgainWithTheNextMessage)
{
    OfferModule();
    m_chat->bCreateFails = 1;
    SendChat();
    ExpectNoChat();
    EXPECT_EQ(m_chat->nAppended, 0) << "there is nothing to show it in";
    m_chat->bCreateFails = 0;
    SendChat();
    EXPECT_EQ(m_chat->nCreated, 2);
    EXPECT_EQ(m_chat->nAppended, 1);
}

TEST_F(ChatBridgeTest, TheModuleIsNeverTakenFromTheCurrentFolderOrThePath)
{
    const std::filesystem::path folder = TestProgramFolder() / ChatModuleFolder(L"nothing");
    ASSERT_TRUE(std::filesystem::exists(folder / CHAT_MODULE));
    std::wstring path(32767, L'\0');
    path.resize(GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
    SetEnvironmentVariableW(L"PATH", (folder.wstring() + L";" + path).c_str());
    g_loads.clear();
    {
        const CurrentFolder current(folder);
        const ImportHook hook("kernel32.dll", "LoadLibraryExW", &RecordLoad);
        g_pfnLoad = hook.Original();
        SendChat();
    }
    SetEnvironmentVariableW(L"PATH", path.c_str());
    EXPECT_EQ(m_chat->nLoads, 0);
    EXPECT_EQ(Window().m_hChatModule, nullptr);
    ASSERT_THAT(g_loads, SizeIs(1));
    EXPECT_EQ(g_loads[0].name, CHAT_MODULE);
    EXPECT_EQ(g_loads[0].hFile, nullptr);
    EXPECT_EQ(g_loads[0].dwFlags, static_cast<DWORD>(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS));
}

TEST_F(ChatBridgeTest, WhatThePersonWroteGoesOutAsItStands)
{
    OfferModule();
    SendChatOpen();
    for (const size_t nBytes : {1U, 3U, 528U, 531U, 70000U})
    {
        std::vector<BYTE> written = Payload(nBytes, 99); // no record at all: nobody looks into it
        const std::vector<BYTE> sent = written;
        EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_RC_CHAT_MESSAGE_SENT,
                               reinterpret_cast<WPARAM>(written.data()), static_cast<LPARAM>(nBytes)),
                  0);
        std::vector<BYTE> received(nBytes);
        ASSERT_TRUE(m_service.ReceiveExactly(received.data(), received.size(), PATIENCE_MS));
        EXPECT_EQ(received, sent) << nBytes;
        EXPECT_EQ(written, sent) << "the record is the chat module's";
    }
    Settle();
}

TEST_F(ChatBridgeTest, WhatThePersonWritesBehindTheLossOfTheChannelIsDropped)
{
    Window().m_pSocket.load()->Close();
    JoinReader();
    BYTE abRecord[sizeof(MSG_CHAT_MESSAGE)] = {};
    EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_RC_CHAT_MESSAGE_SENT, reinterpret_cast<WPARAM>(abRecord),
                           sizeof(abRecord)),
              0);
}

TEST_F(ChatBridgeTest, TheWindowAnswersEachChatMessageWithAWordInTheLog)
{
    OfferModule();
    const LogCapture capture("TKDASTWindow", log4cxx::Level::getInfo());
    SendChatOpen();
    SendChat();
    SendChatClose();
    BYTE bRecord = 0;
    SendMessageW(Window().m_hWnd, WM_RC_CHAT_MESSAGE_SENT, reinterpret_cast<WPARAM>(&bRecord), 1);
    EXPECT_TRUE(m_service.ReceiveExactly(&bRecord, 1, PATIENCE_MS));
    EXPECT_THAT(capture.Texts(),
                ElementsAre("INFO WM_CHAT_OPEN", "INFO WM_CHAT_MESSAGE", "INFO WM_CHAT_CLOSE",
                            "INFO WM_RC_CHAT_MESSAGE_SENT - local user hit send in the chat window"));
}

TEST_F(ChatBridgeTest, EachOperationTracesItsLife)
{
    OfferModule();
    const LogCapture capture("TKDASTWindowChat");
    SendChat();
    SendChatClose();
    const char* const apszNames[] = {"ShowChatMessage", "OpenChatWindow", "InitChatWindow",
                                     "CloseChatWindow"};
    for (const char* const pszName : apszNames)
    {
        const std::string label = std::string("TRACE CTaskBarWindow::") + pszName;
        EXPECT_THAT(capture.Texts(), testing::Contains(label + " entering."));
        EXPECT_THAT(capture.Texts(), testing::Contains(label + " exiting."));
    }
}

TEST_F(ChatBridgeTest, WhoeverAsksIsToldThatTheAgentLives)
{
    EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_CHAT_AGENT_ALIVE, 0, 0), 1);
    EXPECT_EQ(SendMessageW(Window().m_hWnd, WM_CHAT_WINDOW_GONE, 0, 0), 0);
}

TEST_F(ChatBridgeTest, NoticesReachOnlyAnOpenChat)
{
    OfferModule();
    Window().m_bAwaitingFirstSettings = 0;
    const auto connect = [this] {
        Send(Connection(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, 2));
        Settle();
    };
    connect();
    EXPECT_EQ(m_chat->nLoads, 0) << "a notice opens no chat";
    SendChatOpen();
    connect();
    EXPECT_EQ(m_chat->nNotices, 1);
    EXPECT_EQ(m_chat->uLastNotice, static_cast<UINT>(WM_CHAT_USER_CONNECTED));
    EXPECT_STREQ(m_chat->lastNotice.szNotice, L"Alice connected");
    EXPECT_EQ(m_chat->lastNotice.bConnected, 1U);
    EXPECT_EQ(m_chat->lastNotice.dwConnectCount, 2U);
    Send(Connection(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, 0));
    Settle();
    EXPECT_EQ(m_chat->nNotices, 2);
    EXPECT_EQ(m_chat->uLastNotice, static_cast<UINT>(WM_CHAT_USER_DISCONNECTED));
    EXPECT_STREQ(m_chat->lastNotice.szNotice, L"Alice disconnected");
    EXPECT_TRUE(IsWindow(Window().m_hChatWindow)) << "the end of a connection closes no chat";
    CloseByPerson();
    connect();
    EXPECT_EQ(m_chat->nNotices, 2);
}

TEST_F(ChatBridgeTest, TheAgentsEndTakesTheChatWithIt)
{
    OfferModule();
    SendChatOpen();
    const HWND hChatWindow = m_chat->hChatWindow;
    SendMessageW(Window().m_hWnd, WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(hChatWindow));
    ExpectNoChat();
}
