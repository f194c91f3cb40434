#include "devservice/ScriptRunner.h"

#include "Include/Handles.h"
#include "channel/TrayMessages.h"
#include "devservice/RecordText.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace
{
constexpr DWORD EXPECT_TIMEOUT_MS = 5000;
constexpr DWORD NOTHING_TIMEOUT_MS = 500;
constexpr DWORD ARRIVAL_TIMEOUT_MS = 30000;
constexpr DWORD EXIT_TIMEOUT_MS = 30000;
constexpr DWORD MARK_TIMEOUT_MS = 30000;
constexpr DWORD MARK_LOOK_MS = 50;
constexpr size_t SHOWN_PENDING = 5;
constexpr std::wstring_view WITHIN = L"within";
constexpr std::wstring_view PAYLOAD = L"payload";
constexpr std::wstring_view RAW_PREFIX = L"hex:";

bool IsOption(const SCRIPT_WORD& word, std::wstring_view name)
{
    return word.IsAssignment() && !word.bNot && word.Name() == name;
}

const SCRIPT_WORD* FindOption(std::span<const SCRIPT_WORD> words, std::wstring_view name)
{
    const auto found = std::find_if(words.begin(), words.end(),
                                    [name](const SCRIPT_WORD& word) { return IsOption(word, name); });
    return found == words.end() ? nullptr : &*found;
}

bool IsWord(std::span<const SCRIPT_WORD> words, size_t nIndex, std::wstring_view text)
{
    return nIndex < words.size() && !words[nIndex].bQuoted && words[nIndex].text == text;
}

// The value of payload=: bytes after hex:, else the text in UTF-8.
bool PayloadBytes(std::wstring_view value, std::vector<BYTE>& bytes)
{
    if (!value.starts_with(RAW_PREFIX))
    {
        const std::string utf8 = ToUtf8(value);
        bytes.assign(utf8.begin(), utf8.end());
        return true;
    }
    std::optional<std::vector<BYTE>> parsed = ParseHexBytes(value.substr(RAW_PREFIX.size()));
    if (parsed)
        bytes = std::move(*parsed);
    return parsed.has_value();
}

std::wstring DescribeArrived(const AGENT_RECORD& record)
{
    if (record.pMessage != nullptr)
        return FormatMessage(*record.pMessage, record.bytes);
    return std::to_wstring(record.bytes.size()) + L" raw bytes";
}

std::wstring DescribePending(const std::vector<AGENT_RECORD>& pending)
{
    if (pending.empty())
        return L"nothing came";
    std::wstring text = L"what came instead:";
    const size_t nFirst = pending.size() > SHOWN_PENDING ? pending.size() - SHOWN_PENDING : 0;
    for (size_t n = nFirst; n < pending.size(); ++n)
        text += L"\n    " + DescribeArrived(pending[n]);
    return text;
}

bool FieldHolds(const AGENT_RECORD& record, const SCRIPT_WORD& word)
{
    const RECORD_DESCRIPTION& description = *record.pMessage->pRecord;
    bool bEqual = false;
    if (word.Name() == PAYLOAD)
    {
        std::vector<BYTE> wanted;
        PayloadBytes(word.Value(), wanted);
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
            return true;
        return record.pMessage == pMessage &&
               std::all_of(fields.begin(), fields.end(), [&record](const SCRIPT_WORD& word) {
                   return IsOption(word, WITHIN) || FieldHolds(record, word);
               });
    }
};

// A command is one row here and one function.
struct SCRIPT_COMMANDS
{
    struct COMMAND
    {
        const wchar_t* pszName;
        size_t nLeastWords; // behind the command
        size_t nMostWords;
        const wchar_t* pszWords;
        const wchar_t* pszHelp;
        bool (CScriptRunner::*pfnRun)(CScriptRunner::WORDS);
    };

    static constexpr size_t ANY = static_cast<size_t>(-1);

    static std::span<const COMMAND> All()
    {
        using RUNNER = CScriptRunner;
        static constexpr COMMAND s_aCommands[] = {
            {L"agent", 1, 3, L"N | all | wait [N] [within=MS]",
             L"whom the next commands mean; wait until N agents have shaken hands", &RUNNER::Agent},
            {L"agents", 0, 0, L"", L"list the agents", &RUNNER::Agents},
            {L"close", 0, 0, L"", L"close the agent's connection", &RUNNER::Close},
            {L"echo", 0, 1, L"[within=MS]", L"send the blocking-mode message and expect it back",
             &RUNNER::Echo},
            {L"expect", 1, ANY,
             L"[next] TYPE [field=value | field!=value]... [within=MS] | nothing [TYPE] | closed",
             L"wait for that message; what came before it and is not it stays for later", &RUNNER::Expect},
            {L"expect-exit", 1, 3, L"CODE [program=N] [within=MS]", L"wait for a started program's end",
             &RUNNER::ExpectExit},
            {L"forget", 0, 0, L"", L"drop the messages that nobody has expected", &RUNNER::Forget},
            {L"handshake", 0, ANY, L"[on | off] [field=value]...",
             L"what an agent that connects is sent first", &RUNNER::Handshake},
            {L"help", 0, 0, L"", L"list the commands", &RUNNER::Help},
            {L"listen", 0, 1, L"[PORT | off]", L"listen for agents; 0 takes any free port", &RUNNER::Listen},
            {L"lookup", 0, 1, L"[PORT | off | silent]",
             L"answer port lookups, by default with the port listened on", &RUNNER::Lookup},
            {L"mark", 1, 1, L"NAME", L"print a mark, and with --marks wait for NAME.done", &RUNNER::Mark},
            {L"quit", 0, 1, L"[CODE]", L"end the script", &RUNNER::Quit},
            {L"raw", 1, ANY, L"HEX...", L"send bytes as they are", &RUNNER::Raw},
            {L"run", 1, ANY, L"PROGRAM [WORD]... [expect=CODE] [within=MS]",
             L"start a program and wait for its end", &RUNNER::RunProgram},
            {L"say", 1, ANY, L"TEXT...", L"put a line into the log", &RUNNER::Say},
            {L"send", 1, ANY, L"TYPE [field=value]... [payload=TEXT]", L"send a message, all else in it zero",
             &RUNNER::Send},
            {L"start", 1, ANY, L"PROGRAM [WORD]...", L"start a program and go on", &RUNNER::StartProgram},
            {L"wait", 1, 1, L"MS | forever", L"do nothing for a while", &RUNNER::Wait},
        };
        return s_aCommands;
    }

    static const COMMAND* Find(std::wstring_view name)
    {
        const auto found = std::find_if(All().begin(), All().end(),
                                        [name](const COMMAND& row) { return name == row.pszName; });
        return found == All().end() ? nullptr : &*found;
    }
};

bool CScriptRunner::Check(std::span<const SCRIPT_STATEMENT> statements, std::wstring& error)
{
    for (const SCRIPT_STATEMENT& statement : statements)
    {
        const std::wstring& name = statement.words.front().text;
        const size_t nWords = statement.words.size() - 1;
        if (name == L"repeat")
        {
            if (nWords != 1)
                error = AtLine(statement.uLine, L"use: repeat N ... end");
            if (nWords != 1 || !Check(statement.body, error))
                return false;
            continue;
        }
        const SCRIPT_COMMANDS::COMMAND* const pCommand = SCRIPT_COMMANDS::Find(name);
        if (pCommand == nullptr)
        {
            error = AtLine(statement.uLine, L"unknown command " + QuotedText(name, name.size()) +
                                                L"; help lists the commands");
            return false;
        }
        if (nWords < pCommand->nLeastWords || nWords > pCommand->nMostWords)
        {
            error = AtLine(statement.uLine, L"use: " + name + L' ' + pCommand->pszWords);
            return false;
        }
    }
    return true;
}

SCRIPT_RESULT CScriptRunner::Run(std::span<const SCRIPT_STATEMENT> statements)
{
    m_error.clear();
    m_bErrorHasLine = false;
    for (const SCRIPT_STATEMENT& statement : statements)
    {
        if (m_service.IsInterrupted())
            Fail(L"interrupted");
        else if (RunStatement(statement))
        {
            if (m_bQuit)
                return SCRIPT_RESULT::Quit;
            continue;
        }
        // A statement inside a block has put its own line in front already.
        if (!m_bErrorHasLine)
            m_error = AtLine(statement.uLine, m_error);
        m_bErrorHasLine = true;
        return SCRIPT_RESULT::Failed;
    }
    return SCRIPT_RESULT::Done;
}

bool CScriptRunner::RunStatement(const SCRIPT_STATEMENT& statement)
{
    const std::wstring& name = statement.words.front().text;
    if (name == L"repeat")
        return RunBlock(statement);
    std::vector<SCRIPT_WORD> words;
    if (!Expand(WORDS(statement.words).subspan(1), words))
        return false;
    return (this->*SCRIPT_COMMANDS::Find(name)->pfnRun)(words);
}

bool CScriptRunner::RunBlock(const SCRIPT_STATEMENT& statement)
{
    std::vector<SCRIPT_WORD> words;
    DWORD dwRounds = 0;
    if (!Expand(WORDS(statement.words).subspan(1), words) || !ReadNumber(words[0].text, dwRounds))
        return false;
    const unsigned int uOuterRound = m_uRound;
    for (m_uRound = 1; m_uRound <= dwRounds && !m_bQuit; ++m_uRound)
    {
        if (Run(statement.body) == SCRIPT_RESULT::Failed)
            return false;
    }
    m_uRound = uOuterRound;
    return true;
}

bool CScriptRunner::Fail(std::wstring_view reason)
{
    m_error = reason;
    return false;
}

std::optional<std::wstring> CScriptRunner::Variable(std::wstring_view name) const
{
    if (name == L"dir")
        return m_settings.programFolder;
    if (name == L"port")
        return std::to_wstring(m_service.GetPort());
    if (name == L"round")
        return std::to_wstring(m_uRound);
    if (name != L"session")
        return std::nullopt;
    DWORD dwSession = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &dwSession);
    return std::to_wstring(dwSession);
}

