// The command that asks the person at the desktop for permission.

#include "Include/BoundedText.h"
#include "devservice/RecordText.h"
#include "devservice/ScriptRunner.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

#include <algorithm>

namespace
{
constexpr DWORD ARRIVAL_TIMEOUT_MS = 20000;
constexpr DWORD ANSWER_TIMEOUT_MS = 5000;
// How long nothing more must come behind an answer.
constexpr DWORD SILENCE_MS = 200;
constexpr std::wstring_view IPV6_OPTION = L"ipv6";
constexpr std::wstring_view PROMPT_OPTION = L"prompt";
constexpr std::wstring_view USER_OPTION = L"user";
constexpr std::wstring_view ANSWER_FIELD = L"dwAnswer";
constexpr std::wstring_view TEXT_FIELD = L"szPrompt";

std::wstring PromptName(unsigned int uPrompt)
{
    return L"prompt " + std::to_wstring(uPrompt);
}

bool IsAsked(const PROMPT_STATE& state)
{
    return state.stage != PROMPT_STAGE::Named;
}

bool IsAnswered(const PROMPT_STATE& state)
{
    return state.stage == PROMPT_STAGE::Answered;
}

bool IsFaulty(const PROMPT_STATE& state)
{
    return !state.fault.empty();
}

std::wstring PlainWords(std::span<const SCRIPT_WORD> words)
{
    std::wstring text;
    for (const SCRIPT_WORD& word : words)
    {
        if (!word.IsAssignment())
        {
            text += (text.empty() ? L"" : L" ") + word.text;
        }
    }
    return text;
}
} // namespace

struct CScriptRunner::QUESTION
{
    MSG_PERMISSION_PROMPT record = {};
    int nAfType = AF_INET;
    DWORD dwMilliseconds = ARRIVAL_TIMEOUT_MS;
};

struct CScriptRunner::EXPECTED_ANSWER
{
    DWORD dwAnswer = 0;
    std::optional<std::wstring> user; // else any, as long as there is one
};

bool CScriptRunner::Permission(WORDS words)
{
    if (IsWord(words, 0, L"withdraw"))
    {
        return WithdrawPermission(words.subspan(1));
    }
    if (IsWord(words, 0, L"expect"))
    {
        return ExpectPermission(words.subspan(1));
    }
    return AskPermission(words);
}

bool CScriptRunner::AskPermission(WORDS words)
{
    QUESTION question;
    std::vector<unsigned int> prompts;
    if (!ReadQuestion(words, question) ||
        !ForEachTarget([&](unsigned int uAgent) { return OpenPrompt(uAgent, question, prompts); }))
    {
        return false;
    }
    return std::all_of(prompts.begin(), prompts.end(), [&](unsigned int uPrompt) {
        return m_service.Prompts().WaitFor(uPrompt, IsAsked, question.dwMilliseconds) ||
               FailWaiting(L"no agent has opened " + PromptName(uPrompt), question.dwMilliseconds);
    });
}

bool CScriptRunner::ReadQuestion(WORDS words, QUESTION& question)
{
    std::optional<DWORD> ipv6;
    if (!ReadMilliseconds(words, question.dwMilliseconds) || !ReadOption(words, IPV6_OPTION, ipv6))
    {
        return false;
    }
    question.nAfType = ipv6.value_or(0) != 0 ? AF_INET6 : AF_INET;
    question.record.dwType = MSG_TYPE_PERMISSION_PROMPT;
    const RECORD_DESCRIPTION& description = *FindRecordDescription(L"MSG_PERMISSION_PROMPT");
    const std::span<BYTE> image(reinterpret_cast<BYTE*>(&question.record), sizeof(question.record));
    if (!SetRecordField(description, image, TEXT_FIELD, PlainWords(words), m_error))
    {
        return false;
    }
    return std::all_of(words.begin(), words.end(), [&](const SCRIPT_WORD& word) {
        if (!word.IsAssignment() || IsOption(word, IPV6_OPTION) || IsOption(word, WITHIN_OPTION))
        {
            return true;
        }
        if (word.bNot)
        {
            return Fail(L"not a field=value: " + QuotedText(word.text, word.text.size()));
        }
        return SetRecordField(description, image, word.Name(), word.Value(), m_error);
    });
}

bool CScriptRunner::OpenPrompt(unsigned int uAgent, const QUESTION& question,
                               std::vector<unsigned int>& prompts)
{
    const unsigned int uPrompt = m_service.Prompts().Open(question.record, question.nAfType);
    if (uPrompt == 0)
    {
        return Fail(SystemErrorText(L"cannot open a port for a prompt", GetLastError()));
    }
    const MSG_TRAYICON_PERMISSION message = {MSG_TYPE_TRAYICON_PERMISSION,
                                             m_service.Prompts().GetPort(uPrompt),
                                             static_cast<DWORD>(question.nAfType)};
    prompts.push_back(uPrompt);
    m_service.NoteAgent(uAgent, L"is asked for permission by " + PromptName(uPrompt));
    return m_service.Send(uAgent, {reinterpret_cast<const BYTE*>(&message), sizeof(message)}) ||
           Fail(L"agent " + std::to_wstring(uAgent) + L" is gone or takes nothing");
}

