#include "modules/chat/ChatHistory.h"
#include "modules/chat/ChatPayload.h"
#include "modules/chat/ChatResource.h"
#include "modules/chat/ChatText.h"
#include "modules/chat/ChatWindow.h"
#include "modules/common/ModuleLanguage.h"
#include "tests/support/ChatModule.h"
#include "tests/support/ColorScheme.h"
#include "tests/support/GuardedRecord.h"
#include "tests/support/ImportHook.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/HeldKey.h"
#include "tray/TrayWindowMessages.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace
{
constexpr wchar_t OWNER_CLASS[] = L"owner of a chat window";
constexpr DWORD PAYLOAD_SIZES[] = {0, 1, 2, 5}; // bytes

const wchar_t* const LANGUAGES[] = {L"en", L"fr", L"de"};
constexpr UINT RESOLUTIONS[] = {96, 144, 192};
constexpr int CONTROLS[] = {IDC_CHAT_PEOPLE, IDC_CHAT_HISTORY, IDC_CHAT_LABEL, IDC_CHAT_INPUT, IDC_CHAT_SEND};

std::wstring TextOf(HWND hWnd)
{
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(hWnd)) + 1, L'\0');
    text.resize(static_cast<size_t>(GetWindowTextW(hWnd, text.data(), static_cast<int>(text.size()))));
    return text;
}

std::wstring UserName()
{
    wchar_t szUser[MAX_PATH] = {};
    DWORD cchUser = MAX_PATH;
    GetUserNameW(szUser, &cchUser);
    return szUser;
}

// The staged module and a window that owns its window, as the agent does. Nothing here calls IsDialogMessage,
// which the agent doesn't, either.
class ChatModuleTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        s_pThis = this;
        SetEnvironmentVariableW(L"LangUI", L"en");
        WNDCLASSW windowClass = {};
        windowClass.lpfnWndProc = &OwnerProc;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpszClassName = OWNER_CLASS;
        RegisterClassW(&windowClass);
        m_hOwner = CreateWindowW(OWNER_CLASS, L"", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr, nullptr,
                                 windowClass.hInstance, nullptr);
        ASSERT_NE(m_hOwner, nullptr);
    }

    void TearDown() override
    {
        m_module.Close();
        DestroyWindow(m_hOwner);
        PumpMessages();
        UnregisterClassW(OWNER_CLASS, GetModuleHandleW(nullptr));
        s_pThis = nullptr;
    }

    HWND Open()
    {
        m_hChat = m_module.Create(m_hOwner);
        PumpMessages();
        return m_hChat;
    }

    // As a person has it who is going to type.
    HWND OpenAndActivate()
    {
        Open();
        SetForegroundWindow(m_hChat);
        SetActiveWindow(m_hChat);
        PumpMessages();
        return m_hChat;
    }

    HWND Control(int nControl) const { return GetDlgItem(m_hChat, nControl); }
    std::wstring Text(int nControl) const { return TextOf(Control(nControl)); }
    std::wstring History() const { return Text(IDC_CHAT_HISTORY); }

    // The history without the times, which are the system's.
    std::vector<std::wstring> Lines() const
    {
        std::vector<std::wstring> lines;
        std::wstring text = History();
        for (size_t nEnd = text.find(L"\r\n"); nEnd != std::wstring::npos; nEnd = text.find(L"\r\n"))
        {
            const std::wstring line = text.substr(0, nEnd);
            const std::wstring time = TimeOf(line);
            lines.push_back(line.substr(time.size()));
            text.erase(0, nEnd + 2);
        }
        return lines;
    }

    // "1:23 PM " and the like: all up to a blank that no other part of a time follows.
    static std::wstring TimeOf(const std::wstring& line)
    {
        size_t nAt = line.find_first_not_of(L"0123456789:");
        if (nAt == 0 || nAt == std::wstring::npos)
        {
            return L"";
        }
        if (line.compare(nAt, 4, L" AM ") == 0 || line.compare(nAt, 4, L" PM ") == 0)
        {
            nAt += 3;
        }
        return line.substr(0, nAt + 1);
    }

    // From the keyboard, through the same calls as in the agent's message loop.
    static void Press(int nKey, int nHeld = 0)
    {
        const HeldKey held(nHeld);
        PostMessageW(GetFocus(), WM_KEYDOWN, static_cast<WPARAM>(nKey), 1);
        PumpMessages();
    }
    static void Type(std::wstring_view text)
    {
        for (const wchar_t ch : text)
        {
            PostMessageW(GetFocus(), WM_CHAR, ch, 1);
            PumpMessages();
        }
    }
    void Paste(const std::wstring& text) const
    {
        SendMessageW(Control(IDC_CHAT_INPUT), EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(text.c_str()));
    }

    void Say(std::wstring_view name, std::wstring_view text) const { m_module.Say(m_hChat, name, text); }

    LoadedChatModule m_module;
    HWND m_hOwner = nullptr;
    HWND m_hChat = nullptr;
    std::vector<std::vector<char>> m_sent;
    int m_nGone = 0;
    std::function<void()> m_onSent;

  private:
    static ChatModuleTest* s_pThis;

    static LRESULT CALLBACK OwnerProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
    {
        if (uMessage == WM_RC_CHAT_MESSAGE_SENT)
        {
            const char* const pRecord = reinterpret_cast<const char*>(wParam);
            s_pThis->m_sent.emplace_back(pRecord, pRecord + lParam);
            if (s_pThis->m_onSent)
            {
                s_pThis->m_onSent();
            }
            return 0;
        }
        if (uMessage == WM_CHAT_WINDOW_GONE)
        {
            ++s_pThis->m_nGone;
            return 0;
        }
        return DefWindowProcW(hWnd, uMessage, wParam, lParam);
    }
};
ChatModuleTest* ChatModuleTest::s_pThis = nullptr;