bool CScriptRunner::ExpandText(std::wstring_view text, std::wstring& expanded)
{
    expanded.clear();
    for (size_t n = 0; n < text.size(); ++n)
    {
        if (text[n] != L'$')
        {
            expanded += text[n];
            continue;
        }
        size_t nEnd = n + 1;
        while (nEnd < text.size() && text[nEnd] >= L'a' && text[nEnd] <= L'z')
            ++nEnd;
        const std::wstring_view name = text.substr(n + 1, nEnd - n - 1);
        const std::optional<std::wstring> value = Variable(name);
        if (!value && text.substr(n, 2) != L"$$")
            return Fail(L"unknown variable $" + std::wstring(name) +
                        L"; there are $dir, $port, $round, $session, and $$ for the sign");
        expanded += value.value_or(L"$");
        n = value ? nEnd - 1 : n + 1;
    }
    return true;
}

bool CScriptRunner::Expand(std::span<const SCRIPT_WORD> words, std::vector<SCRIPT_WORD>& expanded)
{
    expanded.assign(words.begin(), words.end());
    return std::all_of(expanded.begin(), expanded.end(), [this](SCRIPT_WORD& word) {
        const std::wstring text = word.text;
        return ExpandText(text, word.text);
    });
}

bool CScriptRunner::ReadNumber(std::wstring_view text, DWORD& dwValue)
{
    const std::optional<DWORD> value = ParseDword(text);
    if (!value)
        return Fail(L"not a number: " + QuotedText(text, text.size()));
    dwValue = *value;
    return true;
}

