#include "Include/PeerCollabBinding.h"

#include "tests/support/AgentFolder.h"
#include "tests/support/ImportHook.h"
#include "tests/support/SharedRecord.h"
#include "tests/support/peermodule/PeerTrace.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;

const HRESULT ALREADY_EXISTS = static_cast<HRESULT>(0x800700B7);
const HANDLE FAKE_SOURCE = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x71230));

struct Event
{
    WORD wType;
    std::wstring text;
};
std::vector<Event> g_events;
std::vector<DWORD> g_codesAsked;

HANDLE WINAPI PlaySource(const wchar_t*, const wchar_t*)
{
    return FAKE_SOURCE;
}

BOOL WINAPI RecordEvent(HANDLE, WORD wType, WORD, DWORD, PSID, WORD, DWORD, const wchar_t** ppszStrings,
                        void*)
{
    g_events.push_back({wType, ppszStrings[0]});
    return TRUE;
}

std::wstring EventText(const std::wstring& code, const std::wstring& text)
{
    return L"\r\nTessaran Kestrel Desk Assist\r\nSystem Error: " + code + L"\r\n" + text;
}

DWORD WINAPI RecordFormat(DWORD dwFlags, const void*, DWORD dwCode, DWORD, wchar_t*, DWORD, va_list*)
{
    EXPECT_EQ(dwFlags & (FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_FROM_HMODULE),
              static_cast<DWORD>(FORMAT_MESSAGE_FROM_SYSTEM));
    g_codesAsked.push_back(dwCode);
    return 1;
}

DWORD WINAPI HideProgramFile(HMODULE, wchar_t*, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
}

class PeerCollabTest : public testing::Test
{
  public:
    ~PeerCollabTest() override
    {
        HideModule();
        EXPECT_EQ(m_trace->nLoaded, 0) << "the module was left loaded";
    }

  protected:
    PeerCollabTest()
    {
        g_events.clear();
        g_codesAsked.clear();
    }

    // Lets the system find the module that lacks this entry.
    void OfferModule(const std::wstring& missing = L"nothing")
    {
        HideModule();
        m_pOffered = AddDllDirectory((TestProgramFolder() / L"testmodules" / (L"peer-" + missing)).c_str());
        ASSERT_NE(m_pOffered, nullptr);
    }

    void HideModule()
    {
        if (m_pOffered != nullptr)
        {
            RemoveDllDirectory(m_pOffered);
        }
        m_pOffered = nullptr;
    }

    // What the module has been asked for since the last look.
    std::vector<std::string> Calls()
    {
        std::vector<std::string> calls(m_trace->aszCalls, m_trace->aszCalls + m_trace->nCalls);
        m_trace->nCalls = 0;
        return calls;
    }

    SharedRecord<PEER_TRACE> m_trace{PEER_TRACE_NAME, PEER_TRACE()};

  private:
    DLL_DIRECTORY_COOKIE m_pOffered = nullptr;
    LogCapture m_quiet{"UtilLog"};
    ImportHook<decltype(PlaySource)> m_source{"advapi32.dll", "RegisterEventSourceW", &PlaySource};
    ImportHook<decltype(RecordEvent)> m_report{"advapi32.dll", "ReportEventW", &RecordEvent};
};

void ExpectFailureEvent(const std::wstring& code)
{
    ASSERT_EQ(g_events.size(), 1U);
    EXPECT_EQ(g_events[0].wType, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(g_events[0].text,
              EventText(code, L"Failed to register application, likely already registered"));
}

std::wstring ErrorText(DWORD dwCode)
{
    wchar_t szText[MAX_PATH] = {};
    EXPECT_EQ(GetPeerErrorText(static_cast<HRESULT>(dwCode), MAX_PATH, szText), S_OK);
    return szText;
}

std::wstring SystemText(DWORD dwCode)
{
    wchar_t szText[MAX_PATH] = {};
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, dwCode, 0, szText,
                   MAX_PATH, nullptr);
    return szText;
}
} // namespace

