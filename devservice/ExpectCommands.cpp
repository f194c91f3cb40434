// The commands that wait for what an agent sends.

#include "devservice/RecordText.h"
#include "devservice/ScriptRunner.h"
#include "devservice/ValueText.h"

#include <algorithm>

namespace
{
constexpr DWORD EXPECT_TIMEOUT_MS = 5000;
constexpr DWORD NOTHING_TIMEOUT_MS = 500;
constexpr size_t SHOWN_PENDING = 5;

std::wstring DescribeArrived(const AGENT_RECORD& record)
{
    if (record.pMessage != nullptr)
    {
        return FormatMessage(*record.pMessage, record.bytes);
    }
    return std::to_wstring(record.bytes.size()) + L" raw bytes";
}

std::wstring DescribePending(const std::vector<AGENT_RECORD>& pending)
{
    if (pending.empty())
    {
        return L"nothing came";
    }
    std::wstring text = L"what came instead:";
    const size_t nFirst = pending.size() > SHOWN_PENDING ? pending.size() - SHOWN_PENDING : 0;
    for (size_t n = nFirst; n < pending.size(); ++n)
    {
        text += L"\n    " + DescribeArrived(pending[n]);
    }
    return text;
}

bool FieldHolds(const AGENT_RECORD& record, const SCRIPT_WORD& word)
{
    const RECORD_DESCRIPTION& description = *record.pMessage->pRecord;
    bool bEqual = false;
    if (word.Name() == PAYLOAD_FIELD)
    {
        const std::vector<BYTE> wanted = ParsePayload(word.Value()).value_or(std::vector<BYTE>());
        bEqual = std::equal(record.bytes.begin() + description.uSize, record.bytes.end(), wanted.begin(),
                            wanted.end());
    }
    else
    {
        std::wstring error;
        CompareRecordField(description, record.bytes, word.Name(), word.Value(), bEqual, error);
    }
    return bEqual != word.bNot;
}
} // namespace

struct CScriptRunner::EXPECTATION
{
    const MESSAGE_DESCRIPTION* pMessage = nullptr; // null: of any type
    bool bNext = false;                            // the very next message must be it
    WORDS fields;
    DWORD dwMilliseconds = EXPECT_TIMEOUT_MS;

    bool IsMetBy(const AGENT_RECORD& record) const
    {
        if (pMessage == nullptr)
        {
            return true;
        }
        return record.pMessage == pMessage &&
               std::all_of(fields.begin(), fields.end(), [&record](const SCRIPT_WORD& word) {
                   return IsOption(word, WITHIN_OPTION) || FieldHolds(record, word);
               });
    }
};

bool CScriptRunner::Echo(WORDS words)
{
    EXPECTATION expectation;
    expectation.pMessage = FindMessageDescription(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE, MESSAGE_FROM_AGENT);
    std::vector<unsigned int> agents;
    if (!ReadMilliseconds(words, expectation.dwMilliseconds) || !Targets(agents) ||
        !SendToTargets(MakeRecord(*expectation.pMessage)))
    {
        return false;
    }
    return std::all_of(agents.begin(), agents.end(),
                       [&](unsigned int uAgent) { return ExpectRecord(uAgent, expectation); });
}

bool CScriptRunner::ReadExpectation(WORDS words, EXPECTATION& expectation)
{
    if (!ReadMilliseconds(words, expectation.dwMilliseconds))
    {
        return false;
    }
    if (words.empty() || words[0].IsAssignment())
    {
        return true;
    }
    const std::wstring& name = words[0].text;
    expectation.pMessage = FindMessageByName(name, MESSAGE_FROM_AGENT);
    if (expectation.pMessage == nullptr)
    {
        return Fail(L"unknown message " + QuotedText(name, name.size()));
    }
    if ((expectation.pMessage->direction & MESSAGE_FROM_AGENT) == 0)
    {
        return Fail(std::wstring(expectation.pMessage->pszName) + L" never comes from an agent");
    }
    expectation.fields = words.subspan(1);
    return CheckFields(expectation);
}