bool CScriptRunner::ReadPort(std::wstring_view text, unsigned short& nPort)
{
    const std::optional<unsigned short> value = ParsePort(text);
    if (!value)
        return Fail(L"not a port: " + QuotedText(text, text.size()));
    nPort = *value;
    return true;
}

bool CScriptRunner::ReadMilliseconds(WORDS words, DWORD& dwMilliseconds)
{
    const SCRIPT_WORD* const pWithin = FindOption(words, WITHIN);
    return pWithin == nullptr || ReadNumber(pWithin->Value(), dwMilliseconds);
}

bool CScriptRunner::Listen(WORDS words)
{
    if (IsWord(words, 0, L"off"))
    {
        m_service.StopListening();
        return true;
    }
    unsigned short nPort = m_settings.nPort;
    if (!words.empty() && !ReadPort(words[0].text, nPort))
        return false;
    return m_service.Listen(nPort) ||
           Fail(SystemErrorText(L"cannot listen on port " + std::to_wstring(nPort), GetLastError()));
}

bool CScriptRunner::Lookup(WORDS words)
{
    if (IsWord(words, 0, L"off"))
    {
        m_service.CloseQueryPort();
        return true;
    }
    const bool bSilent = IsWord(words, 0, L"silent");
    std::optional<unsigned int> lookupPort;
    if (!words.empty() && !bSilent)
    {
        unsigned short nPort = 0;
        if (!ReadPort(words[0].text, nPort))
            return false;
        lookupPort = nPort;
    }
    return m_service.OpenQueryPort(m_settings.nQueryPort, bSilent ? LOOKUP_MODE::Silent : LOOKUP_MODE::Answer,
                                   lookupPort) ||
           Fail(SystemErrorText(L"cannot open query port " + std::to_wstring(m_settings.nQueryPort),
                                GetLastError()));
}