TEST_F(PeerCollabTest, WithoutTheModuleNothingIsBoundAndNothingHappens)
{
    CPeerCollabBinding binding;
    SetLastError(0);
    EXPECT_FALSE(binding.Load());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    SetLastError(0);
    EXPECT_FALSE(binding.Register(true));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    binding.Unload();
    EXPECT_THAT(g_events, IsEmpty());
}

TEST_F(PeerCollabTest, TheModuleIsLoadedAtOnceAndOnlyOnce)
{
    OfferModule();
    CPeerCollabBinding binding;
    EXPECT_EQ(m_trace->nLoaded, 1);
    EXPECT_TRUE(binding.Load());
    EXPECT_TRUE(binding.Load());
    binding.Unload();
    EXPECT_EQ(m_trace->nLoaded, 0) << "one reference";
    EXPECT_EQ(m_trace->nLoads, 1);
}

TEST_F(PeerCollabTest, AModuleThatComesLaterIsTakenThen)
{
    CPeerCollabBinding binding;
    EXPECT_FALSE(binding.Load());
    OfferModule();
    EXPECT_TRUE(binding.Load());
    EXPECT_TRUE(binding.Register(false));
}

TEST_F(PeerCollabTest, AModuleThatLacksAnEntryIsFreedAndTheErrorStays)
{
    for (const wchar_t* const pszMissing : {L"startup", L"shutdown", L"register", L"unregister"})
    {
        OfferModule(pszMissing);
        CPeerCollabBinding binding;
        SetLastError(0);
        EXPECT_FALSE(binding.Load()) << pszMissing;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PROC_NOT_FOUND)) << pszMissing;
        EXPECT_EQ(m_trace->nLoaded, 0) << pszMissing;
        EXPECT_FALSE(binding.Register(false));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
        EXPECT_THAT(Calls(), testing::Each(std::string("shutdown 0"))) << pszMissing;
    }
    EXPECT_EQ(m_trace->nLoads, 8) << "by the constructor and by Load";
    EXPECT_THAT(g_events, IsEmpty());
}

TEST_F(PeerCollabTest, TheEndShutsDownOnceAndFreesTheModule)
{
    OfferModule();
    {
        CPeerCollabBinding binding;
        EXPECT_THAT(Calls(), IsEmpty());
        binding.Unload();
        EXPECT_THAT(Calls(), ElementsAre("shutdown 0"));
        EXPECT_EQ(m_trace->nLoaded, 0);
        binding.Unload();
    }
    EXPECT_THAT(Calls(), IsEmpty());
    {
        const CPeerCollabBinding binding;
    }
    EXPECT_THAT(Calls(), ElementsAre("shutdown 0"));
}

TEST_F(PeerCollabTest, AfterAnUnloadOnlyALoadLetsRegisterWork)
{
    OfferModule();
    CPeerCollabBinding binding;
    binding.Unload();
    EXPECT_FALSE(binding.Register(false));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    EXPECT_TRUE(binding.Load());
    EXPECT_TRUE(binding.Register(false));
    EXPECT_THAT(Calls(), ElementsAre("shutdown 0", "startup 1", "register 0"));
}

TEST_F(PeerCollabTest, ARegistrationNamesTheServiceBesideThisProgram)
{
    OfferModule();
    CPeerCollabBinding binding;
    EXPECT_TRUE(binding.Register(false));
    EXPECT_THAT(Calls(), ElementsAre("startup 1", "register 0"));
    const GUID id = {0xD34D1C28, 0x7CF8, 0x4BBB, {0xB3, 0xD2, 0xCD, 0x72, 0xD4, 0xD1, 0x6C, 0x35}};
    EXPECT_TRUE(IsEqualGUID(m_trace->idApplication, id));
    EXPECT_STREQ(m_trace->szDescription, L"Tessaran KDAS");
    EXPECT_EQ(m_trace->szApplication, (TestProgramFolder() / L"TKDAS.exe").make_preferred().wstring());
    EXPECT_EQ(m_trace->cbData, 0U);
    EXPECT_FALSE(m_trace->bHasData);
    EXPECT_FALSE(m_trace->bHasArguments);
    EXPECT_EQ(m_trace->dwScope, 2U);
}

