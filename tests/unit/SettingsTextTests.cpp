#include "modules/settings/SettingsText.h"
#include "modules/common/ModuleLanguage.h"
#include "modules/settings/SettingsResource.h"
#include "tests/support/ImportHook.h"
#include "tests/support/SettingsModule.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace
{
constexpr LANGID LANGUAGES[] = {MODULE_ENGLISH, MODULE_FRENCH, MODULE_GERMAN};
constexpr LSTATUS NO_SUCH_ERROR = 0x1FFFFFFF;

// What only one language has words for.
DWORD WINAPI AnswerInUsersLanguage(DWORD, LPCVOID, DWORD, DWORD dwLanguage, LPWSTR pszBuffer, DWORD, va_list*)
{
    if (dwLanguage != MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT))
    {
        return 0;
    }
    auto* const pszMessage = static_cast<wchar_t*>(LocalAlloc(LPTR, sizeof(L"Nein.\r\n")));
    lstrcpyW(pszMessage, L"Nein.\r\n");
    *reinterpret_cast<wchar_t**>(pszBuffer) = pszMessage;
    return 7;
}

class SettingsText : public testing::Test
{
  protected:
    std::wstring Report(const std::vector<STORE_FAILURE>& failures, bool bOthersStored,
                        LANGID language = MODULE_ENGLISH) const
    {
        return ComposeStoreReport(m_module.Handle(), language, false, failures, bOthersStored);
    }
    std::wstring Text(UINT uString, LANGID language = MODULE_ENGLISH) const
    {
        return LoadModuleText(m_module.Handle(), uString, language);
    }

    const LoadedSettingsModule m_module;
};

TEST_F(SettingsText, HasANoteOfItsOwnForEachCase)
{
    std::set<std::wstring> notes;
    for (const bool bApplicationMode : {false, true})
    {
        for (const bool bCanStore : {false, true})
        {
            notes.insert(Text(ChooseNote(bApplicationMode, bCanStore)));
        }
    }
    EXPECT_EQ(notes.size(), 4u);
    EXPECT_NE(Text(ChooseNote(false, false)).find(L"without administrator rights"), std::wstring::npos);
    EXPECT_NE(Text(ChooseNote(true, false)).find(L"without administrator rights"), std::wstring::npos);
    EXPECT_EQ(Text(ChooseNote(false, true)).find(L"administrator"), std::wstring::npos);
    EXPECT_EQ(Text(ChooseNote(true, true)).find(L"administrator"), std::wstring::npos);
}

TEST_F(SettingsText, HasAComplaintOfItsOwnForEachFaultOfAPort)
{
    EXPECT_EQ(ChoosePortComplaint(PORT_FAULT::NONE), 0u);
    std::set<std::wstring> complaints;
    for (const PORT_FAULT fault : {PORT_FAULT::EMPTY, PORT_FAULT::NO_NUMBER, PORT_FAULT::OUT_OF_RANGE})
    {
        complaints.insert(Text(ChoosePortComplaint(fault)));
    }
    EXPECT_EQ(complaints.size(), 3u);
    EXPECT_FALSE(complaints.contains(L""));
}

TEST_F(SettingsText, TellsAnErrorInOneLine)
{
    for (const LANGID language : LANGUAGES)
    {
        const std::wstring words = ComposeSystemError(m_module.Handle(), language, ERROR_ACCESS_DENIED);
        ASSERT_NE(words, L"");
        EXPECT_EQ(words.find_first_of(L"\r\n"), std::wstring::npos);
        EXPECT_NE(words.back(), L' ');
    }
}

TEST_F(SettingsText, TellsTheNumberOfAnErrorThatTheSystemDoesNotKnow)
{
    EXPECT_EQ(ComposeSystemError(m_module.Handle(), MODULE_ENGLISH, NO_SUCH_ERROR), L"Error 536870911");
    EXPECT_EQ(ComposeSystemError(m_module.Handle(), MODULE_FRENCH, NO_SUCH_ERROR), L"Erreur 536870911");
    EXPECT_EQ(ComposeSystemError(m_module.Handle(), MODULE_GERMAN, NO_SUCH_ERROR), L"Fehler 536870911");
}

