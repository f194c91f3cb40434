#include "fuzz/FuzzTarget.h"

#include "Include/LangUI.h"
#include "Include/UtilRegistry.h"
#include "dialogs/ConnectToClientDialog.h"
#include "dialogs/CreateInvitationDialog.h"
#include "fuzz/PlayedRegistry.h"
#include "fuzz/PlayedSystem.h"
#include "fuzz/RecordMutator.h"
#include "modules/settings/SettingsStore.h"
#include "resources/resource.h"

#include <cstring>
#include <cwchar>
#include <string>

namespace
{
constexpr std::uint32_t MOST_QUESTIONS = 16; // of one round
constexpr size_t LONGEST_TEXT = 4200;        // characters
constexpr size_t STORED_STRING = 1024;       // characters that a profile gives at most

// Without an edit control: what the system's own makes of noise isn't the product's.
HWND StandInBox()
{
    static const HWND s_hBox =
        CreateWindowExW(0, L"COMBOBOX", L"", WS_POPUP | CBS_DROPDOWNLIST | CBS_HASSTRINGS, 0, 0, 100, 100,
                        nullptr, nullptr, nullptr, nullptr);
    return s_hBox;
}

std::vector<BYTE> BytesOf(const void* p, size_t cb)
{
    const auto* const pBytes = static_cast<const BYTE*>(p);
    return {pBytes, pBytes + cb};
}

// With or without a terminator, and sometimes with half a character at the end.
std::vector<BYTE> MakeStoredText(CChoices& choices)
{
    const std::wstring text = MakeBadText(choices, LONGEST_TEXT);
    size_t cb = (text.size() + choices.Below(2)) * sizeof(wchar_t);
    if (choices.OneIn(8) && cb > 0)
    {
        --cb;
    }
    return BytesOf(text.c_str(), cb);
}

std::optional<PLAYED_VALUE> MakeValue(CChoices& choices)
{
    PLAYED_VALUE value;
    switch (choices.Below(8))
    {
    case 1: {
        const std::uint32_t nNumber = choices.Number();
        value = {REG_DWORD, BytesOf(&nNumber, sizeof(nNumber))};
        break;
    }
    case 2:
        value = {REG_DWORD, MakeBadBytes(choices, 2 * sizeof(DWORD))};
        break;
    case 3:
        value = {choices.Below(12), MakeStoredText(choices)};
        break;
    case 4:
        value = {choices.Below(12), MakeBadBytes(choices, LONGEST_TEXT)};
        break;
    case 5:
        return std::nullopt;
    default:
        value = {REG_SZ, MakeStoredText(choices)};
        break;
    }
    return value;
}

// What only a profile with the right key answers.
void PlayProfile(CChoices& choices)
{
    CProfileReg profile(L"Tessaran Development", L"Kestrel Desk Assist Service");
    profile.GetProfileInt(L"Settings", L"Port", 0);
    Expect(wcsnlen(profile.GetProfileString(L"Settings", L"LangUI", L"en"), STORED_STRING + 1) <=
               STORED_STRING,
           "a stored text has an end");
    const std::wstring text = MakeBadText(choices, LONGEST_TEXT);
    profile.WriteProfileString(L"Settings", L"LangUI", text.c_str());
    DWORD cb = choices.Below(64);
    const GuardedBytes bytes(cb);
    profile.GetProfileBinary(L"Settings", L"Blob", bytes.Get(), &cb);
}

void PlayQuestion(CChoices& choices)
{
    const HWND hBox = StandInBox();
    switch (choices.Below(7))
    {
    case 1:
        choices.Step("host list");
        LoadHostList(hBox, hBox);
        SaveHostList(hBox, MakeBadText(choices, LONGEST_TEXT).c_str(), choices.Number());
        break;
    case 2:
        choices.Step("proxy list");
        LoadProxyList(hBox, hBox);
        SaveProxyList(hBox, hBox, MakeBadText(choices, LONGEST_TEXT).c_str(), choices.Number());
        break;
    case 3:
        choices.Step("proxy list of invitations");
        LoadInvitationProxyList(hBox, hBox);
        break;
    case 4:
        choices.Step("settings dialog");
        ReadSettings(choices.Below(2) != 0);
        break;
    case 5:
        choices.Step("profile");
        PlayProfile(choices);
        break;
    default:
        choices.Step("service's settings");
        GetServicePort(NO_FALLBACK_PORT);
        GetPermissionRequired();
        GetTrayIconMode();
        break;
    }
}
} // namespace

size_t FuzzRegistry(CChoices& choices)
{
    StandInBox();
    CPlayedSystem system(choices);
    const CPlayedRegistry registry([&](const wchar_t*) { return MakeValue(choices); });
    const std::uint32_t nQuestions = 1 + choices.Below(MOST_QUESTIONS);
    for (std::uint32_t nQuestion = 0; nQuestion < nQuestions; ++nQuestion)
    {
        SendMessageW(StandInBox(), CB_RESETCONTENT, 0, 0);
        PlayQuestion(choices);
    }
    return nQuestions;
}
