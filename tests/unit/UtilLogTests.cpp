#include "Include/UtilLog.h"

#include "Include/Handles.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const HANDLE FAKE_SOURCE = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x61230));

struct Event
{
    WORD wType;
    WORD wCategory;
    DWORD dwId;
    std::vector<std::wstring> strings;
};
std::vector<Event> g_events;
std::vector<std::wstring> g_registrations;
std::vector<DWORD> g_formatFlags;
std::vector<DWORD> g_formatLanguages;
std::vector<std::wstring> g_loads;
std::vector<DWORD> g_loadFlags;
std::vector<HANDLE> g_reportSources;
int g_nReleases = 0;

HANDLE WINAPI RecordRegister(const wchar_t* pszServer, const wchar_t* pszSource)
{
    EXPECT_EQ(pszServer, nullptr);
    g_registrations.emplace_back(pszSource);
    return FAKE_SOURCE;
}

BOOL WINAPI RecordReport(HANDLE hSource, WORD wType, WORD wCategory, DWORD dwId, PSID, WORD nStrings,
                         DWORD cbData, const wchar_t** ppszStrings, void*)
{
    EXPECT_EQ(cbData, 0u);
    g_reportSources.push_back(hSource);
    g_events.push_back({wType, wCategory, dwId, {ppszStrings, ppszStrings + nStrings}});
    SetLastError(4713);
    return FALSE;
}

DWORD WINAPI RecordFormat(DWORD dwFlags, const void*, DWORD, DWORD dwLanguage, wchar_t*, DWORD, va_list*)
{
    g_formatFlags.push_back(dwFlags);
    g_formatLanguages.push_back(dwLanguage);
    return 0;
}

DWORD WINAPI AnswerTwoLines(DWORD, const void*, DWORD, DWORD, wchar_t* pszAnswer, DWORD, va_list*)
{
    constexpr wchar_t szLines[] = L"one\r\ntwo\r\n";
    CLocalBlock hCopy(LocalAlloc(LMEM_FIXED, sizeof(szLines)));
    std::memcpy(hCopy.get(), szLines, sizeof(szLines));
    // The place of the buffer holds the address of a pointer to it, and the caller frees it.
    void* const pCopy = hCopy.release();
    std::memcpy(pszAnswer, &pCopy, sizeof(pCopy));
    return static_cast<DWORD>(std::size(szLines) - 1);
}

HMODULE WINAPI RecordLoad(const wchar_t* pszName, HANDLE, DWORD dwFlags)
{
    g_loads.emplace_back(pszName);
    g_loadFlags.push_back(dwFlags);
    return GetModuleHandleW(nullptr);
}

std::wstring ErrorText(DWORD dwCode, size_t cchText = 1024)
{
    std::wstring text(cchText, L'\0');
    FormatSystemError(text.data(), text.size(), dwCode);
    text.resize(text.find(L'\0'));
    return text;
}

class UtilLog : public testing::Test
{
  protected:
    UtilLog()
    {
        g_events.clear();
        g_registrations.clear();
        g_formatFlags.clear();
        g_formatLanguages.clear();
        g_loads.clear();
        g_loadFlags.clear();
        g_reportSources.clear();
        g_nReleases = 0;
    }

  private:
    ImportHook<decltype(RecordRegister)> m_register{"advapi32.dll", "RegisterEventSourceW", &RecordRegister};
    ImportHook<decltype(RecordReport)> m_report{"advapi32.dll", "ReportEventW", &RecordReport};
};

// In a process of its own, as the source is opened once in the life of a process.
using UtilLogDeathTest = UtilLog;
} // namespace

TEST_F(UtilLog, ErrorGoesToTheEventLogWithProductCodeAndText)
{
    const LogCapture capture("UtilLog");
    LogErrorMsg(L"Something failed.", 5);
    ASSERT_EQ(g_events.size(), 1u);
    EXPECT_EQ(g_events[0].wType, 1);
    EXPECT_EQ(g_events[0].wCategory, 0);
    EXPECT_EQ(g_events[0].dwId, 0u);
    EXPECT_THAT(g_events[0].strings,
                ElementsAre(L"\r\nTessaran Kestrel Desk Assist\r\nSystem Error: 5\r\nSomething failed."));
    EXPECT_THAT(capture.Texts(), ElementsAre("ERROR LogErrorMsg dwErr=5: Something failed."));
}