bool CScriptRunner::Handshake(WORDS words)
{
    if (IsWord(words, 0, L"off"))
    {
        m_service.SetHandshake(std::nullopt);
        return words.size() == 1 || Fail(L"handshake off takes no fields");
    }
    std::vector<SCRIPT_WORD> record = {SCRIPT_WORD{L"MSG_TYPE_VERSION"}};
    const size_t nFirstField = IsWord(words, 0, L"on") ? 1 : 0;
    record.insert(record.end(), words.begin() + static_cast<ptrdiff_t>(nFirstField), words.end());
    std::vector<BYTE> bytes;
    if (!BuildRecord(record, bytes))
        return false;
    MSG_VERSION version = {};
    memcpy(&version, bytes.data(), sizeof(version));
    m_service.SetHandshake(version);
    return true;
}

bool CScriptRunner::Agent(WORDS words)
{
    if (IsWord(words, 0, L"wait"))
        return AgentWait(words.subspan(1));
    if (IsWord(words, 0, L"all"))
    {
        m_target.reset();
        return true;
    }
    DWORD dwAgent = 0;
    if (!ReadNumber(words[0].text, dwAgent))
        return false;
    m_target = dwAgent;
    return true;
}

bool CScriptRunner::AgentWait(WORDS words)
{
    DWORD dwMilliseconds = ARRIVAL_TIMEOUT_MS;
    DWORD dwCount = 1;
    if (!ReadMilliseconds(words, dwMilliseconds))
        return false;
    if (!words.empty() && !words[0].IsAssignment() && !ReadNumber(words[0].text, dwCount))
        return false;
    if (m_service.WaitForReadyAgents(dwCount, dwMilliseconds) != WAIT_RESULT::Met)
        return Fail(std::to_wstring(m_service.CountReadyAgents()) + L" of " + std::to_wstring(dwCount) +
                    L" agents have shaken hands within " + std::to_wstring(dwMilliseconds) + L" ms");
    m_target = dwCount;
    return true;
}

bool CScriptRunner::Agents(WORDS)
{
    for (unsigned int u = 1; u <= m_service.CountAgents(); ++u)
    {
        const AGENT_STATE state = m_service.GetAgent(u).value_or(AGENT_STATE());
        std::wstring text = state.bConnected ? L"is connected" : L"is gone";
        if (state.bReady)
            text += L", session " + std::to_wstring(state.dwSessionId);
        if (state.bFrameLost)
            text += L", frame lost";
        m_service.NoteAgent(u, text);
    }
    return true;
}

