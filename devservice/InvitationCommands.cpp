// The commands that say how the query port answers requests for invitations.

#include "devservice/RecordText.h"
#include "devservice/ScriptRunner.h"
#include "devservice/ValueText.h"

#include <algorithm>
#include <initializer_list>

namespace
{
constexpr DWORD DEFAULT_LENGTH = 400;   // bytes
constexpr DWORD LARGEST_LENGTH = 65507; // bytes: no datagram holds more
constexpr std::wstring_view TEXT_OPTION = L"text";
constexpr std::wstring_view LENGTH_OPTION = L"length";
constexpr std::wstring_view TOLD_OPTION = L"told";
constexpr std::wstring_view ERROR_OPTION = L"error";
constexpr std::wstring_view STATUS_OPTION = L"status";
constexpr std::wstring_view COUNT_OPTION = L"count";
constexpr std::wstring_view HEX_PREFIX = L"hex:";

// Letters and digits in lines of 64, as such texts look that are made to be passed on.
std::vector<BYTE> MadeUpText(size_t cbText)
{
    constexpr std::string_view LETTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::string_view LINE_END = "\r\n";
    std::vector<BYTE> text(cbText);
    for (size_t n = 0; n < cbText; ++n)
    {
        const size_t nColumn = n % (LETTERS.size() + LINE_END.size());
        text[n] = static_cast<BYTE>(nColumn < LETTERS.size() ? LETTERS[nColumn * 7 % LETTERS.size()]
                                                             : LINE_END[nColumn - LETTERS.size()]);
    }
    return text;
}

// Bytes behind hex:, else the text in the ANSI code page.
std::optional<std::vector<BYTE>> WireText(std::wstring_view value)
{
    if (value.starts_with(HEX_PREFIX))
    {
        return ParseHexBytes(value.substr(HEX_PREFIX.size()));
    }
    const int cchText = static_cast<int>(value.size());
    const int cbText = WideCharToMultiByte(CP_ACP, 0, value.data(), cchText, nullptr, 0, nullptr, nullptr);
    std::vector<BYTE> text(static_cast<size_t>(cbText));
    WideCharToMultiByte(CP_ACP, 0, value.data(), cchText, reinterpret_cast<char*>(text.data()), cbText,
                        nullptr, nullptr);
    return text;
}
} // namespace

// True when all words are options of those names.
bool CScriptRunner::HasOnly(WORDS words, std::initializer_list<std::wstring_view> names)
{
    return std::all_of(words.begin(), words.end(), [&](const SCRIPT_WORD& word) {
        return std::any_of(names.begin(), names.end(),
                           [&word](std::wstring_view name) { return IsOption(word, name); }) ||
               Fail(L"not an option here: " + QuotedText(word.text, word.text.size()));
    });
}

bool CScriptRunner::ReadOption(WORDS words, std::wstring_view name, std::optional<DWORD>& value)
{
    const SCRIPT_WORD* const pWord = FindOption(words, name);
    DWORD dwValue = 0;
    if (pWord == nullptr)
    {
        return true;
    }
    if (!ReadNumber(pWord->Value(), dwValue))
    {
        return false;
    }
    value = dwValue;
    return true;
}

bool CScriptRunner::ReadQuietMode(WORDS words, ANSWER_MODE& mode)
{
    if (IsWord(words, 0, L"silent"))
    {
        mode = ANSWER_MODE::Silent;
    }
    else if (IsWord(words, 0, L"wrong-size"))
    {
        mode = ANSWER_MODE::WrongSize;
    }
    else
    {
        return Fail(L"unknown answer " + QuotedText(words[0].text, words[0].text.size()));
    }
    return HasOnly(words.subspan(1), {});
}

bool CScriptRunner::ReadInvitation(WORDS words, INVITATION_ANSWER& answer)
{
    std::optional<DWORD> length;
    if (!HasOnly(words, {TEXT_OPTION, LENGTH_OPTION, TOLD_OPTION}) ||
        !ReadOption(words, LENGTH_OPTION, length) || !ReadOption(words, TOLD_OPTION, answer.claimedLength))
    {
        return false;
    }
    const SCRIPT_WORD* const pText = FindOption(words, TEXT_OPTION);
    if (pText != nullptr && length)
    {
        return Fail(L"text= and length= don't go together");
    }
    const std::optional<std::vector<BYTE>> text =
        pText != nullptr ? WireText(pText->Value())
                         : MadeUpText(std::min(length.value_or(DEFAULT_LENGTH), LARGEST_LENGTH + 1));
    if (!text)
    {
        return Fail(L"text=hex: takes hexadecimal bytes");
    }
    if (text->size() > LARGEST_LENGTH)
    {
        return Fail(L"no datagram holds more than " + std::to_wstring(LARGEST_LENGTH) + L" bytes");
    }
    answer.text = *text;
    return true;
}

bool CScriptRunner::ReadRefusal(WORDS words, INVITATION_ANSWER& answer)
{
    std::optional<DWORD> error;
    if (!HasOnly(words, {ERROR_OPTION, TEXT_OPTION}) || !ReadOption(words, ERROR_OPTION, error))
    {
        return false;
    }
    if (!error || *error == 0)
    {
        return Fail(L"a refusal needs error=N, and not 0");
    }
    answer.dwError = *error;
    if (const SCRIPT_WORD* const pText = FindOption(words, TEXT_OPTION))
    {
        answer.error = pText->Value();
    }
    return true;
}

bool CScriptRunner::Invitations(WORDS words)
{
    INVITATION_ANSWER answer;
    answer.mode = ANSWER_MODE::Answer;
    answer.bTextFollows = !IsWord(words, 0, L"lose-text");
    const bool bMade = IsWord(words, 0, L"make") || !answer.bTextFollows;
    const bool bRead = bMade                         ? ReadInvitation(words.subspan(1), answer)
                       : IsWord(words, 0, L"refuse") ? ReadRefusal(words.subspan(1), answer)
                                                     : ReadQuietMode(words, answer.mode);
    if (bRead)
    {
        m_service.SetInvitationAnswer(std::move(answer));
    }
    return bRead;
}

bool CScriptRunner::Deletions(WORDS words)
{
    DELETION_ANSWER answer;
    answer.mode = ANSWER_MODE::Answer;
    if (!IsWord(words, 0, L"answer"))
    {
        if (!ReadQuietMode(words, answer.mode))
        {
            return false;
        }
    }
    else
    {
        const WORDS options = words.subspan(1);
        std::optional<DWORD> status;
        if (!HasOnly(options, {STATUS_OPTION, COUNT_OPTION}) || !ReadOption(options, STATUS_OPTION, status) ||
            !ReadOption(options, COUNT_OPTION, answer.count))
        {
            return false;
        }
        answer.dwStatus = status.value_or(0);
    }
    m_service.SetDeletionAnswer(answer);
    return true;
}