TEST_F(PeerCollabTest, ARegistrationMayBeForAllUsers)
{
    OfferModule();
    m_trace->hrFirstRegister = ALREADY_EXISTS;
    CPeerCollabBinding binding;
    EXPECT_TRUE(binding.Register(true));
    EXPECT_THAT(Calls(), ElementsAre("startup 1", "register 1", "unregister 1", "register 1"));
}

TEST_F(PeerCollabTest, ASuccessIsOneEntryOfInformationWhateverTheLastErrorWas)
{
    OfferModule();
    CPeerCollabBinding binding;
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(binding.Register(false));
    ASSERT_EQ(g_events.size(), 1U);
    EXPECT_EQ(g_events[0].wType, EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(g_events[0].text, EventText(L"0", L"Successfully registered application"));
}

TEST_F(PeerCollabTest, ASuccessWithACodeIsToldWithIt)
{
    OfferModule();
    m_trace->hrFirstRegister = S_FALSE;
    CPeerCollabBinding binding;
    EXPECT_TRUE(binding.Register(false));
    ASSERT_EQ(g_events.size(), 1U);
    EXPECT_EQ(g_events[0].wType, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(g_events[0].text, EventText(L"1", L"Successfully registered application"));
}

TEST_F(PeerCollabTest, ASecondRegistrationReplacesTheFirstAndIsToldOnce)
{
    OfferModule();
    m_trace->hrFirstRegister = ALREADY_EXISTS;
    m_trace->hrUnregister = E_FAIL; // of no interest
    CPeerCollabBinding binding;
    EXPECT_TRUE(binding.Register(false));
    EXPECT_THAT(Calls(), ElementsAre("startup 1", "register 0", "unregister 0", "register 0"));
    EXPECT_TRUE(IsEqualGUID(m_trace->idUnregistered, m_trace->idApplication));
    ASSERT_EQ(g_events.size(), 1U);
    EXPECT_EQ(g_events[0].text, EventText(L"0", L"Successfully registered application"));
}

TEST_F(PeerCollabTest, AReplacementIsTriedOnceOnly)
{
    OfferModule();
    m_trace->hrFirstRegister = ALREADY_EXISTS;
    m_trace->hrNextRegister = ALREADY_EXISTS;
    CPeerCollabBinding binding;
    EXPECT_FALSE(binding.Register(false));
    EXPECT_EQ(GetLastError(), 0x800700B7U);
    EXPECT_THAT(Calls(), ElementsAre("startup 1", "register 0", "unregister 0", "register 0"));
    ExpectFailureEvent(L"-2147024713");
}

TEST_F(PeerCollabTest, ARefusedRegistrationIsToldAndNotRepeated)
{
    OfferModule();
    m_trace->hrFirstRegister = E_ACCESSDENIED;
    CPeerCollabBinding binding;
    EXPECT_FALSE(binding.Register(false));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(E_ACCESSDENIED));
    EXPECT_THAT(Calls(), ElementsAre("startup 1", "register 0"));
    ExpectFailureEvent(L"-2147024891");
}

TEST_F(PeerCollabTest, WithoutAStartNothingIsRegistered)
{
    OfferModule();
    m_trace->hrStartup = E_OUTOFMEMORY;
    CPeerCollabBinding binding;
    EXPECT_FALSE(binding.Register(false));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(E_OUTOFMEMORY));
    EXPECT_THAT(Calls(), ElementsAre("startup 1"));
    EXPECT_THAT(g_events, IsEmpty());
    m_trace->hrStartup = S_FALSE;
    EXPECT_TRUE(binding.Register(false)) << "a start that isn't negative is one";
}