bool CScriptRunner::Targets(std::vector<unsigned int>& agents)
{
    agents.clear();
    for (unsigned int u = 1; u <= m_service.CountAgents(); ++u)
    {
        const bool bConnected = m_service.GetAgent(u).value_or(AGENT_STATE()).bConnected;
        if (m_target ? *m_target == u : bConnected)
            agents.push_back(u);
    }
    if (!agents.empty())
        return true;
    return Fail(m_target ? L"there is no agent " + std::to_wstring(*m_target) : L"no agent is connected");
}

bool CScriptRunner::SendToTargets(std::span<const BYTE> bytes)
{
    std::vector<unsigned int> agents;
    if (!Targets(agents))
        return false;
    for (const unsigned int uAgent : agents)
    {
        if (!m_service.Send(uAgent, bytes))
            return Fail(L"agent " + std::to_wstring(uAgent) + L" is gone or takes nothing");
    }
    return true;
}

bool CScriptRunner::SetField(const MESSAGE_DESCRIPTION& message, const SCRIPT_WORD& word,
                             std::vector<BYTE>& record)
{
    if (!word.IsAssignment() || word.bNot)
        return Fail(L"not a field=value: " + QuotedText(word.text, word.text.size()));
    const bool bPayload = word.Name() == PAYLOAD;
    if (!bPayload)
        return SetRecordField(*message.pRecord, record, word.Name(), word.Value(), m_error);
    if (message.dwType != MSG_TYPE_CHAT_MESSAGE)
        return Fail(std::wstring(message.pszName) + L" has no payload");
    std::vector<BYTE> payload;
    if (!PayloadBytes(word.Value(), payload))
        return Fail(L"payload=hex: takes hexadecimal bytes");
    const DWORD dwLength = static_cast<DWORD>(payload.size());
    memcpy(record.data() + offsetof(MSG_CHAT_MESSAGE, dwMessageLength), &dwLength, sizeof(dwLength));
    record.insert(record.end(), payload.begin(), payload.end());
    return true;
}

bool CScriptRunner::BuildRecord(WORDS words, std::vector<BYTE>& record)
{
    const std::wstring& name = words[0].text;
    const MESSAGE_DESCRIPTION* const pMessage = FindMessageByName(name, MESSAGE_FROM_SERVICE);
    if (pMessage == nullptr)
        return Fail(L"unknown message " + QuotedText(name, name.size()));
    record = MakeRecord(*pMessage);
    return std::all_of(words.begin() + 1, words.end(),
                       [&](const SCRIPT_WORD& word) { return SetField(*pMessage, word, record); });
}

bool CScriptRunner::Send(WORDS words)
{
    std::vector<BYTE> record;
    return BuildRecord(words, record) && SendToTargets(record);
}

bool CScriptRunner::Raw(WORDS words)
{
    std::wstring digits;
    for (const SCRIPT_WORD& word : words)
        digits += word.text + L' ';
    const std::optional<std::vector<BYTE>> bytes = ParseHexBytes(digits);
    return bytes ? SendToTargets(*bytes) : Fail(L"raw takes hexadecimal bytes");
}

bool CScriptRunner::Echo(WORDS words)
{
    EXPECTATION expectation;
    expectation.pMessage = FindMessageDescription(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE, MESSAGE_FROM_AGENT);
    std::vector<unsigned int> agents;
    if (!ReadMilliseconds(words, expectation.dwMilliseconds) || !Targets(agents) ||
        !SendToTargets(MakeRecord(*expectation.pMessage)))
        return false;
    return std::all_of(agents.begin(), agents.end(),
                       [&](unsigned int uAgent) { return ExpectRecord(uAgent, expectation); });
}

bool CScriptRunner::ReadExpectation(WORDS words, EXPECTATION& expectation)
{
    if (!ReadMilliseconds(words, expectation.dwMilliseconds))
        return false;
    if (words.empty() || words[0].IsAssignment())
        return true;
    const std::wstring& name = words[0].text;
    expectation.pMessage = FindMessageByName(name, MESSAGE_FROM_AGENT);
    if (expectation.pMessage == nullptr)
        return Fail(L"unknown message " + QuotedText(name, name.size()));
    if ((expectation.pMessage->direction & MESSAGE_FROM_AGENT) == 0)
        return Fail(std::wstring(expectation.pMessage->pszName) + L" never comes from an agent");
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
            return Fail(L"not a field=value: " + QuotedText(word.text, word.text.size()));
        bool bEqual = false;
        std::vector<BYTE> payload;
        if (word.Name() == PAYLOAD)
            return PayloadBytes(word.Value(), payload) || Fail(L"payload=hex: takes hexadecimal bytes");
        return IsOption(word, WITHIN) ||
               CompareRecordField(record, zero, word.Name(), word.Value(), bEqual, m_error);
    });
}

