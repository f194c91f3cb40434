#include "Include/BoundedText.h"
#include "devservice/PermissionPrompts.h"
#include "tests/unit/DevServiceFixture.h"

#include <gtest/gtest.h>

#include <ws2tcpip.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <iterator>
#include <string>
#include <vector>

namespace
{
constexpr DWORD SILENCE_MS = 50;
constexpr wchar_t USER[] = L"DESK\\ann";

using PROMPT = MSG_PERMISSION_PROMPT;

PROMPT Opening()
{
    PROMPT record = {};
    record.dwType = MSG_TYPE_PERMISSION_PROMPT;
    return record;
}

PROMPT Answered(PROMPT record, DWORD dwAnswer, DWORD bAnswered = 1)
{
    record.dwAnswer = dwAnswer;
    record.bAnswered = bAnswered;
    CopyText(record.szUsername, USER);
    return record;
}

PeerSocket ConnectTo(const MSG_TRAYICON_PERMISSION& message)
{
    if (message.nAfType == AF_INET)
    {
        return PeerSocket(ConnectLoopback(static_cast<unsigned short>(message.nPort), SOCK_DGRAM));
    }
    PeerSocket socket6(socket(AF_INET6, SOCK_DGRAM, 0));
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(static_cast<unsigned short>(message.nPort));
    address.sin6_addr = in6addr_loopback;
    EXPECT_EQ(connect(socket6.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    return socket6;
}

/// Plays an agent's prompt.
class PlayedPrompt
{
  public:
    explicit PlayedPrompt(PeerSocket socket) : m_socket(std::move(socket)) {}

    void Send(std::span<const BYTE> bytes) const
    {
        EXPECT_EQ(send(m_socket.Get(), reinterpret_cast<const char*>(bytes.data()),
                       static_cast<int>(bytes.size()), 0),
                  static_cast<int>(bytes.size()));
    }

    void Send(const PROMPT& record) const { Send(BytesOf(record)); }

    PROMPT Take() const
    {
        PROMPT record = {};
        EXPECT_TRUE(m_socket.WaitReadable(PATIENCE_MS));
        EXPECT_EQ(recv(m_socket.Get(), reinterpret_cast<char*>(&record), sizeof(record), 0),
                  static_cast<int>(sizeof(record)));
        return record;
    }

    bool StaysSilent() const { return !m_socket.WaitReadable(SILENCE_MS); }

  private:
    PeerSocket m_socket;
};

// What an agent and its prompt do when they are asked.
PlayedPrompt OpenPrompt(TestAgent& agent, const PROMPT& opening = Opening(),
                        MSG_TRAYICON_PERMISSION* pMessage = nullptr)
{
    MSG_TRAYICON_PERMISSION message = {};
    EXPECT_TRUE(agent.Receive(message));
    EXPECT_EQ(message.dwType, static_cast<DWORD>(MSG_TYPE_TRAYICON_PERMISSION));
    PlayedPrompt prompt(ConnectTo(message));
    prompt.Send(opening);
    if (pMessage != nullptr)
    {
        *pMessage = message;
    }
    return prompt;
}

class DevServicePermissions : public DevServiceRunner
{
  protected:
    /// Lets the script ask that agent, which opens its prompt.
    PlayedPrompt Ask(TestAgent& agent, std::wstring_view script, MSG_TRAYICON_PERMISSION* pMessage = nullptr)
    {
        std::future<PlayedPrompt> opened = std::async(
            std::launch::async, [&agent, pMessage] { return OpenPrompt(agent, Opening(), pMessage); });
        ExpectHeld(script);
        return opened.get();
    }

    /// Waits until the first prompt's exchange has gone against the protocol.
    void AwaitFault()
    {
        ASSERT_TRUE(m_service.Prompts().WaitFor(
            1, [](const PROMPT_STATE& state) { return !state.fault.empty(); }, PATIENCE_MS));
    }

    void ExpectErrorWith(std::wstring_view script, const char* pszPart)
    {
        const std::string error = ErrorOf(script);
        EXPECT_NE(error.find(pszPart), std::string::npos) << error;
    }
};
} // namespace

TEST_F(DevServicePermissions, TheAgentIsToldAPortAndItsPromptIsToldWhatToAsk)
{
    const auto pAgent = Arrive();
    MSG_TRAYICON_PERMISSION message = {};
    const PlayedPrompt prompt =
        Ask(*pAgent, L"permission May Alice come \"in, please?\" bDefaultDeny=1 bVariantText=1", &message);
    EXPECT_EQ(message.nAfType, static_cast<DWORD>(AF_INET));
    PROMPT expected = Opening();
    CopyText(expected.szPrompt, L"May Alice come in, please?");
    expected.bDefaultDeny = 1;
    expected.bVariantText = 1;
    const PROMPT question = prompt.Take();
    EXPECT_EQ(memcmp(&question, &expected, sizeof(expected)), 0);
    EXPECT_TRUE(prompt.StaysSilent());
    EXPECT_TRUE(Logged(L"agent 1  ==>  MSG_TYPE_TRAYICON_PERMISSION (12 bytes) nPort=" +
                       std::to_wstring(message.nPort) + L" nAfType=2 (IPv4)"))
        << ToUtf8(Log());
    EXPECT_TRUE(Logged(L"prompt 1 <==  port ")) << ToUtf8(Log());
    EXPECT_TRUE(
        Logged(L"MSG_PERMISSION_PROMPT (8740 bytes) szPrompt=\"May Alice come in, please?\" bDefaultDeny=1"))
        << ToUtf8(Log());
}

TEST_F(DevServicePermissions, EachAnswerIsExpectedByItsName)
{
    const auto pAgent = Arrive();
    struct NAMED_ANSWER
    {
        const wchar_t* pszName;
        DWORD dwAnswer;
        DWORD bAnswered;
    };
    for (const NAMED_ANSWER& answer : {NAMED_ANSWER{L"allowed", 1111, 1}, NAMED_ANSWER{L"denied", 2222, 1},
                                       NAMED_ANSWER{L"expired", 3333, 1}, NAMED_ANSWER{L"withdrawn", 4444, 0},
                                       NAMED_ANSWER{L"unusable", 6666, 1}})
    {
        const PlayedPrompt prompt = Ask(*pAgent, L"permission please bKeepPlace=1");
        prompt.Send(Answered(prompt.Take(), answer.dwAnswer, answer.bAnswered));
        ExpectHeld(L"permission expect " + std::wstring(answer.pszName) + L" user=\"DESK\\\\ann\"");
        EXPECT_TRUE(Logged(L"dwAnswer=" + std::to_wstring(answer.dwAnswer) + L" (" + answer.pszName + L")"));
    }
}

TEST_F(DevServicePermissions, AnotherAnswerOrAnotherUserIsNamed)
{
    const auto pAgent = Arrive();
    const PlayedPrompt prompt = Ask(*pAgent, L"permission");
    prompt.Send(Answered(prompt.Take(), 2222));
    ExpectErrorWith(L"permission expect allowed",
                    "prompt 1 was to be answered 1111 (allowed), not 2222 (denied)");
    ExpectErrorWith(L"permission expect denied user=bob",
                    "was to be answered by \"bob\", not by \"DESK\\\\ann\"");
    ExpectHeld(L"permission expect denied");
}

TEST_F(DevServicePermissions, AnAnswerWithoutAUserIsNone)
{
    const auto pAgent = Arrive();
    const PlayedPrompt prompt = Ask(*pAgent, L"permission");
    PROMPT answer = Answered(prompt.Take(), 1111);
    answer.szUsername[0] = L'\0';
    std::fill(std::begin(answer.szUsername), std::end(answer.szUsername), L'\0');
    prompt.Send(answer);
    ExpectErrorWith(L"permission expect allowed", "answered without a user's name");
}

TEST_F(DevServicePermissions, TheStandInsOwnAccountIsAVariable)
{
    ExpectHeld(L"say $account");
    EXPECT_FALSE(Logged(L"$account"));
    ExpectErrorWith(L"say $nobody", "there are $account, $dir");
}

TEST_F(DevServicePermissions, ASecondAnswerFailsTheScript)
{
    const auto pAgent = Arrive();
    const PlayedPrompt prompt = Ask(*pAgent, L"permission");
    const PROMPT answer = Answered(prompt.Take(), 1111);
    prompt.Send(answer);
    prompt.Send(answer);
    AwaitFault();
    ExpectErrorWith(L"permission expect allowed", "prompt 1: it was answered a second time");
    EXPECT_TRUE(Logged(L"prompt 1      fault: it was answered a second time")) << ToUtf8(Log());
    ExpectHeld(L"say the fault has been told");
}

TEST_F(DevServicePermissions, ASecondAnswerFailsALaterStatementToo)
{
    const auto pAgent = Arrive();
    const PlayedPrompt prompt = Ask(*pAgent, L"permission");
    const PROMPT answer = Answered(prompt.Take(), 1111);
    prompt.Send(answer);
    ExpectHeld(L"permission expect allowed");
    prompt.Send(answer);
    AwaitFault();
    ExpectErrorWith(L"say one more thing", "prompt 1: it was answered a second time");
}

TEST_F(DevServicePermissions, SeveralPromptsAreOpenAtOnce)
{
    const auto pFirst = Arrive();
    const auto pSecond = Arrive();
    const PlayedPrompt first = Ask(*pFirst, L"agent 1\npermission one");
    const PlayedPrompt second = Ask(*pSecond, L"agent 2\npermission two");
    const PlayedPrompt third = Ask(*pFirst, L"agent 1\npermission three");
    EXPECT_EQ(FixedText(first.Take().szPrompt), L"one");
    const PROMPT two = second.Take();
    EXPECT_EQ(FixedText(two.szPrompt), L"two");
    const PROMPT three = third.Take();
    EXPECT_EQ(FixedText(three.szPrompt), L"three");
    third.Send(Answered(three, 3333));
    second.Send(Answered(two, 2222));
    ExpectHeld(L"permission expect denied prompt=2\npermission expect expired\npermission withdraw prompt=1");
    first.Take();
    first.Send(Answered(Opening(), 1111));
    ExpectErrorWith(L"permission expect withdrawn prompt=1", "doesn't bring the prompt back");
    EXPECT_TRUE(second.StaysSilent());
}

TEST_F(DevServicePermissions, AllTargetsAreAskedByOneCommand)
{
    const auto pFirst = Arrive();
    const auto pSecond = Arrive();
    std::future<PlayedPrompt> second =
        std::async(std::launch::async, [&pSecond] { return OpenPrompt(*pSecond); });
    const PlayedPrompt first = Ask(*pFirst, L"agent all\npermission both");
    EXPECT_EQ(FixedText(first.Take().szPrompt), L"both");
    EXPECT_EQ(FixedText(second.get().Take().szPrompt), L"both");
    EXPECT_EQ(m_service.Prompts().Count(), 2U);
}

TEST_F(DevServicePermissions, AWithdrawalIsOneMoreWholeRecord)
{
    const auto pAgent = Arrive();
    const PlayedPrompt prompt = Ask(*pAgent, L"permission");
    const PROMPT question = prompt.Take();
    EXPECT_TRUE(prompt.StaysSilent());
    ExpectHeld(L"permission withdraw");
    prompt.Take();
    prompt.Send(Answered(question, 4444, 0));
    ExpectHeld(L"permission expect withdrawn");
    ExpectErrorWith(L"permission withdraw", "prompt 1 has been answered");
    EXPECT_TRUE(prompt.StaysSilent());
}

TEST_F(DevServicePermissions, IPv6HasAPortOfItsOwnFamily)
{
    const auto pAgent = Arrive();
    MSG_TRAYICON_PERMISSION message = {};
    const PlayedPrompt prompt = Ask(*pAgent, L"permission ipv6=1 six", &message);
    EXPECT_EQ(message.nAfType, static_cast<DWORD>(AF_INET6));
    const PROMPT question = prompt.Take();
    EXPECT_EQ(FixedText(question.szPrompt), L"six");
    prompt.Send(Answered(question, 1111));
    ExpectHeld(L"permission expect allowed");
}

TEST_F(DevServicePermissions, APromptThatNobodyOpensFailsTheCommand)
{
    const auto pAgent = Arrive();
    ExpectErrorWith(L"permission within=1", "no agent has opened prompt 1 within 1 ms");
    ExpectErrorWith(L"permission expect allowed within=1", "prompt 1 was not answered within 1 ms");
    ExpectErrorWith(L"permission withdraw", "prompt 1 has not been opened");
}

TEST_F(DevServicePermissions, AnAnswerThatDoesNotComeFailsTheExpectation)
{
    const auto pAgent = Arrive();
    const PlayedPrompt prompt = Ask(*pAgent, L"permission");
    ExpectErrorWith(L"permission expect allowed within=1", "prompt 1 was not answered within 1 ms");
}

TEST_F(DevServicePermissions, WhatIsAgainstTheProtocolFailsTheScript)
{
    const auto pAgent = Arrive();
    const PlayedPrompt prompt = Ask(*pAgent, L"permission");
    const PROMPT question = prompt.Take();
    prompt.Send(BytesOf(question).first(sizeof(question) - 1));
    AwaitFault();
    ExpectErrorWith(L"say hello", "prompt 1: a datagram of 8739 bytes came");
    EXPECT_EQ(m_service.Prompts().Get(1)->stage, PROMPT_STAGE::Asked) << "it is no answer";
}

TEST_F(DevServicePermissions, AnAskerThatIsNotThePromptIsNoAnswer)
{
    const auto pAgent = Arrive();
    MSG_TRAYICON_PERMISSION message = {};
    const PlayedPrompt prompt = Ask(*pAgent, L"permission", &message);
    const PROMPT question = prompt.Take();
    const PlayedPrompt stranger(ConnectTo(message));
    stranger.Send(Answered(question, 1111));
    AwaitFault();
    EXPECT_TRUE(Logged(L"fault: somebody else came, from port"));
    ExpectErrorWith(L"permission expect allowed within=1", "prompt 1 was not answered");
    ExpectErrorWith(L"say hello", "somebody else came");
}

TEST_F(DevServicePermissions, AnOpeningWithMoreThanItsTypeFailsTheScript)
{
    const auto pAgent = Arrive();
    std::future<PlayedPrompt> opened =
        std::async(std::launch::async, [&pAgent] { return OpenPrompt(*pAgent, Answered(Opening(), 0, 0)); });
    ExpectErrorWith(L"permission", "prompt 1: its first datagram isn't zero but for its type");
    opened.get();
}

TEST_F(DevServicePermissions, WhatTheCommandDoesNotKnowIsNamed)
{
    ExpectErrorWith(L"permission", "there is no agent 1");
    ExpectErrorWith(L"permission withdraw", "nobody has been asked for permission");
    ExpectErrorWith(L"permission expect allowed", "nobody has been asked for permission");
    ExpectErrorWith(L"permission expect",
                    "unknown answer \"\"; there are allowed, denied, expired, withdrawn, unusable");
    ExpectErrorWith(L"permission expect often", "unknown answer \"often\"");
    ExpectErrorWith(L"permission expect allowed often", "not an option here: \"often\"");
    ExpectErrorWith(L"permission expect prompt=1", "unknown answer \"\"");
    ExpectErrorWith(L"permission withdraw now", "not an option here: \"now\"");
    ExpectErrorWith(L"permission bColour=1", "MSG_PERMISSION_PROMPT has no field bColour");
    ExpectErrorWith(L"permission bDefaultDeny!=1", "not a field=value: \"bDefaultDeny!=1\"");
    ExpectErrorWith(L"permission ipv6=maybe", "not a number: \"maybe\"");
    ExpectErrorWith(L"permission " + std::wstring(4096, L'x'), "a text of at most 4095 characters");
    const auto pAgent = Arrive();
    Ask(*pAgent, L"permission");
    ExpectErrorWith(L"permission withdraw prompt=2", "there is no prompt 2");
    ExpectErrorWith(L"permission expect allowed prompt=0", "there is no prompt 0");
    EXPECT_EQ(m_service.Prompts().Count(), 1U) << "a command that failed has opened nothing";
}

TEST_F(DevServicePermissions, AnInterruptionEndsTheWait)
{
    const auto pAgent = Arrive();
    std::future<void> interrupted = std::async(std::launch::async, [this, &pAgent] {
        MSG_TRAYICON_PERMISSION message = {};
        EXPECT_TRUE(pAgent->Receive(message));
        m_service.Interrupt();
    });
    ExpectErrorWith(L"permission", "interrupted");
    interrupted.get();
}

TEST_F(DevServicePermissions, ATimerNeedsAWindow)
{
    ExpectErrorWith(L"timer 888", "there is no window that could have a timer");
    ExpectErrorWith(L"timer 888 times=3", "there is no window that could have a timer");
    ExpectErrorWith(L"timer soon", "not a number");
    ExpectErrorWith(L"timer 888 often=3", "not an option here: \"often=3\"");
    ExpectErrorWith(L"press 1", "there is no window to press it in");
}

TEST(PermissionAnswers, AnAnswerIsTheQuestionWithItsThreeFields)
{
    PROMPT question = Opening();
    CopyText(question.szPrompt, L"please");
    question.abGap8208[2] = 7;
    for (const DWORD dwAnswer : {1111U, 2222U, 3333U, 6666U})
    {
        EXPECT_EQ(FindAnswerFault(question, Answered(question, dwAnswer, 1)), L"");
        EXPECT_NE(FindAnswerFault(question, Answered(question, dwAnswer, 0)), L"");
    }
    EXPECT_EQ(FindAnswerFault(question, Answered(question, 4444, 0)), L"");
    EXPECT_EQ(FindAnswerFault(question, Answered(question, 4444, 1)),
              L"bAnswered=1 doesn't go with dwAnswer=4444 (withdrawn)");
    EXPECT_EQ(FindAnswerFault(question, Answered(question, 5555, 1)), L"its answer 5555 has no meaning");
    EXPECT_EQ(FindAnswerFault(question, Answered(Opening(), 1111, 1)),
              L"its answer doesn't bring the prompt back as it was sent");
    PROMPT endless = Answered(question, 1111);
    std::fill(std::begin(endless.szUsername), std::end(endless.szUsername), L'u');
    EXPECT_EQ(FindAnswerFault(question, endless), L"szUsername of its answer has no end");
}
