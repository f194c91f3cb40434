#include "dialogs/InvitationExchange.h"

#include "Include/BoundedText.h"
#include "Include/UtilLog.h"
#include "dialogs/CreateInvitationDialog.h"
#include "resources/resource.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tests/unit/InvitationHarness.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;

constexpr wchar_t BOX_TITLE[] = L"Tessaran Kestrel Desk Assist";
constexpr wchar_t OLD_TEXT[] = L"as before";

std::wstring FromAnsi(const std::string& text)
{
    std::wstring wide(text.size(), L'\0');
    wide.resize(static_cast<size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                                        wide.data(), static_cast<int>(wide.size()))));
    return wide;
}

class InvitationExchangeTest : public InvitationHarness
{
  protected:
    /// What became of one request, and how long it took.
    struct OUTCOME
    {
        int nResult = -1;
        std::wstring text;
        std::chrono::milliseconds duration{};
    };

    OUTCOME Create()
    {
        OUTCOME outcome;
        RunDialog([&](HWND hDlg) {
            Type(hDlg, IDC_INVITE_TEXT, OLD_TEXT);
            MSG_UDP_CREATE_INVITATION record = {};
            CopyText(record.szInvitationName, L"Ann");
            const Clock::time_point start = Clock::now();
            outcome.nResult = CreateInvitationViaUDP(hDlg, record);
            outcome.duration = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
            outcome.text = WholeText(hDlg);
        });
        return outcome;
    }

    // Nothing is shown, and the text is the one from before.
    void ExpectNothing(const OUTCOME& outcome)
    {
        EXPECT_EQ(outcome.nResult, 0);
        EXPECT_EQ(outcome.text, OLD_TEXT);
        EXPECT_TRUE(m_boxes.empty());
    }

    OUTCOME CreateFrom(INVITATION_ANSWER answer)
    {
        answer.mode = ANSWER_MODE::Answer;
        AnswerInvitations(answer);
        return Create();
    }

    int Delete()
    {
        int nResult = -1;
        RunDialog([&](HWND hDlg) { nResult = DeleteAllInvitations(hDlg); });
        return nResult;
    }

    int DeleteWith(DWORD dwStatus, DWORD dwCount)
    {
        m_boxes.clear();
        DELETION_ANSWER answer;
        answer.mode = ANSWER_MODE::Answer;
        answer.dwStatus = dwStatus;
        answer.count = dwCount;
        m_service.SetDeletionAnswer(answer);
        return Delete();
    }

    // The text of the language module with its one number.
    std::wstring ResultText(UINT uString, const std::wstring& count) const
    {
        std::wstring text = m_language.Text(uString);
        return text.replace(text.find(L"%u"), 2, count);
    }

    static std::wstring WholeText(HWND hDlg)
    {
        const HWND hText = GetDlgItem(hDlg, IDC_INVITE_TEXT);
        std::wstring text(static_cast<size_t>(GetWindowTextLengthW(hText)) + 1, L'\0');
        text.resize(static_cast<size_t>(GetWindowTextW(hText, text.data(), static_cast<int>(text.size()))));
        return text;
    }
};
} // namespace

TEST_F(InvitationExchangeTest, TheTextIsShownExactlyAsItCame)
{
    for (const std::string& text :
         {std::string("join me\r\nsoon"), std::string("\xE4\xF6\xFC\xDF \x80 \xFF"), std::string(8000, 'x')})
    {
        MakeInvitations(text);
        const OUTCOME outcome = Create();
        EXPECT_EQ(outcome.nResult, 1);
        EXPECT_EQ(outcome.text, FromAnsi(text));
    }
    EXPECT_TRUE(m_boxes.empty());
    const auto headers = Requests(sizeof(MSG_UDP_HEADER));
    ASSERT_EQ(headers.size(), 3U);
    const DWORD adwExpected[] = {701, 720};
    EXPECT_EQ(memcmp(headers[0].data(), adwExpected, sizeof(adwExpected)), 0);
    const auto requests = Requests(sizeof(MSG_UDP_CREATE_INVITATION));
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(memcmp(requests[0].data(), &adwExpected[1], sizeof(DWORD)), 0);
}

TEST_F(InvitationExchangeTest, TheLongestTextThatADatagramHoldsIsShown)
{
    std::string text(65507, 'x');
    for (size_t n = 0; n + 1 < text.size(); n += 66) // an edit control is slow with one long line
    {
        text.replace(n, 2, "\r\n");
    }
    MakeInvitations(text);
    const OUTCOME outcome = Create();
    EXPECT_EQ(outcome.nResult, 1);
    EXPECT_EQ(outcome.text.size(), 65507U);
}