// ---- Coming and going.

TEST_F(ChatModuleTest, ComesUpWithoutTakingTheKeyboard)
{
    ShowWindow(m_hOwner, SW_SHOW);
    SetForegroundWindow(m_hOwner);
    SetActiveWindow(m_hOwner);
    SetFocus(m_hOwner);
    PumpMessages();
    ASSERT_EQ(GetFocus(), m_hOwner);
    Open();
    EXPECT_TRUE(IsWindowVisible(m_hChat));
    Say(L"Alice", L"Hello");
    PumpMessages();
    EXPECT_EQ(GetFocus(), m_hOwner);
    EXPECT_EQ(GetActiveWindow(), m_hOwner);
}

TEST_F(ChatModuleTest, BelongsToTheAgentAndHasATaskbarButtonOfItsOwn)
{
    Open();
    EXPECT_EQ(GetWindow(m_hChat, GW_OWNER), m_hOwner);
    const LONG_PTR nExStyle = GetWindowLongPtrW(m_hChat, GWL_EXSTYLE);
    EXPECT_NE(nExStyle & WS_EX_APPWINDOW, 0);
    EXPECT_EQ(nExStyle & WS_EX_TOPMOST, 0);
    EXPECT_NE(GetWindowLongPtrW(m_hChat, GWL_STYLE) & WS_THICKFRAME, 0);
    EXPECT_NE(GetClassLongPtrW(m_hChat, GCLP_HICON), 0u);
}

TEST_F(ChatModuleTest, ComesUpInsideTheWorkArea)
{
    Open();
    RECT window = {};
    RECT workArea = {};
    RECT both = {};
    GetWindowRect(m_hChat, &window);
    SystemParametersInfoW(SPI_GETWORKAREA, 0, &workArea, 0);
    IntersectRect(&both, &window, &workArea);
    EXPECT_EQ(EqualRect(&both, &window), TRUE);
    EXPECT_GT(window.left, workArea.right / 2);
}

TEST_F(ChatModuleTest, RefusesAnOwnerThatIsNoWindow)
{
    SetLastError(0);
    EXPECT_EQ(m_module.Create(nullptr), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_WINDOW_HANDLE});
    EXPECT_EQ(m_module.Create(reinterpret_cast<HWND>(-2)), nullptr);
}

TEST_F(ChatModuleTest, OpensOneWindowAndAfterItsEndAnother)
{
    Open();
    EXPECT_EQ(m_module.Create(m_hOwner), m_hChat);
    Say(L"Alice", L"Hello");
    SendMessageW(m_hChat, WM_SYSCOMMAND, SC_CLOSE, 0);
    EXPECT_EQ(m_nGone, 1);
    EXPECT_FALSE(IsWindow(m_hChat));
    ASSERT_NE(Open(), nullptr);
    EXPECT_EQ(History(), L"");
}

TEST_F(ChatModuleTest, GoesByEscapeFromEveryControl)
{
    for (const int nControl : {IDC_CHAT_INPUT, IDC_CHAT_SEND, IDC_CHAT_HISTORY})
    {
        m_nGone = 0;
        OpenAndActivate();
        Paste(L"unsent"); // which lets the button have the focus
        SetFocus(Control(nControl));
        Press(VK_ESCAPE);
        EXPECT_FALSE(IsWindow(m_hChat)) << nControl;
        EXPECT_EQ(m_nGone, 1) << nControl;
    }
    EXPECT_TRUE(m_sent.empty());
}

TEST_F(ChatModuleTest, TellsTheAgentHoweverItGoes)
{
    Open();
    DestroyWindow(m_hChat);
    EXPECT_EQ(m_nGone, 1);
    Open();
    m_module.Close();
    EXPECT_FALSE(IsWindow(m_hChat));
    EXPECT_EQ(m_nGone, 2);
    m_module.Close();
    EXPECT_EQ(m_nGone, 2);
}

TEST_F(ChatModuleTest, GoesWithItsOwner)
{
    Open();
    Say(L"Alice", L"Hello");
    DestroyWindow(m_hOwner);
    EXPECT_FALSE(IsWindow(m_hChat));
    Say(L"Alice", L"Anybody there?");
    m_module.Close();
}

TEST_F(ChatModuleTest, MayBeClosedByTheAgentWhileItSends)
{
    OpenAndActivate();
    Paste(L"the last word");
    m_onSent = [this] { m_module.Close(); };
    Press(VK_RETURN);
    EXPECT_EQ(m_sent.size(), 1u);
    EXPECT_FALSE(IsWindow(m_hChat));
}

TEST_F(ChatModuleTest, CanBeFreedAndLoadedAgain)
{
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        const LoadedChatModule other;
        const HWND hChat = other.Create(m_hOwner);
        EXPECT_NE(hChat, nullptr);
        other.Close();
    }
}