TEST_F(UtilLog, ErrorWithoutACodeTakesTheLastErrorEvenWhileLogging)
{
    const LogCapture capture("UtilLog");
    SetLastError(1060);
    LogErrorMsg(L"x", 0);
    ASSERT_EQ(g_events.size(), 1u);
    EXPECT_EQ(g_events[0].wType, 1);
    EXPECT_THAT(g_events[0].strings,
                ElementsAre(L"\r\nTessaran Kestrel Desk Assist\r\nSystem Error: 1060\r\nx"));
    EXPECT_THAT(capture.Texts(), ElementsAre("ERROR LogErrorMsg dwErr=0: x"));
}

TEST_F(UtilLog, ErrorWithNoCodeAtAllIsInformation)
{
    SetLastError(0);
    LogErrorMsg(L"x", 0);
    ASSERT_EQ(g_events.size(), 1u);
    EXPECT_EQ(g_events[0].wType, 4);
    EXPECT_THAT(g_events[0].strings,
                ElementsAre(L"\r\nTessaran Kestrel Desk Assist\r\nSystem Error: 0\r\nx"));
}

TEST_F(UtilLog, PendingOperationIsInformation)
{
    LogErrorMsg(L"x", 997);
    SetLastError(997);
    LogErrorMsg(L"x", 0);
    ASSERT_EQ(g_events.size(), 2u);
    for (const Event& event : g_events)
    {
        EXPECT_EQ(event.wType, 4);
        EXPECT_THAT(event.strings, ElementsAre(L"\r\nTessaran Kestrel Desk Assist\r\nSystem Error: 0\r\nx"));
    }
}

TEST_F(UtilLog, CodeIsWrittenSigned)
{
    LogErrorMsg(L"x", 0x80070005);
    EXPECT_THAT(g_events.at(0).strings, ElementsAre(testing::HasSubstr(L"System Error: -2147024891\r\n")));
}

TEST_F(UtilLog, LongErrorTextIsCutAtItsBuffer)
{
    LogErrorMsg(std::wstring(5000, L'x').c_str(), 5);
    EXPECT_EQ(g_events.at(0).strings.at(0).size(), 1299u);
}

TEST_F(UtilLog, MissingTextIsAnEmptyOne)
{
    LogErrorMsg(nullptr, 5);
    LogInformationMsg(nullptr);
    EXPECT_EQ(g_events.size(), 2u);
}

TEST_F(UtilLog, InformationGoesToTheEventLogWithProductAndText)
{
    const LogCapture capture("UtilLog");
    LogInformationMsg(L"Something happened.");
    ASSERT_EQ(g_events.size(), 1u);
    EXPECT_EQ(g_events[0].wType, 4);
    EXPECT_EQ(g_events[0].dwId, 0u);
    EXPECT_THAT(g_events[0].strings, ElementsAre(L"\r\nTessaran Kestrel Desk Assist\r\nSomething happened."));
    EXPECT_THAT(capture.Texts(), ElementsAre("INFO LogInformationMsgSomething happened."));
}

TEST_F(UtilLog, CallersKeepTheirLastError)
{
    SetLastError(4711);
    LogErrorMsg(L"x", 5);
    EXPECT_EQ(GetLastError(), 4711u);
    LogInformationMsg(L"x");
    EXPECT_EQ(GetLastError(), 4711u);
    ErrorText(0x7FFF0000);
    EXPECT_EQ(GetLastError(), 4711u);
}