TEST_F(InvitationExchangeTest, AnEmptyTextIsAText)
{
    MakeInvitations("");
    const OUTCOME outcome = Create();
    EXPECT_EQ(outcome.nResult, 1);
    EXPECT_EQ(outcome.text, L"");
}

TEST_F(InvitationExchangeTest, ALengthThatTheTextDoesNotHaveIsNoInvitation)
{
    for (const DWORD dwLength : {DWORD{0}, DWORD{1}, DWORD{9}, DWORD{11}, DWORD{8000}, DWORD{65507}})
    {
        INVITATION_ANSWER answer;
        answer.text = std::vector<BYTE>(10, 'x');
        answer.claimedLength = dwLength;
        ExpectNothing(CreateFrom(answer));
    }
}

TEST_F(InvitationExchangeTest, ALengthThatNoDatagramHasEndsTheExchangeAtOnce)
{
    for (const DWORD dwLength : {DWORD{65508}, DWORD{0x7FFFFFFF}, DWORD{0xFFFFFFC0}, DWORD{0xFFFFFFFF}})
    {
        INVITATION_ANSWER answer;
        answer.claimedLength = dwLength;
        answer.bTextFollows = false;
        const OUTCOME outcome = CreateFrom(answer);
        ExpectNothing(outcome);
        EXPECT_LT(outcome.duration.count(), 4000);
    }
}

namespace
{
constexpr DWORD ANSWER_TIMEOUT_MS = 5000;
constexpr DWORD SHORT_TIMEOUT_MS = 300;

std::vector<DWORD> g_timeouts; // that were asked for

decltype(&setsockopt) g_pfnSetOption = nullptr;

int WSAAPI ShortenTimeout(SOCKET hSocket, int nLevel, int nOption, const char* pValue, int nBytes)
{
    DWORD dwTimeout = 0;
    memcpy(&dwTimeout, pValue, sizeof(dwTimeout));
    if (nOption == SO_RCVTIMEO)
    {
        g_timeouts.push_back(dwTimeout);
        dwTimeout = SHORT_TIMEOUT_MS;
    }
    return g_pfnSetOption(hSocket, nLevel, nOption, reinterpret_cast<const char*>(&dwTimeout), nBytes);
}
} // namespace

TEST_F(InvitationExchangeTest, WithoutAnAnswerItEndsAfterFiveSeconds)
{
    const OUTCOME outcome = Create();
    ExpectNothing(outcome);
    EXPECT_GE(outcome.duration.count(), 4500);
    EXPECT_TRUE(m_boxes.empty());
}

TEST_F(InvitationExchangeTest, ALostTextAndADeletionAreAwaitedForFiveSecondsToo)
{
    const ImportHook hook("ws2_32.dll", "setsockopt", &ShortenTimeout);
    g_pfnSetOption = hook.Original();
    g_timeouts.clear();
    EXPECT_EQ(Delete(), 0);
    EXPECT_EQ(g_timeouts, std::vector<DWORD>{ANSWER_TIMEOUT_MS});
    INVITATION_ANSWER answer;
    answer.text = std::vector<BYTE>(10, 'x');
    answer.bTextFollows = false;
    const OUTCOME outcome = CreateFrom(answer);
    ExpectNothing(outcome);
    EXPECT_GE(outcome.duration.count(), SHORT_TIMEOUT_MS / 2);
    EXPECT_EQ(g_timeouts, std::vector<DWORD>(2, ANSWER_TIMEOUT_MS));
}

TEST_F(InvitationExchangeTest, AnAnswerOfAnotherSizeIsNone)
{
    INVITATION_ANSWER answer;
    answer.mode = ANSWER_MODE::WrongSize;
    AnswerInvitations(answer);
    ExpectNothing(Create());
    DELETION_ANSWER deletion;
    deletion.mode = ANSWER_MODE::WrongSize;
    m_service.SetDeletionAnswer(deletion);
    EXPECT_EQ(Delete(), 0);
    EXPECT_TRUE(m_boxes.empty());
}

TEST_F(InvitationExchangeTest, WithoutAServiceNothingHappens)
{
    m_service.CloseQueryPort();
    const OUTCOME outcome = Create();
    ExpectNothing(outcome);
    EXPECT_EQ(Delete(), 0);
    EXPECT_TRUE(m_boxes.empty());
}