TEST_F(PeerCollabTest, AServiceInAnUnknownFolderIsNotRegistered)
{
    OfferModule();
    CPeerCollabBinding binding;
    const ImportHook hidden("kernel32.dll", "GetModuleFileNameW", &HideProgramFile);
    EXPECT_FALSE(binding.Register(false));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_THAT(Calls(), ElementsAre("startup 1"));
}

TEST_F(PeerCollabTest, ErrorsOfPeersHaveTheWordsOfTheirModule)
{
    OfferModule();
    const CPeerCollabBinding binding;
    EXPECT_EQ(ErrorText(TEST_PEER_ERROR), TEST_PEER_WORDS);
    EXPECT_EQ(ErrorText(TEST_PEER_ERROR), TEST_PEER_WORDS);
    EXPECT_EQ(m_trace->nLoaded, 1) << "still the binding's";
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(PeerCollabTest, ErrorsOfPeersHaveNoWordsWithoutTheModule)
{
    wchar_t szText[MAX_PATH] = {};
    EXPECT_EQ(GetPeerErrorText(static_cast<HRESULT>(TEST_PEER_ERROR), MAX_PATH, szText), E_FAIL);
    OfferModule();
    EXPECT_EQ(GetPeerErrorText(static_cast<HRESULT>(TEST_PEER_ERROR), MAX_PATH, szText), E_FAIL)
        << "it isn't loaded for them";
    EXPECT_EQ(m_trace->nLoads, 0);
}

TEST_F(PeerCollabTest, ErrorsTheModuleDoesNotKnowHaveNoWords)
{
    OfferModule();
    const CPeerCollabBinding binding;
    wchar_t szText[MAX_PATH] = {};
    EXPECT_EQ(GetPeerErrorText(static_cast<HRESULT>(TEST_PEER_ERROR + 1), MAX_PATH, szText), E_FAIL);
}

TEST_F(PeerCollabTest, ErrorsOfTheSystemHaveItsWords)
{
    EXPECT_EQ(ErrorText(0x80070005), SystemText(ERROR_ACCESS_DENIED)) << "the code inside";
    EXPECT_EQ(ErrorText(0x00070005), SystemText(ERROR_ACCESS_DENIED));
    EXPECT_EQ(ErrorText(5), SystemText(ERROR_ACCESS_DENIED));
    EXPECT_EQ(ErrorText(0x800700C1), SystemText(ERROR_BAD_EXE_FORMAT)) << "a text with a place to fill in";
}

TEST_F(PeerCollabTest, OnlyCodesOfWindowsLoseTheirUpperHalf)
{
    const ImportHook hook("kernel32.dll", "FormatMessageW", &RecordFormat);
    for (const DWORD dwCode : {0x8000FFFFUL, 0x80070005UL, 0x80080005UL, 5UL})
    {
        ErrorText(dwCode);
    }
    EXPECT_THAT(g_codesAsked, ElementsAre(0x8000FFFF, 5, 0x80080005, 5));
}

TEST_F(PeerCollabTest, WordsThatDoNotFitOrDoNotExistAreAFailure)
{
    OfferModule();
    const CPeerCollabBinding binding;
    wchar_t szText[4] = L"abc";
    EXPECT_EQ(GetPeerErrorText(E_ACCESSDENIED, 0, szText), E_FAIL);
    EXPECT_STREQ(szText, L"abc");
    EXPECT_EQ(GetPeerErrorText(E_ACCESSDENIED, 4, szText), E_FAIL);
    EXPECT_EQ(GetPeerErrorText(static_cast<HRESULT>(TEST_PEER_ERROR), 4, szText), E_FAIL);
    wchar_t szRoom[MAX_PATH] = {};
    EXPECT_EQ(GetPeerErrorText(static_cast<HRESULT>(0x8EEE1234), MAX_PATH, szRoom), E_FAIL);
}