TEST_F(UtilLog, EventCarriesUpToThreeStrings)
{
    ReportToEventLog(EVENTLOG_WARNING_TYPE, 7, L"a", L"b", L"c");
    ReportToEventLog(EVENTLOG_WARNING_TYPE, 7, L"a", L"b");
    ReportToEventLog(EVENTLOG_WARNING_TYPE, 7, nullptr);
    ASSERT_EQ(g_events.size(), 3u);
    EXPECT_EQ(g_events[0].wType, EVENTLOG_WARNING_TYPE);
    EXPECT_EQ(g_events[0].dwId, 7u);
    EXPECT_THAT(g_events[0].strings, ElementsAre(L"a", L"b", L"c"));
    EXPECT_THAT(g_events[1].strings, ElementsAre(L"a", L"b"));
    EXPECT_THAT(g_events[2].strings, IsEmpty());
}

TEST_F(UtilLogDeathTest, SourceIsOpenedAtFirstUseUnderTheServicesNameAndOnlyOnce)
{
    const auto reportTwice = [] {
        LogInformationMsg(L"x");
        LogInformationMsg(L"x");
        ExitProcess(g_registrations == std::vector<std::wstring>{L"tkkdas"} &&
                            g_reportSources == std::vector<HANDLE>(2, FAKE_SOURCE)
                        ? 7
                        : 1);
    };
    EXPECT_EXIT(reportTwice(), testing::ExitedWithCode(7), "");
}

TEST_F(UtilLogDeathTest, SourceThatCannotBeOpenedIsGivenUpSilently)
{
    const auto report = [] {
        const ImportHook hook(
            "advapi32.dll", "RegisterEventSourceW",
            +[](const wchar_t*, const wchar_t*) -> HANDLE { return nullptr; });
        LogErrorMsg(L"x", 5);
        ExitProcess(g_events.empty() ? 7 : 1);
    };
    EXPECT_EXIT(report(), testing::ExitedWithCode(7), "");
}

TEST_F(UtilLog, SystemErrorIsTheNumberAndTheSystemsWords)
{
    const std::wstring text = ErrorText(ERROR_ACCESS_DENIED);
    EXPECT_THAT(text, StartsWith(L"System Error: 5\r\nSystem Message: "));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr(L"Unknow")));
}

TEST_F(UtilLog, UnknownErrorIsToldByItsNumber)
{
    EXPECT_EQ(ErrorText(0x3FFF0001), L"System Error: 1073676289\r\nSystem Message: Unknow");
}

TEST_F(UtilLog, OnlyFacilityEightIsCutToItsWindowsCode)
{
    EXPECT_THAT(ErrorText(0x80080005), StartsWith(L"System Error: 5\r\n"));
    EXPECT_THAT(ErrorText(0x00080005), StartsWith(L"System Error: 5\r\n"));
    EXPECT_THAT(ErrorText(0x80070005), StartsWith(L"System Error: -2147024891\r\n"));
    EXPECT_THAT(ErrorText(0x80090005), StartsWith(L"System Error: -2146893819\r\n"));
}

TEST_F(UtilLog, SystemErrorIsTruncatedToTheBuffer)
{
    EXPECT_EQ(ErrorText(5, 11), L"System Err");
}

TEST_F(UtilLog, OnlyNetworkCodesAskTheNetworkMessages)
{
    const ImportHook load("kernel32.dll", "LoadLibraryExW", &RecordLoad);
    const ImportHook release(
        "kernel32.dll", "FreeLibrary", +[](HMODULE) -> BOOL { return ++g_nReleases; });
    const ImportHook format("kernel32.dll", "FormatMessageW", &RecordFormat);
    for (const DWORD dwCode : {2099, 3000, 3801, 3816})
    {
        ErrorText(dwCode);
    }
    EXPECT_THAT(g_loads, IsEmpty());
    EXPECT_THAT(g_formatFlags, testing::AllOf(testing::SizeIs(4), testing::Each(0x1300u)));
    g_formatFlags.clear();
    for (const DWORD dwCode : {2100, 2999, 3802, 3815})
    {
        ErrorText(dwCode);
    }
    EXPECT_THAT(g_loads, testing::AllOf(testing::SizeIs(4), testing::Each(L"netmsg.dll")));
    EXPECT_THAT(g_loadFlags, testing::Each(0x1002u));
    EXPECT_EQ(g_nReleases, 4);
    EXPECT_THAT(g_formatFlags, testing::AllOf(testing::SizeIs(4), testing::Each(0x1B00u)));
    EXPECT_THAT(g_formatLanguages, testing::Each(1024u));
}