// The prompt that the words name, or the last one.
bool CScriptRunner::ReadPrompt(WORDS words, unsigned int& uPrompt)
{
    const unsigned int uLast = m_service.Prompts().Count();
    std::optional<DWORD> prompt;
    if (!ReadOption(words, PROMPT_OPTION, prompt))
    {
        return false;
    }
    if (uLast == 0)
    {
        return Fail(L"nobody has been asked for permission");
    }
    uPrompt = prompt.value_or(uLast);
    return (uPrompt != 0 && uPrompt <= uLast) || Fail(L"there is no " + PromptName(uPrompt));
}

bool CScriptRunner::WithdrawPermission(WORDS words)
{
    unsigned int uPrompt = 0;
    if (!HasOnly(words, {PROMPT_OPTION}) || !ReadPrompt(words, uPrompt))
    {
        return false;
    }
    if (m_service.Prompts().Withdraw(uPrompt))
    {
        return true;
    }
    const bool bAnswered =
        m_service.Prompts().Get(uPrompt).value_or(PROMPT_STATE()).stage == PROMPT_STAGE::Answered;
    return Fail(PromptName(uPrompt) + (bAnswered ? L" has been answered" : L" has not been opened"));
}

bool CScriptRunner::ReadExpectedAnswer(WORDS words, EXPECTED_ANSWER& expected)
{
    const std::wstring name = words.empty() || words[0].IsAssignment() ? L"" : words[0].text;
    const std::optional<DWORD> answer = FindNamedValue(ANSWER_FIELD, name);
    if (!answer)
    {
        return Fail(L"unknown answer " + QuotedText(name, name.size()) + L"; there are " +
                    ValueNames(ANSWER_FIELD));
    }
    expected.dwAnswer = *answer;
    if (const SCRIPT_WORD* const pUser = FindOption(words, USER_OPTION))
    {
        expected.user = pUser->Value();
    }
    return HasOnly(words.subspan(1), {PROMPT_OPTION, USER_OPTION, WITHIN_OPTION});
}

bool CScriptRunner::ExpectPermission(WORDS words)
{
    EXPECTED_ANSWER expected;
    unsigned int uPrompt = 0;
    DWORD dwMilliseconds = ANSWER_TIMEOUT_MS;
    if (!ReadExpectedAnswer(words, expected) || !ReadPrompt(words, uPrompt) ||
        !ReadMilliseconds(words, dwMilliseconds))
    {
        return false;
    }
    if (!m_service.Prompts().WaitFor(uPrompt, IsAnswered, dwMilliseconds))
    {
        return FailWaiting(PromptName(uPrompt) + L" was not answered", dwMilliseconds);
    }
    // A second answer would come close behind the first.
    m_service.Prompts().WaitFor(uPrompt, IsFaulty, SILENCE_MS);
    return HasNoPromptFault() &&
           CheckAnswer(uPrompt, m_service.Prompts().Get(uPrompt).value_or(PROMPT_STATE()).answer, expected);
}

bool CScriptRunner::CheckAnswer(unsigned int uPrompt, const MSG_PERMISSION_PROMPT& answer,
                                const EXPECTED_ANSWER& expected)
{
    const std::wstring_view user = FixedText(answer.szUsername);
    if (answer.dwAnswer != expected.dwAnswer)
    {
        return Fail(PromptName(uPrompt) + L" was to be answered " +
                    FormatDword(ANSWER_FIELD, expected.dwAnswer) + L", not " +
                    FormatDword(ANSWER_FIELD, answer.dwAnswer));
    }
    if (user.empty())
    {
        return Fail(PromptName(uPrompt) + L" was answered without a user's name");
    }
    return !expected.user || user == *expected.user ||
           Fail(PromptName(uPrompt) + L" was to be answered by " +
                QuotedText(*expected.user, expected.user->size()) + L", not by " +
                QuotedText(user, user.size()));
}

// A prompt that breaks the protocol fails the script at whichever statement it happens to be.
bool CScriptRunner::HasNoPromptFault()
{
    const std::wstring fault = m_service.Prompts().TakeFault();
    return fault.empty() || Fail(fault);
}

bool CScriptRunner::FailWaiting(std::wstring_view what, DWORD dwMilliseconds)
{
    return Fail(m_service.IsInterrupted()
                    ? L"interrupted"
                    : std::wstring(what) + L" within " + std::to_wstring(dwMilliseconds) + L" ms");
}