TEST_F(SettingsText, TellsAnErrorInTheUsersLanguageWhereWindowsLacksTheOther)
{
    const ImportHook hook("kernel32.dll", "FormatMessageW", &AnswerInUsersLanguage);
    EXPECT_EQ(ComposeSystemError(m_module.Handle(), MODULE_FRENCH, ERROR_ACCESS_DENIED), L"Nein.");
}

TEST_F(SettingsText, ReportsEachFailureWithItsReason)
{
    const std::wstring report =
        Report({{SETTING::PORT, ERROR_ACCESS_DENIED}, {SETTING::LANGUAGE, NO_SUCH_ERROR}}, false);
    const std::wstring denied = ComposeSystemError(m_module.Handle(), MODULE_ENGLISH, ERROR_ACCESS_DENIED);
    EXPECT_EQ(report, L"These changes could not be stored:\r\n\r\n\x2022 Port of the service: " + denied +
                          L"\r\n\x2022 Language: Error 536870911\r\n\r\nNothing has been stored. " +
                          Text(IDS_SETTINGS_ASK_ADMINISTRATOR));
}

TEST_F(SettingsText, ReportsWhatElseWasStoredAndAsksForRightsOnlyWhereTheyAreMissing)
{
    for (const LANGID language : LANGUAGES)
    {
        const std::wstring report = Report({{SETTING::TRAY_ICON, NO_SUCH_ERROR}}, true, language);
        EXPECT_NE(report.find(Text(IDS_SETTINGS_NAME_ICON, language)), std::wstring::npos);
        EXPECT_TRUE(report.ends_with(Text(IDS_SETTINGS_REST_STORED, language)));
    }
    EXPECT_NE(
        Report({{SETTING::PERMISSION, ERROR_ACCESS_DENIED}}, true).find(L"Asking before somebody connects: "),
        std::wstring::npos);
}

TEST_F(SettingsText, AsksForNoRightsWhereTheUsersOwnRegistryRefuses)
{
    const std::vector<STORE_FAILURE> failures = {{SETTING::LANGUAGE, ERROR_ACCESS_DENIED}};
    const std::wstring ask = Text(IDS_SETTINGS_ASK_ADMINISTRATOR);
    EXPECT_TRUE(Report(failures, false).ends_with(ask));
    EXPECT_TRUE(ComposeStoreReport(m_module.Handle(), MODULE_ENGLISH, true, failures, false)
                    .ends_with(Text(IDS_SETTINGS_NONE_STORED)));
}

TEST_F(SettingsText, IsThereInEveryLanguageWithItsPlaceHolders)
{
    const auto countPlaceHolders = [](const std::wstring& text) {
        size_t nCount = 0;
        for (size_t nAt = text.find(L"%s"); nAt != std::wstring::npos; nAt = text.find(L"%s", nAt + 1))
        {
            ++nCount;
        }
        return nCount;
    };
    for (UINT uString = IDS_SETTINGS_NOTE_EVERYBODY; uString <= IDS_SETTINGS_ASK_ADMINISTRATOR; ++uString)
    {
        const std::wstring english = Text(uString);
        EXPECT_NE(english, L"") << uString;
        EXPECT_EQ(Text(uString, MODULE_FRENCH) == english, false)
            << uString; // which a missing one would give
        EXPECT_EQ(Text(uString, MODULE_GERMAN) == english, uString == IDS_SETTINGS_FAILURE) << uString;
        for (const LANGID language : {MODULE_FRENCH, MODULE_GERMAN})
        {
            EXPECT_EQ(countPlaceHolders(Text(uString, language)), countPlaceHolders(english)) << uString;
        }
    }
}
} // namespace