TEST_F(ChatModuleTest, LeavesNothingBehindAfterFiftyWindows)
{
    const RECT place = {0, 0, 600, 500};
    ExpectNothingLeftBy(50, [this, &place](int) {
        OpenAndActivate();
        Say(L"Alice", L"Hello");
        Paste(L"Hello, Alice");
        Press(VK_RETURN);
        SendMessageW(m_hChat, WM_DPICHANGED, MAKEWPARAM(144, 144), reinterpret_cast<LPARAM>(&place));
        m_module.Close();
        PumpMessages();
    });
}

// ---- What the person writes.

TEST_F(ChatModuleTest, SendsWhatWasTypedOnEnter)
{
    OpenAndActivate();
    EXPECT_EQ(GetFocus(), Control(IDC_CHAT_INPUT));
    Type(L"Grüße, 日本");
    Press(VK_RETURN);
    ASSERT_EQ(m_sent.size(), 1u);
    EXPECT_EQ(m_sent[0], MakeChatRecord(UserName(), L"Grüße, 日本"));
    EXPECT_EQ(Text(IDC_CHAT_INPUT), L"");
    EXPECT_EQ(Lines(), std::vector<std::wstring>{UserName() + L": Grüße, 日本"});
    EXPECT_EQ(GetFocus(), Control(IDC_CHAT_INPUT));
}

TEST_F(ChatModuleTest, StartsALineOnControlEnterAndShiftEnter)
{
    OpenAndActivate();
    Type(L"1");
    Press(VK_RETURN, VK_CONTROL);
    Type(L"2");
    Press(VK_RETURN, VK_SHIFT);
    Type(L"3");
    EXPECT_TRUE(m_sent.empty());
    EXPECT_EQ(Text(IDC_CHAT_INPUT), L"1\r\n2\r\n3");
    Press(VK_RETURN);
    ASSERT_EQ(m_sent.size(), 1u);
    EXPECT_EQ(m_sent[0], MakeChatRecord(UserName(), L"1\r\n2\r\n3"));
}

TEST_F(ChatModuleTest, SendsNothingWhileThereIsNothingToSend)
{
    OpenAndActivate();
    EXPECT_FALSE(IsWindowEnabled(Control(IDC_CHAT_SEND)));
    Press(VK_RETURN);
    Type(L"  ");
    EXPECT_FALSE(IsWindowEnabled(Control(IDC_CHAT_SEND)));
    Press(VK_RETURN);
    EXPECT_TRUE(m_sent.empty());
    EXPECT_EQ(Text(IDC_CHAT_INPUT), L"  ");
    Type(L".");
    EXPECT_TRUE(IsWindowEnabled(Control(IDC_CHAT_SEND)));
    Press(VK_RETURN);
    EXPECT_EQ(m_sent.size(), 1u);
    EXPECT_FALSE(IsWindowEnabled(Control(IDC_CHAT_SEND)));
}

TEST_F(ChatModuleTest, SendsByItsButton)
{
    OpenAndActivate();
    Type(L"one");
    SendMessageW(Control(IDC_CHAT_SEND), BM_CLICK, 0, 0);
    Type(L"two");
    Press(VK_TAB);
    ASSERT_EQ(GetFocus(), Control(IDC_CHAT_SEND));
    Press(VK_RETURN);
    ASSERT_EQ(m_sent.size(), 2u);
    EXPECT_EQ(m_sent[1], MakeChatRecord(UserName(), L"two"));
    EXPECT_EQ(GetFocus(), Control(IDC_CHAT_INPUT));
}

TEST_F(ChatModuleTest, ReachesItsControlsByTheirLetters)
{
    for (const auto& [pszLanguage, chInput, chSend] :
         {std::tuple(L"en", L'm', L's'), std::tuple(L"fr", L'm', L'e'), std::tuple(L"de", L'n', L's')})
    {
        SetEnvironmentVariableW(L"LangUI", pszLanguage);
        m_sent.clear();
        OpenAndActivate();
        Paste(L"text");
        SetFocus(Control(IDC_CHAT_HISTORY));
        SendMessageW(GetFocus(), WM_SYSCHAR, static_cast<WPARAM>(chInput), 1);
        EXPECT_EQ(GetFocus(), Control(IDC_CHAT_INPUT)) << pszLanguage;
        SendMessageW(GetFocus(), WM_SYSCHAR, static_cast<WPARAM>(chSend), 1);
        EXPECT_EQ(m_sent.size(), 1u) << pszLanguage;
        m_module.Close();
    }
}

TEST_F(ChatModuleTest, SendsTheLongestTextWholeAndTakesNoMore)
{
    OpenAndActivate();
    const std::wstring longest(MAX_CHAT_TEXT, L'x');
    Paste(longest);
    Type(L"yz");
    Press(VK_RETURN, VK_SHIFT);
    Press(VK_RETURN);
    ASSERT_EQ(m_sent.size(), 1u);
    EXPECT_TRUE(m_sent[0] == MakeChatRecord(UserName(), longest));
    EXPECT_EQ(Lines(), std::vector<std::wstring>{UserName() + L": " + longest});
}

TEST_F(ChatModuleTest, SendsWhatAnEditControlCanHold)
{
    OpenAndActivate();
    const std::wstring text = L"\xD83D\xDE00 שלום \xD800 &%s";
    Paste(text);
    Press(VK_RETURN);
    ASSERT_EQ(m_sent.size(), 1u);
    EXPECT_EQ(m_sent[0], MakeChatRecord(UserName(), text));
}

