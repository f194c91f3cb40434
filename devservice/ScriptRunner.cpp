#include "devservice/ScriptRunner.h"

#include "Include/Handles.h"
#include "Include/UtilFile.h"
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
constexpr DWORD ARRIVAL_TIMEOUT_MS = 30000;
constexpr DWORD MARK_TIMEOUT_MS = 30000;
constexpr DWORD MARK_LOOK_MS = 50;

std::wstring AccountName()
{
    wchar_t szAccount[std::size(MSG_PERMISSION_PROMPT().szUsername)] = {};
    GetAccountName(szAccount, std::size(szAccount));
    return szAccount;
}
} // namespace

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
            {L"addresses", 0, ANY, L"[field=value]...", L"change the kept addresses and send them",
             &RUNNER::Addresses},
            {L"agent", 1, 3, L"N | all | wait [N] [within=MS]",
             L"whom the next commands mean; wait until N agents have shaken hands", &RUNNER::Agent},
            {L"agents", 0, 0, L"", L"list the agents", &RUNNER::Agents},
            {L"answers", 1, 1, L"on | off",
             L"answer what agents ask for: settings, addresses, list, disconnect, language, reverse",
             &RUNNER::Answers},
            {L"certificate", 1, 2, L"candidate NAME | candidate file=PATH | forget",
             L"lay a certificate, new or of a file, before the agent; take all of them back, trusted or not",
             &RUNNER::Certificate},
            {L"chat", 2, 2, L"NAME TEXT", L"somebody says something; hex: and bytes in place of a text",
             &RUNNER::Chat},
            {L"chat-close", 0, 0, L"", L"close the chat window", &RUNNER::ChatClose},
            {L"chat-open", 1, 1, L"NAME", L"somebody opens the chat window", &RUNNER::ChatOpen},
            {L"clipboard", 2, 3, L"text | file TEXT [within=MS]",
             L"wait until that text, or a file of that name, is on the clipboard", &RUNNER::Clipboard},
            {L"close", 0, 0, L"", L"close the agent's connection", &RUNNER::Close},
            {L"connect", 1, ANY, L"NAME [type=N] [detail1=TEXT] [detail2=TEXT] [list=1] [field=value]...",
             L"a viewer comes; of type 1 unless told otherwise", &RUNNER::Connect},
            {L"count", 0, ANY, L"[field=value]...", L"tell how many viewers there are", &RUNNER::Count},
            {L"deletions", 1, 3, L"answer [status=N] [count=N] | silent | wrong-size",
             L"how the query port answers who asks to delete all invitations; by default with those made",
             &RUNNER::Deletions},
            {L"disconnect", 1, ANY, L"NAME | all [field=value]...", L"a viewer leaves, or all do",
             &RUNNER::Disconnect},
            {L"drop", 1, ANY, L"NAME [event=NAME] | expect PATH... [within=MS] | off",
             L"have a drop window opened for a viewer; expect what is dropped on it; have it closed",
             &RUNNER::Drop},
            {L"drop-files", 1, ANY, L"PATH...", L"drag files onto the window last waited for",
             &RUNNER::DropFiles},
            {L"echo", 0, 1, L"[within=MS]", L"send the blocking-mode message and expect it back",
             &RUNNER::Echo},
            {L"effects", 1, 2, L"MASK [within=MS]", L"switch desktop effects off and expect the mask back",
             &RUNNER::Effects},
            {L"enter", 2, 2, L"CONTROL TEXT", L"put a text into a field of the window last waited for",
             &RUNNER::Enter},
            {L"exit", 0, 1, L"[within=MS]", L"ask the agent to end and expect the connection's end",
             &RUNNER::Exit},
            {L"expect", 1, ANY,
             L"[next] TYPE [field=value | field!=value]... [within=MS] | nothing [TYPE] | closed",
             L"wait for that message; what came before it and is not it stays for later", &RUNNER::Expect},
            {L"expect-exit", 1, 3, L"CODE [program=N] [within=MS]", L"wait for a started program's end",
             &RUNNER::ExpectExit},
            {L"file", 2, 3, L"PATH TEXT [within=MS]",
             L"wait until a file holds that text in UTF-16, and nothing else", &RUNNER::File},
            {L"forget", 0, 0, L"", L"drop the messages that nobody has expected", &RUNNER::Forget},
            {L"handshake", 0, ANY, L"[on | off] [field=value]...",
             L"what an agent that connects is sent first", &RUNNER::Handshake},
            {L"help", 0, 0, L"", L"list the commands", &RUNNER::Help},
            {L"invitations", 1, 3,
             L"make [text=TEXT | text=hex:BYTES | length=N] [told=N] | lose-text [...] | "
             L"refuse error=N [text=TEXT] | silent | wrong-size",
             L"how the query port answers who asks for an invitation; told is a wrong length to announce",
             &RUNNER::Invitations},
            {L"keys", 1, ANY, L"KEY...", L"press keys: A to Z, Escape, Enter, Tab, Up, Down", &RUNNER::Keys},
            {L"list", 0, ANY, L"[field=value]...", L"send the names of all viewers", &RUNNER::List},
            {L"listen", 0, 1, L"[PORT | off]", L"listen for agents; 0 takes any free port", &RUNNER::Listen},
            {L"lock-state", 0, 0, L"", L"say that the workstation may have been locked or unlocked",
             &RUNNER::LockState},
            {L"lookup", 0, 1, L"[PORT | off | silent]",
             L"answer port lookups, by default with the port listened on", &RUNNER::Lookup},
            {L"mark", 1, 1, L"NAME", L"print a mark, and with --marks wait for NAME.done", &RUNNER::Mark},
            {L"marker", 2, 2, L"local | oti on | off",
             L"mark a session for all programs; a local one is marked while anybody is connected",
             &RUNNER::Marker},
            {L"menu", 0, ANY, L"[KEY]... [within=MS]", L"open the menu of the agent's icon and press keys",
             &RUNNER::Menu},
            {L"permission", 0, ANY,
             L"[TEXT...] [ipv6=1] [field=value]... [within=MS] | "
             L"expect ANSWER [prompt=N] [user=NAME] [within=MS] | withdraw [prompt=N]",
             L"ask for permission and wait for the agent's prompt; its one answer; end it",
             &RUNNER::Permission},
            {L"played-session", 1, 1, L"locked | unlocked",
             L"tell agents that have the playing wtsapi32.dll beside them ($played is 1 then)",
             &RUNNER::PlayedSession},
            {L"press", 1, 1, L"CONTROL", L"press a button of the window last waited for", &RUNNER::Press},
            {L"quit", 0, 1, L"[CODE]", L"end the script", &RUNNER::Quit},
            {L"raw", 1, ANY, L"HEX...", L"send bytes as they are", &RUNNER::Raw},
            {L"reconfigure", 1, 2, L"on [TEXT] | off",
             L"the service is taking over new settings, or has done so", &RUNNER::Reconfigure},
            {L"reverse", 1, ANY, L"wait | close-wait | finished [field=value]...",
             L"how the connection stands that the agent has asked for, or how it has ended",
             &RUNNER::Reverse},
            {L"run", 1, ANY, L"PROGRAM [WORD]... [expect=CODE] [within=MS]",
             L"start a program and wait for its end", &RUNNER::RunProgram},
            {L"say", 1, ANY, L"TEXT...", L"put a line into the log", &RUNNER::Say},
            {L"send", 1, ANY, L"TYPE [field=value]... [payload=TEXT]", L"send a message, all else in it zero",
             &RUNNER::Send},
            {L"settings", 0, ANY, L"[update] [field=value]... [within=MS]",
             L"change the kept settings and send them; but for an update expect the desktop's user",
             &RUNNER::Settings},
            {L"start", 1, ANY, L"PROGRAM [WORD]...", L"start a program and go on", &RUNNER::StartProgram},
            {L"timer", 1, 2, L"ID [times=N]", L"let a timer of the window last waited for fire",
             &RUNNER::Timer},
            {L"wait", 1, 1, L"MS | forever", L"do nothing for a while", &RUNNER::Wait},
            {L"wallpaper", 1, 1, L"FILE",
             L"put a picture on the desktop, as its user would; \"\" takes it away", &RUNNER::Wallpaper},
            {L"window", 1, 4, L"TITLE [gone] [text=TEXT] [within=MS]",
             L"wait for a window whose title holds the text, and a control the other one, or for its end",
             &RUNNER::Window},
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
            {
                error = AtLine(statement.uLine, L"use: repeat N ... end");
            }
            if (nWords != 1 || !Check(statement.body, error))
            {
                return false;
            }
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
        {
            Fail(L"interrupted");
        }
        else if (RunStatement(statement))
        {
            if (m_bQuit)
            {
                return SCRIPT_RESULT::Quit;
            }
            continue;
        }
        // A statement inside a block has put its own line in front already.
        if (!m_bErrorHasLine)
        {
            m_error = AtLine(statement.uLine, m_error);
        }
        m_bErrorHasLine = true;
        return SCRIPT_RESULT::Failed;
    }
    return SCRIPT_RESULT::Done;
}