TEST_F(InvitationExchangeTest, ARefusalIsShownWithTheSystemsWordsForItsNumber)
{
    INVITATION_ANSWER refusal;
    refusal.dwError = ERROR_ACCESS_DENIED;
    refusal.error = L"Not today, %s.";
    refusal.claimedLength = 12; // not looked at
    const OUTCOME outcome = CreateFrom(refusal);
    EXPECT_EQ(outcome.nResult, 0);
    EXPECT_EQ(outcome.text, OLD_TEXT);
    wchar_t szReason[1024] = {};
    FormatSystemError(szReason, 1024, ERROR_ACCESS_DENIED);
    ASSERT_EQ(m_boxes.size(), 1U);
    EXPECT_EQ(m_boxes[0].text, std::wstring(L"Not today, %s.\r\n") + szReason);
    EXPECT_EQ(m_boxes[0].title, BOX_TITLE);
    EXPECT_EQ(m_boxes[0].uType, 16U);
    EXPECT_NE(m_boxes[0].hWndOwner, nullptr);
}

TEST_F(InvitationExchangeTest, ALongRefusalIsCutToItsRoom)
{
    INVITATION_ANSWER refusal;
    refusal.dwError = ERROR_ACCESS_DENIED;
    refusal.error = std::wstring(1023, L'x');
    CreateFrom(refusal);
    ASSERT_EQ(m_boxes.size(), 1U);
    EXPECT_EQ(m_boxes[0].text, std::wstring(1023, L'x'));
}

TEST_F(InvitationExchangeTest, ARefusalsTextMayFillItsFieldWithoutATerminator)
{
    m_service.CloseQueryPort();
    LoopbackResponder responder(QUERY_PORT);
    ASSERT_TRUE(responder.IsOpen());
    std::future<void> service = std::async(std::launch::async, [&responder] {
        ASSERT_TRUE(responder.Receive(PATIENCE_MS) && responder.Receive(PATIENCE_MS));
        std::vector<BYTE> answer(sizeof(MSG_UDP_CREATE_INVITATION), 0x41);
        EXPECT_TRUE(responder.Reply(answer.data(), answer.size()));
    });
    const OUTCOME outcome = Create();
    service.get();
    EXPECT_EQ(outcome.nResult, 0);
    ASSERT_EQ(m_boxes.size(), 1U);
    EXPECT_EQ(m_boxes[0].text, std::wstring(1023, L'\x4141'));
}

TEST_F(InvitationExchangeTest, ARequestThatCannotBeSentShowsNothing)
{
    RunDialog([](HWND hDlg) {
        Type(hDlg, IDC_INVITE_TEXT, OLD_TEXT);
        const ImportHook hook(
            "ws2_32.dll", "send", +[](SOCKET, const char*, int, int) -> int { return SOCKET_ERROR; });
        MSG_UDP_CREATE_INVITATION record = {};
        EXPECT_EQ(CreateInvitationViaUDP(hDlg, record), 0) << "a request that can't be sent";
        EXPECT_EQ(WholeText(hDlg), OLD_TEXT);
        EXPECT_EQ(DeleteAllInvitations(hDlg), 0);
    });
    EXPECT_TRUE(m_boxes.empty());
}

TEST_F(InvitationExchangeTest, ARequestWhoseSecondHalfCannotBeSentShowsNothing)
{
    static decltype(&send) s_pfnSend = nullptr;
    const ImportHook hook(
        "ws2_32.dll", "send", +[](SOCKET hSocket, const char* pBytes, int cbBytes, int nFlags) -> int {
            return cbBytes > static_cast<int>(sizeof(MSG_UDP_HEADER))
                       ? SOCKET_ERROR
                       : s_pfnSend(hSocket, pBytes, cbBytes, nFlags);
        });
    s_pfnSend = hook.Original();
    const OUTCOME outcome = Create();
    ExpectNothing(outcome);
    EXPECT_LT(outcome.duration.count(), 4000) << "no answer is waited for";
    EXPECT_TRUE(Requests(sizeof(MSG_UDP_CREATE_INVITATION)).empty());
}

TEST_F(InvitationExchangeTest, ATimeOutThatCannotBeSetIsDoneWithout)
{
    const ImportHook hook(
        "ws2_32.dll", "setsockopt", +[](SOCKET, int, int, const char*, int) -> int { return SOCKET_ERROR; });
    MakeInvitations("invitation");
    const OUTCOME outcome = Create();
    EXPECT_EQ(outcome.nResult, 1);
    EXPECT_EQ(outcome.text, L"invitation");
    EXPECT_EQ(DeleteWith(0, 1), 1);
}