// ---- The keyboard.

TEST_F(ChatModuleTest, TabGoesThroughInputSendAndHistory)
{
    OpenAndActivate();
    Press(VK_TAB); // the button is disabled
    EXPECT_EQ(GetFocus(), Control(IDC_CHAT_HISTORY));
    Press(VK_TAB);
    EXPECT_EQ(GetFocus(), Control(IDC_CHAT_INPUT));
    Type(L"text");
    for (const int nControl : {IDC_CHAT_SEND, IDC_CHAT_HISTORY, IDC_CHAT_INPUT})
    {
        Press(VK_TAB);
        EXPECT_EQ(GetFocus(), Control(nControl));
    }
    for (const int nControl : {IDC_CHAT_HISTORY, IDC_CHAT_SEND, IDC_CHAT_INPUT})
    {
        Press(VK_TAB, VK_SHIFT);
        EXPECT_EQ(GetFocus(), Control(nControl));
    }
    EXPECT_EQ(Text(IDC_CHAT_INPUT), L"text");
}

TEST_F(ChatModuleTest, F6GoesBetweenHistoryAndInput)
{
    OpenAndActivate();
    Press(VK_F6);
    EXPECT_EQ(GetFocus(), Control(IDC_CHAT_HISTORY));
    Press(VK_F6);
    EXPECT_EQ(GetFocus(), Control(IDC_CHAT_INPUT));
}

TEST_F(ChatModuleTest, ControlASelectsTheWholeHistory)
{
    OpenAndActivate();
    Say(L"Alice", L"Hello");
    SetFocus(Control(IDC_CHAT_HISTORY));
    Press('A', VK_CONTROL);
    DWORD dwBegin = 1;
    DWORD dwEnd = 0;
    SendMessageW(Control(IDC_CHAT_HISTORY), EM_GETSEL, reinterpret_cast<WPARAM>(&dwBegin),
                 reinterpret_cast<LPARAM>(&dwEnd));
    EXPECT_EQ(dwBegin, 0u);
    EXPECT_EQ(dwEnd, History().size());
}

TEST_F(ChatModuleTest, HistoryCannotBeTypedInto)
{
    OpenAndActivate();
    Say(L"Alice", L"Hello");
    const std::wstring before = History();
    SetFocus(Control(IDC_CHAT_HISTORY));
    Type(L"forged");
    Press(VK_DELETE);
    Press(VK_RETURN);
    EXPECT_EQ(History(), before);
    EXPECT_TRUE(m_sent.empty());
}

TEST_F(ChatModuleTest, KeyboardComesBackToWhereItWas)
{
    ShowWindow(m_hOwner, SW_SHOW);
    OpenAndActivate();
    Press(VK_TAB);
    ASSERT_EQ(GetFocus(), Control(IDC_CHAT_HISTORY));
    SetActiveWindow(m_hOwner);
    PumpMessages();
    SetActiveWindow(m_hChat);
    PumpMessages();
    EXPECT_EQ(GetFocus(), Control(IDC_CHAT_HISTORY));
}

// ---- What others write.

TEST_F(ChatModuleTest, ShowsWhatIsSaidInItsOrder)
{
    Open();
    Say(L"Alice", L"Hello");
    Say(L"Bob", L"two\r\nlines\n");
    Say(L"", L"no name");
    const std::vector<std::wstring> expected = {L"Alice: Hello", L"Bob: two", L"    lines",
                                                L"Somebody: no name"};
    EXPECT_EQ(Lines(), expected);
    EXPECT_NE(TimeOf(History()), L"");
}

TEST_F(ChatModuleTest, ShowsPayloadsOfEveryKind)
{
    Open();
    Say(L"Alice", L"");
    Say(L"Alice", std::wstring_view(L"a\0b", 3));
    Say(L"Alice", L"\xD83D\xDE00 \xD83D");
    Say(L"ליאור", L"שלום");
    const std::vector<std::wstring> expected = {L"Alice: ",
                                                L"Alice: a\xFFFD"
                                                L"b",
                                                L"Alice: \xD83D\xDE00 \xFFFD",
                                                L"\x2068ליאור\x2069: \x2068שלום\x2069"};
    EXPECT_EQ(Lines(), expected);
}

TEST_F(ChatModuleTest, ReadsNoByteBehindTheRecord)
{
    Open();
    for (const DWORD cbPayload : PAYLOAD_SIZES)
    {
        std::vector<char> record = MakeChatRecord(L"", L"abcdef");
        MSG_CHAT_MESSAGE* const pHead = reinterpret_cast<MSG_CHAT_MESSAGE*>(record.data());
        std::fill(std::begin(pHead->szUsername), std::end(pHead->szUsername), L'n');
        pHead->dwMessageLength = cbPayload;
        const GuardedBytes guarded(sizeof(MSG_CHAT_MESSAGE) + cbPayload);
        std::memcpy(guarded.Get(), record.data(), sizeof(MSG_CHAT_MESSAGE) + cbPayload);
        m_module.Append(m_hChat, reinterpret_cast<const MSG_CHAT_MESSAGE*>(guarded.Get()));
    }
    const std::wstring name = std::wstring(MAX_SHOWN_NAME - 1, L'n') + L"…: ";
    const std::vector<std::wstring> expected = {name, name, name + L"a", name + L"ab"};
    EXPECT_EQ(Lines(), expected);
}

