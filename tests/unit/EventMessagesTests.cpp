#include "Include/Handles.h"
#include "Include/UtilLog.h"
#include "tests/support/ImportHook.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace
{
struct Entry
{
    DWORD dwId;
    std::vector<std::wstring> strings;
};
std::vector<Entry> g_entries;

BOOL WINAPI KeepEntry(HANDLE, WORD, WORD, DWORD dwId, PSID, WORD nStrings, DWORD, const wchar_t** ppszStrings,
                      void*)
{
    g_entries.push_back({dwId, {ppszStrings, ppszStrings + nStrings}});
    return TRUE;
}

// What the event viewer makes of an entry. It asks for no language in particular.
std::wstring ShownText(HMODULE hModule, const Entry& entry, DWORD dwLanguage)
{
    std::vector<DWORD_PTR> inserts;
    for (const std::wstring& text : entry.strings)
    {
        inserts.push_back(reinterpret_cast<DWORD_PTR>(text.c_str()));
    }
    std::wstring shown(4096, L'\0');
    shown.resize(FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, hModule,
                                entry.dwId, dwLanguage, shown.data(), static_cast<DWORD>(shown.size()),
                                reinterpret_cast<va_list*>(inserts.data())));
    return shown;
}

class EventMessages : public testing::Test
{
  protected:
    EventMessages() { g_entries.clear(); }

    CModule m_hModule{LoadLibraryExW((std::filesystem::path(TKDAST_STAGE_DIR) / L"TKDASTEvents.dll").c_str(),
                                     nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE)};

  private:
    ImportHook<decltype(KeepEntry)> m_report{"advapi32.dll", "ReportEventW", &KeepEntry};
};
} // namespace

TEST_F(EventMessages, EveryEntryOfTheAgentIsShownAsItWasWritten)
{
    LogErrorMsg(L"100 % failed: %1 %n", ERROR_ACCESS_DENIED);
    LogErrorMsg(L"pending", ERROR_IO_PENDING);
    LogInformationMsg(L"Grüße");
    ASSERT_TRUE(m_hModule);
    ASSERT_EQ(g_entries.size(), 3u);
    for (const Entry& entry : g_entries)
    {
        ASSERT_EQ(entry.strings.size(), 1u);
        EXPECT_EQ(ShownText(m_hModule.get(), entry, 0), entry.strings[0] + L"\r\n");
    }
}

TEST_F(EventMessages, TextBelongsToNoLanguage)
{
    LogInformationMsg(L"x");
    ASSERT_EQ(g_entries.size(), 1u);
    EXPECT_FALSE(ShownText(m_hModule.get(), g_entries[0], MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL)).empty());
    std::vector<WORD> languages;
    EnumResourceLanguagesW(
        m_hModule.get(), RT_MESSAGETABLE, MAKEINTRESOURCEW(1),
        +[](HMODULE, const wchar_t*, const wchar_t*, WORD wLanguage, LONG_PTR lLanguages) -> BOOL {
            reinterpret_cast<std::vector<WORD>*>(lLanguages)->push_back(wLanguage);
            return TRUE;
        },
        reinterpret_cast<LONG_PTR>(&languages));
    EXPECT_EQ(languages, std::vector<WORD>{0});
}