bool CScriptRunner::RunStatement(const SCRIPT_STATEMENT& statement)
{
    const std::wstring& name = statement.words.front().text;
    if (name == L"repeat")
    {
        return RunBlock(statement);
    }
    std::vector<SCRIPT_WORD> words;
    if (!Expand(WORDS(statement.words).subspan(1), words))
    {
        return false;
    }
    return (this->*SCRIPT_COMMANDS::Find(name)->pfnRun)(words) && HasNoPromptFault();
}

bool CScriptRunner::RunBlock(const SCRIPT_STATEMENT& statement)
{
    std::vector<SCRIPT_WORD> words;
    DWORD dwRounds = 0;
    if (!Expand(WORDS(statement.words).subspan(1), words) || !ReadNumber(words[0].text, dwRounds))
    {
        return false;
    }
    const unsigned int uOuterRound = m_uRound;
    for (m_uRound = 1; m_uRound <= dwRounds && !m_bQuit; ++m_uRound)
    {
        if (Run(statement.body) == SCRIPT_RESULT::Failed)
        {
            return false;
        }
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
    if (name == L"account")
    {
        return AccountName();
    }
    if (name == L"dir")
    {
        return m_settings.programFolder;
    }
    if (name == L"played")
    {
        return CPlayedSession::IsModuleIn(m_settings.programFolder) ? L"1" : L"0";
    }
    if (name == L"port")
    {
        return std::to_wstring(m_service.GetPort());
    }
    if (name == L"round")
    {
        return std::to_wstring(m_uRound);
    }
    if (name != L"session")
    {
        return std::nullopt;
    }
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
        {
            ++nEnd;
        }
        const std::wstring_view name = text.substr(n + 1, nEnd - n - 1);
        const std::optional<std::wstring> value = Variable(name);
        if (!value && text.substr(n, 2) != L"$$")
        {
            return Fail(L"unknown variable $" + std::wstring(name) +
                        L"; there are $account, $dir, $played, $port, $round, $session, and $$ for the sign");
        }
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
    {
        return Fail(L"not a number: " + QuotedText(text, text.size()));
    }
    dwValue = *value;
    return true;
}

bool CScriptRunner::ReadPort(std::wstring_view text, unsigned short& nPort)
{
    const std::optional<unsigned short> value = ParsePort(text);
    if (!value)
    {
        return Fail(L"not a port: " + QuotedText(text, text.size()));
    }
    nPort = *value;
    return true;
}

bool CScriptRunner::ReadMilliseconds(WORDS words, DWORD& dwMilliseconds)
{
    const SCRIPT_WORD* const pWithin = FindOption(words, WITHIN_OPTION);
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
    {
        return false;
    }
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
        {
            return false;
        }
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
    {
        return false;
    }
    MSG_VERSION version = {};
    memcpy(&version, bytes.data(), sizeof(version));
    m_service.SetHandshake(version);
    return true;
}

bool CScriptRunner::Agent(WORDS words)
{
    if (IsWord(words, 0, L"wait"))
    {
        return AgentWait(words.subspan(1));
    }
    if (IsWord(words, 0, L"all"))
    {
        m_target.reset();
        return true;
    }
    DWORD dwAgent = 0;
    if (!ReadNumber(words[0].text, dwAgent))
    {
        return false;
    }
    m_target = dwAgent;
    return true;
}

bool CScriptRunner::AgentWait(WORDS words)
{
    DWORD dwMilliseconds = ARRIVAL_TIMEOUT_MS;
    DWORD dwCount = 1;
    if (!ReadMilliseconds(words, dwMilliseconds))
    {
        return false;
    }
    if (!words.empty() && !words[0].IsAssignment() && !ReadNumber(words[0].text, dwCount))
    {
        return false;
    }
    if (m_service.WaitForReadyAgents(dwCount, dwMilliseconds) != WAIT_RESULT::Met)
    {
        return Fail(std::to_wstring(m_service.CountReadyAgents()) + L" of " + std::to_wstring(dwCount) +
                    L" agents have shaken hands within " + std::to_wstring(dwMilliseconds) + L" ms");
    }
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
        {
            text += L", session " + std::to_wstring(state.dwSessionId);
        }
        if (state.bFrameLost)
        {
            text += L", frame lost";
        }
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
        {
            agents.push_back(u);
        }
    }
    if (!agents.empty())
    {
        return true;
    }
    return Fail(m_target ? L"there is no agent " + std::to_wstring(*m_target) : L"no agent is connected");
}