TEST_F(ChatModuleTest, CutsWhatIsTooLong)
{
    Open();
    Say(L"Alice", std::wstring(8U << 20, L'x')); // 16 MiB
    EXPECT_EQ(Lines(), std::vector<std::wstring>{L"Alice: " + std::wstring(MAX_CHAT_TEXT - 1, L'x') + L"…"});
}

TEST_F(ChatModuleTest, IgnoresWhatIsNotForItsWindow)
{
    Open();
    m_module.Append(m_hChat, nullptr);
    Say(L"Alice", L"Hello");
    m_module.Say(nullptr, L"Alice", L"nowhere");
    m_module.Say(m_hOwner, L"Alice", L"elsewhere");
    SendMessageW(m_hChat, WM_CHAT_USER_CONNECTED, 0, 0);
    EXPECT_EQ(Lines(), std::vector<std::wstring>{L"Alice: Hello"});
    m_module.Close();
    Say(L"Alice", L"too late");
}

TEST_F(ChatModuleTest, TellsWhoTakesPart)
{
    Open();
    EXPECT_EQ(Text(IDC_CHAT_PEOPLE), L"Conversation");
    LoadedChatModule::Tell(m_hChat, true, L"Alice & Sons connected", 2);
    EXPECT_EQ(Text(IDC_CHAT_PEOPLE), L"Conversation with Alice & Sons +1");
    Say(L"Bob", L"Hello");
    EXPECT_EQ(Text(IDC_CHAT_PEOPLE), L"Conversation with Alice & Sons, Bob");
    LoadedChatModule::Tell(m_hChat, false, L"Bob disconnected", 1);
    LoadedChatModule::Tell(m_hChat, false, L"Alice & Sons disconnected", 0);
    EXPECT_EQ(Text(IDC_CHAT_PEOPLE), L"Conversation (nobody is connected)");
    const std::vector<std::wstring> expected = {L"— Alice & Sons has connected", L"Bob: Hello",
                                                L"— Bob has left", L"— Alice & Sons has left"};
    EXPECT_EQ(Lines(), expected);
}

TEST_F(ChatModuleTest, ReadsANoticeThatFillsItsField)
{
    Open();
    CHAT_CONNECT_NOTICE notice = {};
    notice.bConnected = 1;
    notice.dwConnectCount = 1;
    std::fill(std::begin(notice.szNotice), std::end(notice.szNotice), L'n');
    const GuardedRecord<CHAT_CONNECT_NOTICE> guarded(notice);
    SendMessageW(m_hChat, WM_CHAT_USER_CONNECTED, reinterpret_cast<WPARAM>(&*guarded), 0);
    const std::wstring name = std::wstring(MAX_SHOWN_NAME - 1, L'n') + L"…";
    EXPECT_EQ(Lines(), std::vector<std::wstring>{L"— " + name + L" has connected"});
}

TEST_F(ChatModuleTest, NeverTakesANameForAFormat)
{
    Open();
    LoadedChatModule::Tell(m_hChat, true, L"%s%n%100000d connected", 1);
    EXPECT_EQ(Lines(), std::vector<std::wstring>{L"— %s%n%100000d has connected"});
}

// ---- The history as it grows.

class ChatHistoryView : public ChatModuleTest
{
  protected:
    void SetUp() override
    {
        ChatModuleTest::SetUp();
        Open();
        for (int nLine = 0; nLine < 200; ++nLine)
        {
            Say(L"Alice", L"line " + std::to_wstring(nLine));
        }
    }

    LRESULT Ask(UINT uMessage, WPARAM wParam = 0, LPARAM lParam = 0) const
    {
        return SendMessageW(Control(IDC_CHAT_HISTORY), uMessage, wParam, lParam);
    }
    LRESULT FirstLine() const { return Ask(EM_GETFIRSTVISIBLELINE); }

    static std::wstring ClipboardText()
    {
        if (!OpenClipboard(nullptr))
        {
            return L"";
        }
        const HANDLE hText = GetClipboardData(CF_UNICODETEXT);
        const auto* const pszText = static_cast<const wchar_t*>(GlobalLock(hText));
        std::wstring text = pszText != nullptr ? pszText : L"";
        GlobalUnlock(hText);
        CloseClipboard();
        return text;
    }
};

TEST_F(ChatHistoryView, FollowsAtTheEnd)
{
    const LRESULT nBefore = FirstLine();
    EXPECT_GT(nBefore, 100);
    Say(L"Alice", L"one more");
    EXPECT_EQ(FirstLine(), nBefore + 1);
}

TEST_F(ChatHistoryView, StaysWhereThePersonReads)
{
    Ask(EM_LINESCROLL, 0, -50);
    const LRESULT nBefore = FirstLine();
    Say(L"Alice", L"one more");
    Say(L"Alice", std::wstring(2000, L'w'));
    EXPECT_EQ(FirstLine(), nBefore);
    Ask(EM_LINESCROLL, 0, 1000);
    const LRESULT nEnd = FirstLine();
    Say(L"Alice", L"and one more");
    EXPECT_GE(FirstLine(), nEnd - 20);
    EXPECT_GT(FirstLine(), nBefore);
}