bool CScriptRunner::Expect(WORDS words)
{
    EXPECTATION expectation;
    bool (CScriptRunner::*pfnExpect)(unsigned int, const EXPECTATION&) = &CScriptRunner::ExpectRecord;
    size_t nFirst = 1;
    if (IsWord(words, 0, L"next"))
        expectation.bNext = true;
    else if (IsWord(words, 0, L"closed"))
        pfnExpect = &CScriptRunner::ExpectClosed;
    else if (IsWord(words, 0, L"nothing"))
    {
        pfnExpect = &CScriptRunner::ExpectNothing;
        expectation.dwMilliseconds = NOTHING_TIMEOUT_MS;
    }
    else
        nFirst = 0;
    std::vector<unsigned int> agents;
    if (!ReadExpectation(words.subspan(nFirst), expectation) || !Targets(agents))
        return false;
    if (pfnExpect == &CScriptRunner::ExpectRecord && expectation.pMessage == nullptr)
        return Fail(L"expect needs the name of a message");
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
        return Fail(L"interrupted");
    if (result == WAIT_RESULT::AgentGone)
        return Fail(wanted + L", but is gone; " + DescribePending(m_service.GetPending(uAgent)));
    if (result == WAIT_RESULT::TimedOut)
        return Fail(wanted + L" within " + std::to_wstring(expectation.dwMilliseconds) + L" ms; " +
                    DescribePending(m_service.GetPending(uAgent)));
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

bool CScriptRunner::Forget(WORDS)
{
    std::vector<unsigned int> agents;
    if (!Targets(agents))
        return false;
    for (const unsigned int uAgent : agents)
        m_service.ForgetPending(uAgent);
    return true;
}

bool CScriptRunner::Close(WORDS)
{
    std::vector<unsigned int> agents;
    if (!Targets(agents))
        return false;
    for (const unsigned int uAgent : agents)
        m_service.CloseAgent(uAgent);
    return std::all_of(agents.begin(), agents.end(),
                       [this](unsigned int uAgent) { return ExpectClosed(uAgent, EXPECTATION()); });
}

bool CScriptRunner::Wait(WORDS words)
{
    DWORD dwMilliseconds = INFINITE;
    if (!IsWord(words, 0, L"forever") && !ReadNumber(words[0].text, dwMilliseconds))
        return false;
    return m_service.Pause(dwMilliseconds) != WAIT_RESULT::Interrupted || Fail(L"interrupted");
}

bool CScriptRunner::Say(WORDS words)
{
    std::wstring text;
    for (const SCRIPT_WORD& word : words)
        text += (text.empty() ? L"" : L" ") + word.text;
    m_service.Note(text);
    return true;
}

bool CScriptRunner::Mark(WORDS words)
{
    const std::wstring& name = words[0].text;
    m_service.Note(L"[mark " + name + L"]");
    if (m_settings.marksFolder.empty())
        return true;
    const std::wstring done = m_settings.marksFolder + L"\\" + name + L".done";
    for (DWORD dwWaited = 0; dwWaited < MARK_TIMEOUT_MS; dwWaited += MARK_LOOK_MS)
    {
        if (GetFileAttributesW(done.c_str()) != INVALID_FILE_ATTRIBUTES)
            return true;
        if (m_service.Pause(MARK_LOOK_MS) == WAIT_RESULT::Interrupted)
            return Fail(L"interrupted");
    }
    return Fail(L"nobody made " + done);
}

bool CScriptRunner::Quit(WORDS words)
{
    DWORD dwCode = 0;
    if (!words.empty() && !ReadNumber(words[0].text, dwCode))
        return false;
    m_nExitCode = static_cast<int>(dwCode);
    m_bQuit = true;
    return true;
}

bool CScriptRunner::Help(WORDS)
{
    for (const SCRIPT_COMMANDS::COMMAND& command : SCRIPT_COMMANDS::All())
    {
        m_service.Note(command.pszName + std::wstring(L" ") + command.pszWords);
        m_service.Note(std::wstring(L"    ") + command.pszHelp);
    }
    m_service.Note(L"repeat N ... end");
    m_service.Note(L"    do the lines between N times; $round counts them");
    return true;
}

bool CScriptRunner::Launch(WORDS words, unsigned int& uProgram)
{
    std::vector<std::wstring> arguments;
    for (const SCRIPT_WORD& word : words.subspan(1))
    {
        if (!IsOption(word, WITHIN) && !IsOption(word, L"expect"))
            arguments.push_back(word.text);
    }
    const std::optional<unsigned int> started = m_programs.Start(words[0].text, arguments);
    if (!started)
        return Fail(SystemErrorText(L"cannot start " + words[0].text, GetLastError()));
    uProgram = *started;
    m_service.Note(L"program " + std::to_wstring(uProgram) + L" started: " +
                   MakeCommandLine(words[0].text, arguments));
    return true;
}

bool CScriptRunner::AwaitExit(unsigned int uProgram, DWORD dwMilliseconds, std::optional<DWORD> expected)
{
    DWORD dwCode = 0;
    const std::wstring program = L"program " + std::to_wstring(uProgram);
    switch (m_programs.WaitForEnd(uProgram, dwMilliseconds, m_service.GetInterruptEvent(), dwCode))
    {
    case PROGRAM_RESULT::StillRuns:
        return Fail(program + L" still runs after " + std::to_wstring(dwMilliseconds) + L" ms");
    case PROGRAM_RESULT::Interrupted:
        return Fail(L"interrupted");
    case PROGRAM_RESULT::Ended:
        break;
    }
    const std::wstring ended = program + L" ended with " + HexDword(dwCode) + L" (" +
                               std::to_wstring(static_cast<int>(dwCode)) + L")";
    m_service.Note(ended);
    return !expected || *expected == dwCode || Fail(ended + L", not with " + HexDword(*expected));
}

bool CScriptRunner::StartProgram(WORDS words)
{
    unsigned int uProgram = 0;
    return Launch(words, uProgram);
}

bool CScriptRunner::RunProgram(WORDS words)
{
    DWORD dwMilliseconds = EXIT_TIMEOUT_MS;
    std::optional<DWORD> expected;
    if (const SCRIPT_WORD* const pExpected = FindOption(words, L"expect"))
    {
        DWORD dwCode = 0;
        if (!ReadNumber(pExpected->Value(), dwCode))
            return false;
        expected = dwCode;
    }
    unsigned int uProgram = 0;
    return ReadMilliseconds(words, dwMilliseconds) && Launch(words, uProgram) &&
           AwaitExit(uProgram, dwMilliseconds, expected);
}

bool CScriptRunner::ExpectExit(WORDS words)
{
    DWORD dwMilliseconds = EXIT_TIMEOUT_MS;
    DWORD dwCode = 0;
    DWORD dwProgram = m_programs.Count();
    const SCRIPT_WORD* const pProgram = FindOption(words, L"program");
    if (!ReadMilliseconds(words, dwMilliseconds) || !ReadNumber(words[0].text, dwCode) ||
        (pProgram != nullptr && !ReadNumber(pProgram->Value(), dwProgram)))
        return false;
    if (dwProgram == 0 || dwProgram > m_programs.Count())
        return Fail(L"there is no program " + std::to_wstring(dwProgram));
    return AwaitExit(dwProgram, dwMilliseconds, dwCode);
}

void CScriptRunner::EndPrograms()
{
    const unsigned int uEnded = m_programs.EndAll();
    if (uEnded > 0)
        m_service.Note(std::to_wstring(uEnded) + L" programs that still ran were ended");
}