TEST_F(InvitationExchangeTest, ItsSocketIsClosedOnEveryWay)
{
    static int s_nOpen = 0;
    static decltype(&socket) s_pfnSocket = nullptr;
    static decltype(&closesocket) s_pfnClose = nullptr;
    INVITATION_ANSWER refusal;
    refusal.dwError = ERROR_ACCESS_DENIED;
    INVITATION_ANSWER wrongLength;
    wrongLength.text = std::vector<BYTE>(10, 'x');
    wrongLength.claimedLength = 9;
    INVITATION_ANSWER wrongSize;
    wrongSize.mode = ANSWER_MODE::WrongSize;
    RunDialog([&](HWND hDlg) {
        const ImportHook open(
            "ws2_32.dll", "socket", +[](int nFamily, int nType, int nProtocol) -> SOCKET {
                ++s_nOpen;
                return s_pfnSocket(nFamily, nType, nProtocol);
            });
        const ImportHook close(
            "ws2_32.dll", "closesocket", +[](SOCKET hSocket) -> int {
                s_nOpen -= hSocket != INVALID_SOCKET ? 1 : 0;
                return s_pfnClose(hSocket);
            });
        s_pfnSocket = open.Original();
        s_pfnClose = close.Original();
        s_nOpen = 0;
        const auto exchange = [&](int nExpected) {
            MSG_UDP_CREATE_INVITATION record = {};
            EXPECT_EQ(CreateInvitationViaUDP(hDlg, record), nExpected);
            EXPECT_EQ(s_nOpen, 0);
        };
        MakeInvitations("invitation");
        exchange(1);
        for (INVITATION_ANSWER answer : {refusal, wrongLength})
        {
            answer.mode = ANSWER_MODE::Answer;
            AnswerInvitations(answer);
            exchange(0);
        }
        AnswerInvitations(wrongSize);
        exchange(0);
        m_service.SetDeletionAnswer({ANSWER_MODE::Answer, 0, 1});
        m_whileBoxIsOpen = [] { EXPECT_EQ(s_nOpen, 0) << "closed before the result is shown"; };
        EXPECT_EQ(DeleteAllInvitations(hDlg), 1);
        EXPECT_EQ(s_nOpen, 0);
    });
}

TEST_F(InvitationExchangeTest, ADeletionTellsItsCountForThirtySeconds)
{
    for (const auto& [dwStatus, uString] :
         {std::pair<DWORD, UINT>{170, 63}, {0, 50}, {1, 50}, {171, 50}, {0xFFFFFFFF, 50}})
    {
        m_trace.Forget();
        EXPECT_EQ(DeleteWith(dwStatus, 4000000000), 1);
        ASSERT_EQ(m_boxes.size(), 1U);
        EXPECT_EQ(m_boxes[0].text, ResultText(uString, L"4000000000")) << dwStatus;
        EXPECT_EQ(m_boxes[0].title, BOX_TITLE);
        EXPECT_EQ(m_boxes[0].uType, 64U);
        EXPECT_EQ(m_trace.Calls("timer 0 3"), std::vector<std::string>{"timer 0 30000"});
    }
    const auto headers = Requests(sizeof(MSG_UDP_HEADER));
    ASSERT_EQ(headers.size(), 5U);
    const DWORD adwExpected[] = {701, 721};
    EXPECT_EQ(memcmp(headers[0].data(), adwExpected, sizeof(adwExpected)), 0);
}

TEST_F(InvitationExchangeTest, AnAnswerToAnotherRequestIsNone)
{
    m_service.CloseQueryPort();
    LoopbackResponder responder(QUERY_PORT);
    ASSERT_TRUE(responder.IsOpen());
    std::future<void> service = std::async(std::launch::async, [&responder] {
        ASSERT_TRUE(responder.Receive(PATIENCE_MS));
        const MSG_UDP_DELETE_INVITATIONS answer = {UDP_REQUEST_CREATE_INVITATION, UDP_DELETE_STATUS_BUSY, 3};
        EXPECT_TRUE(responder.Reply(&answer, sizeof(answer)));
    });
    EXPECT_EQ(Delete(), 0);
    service.get();
    EXPECT_TRUE(m_boxes.empty());
}
