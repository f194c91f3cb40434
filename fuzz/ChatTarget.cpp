#include "fuzz/FuzzTarget.h"

#include "channel/TrayMessageTable.h"
#include "fuzz/RecordMutator.h"
#include "modules/chat/ChatPayload.h"
#include "modules/chat/ChatPeople.h"
#include "modules/chat/ChatText.h"
#include "tray/TrayWindowMessages.h"

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <string>

namespace
{
constexpr std::uint32_t MOST_MESSAGES = 32;           // of one round
constexpr size_t LARGEST_PAYLOAD = 3 * MAX_CHAT_TEXT; // bytes
constexpr size_t LARGEST_PLAIN_PAYLOAD = 2000;        // bytes of most messages
constexpr wchar_t LAST_CONTROL = L'\x1F';
constexpr wchar_t DELETE_CONTROL = L'\x7F';
constexpr wchar_t TIME[] = L"12:34";

bool IsHarmless(wchar_t c)
{
    return (c > LAST_CONTROL && c != DELETE_CONTROL) || c == L'\n' || c == L'\t';
}

bool IsInOrder(std::wstring_view text)
{
    for (size_t n = 0; n < text.size(); ++n)
    {
        const bool bPair = IS_HIGH_SURROGATE(text[n]) && n + 1 < text.size() && IS_LOW_SURROGATE(text[n + 1]);
        if (!bPair && (IS_HIGH_SURROGATE(text[n]) || IS_LOW_SURROGATE(text[n])))
        {
            return false;
        }
        n += bPair ? 1 : 0;
    }
    return true;
}

// A line that isn't a message's first begins with a blank.
bool IsOneMessage(const std::wstring& lines)
{
    for (size_t nEnd = lines.find(L'\n'); nEnd != std::wstring::npos && nEnd + 1 < lines.size();
         nEnd = lines.find(L'\n', nEnd + 1))
    {
        if (lines[nEnd + 1] != L' ')
        {
            return false;
        }
    }
    return true;
}

std::vector<BYTE> MakeMessage(CChoices& choices)
{
    std::vector<BYTE> record = MakeBadRecord(choices, *FindRecordDescription(L"MSG_CHAT_MESSAGE"));
    std::vector<BYTE> payload;
    if (choices.Below(4) == 1)
    {
        payload = MakeBadBytes(choices, choices.OneIn(64) ? LARGEST_PAYLOAD : LARGEST_PLAIN_PAYLOAD);
    }
    else
    {
        const std::wstring text = MakeBadText(
            choices, (choices.OneIn(64) ? LARGEST_PAYLOAD : LARGEST_PLAIN_PAYLOAD) / sizeof(wchar_t));
        const auto* const pBytes = reinterpret_cast<const BYTE*>(text.data());
        payload.assign(pBytes, pBytes + text.size() * sizeof(wchar_t));
    }
    const DWORD dwLength = static_cast<DWORD>(payload.size());
    std::memcpy(record.data() + offsetof(MSG_CHAT_MESSAGE, dwMessageLength), &dwLength, sizeof(dwLength));
    record.insert(record.end(), payload.begin(), payload.end());
    return record;
}

void PlayPeople(CChoices& choices, CChatPeople& people, const std::wstring& name)
{
    switch (choices.Below(3))
    {
    case 0:
        people.Heard(name);
        break;
    case 1:
        people.Add(name, choices.Number());
        break;
    default:
        people.Remove(name, choices.Number());
        break;
    }
    people.Names();
    people.IsNobody();
}

void PlayMessage(const MSG_CHAT_MESSAGE& message, CChoices& choices, CChatPeople& people)
{
    const std::wstring name = CleanChatName(ChatSender(message));
    Expect(name.size() <= MAX_SHOWN_NAME && IsInOrder(name), "a name has its limit");
    Expect(std::all_of(name.begin(), name.end(),
                       [](wchar_t c) { return IsHarmless(c) && c != L'\n' && c != L'\t'; }),
           "a name is in one line");
    const std::wstring text = CleanChatText(ReadChatText(message));
    Expect(text.size() <= MAX_CHAT_TEXT && IsInOrder(text), "a text has its limit");
    Expect(std::all_of(text.begin(), text.end(), IsHarmless), "a text is harmless");
    Expect(IsOneMessage(ComposeChatLine(TIME, name, text)), "a message passes for one");
    IsWorthSending(text);
    Expect(AccessKeyOf(text) == L'\0' || text.find(L'&') != std::wstring::npos, "a key has its mark");
    NameOfNotice(FixedText(message.szUsername), choices.Below(2) != 0, std::size(message.szUsername));
    PlayPeople(choices, people, name);
    const std::vector<char> record = MakeChatRecord(ChatSender(message), text);
    const GuardedBytes guarded(record.size());
    std::memcpy(guarded.Get(), record.data(), record.size());
    Expect(ReadChatText(*reinterpret_cast<const MSG_CHAT_MESSAGE*>(guarded.Get())) == text,
           "what is sent is what is read");
}
} // namespace

size_t FuzzChat(CChoices& choices)
{
    static const CGuardedMemory s_memory(sizeof(MSG_CHAT_MESSAGE) + LARGEST_PAYLOAD);
    CChatPeople people;
    const std::uint32_t nMessages = 1 + choices.Below(MOST_MESSAGES);
    for (std::uint32_t nMessage = 0; nMessage < nMessages; ++nMessage)
    {
        choices.Step("message");
        const std::vector<BYTE> message = MakeMessage(choices);
        BYTE* const pMessage = s_memory.Tail(message.size() + message.size() % sizeof(wchar_t));
        std::copy(message.begin(), message.end(), pMessage);
        PlayMessage(*reinterpret_cast<const MSG_CHAT_MESSAGE*>(pMessage), choices, people);
    }
    return nMessages;
}
