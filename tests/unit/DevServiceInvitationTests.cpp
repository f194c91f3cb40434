#include "Include/BoundedText.h"
#include "tests/unit/DevServiceFixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace
{
constexpr DWORD SILENCE_MS = 50;

using BYTES = std::vector<BYTE>;

BYTES AsBytes(std::string_view text)
{
    return {text.begin(), text.end()};
}

/// Plays an agent's dialog at the query port.
class DevServiceInvitations : public DevServiceRunner
{
  protected:
    void SetUp() override
    {
        DevServiceRunner::SetUp();
        ExpectHeld(L"lookup");
        m_asker = PeerSocket(ConnectLoopback(m_service.GetQueryPort(), SOCK_DGRAM));
        ASSERT_TRUE(m_asker.IsOpen());
    }

    template <typename Record>
    void Send(const Record& record)
    {
        ASSERT_EQ(send(m_asker.Get(), reinterpret_cast<const char*>(&record), sizeof(record), 0),
                  static_cast<int>(sizeof(record)));
    }

    void AskForInvitation()
    {
        Send(MSG_UDP_HEADER{UDP_PROTOCOL, UDP_REQUEST_CREATE_INVITATION, 0});
        MSG_UDP_CREATE_INVITATION request = {};
        request.dwRequest = UDP_REQUEST_CREATE_INVITATION;
        CopyText(request.szInvitationName, L"Ann");
        CopyText(request.szProxySecret, L"hunter2");
        Send(request);
    }

    void AskForDeletion() { Send(MSG_UDP_HEADER{UDP_PROTOCOL, UDP_REQUEST_DELETE_INVITATIONS, 0}); }

    // The next datagram whole; empty when none comes in time.
    std::optional<BYTES> Take(DWORD dwTimeoutMs = PATIENCE_MS)
    {
        if (!m_asker.WaitReadable(dwTimeoutMs))
        {
            return std::nullopt;
        }
        BYTES datagram(65536);
        const int cb = recv(m_asker.Get(), reinterpret_cast<char*>(datagram.data()),
                            static_cast<int>(datagram.size()), 0);
        datagram.resize(static_cast<size_t>(std::max(cb, 0)));
        return datagram;
    }

    template <typename Record>
    Record TakeRecord()
    {
        Record record = {};
        const BYTES datagram = Take().value_or(BYTES());
        EXPECT_EQ(datagram.size(), sizeof(record));
        if (datagram.size() == sizeof(record))
        {
            memcpy(&record, datagram.data(), sizeof(record));
        }
        return record;
    }

    void ExpectSilence() { EXPECT_FALSE(Take(SILENCE_MS).has_value()); }

    // Asks, and takes both datagrams of the answer.
    BYTES MadeInvitation()
    {
        AskForInvitation();
        const auto answer = TakeRecord<MSG_UDP_CREATE_INVITATION>();
        EXPECT_EQ(answer.dwRequest, static_cast<DWORD>(UDP_REQUEST_CREATE_INVITATION));
        EXPECT_EQ(answer.dwError, 0U);
        BYTES text = Take().value_or(BYTES());
        EXPECT_EQ(answer.dwInvitationLength, text.size());
        return text;
    }

    MSG_UDP_DELETE_INVITATIONS Deletion()
    {
        AskForDeletion();
        return TakeRecord<MSG_UDP_DELETE_INVITATIONS>();
    }

    void ExpectErrorWith(std::wstring_view script, const char* pszPart)
    {
        const std::string error = ErrorOf(script);
        EXPECT_NE(error.find(pszPart), std::string::npos) << error;
    }

    PeerSocket m_asker;
};
} // namespace

TEST_F(DevServiceInvitations, AMadeInvitationIsTheTextThatWasGiven)
{
    ExpectHeld(L"invitations make text=\"join me, and don't be late\"");
    EXPECT_EQ(MadeInvitation(), AsBytes("join me, and don't be late"));
    ExpectHeld(L"invitations make text=hex:00FF80E40D0A");
    EXPECT_EQ(MadeInvitation(), (BYTES{0x00, 0xFF, 0x80, 0xE4, 0x0D, 0x0A}));
    ExpectHeld(L"invitations make text=\"\"");
    EXPECT_EQ(MadeInvitation(), BYTES());
    ExpectSilence();
    EXPECT_FALSE(Logged(L"hunter2"));
}