bool CScriptRunner::ForEachTarget(const std::function<bool(unsigned int uAgent)>& step)
{
    std::vector<unsigned int> agents;
    return Targets(agents) && std::all_of(agents.begin(), agents.end(), step);
}

bool CScriptRunner::SendToTargets(std::span<const BYTE> bytes)
{
    return ForEachTarget([&](unsigned int uAgent) {
        return m_service.Send(uAgent, bytes) ||
               Fail(L"agent " + std::to_wstring(uAgent) + L" is gone or takes nothing");
    });
}

bool CScriptRunner::SetField(const MESSAGE_DESCRIPTION& message, const SCRIPT_WORD& word,
                             std::vector<BYTE>& record)
{
    if (!word.IsAssignment() || word.bNot)
    {
        return Fail(L"not a field=value: " + QuotedText(word.text, word.text.size()));
    }
    if (word.Name() != PAYLOAD_FIELD)
    {
        return SetRecordField(*message.pRecord, record, word.Name(), word.Value(), m_error);
    }
    if (message.dwType != MSG_TYPE_CHAT_MESSAGE)
    {
        return Fail(std::wstring(message.pszName) + L" has no payload");
    }
    const std::optional<std::vector<BYTE>> payload = ParsePayload(word.Value());
    if (!payload)
    {
        return Fail(L"payload=hex: takes hexadecimal bytes");
    }
    const DWORD dwLength = static_cast<DWORD>(payload->size());
    memcpy(record.data() + offsetof(MSG_CHAT_MESSAGE, dwMessageLength), &dwLength, sizeof(dwLength));
    record.insert(record.end(), payload->begin(), payload->end());
    return true;
}

