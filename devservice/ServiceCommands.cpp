// The commands that say what happens to a session, where send says what goes over the wire.

#include "devservice/RecordText.h"
#include "devservice/ScriptRunner.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace
{
struct SHORT_NAME
{
    std::wstring_view name;
    std::wstring_view field;
};

constexpr SHORT_NAME s_aConnectNames[] = {
    {L"type", L"dwConnectionType"},
    {L"detail1", L"szClientDetail1"},
    {L"detail2", L"szClientDetail2"},
    {L"list", L"bListClients"},
};

struct REVERSE_NAME
{
    std::wstring_view name;
    REVERSE_CODE code;
};

constexpr REVERSE_NAME s_aReverseNames[] = {
    {L"wait", REVERSE_CODE_SHOW_WAIT},
    {L"close-wait", REVERSE_CODE_CLOSE_WAIT},
    {L"finished", REVERSE_CODE_FINISHED},
};

SCRIPT_WORD WithFullName(SCRIPT_WORD word)
{
    const auto found = std::find_if(std::begin(s_aConnectNames), std::end(s_aConnectNames),
                                    [&word](const SHORT_NAME& known) { return IsOption(word, known.name); });
    return found == std::end(s_aConnectNames) ? word : MakeAssignment(found->field, word.Value());
}

std::vector<SCRIPT_WORD> MakeMessage(std::wstring_view type, std::initializer_list<SCRIPT_WORD> fields = {})
{
    std::vector<SCRIPT_WORD> words = {SCRIPT_WORD{std::wstring(type)}};
    words.insert(words.end(), fields);
    return words;
}
} // namespace

// Writes the words' fields into a record of that type.
RECORD_EDIT CScriptRunner::FieldEdit(DWORD dwType, WORDS words)
{
    const MESSAGE_DESCRIPTION* const pMessage = FindMessageDescription(dwType, MESSAGE_FROM_SERVICE);
    return [this, pMessage, words](std::vector<BYTE>& record) {
        return std::all_of(words.begin(), words.end(),
                           [&](const SCRIPT_WORD& word) { return SetField(*pMessage, word, record); });
    };
}

bool CScriptRunner::ReadSwitch(WORDS words, size_t nIndex, bool& bOn)
{
    bOn = IsWord(words, nIndex, L"on");
    const std::wstring& text = words[nIndex].text;
    return bOn || IsWord(words, nIndex, L"off") || Fail(L"not on or off: " + QuotedText(text, text.size()));
}

bool CScriptRunner::Connect(WORDS words)
{
    if (words[0].IsAssignment())
    {
        return Fail(L"connect needs a name first, not " + words[0].text);
    }
    std::vector<SCRIPT_WORD> fields = {MakeAssignment(L"szClientName", words[0].text)};
    std::transform(words.begin() + 1, words.end(), std::back_inserter(fields), WithFullName);
    const RECORD_EDIT edit = FieldEdit(MSG_TYPE_TRAYICON_CONNECT_NOTIFY, fields);
    return ForEachTarget([&](unsigned int uAgent) { return m_keeper.Connect(uAgent, edit, m_error); });
}

bool CScriptRunner::Disconnect(WORDS words)
{
    const std::wstring& name = words[0].text;
    const RECORD_EDIT edit = FieldEdit(MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY, words.subspan(1));
    if (IsWord(words, 0, L"all"))
    {
        return ForEachTarget(
            [&](unsigned int uAgent) { return m_keeper.DisconnectAll(uAgent, edit, m_error); });
    }
    return ForEachTarget(
        [&](unsigned int uAgent) { return m_keeper.Disconnect(uAgent, name, edit, m_error); });
}

bool CScriptRunner::Count(WORDS words)
{
    const RECORD_EDIT edit = FieldEdit(MSG_TYPE_TRAYICON_CONNECT_COUNT, words);
    return ForEachTarget([&](unsigned int uAgent) { return m_keeper.SendCount(uAgent, edit, m_error); });
}

bool CScriptRunner::List(WORDS words)
{
    const RECORD_EDIT edit = FieldEdit(MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL, words);
    return ForEachTarget([&](unsigned int uAgent) { return m_keeper.SendList(uAgent, edit, m_error); });
}

bool CScriptRunner::Settings(WORDS words)
{
    const bool bUpdate = IsWord(words, 0, L"update");
    std::vector<SCRIPT_WORD> fields(words.begin() + (bUpdate ? 1 : 0), words.end());
    std::vector<SCRIPT_WORD> expected = MakeMessage(L"DESKTOP_USER_INFORMATION");
    // An update has no answer to wait for.
    if (const SCRIPT_WORD* const pWithin = bUpdate ? nullptr : FindOption(words, WITHIN_OPTION))
    {
        expected.push_back(*pWithin);
        std::erase_if(fields, [](const SCRIPT_WORD& word) { return IsOption(word, WITHIN_OPTION); });
    }
    const RECORD_EDIT edit = FieldEdit(MSG_TYPE_TRAYICON_SETTINGS, fields);
    return ForEachTarget(
               [&](unsigned int uAgent) { return m_keeper.SendSettings(uAgent, bUpdate, edit, m_error); }) &&
           (bUpdate || Expect(expected));
}