TEST_F(ChatHistoryView, GoesToTheEndWithWhatThePersonSends)
{
    Ask(EM_LINESCROLL, 0, -50);
    const LRESULT nBefore = FirstLine();
    Paste(L"mine");
    SendMessageW(Control(IDC_CHAT_SEND), BM_CLICK, 0, 0);
    EXPECT_GT(FirstLine(), nBefore + 40);
}

TEST_F(ChatHistoryView, KeepsWhatIsSelected)
{
    Ask(EM_SETSEL, 10, 30);
    Say(L"Alice", L"one more");
    EXPECT_EQ(Ask(EM_GETSEL), MAKELONG(10, 30));
}

TEST_F(ChatHistoryView, CopiesWhatIsSelectedAndNothingElse)
{
    Say(L"Zoë", L"Grüße\r\nund \xD83D\xDE00");
    OpenAndActivate();
    SetFocus(Control(IDC_CHAT_HISTORY));
    const std::wstring history = History();
    const size_t nBegin = history.rfind(L"line 199");
    ASSERT_NE(nBegin, std::wstring::npos);
    const std::wstring copied = history.substr(nBegin, history.size() - nBegin - 2);
    EXPECT_NE(copied.find(L"Grüße\r\n"), std::wstring::npos) << "over more than one line";
    const std::wstring word = L"Grüße";
    const size_t nWord = history.rfind(word);
    Ask(EM_SETSEL, nBegin, static_cast<LPARAM>(nBegin + copied.size()));
    Press('C', VK_CONTROL);
    EXPECT_EQ(ClipboardText(), copied);
    Ask(EM_SETSEL, nWord, static_cast<LPARAM>(nWord + word.size()));
    Say(L"Alice", L"a line that comes meanwhile");
    Ask(WM_COPY); // as the menu of the right mouse button does
    EXPECT_EQ(ClipboardText(), word);
    EXPECT_NE(History().find(copied), std::wstring::npos) << "and it stays in the history";
}

TEST_F(ChatHistoryView, StaysAtTheEndWhenTheWindowChangesItsSize)
{
    for (const int nHeight : {350, 700, 400})
    {
        SetWindowPos(m_hChat, nullptr, 0, 0, 500, nHeight, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
        const LRESULT nBefore = FirstLine();
        Say(L"Alice", L"one more");
        EXPECT_EQ(FirstLine(), nBefore + 1) << nHeight;
    }
}

TEST_F(ChatHistoryView, DropsTheOldestWholeLinesAboveItsBound)
{
    ShowWindow(m_hChat, SW_HIDE);
    const std::wstring text(1000, L'x');
    for (int nLine = 0; nLine < 1200; ++nLine)
    {
        Say(L"Alice", text);
        if (nLine % 20 == 0) // the question shows all that waits
        {
            ASSERT_LE(static_cast<size_t>(GetWindowTextLengthW(Control(IDC_CHAT_HISTORY))),
                      CChatHistory::MAX_HISTORY);
        }
    }
    Say(L"Alice", L"the last");
    const std::vector<std::wstring> lines = Lines();
    EXPECT_GT(lines.size(), 700u);
    EXPECT_EQ(lines.front(), L"Alice: " + text);
    EXPECT_EQ(lines.back(), L"Alice: the last");
}

// Asks nothing of the control, which would show it all that waits.
TEST_F(ChatHistoryView, LinesOfAFloodShowByThemselves)
{
    const auto lastLine = [this] {
        SCROLLINFO scroll = {sizeof(scroll), SIF_RANGE, 0, 0, 0, 0, 0};
        GetScrollInfo(Control(IDC_CHAT_HISTORY), SB_VERT, &scroll);
        return scroll.nMax;
    };
    const ULONGLONG ullEnd = GetTickCount64() + 10000;
    while (lastLine() < 199 && GetTickCount64() < ullEnd)
    {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 100, QS_ALLINPUT);
        PumpMessages();
    }
    EXPECT_GE(lastLine(), 199);
}

// The times go into the report and are no verdict.
TEST_F(ChatModuleTest, TakesTenThousandLines)
{
    constexpr int THOUSANDS = 10;
    Open();
    for (int nThousand = 0; nThousand < THOUSANDS; ++nThousand)
    {
        const auto begin = std::chrono::steady_clock::now();
        for (int nLine = 0; nLine < 1000; ++nLine)
        {
            Say(L"Alice", L"Line " + std::to_wstring(nThousand * 1000 + nLine) + L" of a long conversation");
            if (nLine % 20 == 0) // the test system takes milliseconds to paint a scroll bar
            {
                PumpMessages();
            }
        }
        const auto microseconds =
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
        RecordProperty("microseconds_a_line_of_thousand_" + std::to_string(nThousand + 1),
                       std::to_string(microseconds.count() / 1000));
    }
    const std::vector<std::wstring> lines = Lines();
    ASSERT_EQ(lines.size(), 10000u);
    EXPECT_EQ(lines.front(), L"Alice: Line 0 of a long conversation");
    EXPECT_EQ(lines.back(), L"Alice: Line 9999 of a long conversation");
}

// ---- Languages, sizes, resolutions.