// A field that doesn't exist must not look like a message that doesn't come.
bool CScriptRunner::CheckFields(const EXPECTATION& expectation)
{
    const RECORD_DESCRIPTION& record = *expectation.pMessage->pRecord;
    const std::vector<BYTE> zero(record.uSize);
    return std::all_of(expectation.fields.begin(), expectation.fields.end(), [&](const SCRIPT_WORD& word) {
        if (!word.IsAssignment())
        {
            return Fail(L"not a field=value: " + QuotedText(word.text, word.text.size()));
        }
        bool bEqual = false;
        if (word.Name() == PAYLOAD_FIELD)
        {
            return ParsePayload(word.Value()).has_value() || Fail(L"payload=hex: takes hexadecimal bytes");
        }
        return IsOption(word, WITHIN_OPTION) ||
               CompareRecordField(record, zero, word.Name(), word.Value(), bEqual, m_error);
    });
}

bool CScriptRunner::Expect(WORDS words)
{
    EXPECTATION expectation;
    bool (CScriptRunner::*pfnExpect)(unsigned int, const EXPECTATION&) = &CScriptRunner::ExpectRecord;
    size_t nFirst = 1;
    if (IsWord(words, 0, L"next"))
    {
        expectation.bNext = true;
    }
    else if (IsWord(words, 0, L"closed"))
    {
        pfnExpect = &CScriptRunner::ExpectClosed;
    }
    else if (IsWord(words, 0, L"nothing"))
    {
        pfnExpect = &CScriptRunner::ExpectNothing;
        expectation.dwMilliseconds = NOTHING_TIMEOUT_MS;
    }
    else
    {
        nFirst = 0;
    }
    std::vector<unsigned int> agents;
    if (!ReadExpectation(words.subspan(nFirst), expectation) || !Targets(agents))
    {
        return false;
    }
    if (pfnExpect == &CScriptRunner::ExpectRecord && expectation.pMessage == nullptr)
    {
        return Fail(L"expect needs the name of a message");
    }
    return std::all_of(agents.begin(), agents.end(),
                       [&](unsigned int uAgent) { return (this->*pfnExpect)(uAgent, expectation); });
}

bool CScriptRunner::ExpectRecord(unsigned int uAgent, const EXPECTATION& expectation)
{
    AGENT_RECORD record = {};
    const WAIT_RESULT result = m_service.TakeRecord(
        uAgent,
        [&expectation](const AGENT_RECORD& candidate) {
            return expectation.bNext || expectation.IsMetBy(candidate);
        },
        expectation.dwMilliseconds, record);
    const std::wstring wanted =
        L"agent " + std::to_wstring(uAgent) + L" was to send " + expectation.pMessage->pszName;
    if (result == WAIT_RESULT::Interrupted)
    {
        return Fail(L"interrupted");
    }
    if (result == WAIT_RESULT::AgentGone)
    {
        return Fail(wanted + L", but is gone; " + DescribePending(m_service.GetPending(uAgent)));
    }
    if (result == WAIT_RESULT::TimedOut)
    {
        return Fail(wanted + L" within " + std::to_wstring(expectation.dwMilliseconds) + L" ms; " +
                    DescribePending(m_service.GetPending(uAgent)));
    }
    return expectation.IsMetBy(record) || Fail(wanted + L" next; " + DescribePending({record}));
}

bool CScriptRunner::ExpectNothing(unsigned int uAgent, const EXPECTATION& expectation)
{
    AGENT_RECORD record = {};
    const WAIT_RESULT result = m_service.TakeRecord(
        uAgent, [&expectation](const AGENT_RECORD& candidate) { return expectation.IsMetBy(candidate); },
        expectation.dwMilliseconds, record);
    return result != WAIT_RESULT::Met || Fail(L"agent " + std::to_wstring(uAgent) +
                                              L" was to send no such thing; " + DescribePending({record}));
}

bool CScriptRunner::ExpectClosed(unsigned int uAgent, const EXPECTATION& expectation)
{
    return m_service.WaitForClose(uAgent, expectation.dwMilliseconds) == WAIT_RESULT::Met ||
           Fail(L"agent " + std::to_wstring(uAgent) + L" was to close its connection within " +
                std::to_wstring(expectation.dwMilliseconds) + L" ms");
}

bool CScriptRunner::Close(WORDS)
{
    std::vector<unsigned int> agents;
    if (!Targets(agents))
    {
        return false;
    }
    for (const unsigned int uAgent : agents)
    {
        m_service.CloseAgent(uAgent);
    }
    return std::all_of(agents.begin(), agents.end(),
                       [this](unsigned int uAgent) { return ExpectClosed(uAgent, EXPECTATION()); });
}