TEST_F(UtilLog, MissingNetworkMessagesLeaveTheSystems)
{
    LateBinding binding;
    binding.SetMissingModule(L"netmsg.dll");
    const ImportHook format("kernel32.dll", "FormatMessageW", &RecordFormat);
    EXPECT_EQ(ErrorText(2100), L"System Error: 2100\r\nSystem Message: Unknow");
    EXPECT_THAT(g_formatFlags, ElementsAre(0x1300u));
}

TEST_F(UtilLog, ErrorTextIsOneLineWithTheNumberFirst)
{
    const std::wstring text = ComposeErrorText(ERROR_ACCESS_DENIED);
    EXPECT_THAT(text, StartsWith(L"Error: 5 - "));
    EXPECT_GT(text.size(), std::wstring_view(L"Error: 5 - ").size());
    EXPECT_EQ(text.find_first_of(L"\r\n"), std::wstring::npos);
}

TEST_F(UtilLog, EachLineEndInAnErrorTextBecomesABlank)
{
    const ImportHook format("kernel32.dll", "FormatMessageW", &AnswerTwoLines);
    EXPECT_EQ(ComposeErrorText(5), L"Error: 5 - one  two  ");
}

TEST_F(UtilLog, ErrorTextWithoutWordsIsTheNumberAlone)
{
    EXPECT_EQ(ComposeErrorText(0x3FFF0001), L"Error: 1073676289");
    EXPECT_EQ(ComposeErrorText(0xBFFF0001), L"Error: -1073807359");
}

TEST_F(UtilLog, ErrorTextOfFacilityEightIsThatOfItsWindowsCode)
{
    EXPECT_EQ(ComposeErrorText(0x80080005), ComposeErrorText(5));
    EXPECT_EQ(ComposeErrorText(0xE0080005), ComposeErrorText(5)) << "whatever the three highest bits say";
    EXPECT_THAT(ComposeErrorText(0x80070005), StartsWith(L"Error: -2147024891"));
}

TEST_F(UtilLog, ErrorTextKeepsTheLastError)
{
    SetLastError(4711);
    ComposeErrorText(0x3FFF0001);
    EXPECT_EQ(GetLastError(), 4711u);
}

TEST_F(UtilLogDeathTest, NetworkMessagesForAnErrorTextAreLoadedOnceAndStay)
{
    const auto ask = [] {
        const ImportHook load("kernel32.dll", "LoadLibraryExW", &RecordLoad);
        const ImportHook release(
            "kernel32.dll", "FreeLibrary", +[](HMODULE) -> BOOL { ExitProcess(2); });
        const ImportHook format("kernel32.dll", "FormatMessageW", &RecordFormat);
        for (const DWORD dwCode : {2099, 3000, 3802, 3815})
        {
            ComposeErrorText(dwCode);
        }
        const bool bOthersAskTheSystem = g_loads.empty() && g_formatFlags == std::vector<DWORD>(4, 0x1300);
        g_formatFlags.clear();
        for (const DWORD dwCode : {2100, 2999})
        {
            ComposeErrorText(dwCode);
        }
        const bool bAsked = g_loads == std::vector<std::wstring>{L"netmsg.dll"} &&
                            g_loadFlags == std::vector<DWORD>{0x1002} &&
                            g_formatFlags == std::vector<DWORD>(2, 0x1B00) &&
                            g_formatLanguages == std::vector<DWORD>(6, 1024);
        ExitProcess(bOthersAskTheSystem && bAsked ? 7 : 1);
    };
    EXPECT_EXIT(ask(), testing::ExitedWithCode(7), "");
}

TEST_F(UtilLog, MissingNetworkMessagesLeaveTheSystemsForAnErrorText)
{
    LateBinding binding;
    binding.SetMissingModule(L"netmsg.dll");
    const ImportHook format("kernel32.dll", "FormatMessageW", &RecordFormat);
    EXPECT_EQ(ComposeErrorText(2100), L"Error: 2100");
    EXPECT_THAT(g_formatFlags, ElementsAre(0x1300u));
}