TEST_F(ChatModuleTest, SpeaksTheLanguageThatTheAgentHasChosen)
{
    for (const auto& [pszLanguage, pszSend, pszNobody, pszLeft] :
         {std::tuple(L"en", L"&Send", L"Conversation (nobody is connected)", L"— Alice has left"),
          std::tuple(L"fr", L"&Envoyer", L"Conversation (personne n’est connecté)",
                     L"— Alice vient de se déconnecter"),
          std::tuple(L"de", L"&Senden", L"Unterhaltung (niemand ist verbunden)",
                     L"— Alice ist nicht mehr verbunden"),
          std::tuple(L"xx", L"&Send", L"Conversation (nobody is connected)", L"— Alice has left")})
    {
        SetEnvironmentVariableW(L"LangUI", pszLanguage);
        Open();
        LoadedChatModule::Tell(m_hChat, false, L"Alice disconnected", 0);
        EXPECT_EQ(Text(IDC_CHAT_SEND), pszSend) << pszLanguage;
        EXPECT_EQ(Text(IDC_CHAT_PEOPLE), pszNobody) << pszLanguage;
        EXPECT_EQ(Lines(), std::vector<std::wstring>{pszLeft}) << pszLanguage;
        m_module.Close();
    }
}

TEST_F(ChatModuleTest, HoldsEveryTextInEveryLanguageWithItsPlaceHolders)
{
    for (UINT uString = IDS_CHAT_TITLE; uString <= IDS_CHAT_SOMEBODY; ++uString)
    {
        const std::wstring english = LoadModuleText(m_module.Handle(), uString, MODULE_ENGLISH);
        EXPECT_NE(english, L"") << uString;
        for (const LANGID language : {MODULE_FRENCH, MODULE_GERMAN})
        {
            const std::wstring text = LoadModuleText(m_module.Handle(), uString, language);
            EXPECT_NE(text, english) << uString; // which is what a missing one gives
            EXPECT_EQ(text.find(L"%s") == std::wstring::npos, english.find(L"%s") == std::wstring::npos)
                << uString;
        }
    }
}

TEST_F(ChatModuleTest, IsNamedForScreenReadersByTheLabelBeforeEachControl)
{
    Open();
    EXPECT_EQ(GetWindow(Control(IDC_CHAT_INPUT), GW_HWNDPREV), Control(IDC_CHAT_LABEL));
    EXPECT_EQ(GetWindow(Control(IDC_CHAT_HISTORY), GW_HWNDPREV), Control(IDC_CHAT_PEOPLE));
    EXPECT_NE(Text(IDC_CHAT_LABEL), L"");
    EXPECT_NE(Text(IDC_CHAT_PEOPLE), L"");
}

class ChatModuleSizes : public ChatModuleTest,
                        public testing::WithParamInterface<std::tuple<const wchar_t*, UINT>>
{
  protected:
    RECT PlaceOf(int nControl) const
    {
        RECT rect = {};
        GetWindowRect(Control(nControl), &rect);
        MapWindowPoints(nullptr, m_hChat, reinterpret_cast<POINT*>(&rect), 2);
        return rect;
    }

    SIZE NeedOf(int nControl) const
    {
        const std::wstring text = Text(nControl);
        const HDC hDC = GetDC(m_hChat);
        const HGDIOBJ hPrevious =
            SelectObject(hDC, reinterpret_cast<HGDIOBJ>(SendMessageW(Control(nControl), WM_GETFONT, 0, 0)));
        RECT rect = {};
        DrawTextW(hDC, text.c_str(), -1, &rect, DT_CALCRECT | DT_SINGLELINE);
        SelectObject(hDC, hPrevious);
        ReleaseDC(m_hChat, hDC);
        return {rect.right, rect.bottom};
    }

    void ExpectRoom(int nControl) const
    {
        const RECT place = PlaceOf(nControl);
        const SIZE need = NeedOf(nControl);
        EXPECT_GE(place.right - place.left, need.cx) << nControl;
        EXPECT_GE(place.bottom - place.top, need.cy) << nControl;
    }

    void ExpectApartAndInside() const
    {
        RECT client = {};
        GetClientRect(m_hChat, &client);
        for (const int nFirst : CONTROLS)
        {
            const RECT first = PlaceOf(nFirst);
            EXPECT_TRUE(first.left > 0 && first.top > 0 && first.right < client.right &&
                        first.bottom < client.bottom)
                << nFirst;
            for (const int nSecond : CONTROLS)
            {
                RECT both = {};
                const RECT second = PlaceOf(nSecond);
                EXPECT_TRUE(nFirst == nSecond || !IntersectRect(&both, &first, &second))
                    << nFirst << " and " << nSecond;
            }
        }
    }
};

TEST_P(ChatModuleSizes, ShowsEverythingAtItsSmallestAndLarger)
{
    const auto& [pszLanguage, uDpi] = GetParam();
    SetEnvironmentVariableW(L"LangUI", pszLanguage);
    Open();
    const RECT smallest = {0, 0, 1, 1};
    SendMessageW(m_hChat, WM_DPICHANGED, MAKEWPARAM(uDpi, uDpi), reinterpret_cast<LPARAM>(&smallest));
    for (const int nSize : {1, 700, 1200})
    {
        SetWindowPos(m_hChat, nullptr, 0, 0, nSize, nSize, SWP_NOZORDER | SWP_NOACTIVATE);
        ExpectApartAndInside();
        for (const int nControl : {IDC_CHAT_PEOPLE, IDC_CHAT_LABEL, IDC_CHAT_SEND})
        {
            ExpectRoom(nControl);
        }
    }
}

