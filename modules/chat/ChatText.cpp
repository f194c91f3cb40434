#include "modules/chat/ChatText.h"

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <iterator>

namespace
{
constexpr wchar_t ELLIPSIS = L'\x2026';
constexpr wchar_t BROKEN = L'\xFFFD';
constexpr wchar_t LINE_SEPARATOR = L'\x2028';
constexpr wchar_t PARAGRAPH_SEPARATOR = L'\x2029';
constexpr wchar_t ISOLATE_BEGIN = L'\x2068'; // the text's first letter decides its direction
constexpr wchar_t ISOLATE_END = L'\x2069';
constexpr wchar_t INDENT[] = L"    ";
constexpr wchar_t NOTICE_MARK[] = L"\x2014 ";

struct CHARACTER_RANGE
{
    wchar_t chFirst;
    wchar_t chLast;
};

// Embeddings, overrides and isolates: a text that leaves one open would take its neighbours along.
constexpr CHARACTER_RANGE DIRECTION_CONTROLS[] = {{L'\x202A', L'\x202E'}, {L'\x2066', L'\x2069'}};

// Letters and marks that are written from right to left, the last two by the first halves of their pairs.
constexpr CHARACTER_RANGE RIGHT_TO_LEFT[] = {{L'\x0590', L'\x08FF'}, {L'\x200F', L'\x200F'},
                                             {L'\xFB1D', L'\xFDFF'}, {L'\xFE70', L'\xFEFF'},
                                             {L'\xD802', L'\xD803'}, {L'\xD83A', L'\xD83B'}};

template <size_t N>
bool IsIn(const CHARACTER_RANGE (&ranges)[N], wchar_t ch)
{
    return std::any_of(std::begin(ranges), std::end(ranges), [ch](const CHARACTER_RANGE& range) {
        return ch >= range.chFirst && ch <= range.chLast;
    });
}

bool IsControl(wchar_t ch)
{
    return ch < L' ' || (ch >= L'\x7F' && ch <= L'\x9F');
}

bool IsLineEnd(wchar_t ch)
{
    return ch == L'\n' || ch == L'\r' || ch == LINE_SEPARATOR || ch == PARAGRAPH_SEPARATOR;
}

bool IsBlank(wchar_t ch)
{
    return ch == L' ' || ch == L'\t' || ch == L'\x00A0' || IsLineEnd(ch);
}

// A half of a pair whose other half is missing, or a code that is no character.
bool IsBroken(std::wstring_view text, size_t nAt)
{
    if (IS_LOW_SURROGATE(text[nAt]))
    {
        return nAt == 0 || !IS_HIGH_SURROGATE(text[nAt - 1]);
    }
    if (IS_HIGH_SURROGATE(text[nAt]))
    {
        return nAt + 1 == text.size() || !IS_LOW_SURROGATE(text[nAt + 1]);
    }
    return text[nAt] >= L'\xFFFE';
}

// At most cchMost characters, the ellipsis that tells of a cut included; no pair is cut in two.
std::wstring CutText(std::wstring_view text, size_t cchMost)
{
    if (text.size() <= cchMost)
    {
        return std::wstring(text);
    }
    std::wstring cut(text.substr(0, cchMost - 1));
    if (IS_HIGH_SURROGATE(cut.back()))
    {
        cut.pop_back();
    }
    return cut + ELLIPSIS;
}

wchar_t CleanCharacter(std::wstring_view text, size_t nAt)
{
    if (IsLineEnd(text[nAt]))
    {
        return L'\n';
    }
    const bool bHarmless = text[nAt] == L'\t' || !IsControl(text[nAt]);
    return bHarmless && !IsBroken(text, nAt) ? text[nAt] : BROKEN;
}

bool IsSecondOfLineEnd(std::wstring_view text, size_t nAt)
{
    return nAt != 0 && text[nAt] == L'\n' && text[nAt - 1] == L'\r';
}
} // namespace

std::wstring CleanChatName(std::wstring_view name)
{
    std::wstring clean;
    for (size_t nAt = 0; nAt < name.size(); ++nAt)
    {
        if (IsIn(DIRECTION_CONTROLS, name[nAt]))
        {
            continue;
        }
        const bool bBlank = IsControl(name[nAt]) || IsLineEnd(name[nAt]);
        clean += bBlank ? L' ' : CleanCharacter(name, nAt);
    }
    const size_t nFirst = clean.find_first_not_of(L' ');
    if (nFirst == std::wstring::npos)
    {
        return std::wstring();
    }
    clean.erase(clean.find_last_not_of(L' ') + 1);
    return CutText(std::wstring_view(clean).substr(nFirst), MAX_SHOWN_NAME);
}

std::wstring CleanChatText(std::wstring_view text)
{
    std::wstring clean;
    clean.reserve(std::min(text.size(), MAX_CHAT_TEXT + 1));
    // One more than may stay, so that the cut shows.
    for (size_t nAt = 0; nAt < text.size() && clean.size() <= MAX_CHAT_TEXT; ++nAt)
    {
        if (!IsSecondOfLineEnd(text, nAt) && !IsIn(DIRECTION_CONTROLS, text[nAt]))
        {
            clean += CleanCharacter(text, nAt);
        }
    }
    clean = CutText(clean, MAX_CHAT_TEXT);
    clean.erase(clean.find_last_not_of(L'\n') + 1);
    return clean;
}

std::wstring ComposeChatLine(std::wstring_view time, std::wstring_view name, std::wstring_view text)
{
    std::wstring line(time);
    line.append(L" ").append(IsolateText(name)).append(L": ");
    size_t nEnd = text.find(L'\n');
    line += IsolateText(text.substr(0, nEnd));
    while (nEnd != std::wstring_view::npos)
    {
        text.remove_prefix(nEnd + 1);
        nEnd = text.find(L'\n');
        line.append(CHAT_LINE_END).append(INDENT).append(IsolateText(text.substr(0, nEnd)));
    }
    return line;
}

std::wstring ComposeNoticeLine(std::wstring_view time, std::wstring_view notice)
{
    return std::wstring(time).append(L" ").append(NOTICE_MARK).append(notice);
}

std::wstring_view NameOfNotice(std::wstring_view notice, bool bConnected, size_t cchField)
{
    std::wstring_view word = bConnected ? L" connected" : L" disconnected";
    if (notice.size() + 1 >= cchField)
    {
        while (!notice.ends_with(word))
        {
            word.remove_suffix(1);
        }
    }
    else if (!notice.ends_with(word))
    {
        return notice;
    }
    return notice.substr(0, notice.size() - word.size());
}

std::wstring IsolateText(std::wstring_view text)
{
    const bool bTurns =
        std::any_of(text.begin(), text.end(), [](wchar_t ch) { return IsIn(RIGHT_TO_LEFT, ch); });
    return bTurns ? std::wstring(1, ISOLATE_BEGIN).append(text).append(1, ISOLATE_END) : std::wstring(text);
}

bool IsWorthSending(std::wstring_view text)
{
    return !std::all_of(text.begin(), text.end(), IsBlank);
}

wchar_t AccessKeyOf(std::wstring_view label)
{
    for (size_t nAt = label.find(L'&'); nAt != std::wstring_view::npos && nAt + 1 < label.size();
         nAt = label.find(L'&', nAt + 2))
    {
        if (label[nAt + 1] != L'&')
        {
            wchar_t chKey = label[nAt + 1];
            CharUpperBuffW(&chKey, 1);
            return chKey;
        }
    }
    return L'\0';
}
