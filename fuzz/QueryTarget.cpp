#include "fuzz/FuzzTarget.h"

#include "channel/ConnectionInfo.h"
#include "channel/TrayMessages.h"
#include "dialogs/InvitationExchange.h"
#include "fuzz/PlayedNetwork.h"
#include "fuzz/PlayedSystem.h"
#include "fuzz/RecordMutator.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace
{
constexpr std::uint32_t MOST_QUERIES = 32; // of one round
constexpr size_t LARGEST_DATAGRAM = 65507; // bytes
constexpr size_t NOISE_BEHIND_TEXT = 32;   // characters, of the product's own room behind a text

BOOL WINAPI TakeText(HWND, int, LPCWSTR pszText)
{
    Expect(wcslen(pszText) < LARGEST_DATAGRAM + NOISE_BEHIND_TEXT, "an invitation has an end");
    return TRUE;
}

/// The service at the query port: answers of one exchange, in order.
class CBadAnswers
{
  public:
    explicit CBadAnswers(CChoices& choices) : m_choices(choices) {}

    void Begin(const wchar_t* pszRecord, DWORD dwRequest)
    {
        m_pRecord = FindRecordDescription(pszRecord);
        m_dwRequest = dwRequest;
        m_bText = false;
    }

    /// As recv of a datagram.
    int Give(char* pTo, int nMost)
    {
        if (m_choices.OneIn(32))
        {
            WSASetLastError(m_choices.Below(2) == 0 ? WSAETIMEDOUT : WSAECONNRESET);
            return SOCKET_ERROR;
        }
        const std::vector<BYTE> datagram = m_bText ? MakeText(static_cast<size_t>(nMost)) : MakeAnswer();
        const size_t nPart = std::min(datagram.size(), static_cast<size_t>(nMost));
        std::copy_n(datagram.begin(), nPart, pTo);
        m_bText = true;
        if (datagram.size() > nPart)
        {
            WSASetLastError(WSAEMSGSIZE);
            return SOCKET_ERROR;
        }
        return static_cast<int>(nPart);
    }

  private:
    std::vector<BYTE> MakeAnswer()
    {
        std::vector<BYTE> answer = MakeBadRecord(m_choices, *m_pRecord);
        if (!m_choices.OneIn(4))
        {
            std::memcpy(answer.data(), &m_dwRequest, sizeof(m_dwRequest));
        }
        if (m_dwRequest == UDP_REQUEST_CREATE_INVITATION)
        {
            SetOutcome(answer);
        }
        if (m_choices.OneIn(16))
        {
            answer.resize(m_choices.OneIn(2) ? answer.size() + m_choices.Below(3) - 1
                                             : m_choices.Number() % (LARGEST_DATAGRAM + 1));
        }
        return answer;
    }

    // Most of them make an invitation, or there would never be a text.
    void SetOutcome(std::vector<BYTE>& answer)
    {
        const DWORD dwError = m_choices.OneIn(4) ? m_choices.Number() : 0;
        const DWORD dwLength = m_choices.OneIn(4) ? m_choices.Number() : m_choices.Below(2000);
        std::memcpy(answer.data() + offsetof(MSG_UDP_CREATE_INVITATION, dwError), &dwError, sizeof(dwError));
        std::memcpy(answer.data() + offsetof(MSG_UDP_CREATE_INVITATION, dwInvitationLength), &dwLength,
                    sizeof(dwLength));
    }

    std::vector<BYTE> MakeText(size_t nExpected)
    {
        const size_t nText = m_choices.OneIn(8) ? m_choices.Number() % (LARGEST_DATAGRAM + 1) : nExpected;
        std::vector<BYTE> text(nText, 'x');
        switch (m_choices.Below(4))
        {
        case 0:
            break;
        case 1:
            std::fill(text.begin(), text.end(), BYTE{0});
            break;
        default:
            CRandom(m_choices.Below(0x10000)).Fill(text);
            break;
        }
        return text;
    }

    CChoices& m_choices;
    const RECORD_DESCRIPTION* m_pRecord = nullptr;
    DWORD m_dwRequest = 0;
    bool m_bText = false;
};

void PlayQuery(CChoices& choices, CBadAnswers& answers)
{
    MSG_UDP_CREATE_INVITATION invitation = {};
    MSG_UDP_DELETE_INVITATIONS deletion = {};
    unsigned int uiPort = 0;
    switch (choices.Below(8))
    {
    case 1:
        choices.Step("port lookup");
        answers.Begin(L"MSG_UDP_PORT_LOOKUP", UDP_REQUEST_PORT_LOOKUP);
        GetPortNumberViaUDP(&uiPort);
        break;
    case 2:
        choices.Step("delete all invitations");
        answers.Begin(L"MSG_UDP_DELETE_INVITATIONS", UDP_REQUEST_DELETE_INVITATIONS);
        DeleteInvitationsViaUDP(deletion);
        break;
    default:
        choices.Step("create invitation");
        answers.Begin(L"MSG_UDP_CREATE_INVITATION", UDP_REQUEST_CREATE_INVITATION);
        CreateInvitationViaUDP(nullptr, invitation);
        break;
    }
}
} // namespace

size_t FuzzQuery(CChoices& choices)
{
    CPlayedSystem system(choices);
    const ImportHook text("user32.dll", "SetDlgItemTextW", &TakeText);
    CBadAnswers answers(choices);
    const CPlayedNetwork network([&](char* pTo, int nMost) { return answers.Give(pTo, nMost); },
                                 [](const char*, int) {});
    const std::uint32_t nQueries = 1 + choices.Below(MOST_QUERIES);
    for (std::uint32_t nQuery = 0; nQuery < nQueries; ++nQuery)
    {
        PlayQuery(choices, answers);
    }
    return nQueries;
}