bool CScriptRunner::BuildRecord(WORDS words, std::vector<BYTE>& record)
{
    const std::wstring& name = words[0].text;
    const MESSAGE_DESCRIPTION* const pMessage = FindMessageByName(name, MESSAGE_FROM_SERVICE);
    if (pMessage == nullptr)
    {
        return Fail(L"unknown message " + QuotedText(name, name.size()));
    }
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
    {
        digits += word.text + L' ';
    }
    const std::optional<std::vector<BYTE>> bytes = ParseHexBytes(digits);
    return bytes ? SendToTargets(*bytes) : Fail(L"raw takes hexadecimal bytes");
}

bool CScriptRunner::Forget(WORDS)
{
    std::vector<unsigned int> agents;
    if (!Targets(agents))
    {
        return false;
    }
    for (const unsigned int uAgent : agents)
    {
        m_service.ForgetPending(uAgent);
    }
    return true;
}

bool CScriptRunner::Wait(WORDS words)
{
    DWORD dwMilliseconds = INFINITE;
    if (!IsWord(words, 0, L"forever") && !ReadNumber(words[0].text, dwMilliseconds))
    {
        return false;
    }
    return m_service.Pause(dwMilliseconds) != WAIT_RESULT::Interrupted || Fail(L"interrupted");
}

bool CScriptRunner::Say(WORDS words)
{
    std::wstring text;
    for (const SCRIPT_WORD& word : words)
    {
        text += (text.empty() ? L"" : L" ") + word.text;
    }
    m_service.Note(text);
    return true;
}

bool CScriptRunner::Mark(WORDS words)
{
    const std::wstring& name = words[0].text;
    m_service.Note(L"[mark " + name + L"]");
    if (m_settings.marksFolder.empty())
    {
        return true;
    }
    const std::wstring done = m_settings.marksFolder + L"\\" + name + L".done";
    for (DWORD dwWaited = 0; dwWaited < MARK_TIMEOUT_MS; dwWaited += MARK_LOOK_MS)
    {
        if (GetFileAttributesW(done.c_str()) != INVALID_FILE_ATTRIBUTES)
        {
            return true;
        }
        if (m_service.Pause(MARK_LOOK_MS) == WAIT_RESULT::Interrupted)
        {
            return Fail(L"interrupted");
        }
    }
    return Fail(L"nobody made " + done);
}

bool CScriptRunner::Quit(WORDS words)
{
    DWORD dwCode = 0;
    if (!words.empty() && !ReadNumber(words[0].text, dwCode))
    {
        return false;
    }
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
