#include "modules/settings/SettingsText.h"

#include "Include/Handles.h"
#include "Include/Placeholders.h"
#include "modules/common/ModuleLanguage.h"
#include "modules/settings/SettingsResource.h"

#include <algorithm>

namespace
{
constexpr wchar_t LINE_END[] = L"\r\n";
constexpr wchar_t BULLET[] = L"\x2022 ";
constexpr LANGID LANGUAGE_OF_USER = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);

UINT NameOf(SETTING setting)
{
    switch (setting)
    {
    case SETTING::PORT:
        return IDS_SETTINGS_NAME_PORT;
    case SETTING::TRAY_ICON:
        return IDS_SETTINGS_NAME_ICON;
    case SETTING::LANGUAGE:
        return IDS_SETTINGS_NAME_LANGUAGE;
    case SETTING::PERMISSION:
        return IDS_SETTINGS_NAME_PERMISSION;
    }
    return 0;
}

// Without the line end that the system closes its messages with.
std::wstring SystemWords(LSTATUS nError, LANGID language)
{
    CLocalText pszMessage;
    // With ALLOCATE_BUFFER the function takes the address of a pointer in the place of the buffer.
    FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
        static_cast<DWORD>(nError), language, reinterpret_cast<wchar_t*>(pszMessage.put()), 0, nullptr);
    std::wstring words(pszMessage ? pszMessage.get() : L"");
    words.erase(words.find_last_not_of(L" \r\n") + 1);
    return words;
}
} // namespace

UINT ChooseNote(bool bApplicationMode, bool bCanStore)
{
    if (bApplicationMode)
    {
        return bCanStore ? IDS_SETTINGS_NOTE_USER : IDS_SETTINGS_NOTE_USER_NO_RIGHTS;
    }
    return bCanStore ? IDS_SETTINGS_NOTE_EVERYBODY : IDS_SETTINGS_NOTE_NO_RIGHTS;
}

UINT ChoosePortComplaint(PORT_FAULT fault)
{
    switch (fault)
    {
    case PORT_FAULT::NONE:
        return 0;
    case PORT_FAULT::EMPTY:
        return IDS_SETTINGS_PORT_EMPTY;
    case PORT_FAULT::NO_NUMBER:
        return IDS_SETTINGS_PORT_NO_NUMBER;
    case PORT_FAULT::OUT_OF_RANGE:
        return IDS_SETTINGS_PORT_OUT_OF_RANGE;
    }
    return 0;
}

std::wstring ComposeSystemError(HMODULE hModule, LANGID language, LSTATUS nError)
{
    std::wstring words = SystemWords(nError, language);
    if (words.empty())
    {
        words = SystemWords(nError, LANGUAGE_OF_USER);
    }
    return !words.empty() ? words
                          : FillPlaceholders(LoadModuleText(hModule, IDS_SETTINGS_ERROR_CODE, language),
                                             {std::to_wstring(nError)});
}

std::wstring ComposeStoreReport(HMODULE hModule, LANGID language, bool bApplicationMode,
                                const std::vector<STORE_FAILURE>& failures, bool bOthersStored)
{
    std::wstring report = LoadModuleText(hModule, IDS_SETTINGS_NOT_STORED, language) + LINE_END;
    for (const STORE_FAILURE& failure : failures)
    {
        report.append(LINE_END).append(BULLET).append(
            FillPlaceholders(LoadModuleText(hModule, IDS_SETTINGS_FAILURE, language),
                             {LoadModuleText(hModule, NameOf(failure.setting), language),
                              ComposeSystemError(hModule, language, failure.nError)}));
    }
    const UINT uRest = bOthersStored ? IDS_SETTINGS_REST_STORED : IDS_SETTINGS_NONE_STORED;
    report.append(LINE_END).append(LINE_END).append(LoadModuleText(hModule, uRest, language));
    const bool bRightsMissing =
        std::any_of(failures.begin(), failures.end(), [bApplicationMode](const STORE_FAILURE& failure) {
            return failure.nError == ERROR_ACCESS_DENIED &&
                   RootOfSetting(failure.setting, bApplicationMode) == HKEY_LOCAL_MACHINE;
        });
    if (bRightsMissing)
    {
        report.append(L" ").append(LoadModuleText(hModule, IDS_SETTINGS_ASK_ADMINISTRATOR, language));
    }
    return report;
}