TEST_F(DevServiceInvitations, AMadeUpTextHasTheLengthThatWasGiven)
{
    ExpectHeld(L"invitations make");
    EXPECT_FALSE(MadeInvitation().empty());
    for (const size_t cb : {size_t{0}, size_t{1}, size_t{65}, size_t{8000}, size_t{65507}})
    {
        ExpectHeld(L"invitations make length=" + std::to_wstring(cb));
        const BYTES text = MadeInvitation();
        EXPECT_EQ(text.size(), cb);
        EXPECT_EQ(std::count(text.begin(), text.end(), BYTE{0}), 0);
    }
}

TEST_F(DevServiceInvitations, ALengthCanBeToldThatTheTextDoesNotHave)
{
    ExpectHeld(L"invitations make text=abc told=4000000000");
    AskForInvitation();
    EXPECT_EQ(TakeRecord<MSG_UDP_CREATE_INVITATION>().dwInvitationLength, 4000000000U);
    EXPECT_EQ(Take(), AsBytes("abc"));
}

TEST_F(DevServiceInvitations, ALostTextIsAnnouncedAndNeverSent)
{
    ExpectHeld(L"invitations lose-text length=7");
    AskForInvitation();
    EXPECT_EQ(TakeRecord<MSG_UDP_CREATE_INVITATION>().dwInvitationLength, 7U);
    ExpectSilence();
}

TEST_F(DevServiceInvitations, ARefusalHasItsNumberAndItsTextAndNothingFollows)
{
    ExpectHeld(L"invitations refuse error=5 text=\"Not today\"");
    AskForInvitation();
    const auto answer = TakeRecord<MSG_UDP_CREATE_INVITATION>();
    EXPECT_EQ(answer.dwError, 5U);
    EXPECT_EQ(FixedText(answer.szError), L"Not today");
    ExpectSilence();
}

TEST_F(DevServiceInvitations, SilenceAndAnswersOfAWrongSizeAreHadOnDemand)
{
    AskForInvitation();
    AskForDeletion();
    ExpectSilence(); // as long as nothing was said
    ExpectHeld(L"invitations wrong-size\ndeletions wrong-size");
    AskForInvitation();
    EXPECT_EQ(Take().value_or(BYTES()).size(), sizeof(MSG_UDP_CREATE_INVITATION) - 1);
    AskForDeletion();
    EXPECT_EQ(Take().value_or(BYTES()).size(), sizeof(MSG_UDP_DELETE_INVITATIONS) - 1);
    ExpectHeld(L"invitations silent\ndeletions silent");
    AskForInvitation();
    AskForDeletion();
    ExpectSilence();
}

TEST_F(DevServiceInvitations, ADeletionCountsTheInvitationsMadeSinceTheLastOne)
{
    ExpectHeld(L"invitations make\ndeletions answer");
    MadeInvitation();
    MadeInvitation();
    MSG_UDP_DELETE_INVITATIONS answer = Deletion();
    EXPECT_EQ(answer.dwRequest, static_cast<DWORD>(UDP_REQUEST_DELETE_INVITATIONS));
    EXPECT_EQ(answer.dwStatus, 0U);
    EXPECT_EQ(answer.dwCount, 2U);
    EXPECT_EQ(Deletion().dwCount, 0U);
}

TEST_F(DevServiceInvitations, ADeletionsStatusAndCountCanBeGiven)
{
    ExpectHeld(L"deletions answer status=170 count=12");
    const MSG_UDP_DELETE_INVITATIONS answer = Deletion();
    EXPECT_EQ(answer.dwStatus, UDP_DELETE_STATUS_BUSY);
    EXPECT_EQ(answer.dwCount, 12U);
}

TEST_F(DevServiceInvitations, WhatACommandDoesNotKnowIsNamed)
{
    ExpectErrorWith(L"invitations often", "unknown answer \"often\"");
    ExpectErrorWith(L"invitations silent text=abc", "not an option here: \"text=abc\"");
    ExpectErrorWith(L"invitations make text=abc length=3", "don't go together");
    ExpectErrorWith(L"invitations make text=hex:0", "hexadecimal");
    ExpectErrorWith(L"invitations make length=65508", "no datagram holds more than 65507 bytes");
    ExpectErrorWith(L"invitations make length=many", "many");
    ExpectErrorWith(L"invitations refuse text=no", "needs error=N");
    ExpectErrorWith(L"invitations refuse error=0", "needs error=N");
    ExpectErrorWith(L"deletions never", "unknown answer \"never\"");
    ExpectErrorWith(L"deletions answer text=no", "not an option here: \"text=no\"");
    AskForInvitation();
    ExpectSilence(); // a command that failed has changed nothing
}