TEST_P(ChatModuleSizes, TakesTheFontOfTheResolution)
{
    const auto& [pszLanguage, uDpi] = GetParam();
    SetEnvironmentVariableW(L"LangUI", pszLanguage);
    Open();
    const LONG nBefore = NeedOf(IDC_CHAT_LABEL).cy;
    const RECT place = {0, 0, 900, 700};
    SendMessageW(m_hChat, WM_DPICHANGED, MAKEWPARAM(uDpi, uDpi), reinterpret_cast<LPARAM>(&place));
    const double dGrowth = static_cast<double>(NeedOf(IDC_CHAT_LABEL).cy) / static_cast<double>(nBefore);
    EXPECT_NEAR(dGrowth, static_cast<double>(uDpi) / USER_DEFAULT_SCREEN_DPI, 0.2);
    EXPECT_EQ(SendMessageW(Control(IDC_CHAT_HISTORY), WM_GETFONT, 0, 0),
              SendMessageW(Control(IDC_CHAT_LABEL), WM_GETFONT, 0, 0));
}

INSTANTIATE_TEST_SUITE_P(Everywhere, ChatModuleSizes,
                         testing::Combine(testing::ValuesIn(LANGUAGES), testing::ValuesIn(RESOLUTIONS)));

TEST_F(ChatModuleTest, FollowsTheSystemsColours)
{
    Open();
    const HDC hDC = GetDC(m_hChat);
    const LRESULT nBrush = SendMessageW(m_hChat, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(hDC),
                                        reinterpret_cast<LPARAM>(Control(IDC_CHAT_HISTORY)));
    EXPECT_EQ(reinterpret_cast<HBRUSH>(nBrush), GetSysColorBrush(COLOR_WINDOW));
    EXPECT_EQ(GetTextColor(hDC), GetSysColor(COLOR_WINDOWTEXT));
    EXPECT_EQ(GetBkColor(hDC), GetSysColor(COLOR_WINDOW));
    ReleaseDC(m_hChat, hDC);
    SendMessageW(m_hChat, WM_SYSCOLORCHANGE, 0, 0);
    SendMessageW(m_hChat, WM_SETTINGCHANGE, 0, 0);
    EXPECT_TRUE(IsWindowVisible(Control(IDC_CHAT_HISTORY)));
}

TEST_F(ChatModuleTest, AnotherSchemeIsFollowedWhileTheWindowIsUp)
{
    constexpr int FROM_EDGE = 2; // pixels
    ColorScheme scheme;
    Open();
    for (const COLORREF crFace : {RGB(10, 20, 30), RGB(40, 50, 60)})
    {
        scheme.Use({{COLOR_3DFACE, crFace}}, true);
        UpdateWindow(m_hChat);
        const HDC hDC = GetDC(m_hChat);
        EXPECT_EQ(GetPixel(hDC, FROM_EDGE, FROM_EDGE), crFace);
        ReleaseDC(m_hChat, hDC);
    }
}

// ---- Attention, with the window's own class in this program, whose imports can be replaced.

class ChatAttention : public ChatModuleTest
{
  protected:
    void SetUp() override
    {
        ChatModuleTest::SetUp();
        s_pForeground = nullptr;
        s_flashes.clear();
        m_hChat = CChatWindow::Open(GetModuleHandleW(nullptr), m_hOwner);
        ASSERT_NE(m_hChat, nullptr);
    }
    void TearDown() override
    {
        CChatWindow::CloseOpen();
        CChatWindow::Unregister(GetModuleHandleW(nullptr));
        ChatModuleTest::TearDown();
    }

    void Hear() const
    {
        const std::vector<char> record = MakeChatRecord(L"Alice", L"Hello");
        CChatWindow::Find(m_hChat)->ShowMessage(*reinterpret_cast<const MSG_CHAT_MESSAGE*>(record.data()));
    }

    static HWND s_pForeground;
    static std::vector<FLASHWINFO> s_flashes;

  private:
    static HWND WINAPI AnswerForeground() { return s_pForeground; }
    static BOOL WINAPI RecordFlash(FLASHWINFO* pFlash)
    {
        s_flashes.push_back(*pFlash);
        return FALSE;
    }

    ImportHook<decltype(GetForegroundWindow)> m_foreground{"user32.dll", "GetForegroundWindow",
                                                           &AnswerForeground};
    ImportHook<decltype(FlashWindowEx)> m_flash{"user32.dll", "FlashWindowEx", &RecordFlash};
};
HWND ChatAttention::s_pForeground = nullptr;
std::vector<FLASHWINFO> ChatAttention::s_flashes;

TEST_F(ChatAttention, FlashesItsTaskbarButtonWhileThePersonIsElsewhere)
{
    s_pForeground = m_hOwner;
    Hear();
    ASSERT_EQ(s_flashes.size(), 1u);
    EXPECT_EQ(s_flashes[0].hwnd, m_hChat);
    EXPECT_EQ(s_flashes[0].cbSize, sizeof(FLASHWINFO));
    EXPECT_EQ(s_flashes[0].dwFlags, DWORD{FLASHW_TRAY | FLASHW_TIMERNOFG});
}

TEST_F(ChatAttention, LeavesAPersonAloneWhoIsThere)
{
    s_pForeground = m_hChat;
    Hear();
    EXPECT_TRUE(s_flashes.empty());
}
} // namespace