bool CScriptRunner::Addresses(WORDS words)
{
    const RECORD_EDIT edit = FieldEdit(MSG_TYPE_TRAYICON_IP_ADDRESSES, words);
    return ForEachTarget([&](unsigned int uAgent) { return m_keeper.SendAddresses(uAgent, edit, m_error); });
}

bool CScriptRunner::Answers(WORDS words)
{
    bool bOn = false;
    if (!ReadSwitch(words, 0, bOn))
    {
        return false;
    }
    m_keeper.SetAnswers(bOn);
    return true;
}

bool CScriptRunner::Marker(WORDS words)
{
    const bool bOti = IsWord(words, 0, L"oti");
    bool bOn = false;
    if (!bOti && !IsWord(words, 0, L"local"))
    {
        return Fail(L"not local or oti: " + QuotedText(words[0].text, words[0].text.size()));
    }
    if (!ReadSwitch(words, 1, bOn))
    {
        return false;
    }
    m_keeper.SetMarker(bOti, bOn);
    return true;
}

bool CScriptRunner::Reconfigure(WORDS words)
{
    bool bOn = false;
    if (!ReadSwitch(words, 0, bOn))
    {
        return false;
    }
    if (!bOn)
    {
        return words.size() == 1 ? Send(MakeMessage(L"SERVER_RECONFIGURE"))
                                 : Fail(L"reconfigure off takes no text");
    }
    const std::wstring text = words.size() > 1 ? words[1].text : std::wstring();
    return Send(MakeMessage(L"SERVER_RECONFIGURE",
                            {MakeAssignment(L"bReconfiguring", L"1"), MakeAssignment(L"szMessage", text)}));
}

bool CScriptRunner::Effects(WORDS words)
{
    const SCRIPT_WORD mask = MakeAssignment(L"dwDesktopEffects", words[0].text);
    std::vector<SCRIPT_WORD> expected = MakeMessage(L"DESKTOP_EFFECTS_ACK", {mask});
    expected.insert(expected.end(), words.begin() + 1, words.end());
    return Send(MakeMessage(L"DESKTOP_EFFECTS", {mask})) && Expect(expected);
}

bool CScriptRunner::LockState(WORDS)
{
    return Send(MakeMessage(L"POSIBLE_LOCK_STATE_CHANGE"));
}

bool CScriptRunner::Reverse(WORDS words)
{
    const auto found =
        std::find_if(std::begin(s_aReverseNames), std::end(s_aReverseNames),
                     [words](const REVERSE_NAME& known) { return IsWord(words, 0, known.name); });
    if (found == std::end(s_aReverseNames))
    {
        return Fail(L"not wait, close-wait or finished: " + QuotedText(words[0].text, words[0].text.size()));
    }
    const RECORD_EDIT edit = FieldEdit(MSG_TYPE_REVERSE_CONNECTION, words.subspan(1));
    return ForEachTarget(
        [&](unsigned int uAgent) { return m_keeper.SendReverse(uAgent, found->code, edit, m_error); });
}

bool CScriptRunner::ChatOpen(WORDS words)
{
    return Send(MakeMessage(L"CHAT_OPEN", {MakeAssignment(L"szUsername", words[0].text)}));
}

bool CScriptRunner::Chat(WORDS words)
{
    return Send(MakeMessage(L"CHAT_MESSAGE", {MakeAssignment(L"szUsername", words[0].text),
                                              MakeAssignment(PAYLOAD_FIELD, words[1].text)}));
}

bool CScriptRunner::ChatClose(WORDS)
{
    return Send(MakeMessage(L"CHAT_CLOSE"));
}

bool CScriptRunner::Exit(WORDS words)
{
    std::vector<SCRIPT_WORD> expected = MakeMessage(L"closed");
    expected.insert(expected.end(), words.begin(), words.end());
    return Send(MakeMessage(L"EXIT")) && Expect(expected);
}

bool CScriptRunner::PlayedSession(WORDS words)
{
    const bool bLocked = IsWord(words, 0, L"locked");
    if (!bLocked && !IsWord(words, 0, L"unlocked"))
    {
        return Fail(L"not locked or unlocked: " + QuotedText(words[0].text, words[0].text.size()));
    }
    // Noted first: the agents' reports may be there before the call returns.
    m_service.Note(bLocked ? L"the session is played: locked" : L"the session is played: unlocked");
    return m_playedSession.SetLocked(bLocked) ||
           Fail(SystemErrorText(L"cannot play the session", GetLastError()));
}

// Into the user's profile, too, which is where the agent takes it from when it puts it back.
bool CScriptRunner::Wallpaper(WORDS words)
{
    std::wstring file = words[0].text;
    return SystemParametersInfoW(SPI_SETDESKWALLPAPER, 0, file.data(),
                                 SPIF_UPDATEINIFILE | SPIF_SENDCHANGE) != FALSE ||
           Fail(SystemErrorText(L"cannot show " + file, GetLastError()));
}
