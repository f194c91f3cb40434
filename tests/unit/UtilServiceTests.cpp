#include "Include/UtilService.h"

#include "Include/Handles.h"
#include "Include/Product.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ImportHook.h"
#include "tests/support/Patience.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <string>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;

const SC_HANDLE FAKE_MANAGER = reinterpret_cast<SC_HANDLE>(static_cast<ULONG_PTR>(0x71230));
const SC_HANDLE FAKE_SERVICE = reinterpret_cast<SC_HANDLE>(static_cast<ULONG_PTR>(0x71234));

// What the service manager shall say, and what it was asked.
struct ManagerScript
{
    DWORD dwManagerError = 0;
    std::deque<DWORD> openErrors; // one a try; none left: it opens
    DWORD dwQueryError = 0;
    DWORD dwState = SERVICE_RUNNING;
    DWORD dwLastErrorAfterQuery = 0;
    DWORD dwStartError = 0;

    int nStarts = 0;
    DWORD dwManagerAccess = 0;
    std::vector<DWORD> accesses;
    std::vector<std::wstring> names;
    std::vector<SC_HANDLE> closed;
    std::vector<WORD> eventTypes;
    std::vector<std::wstring> events;
    std::map<UINT, std::wstring> strings = {{25, L"refused"}, {26, L"stopped"}, {27, L"missing"}};
};
ManagerScript g_script;

SC_HANDLE WINAPI FakeOpenManager(const wchar_t*, const wchar_t*, DWORD dwAccess)
{
    g_script.dwManagerAccess = dwAccess;
    SetLastError(g_script.dwManagerError);
    return g_script.dwManagerError == 0 ? FAKE_MANAGER : nullptr;
}

SC_HANDLE WINAPI FakeOpenService(SC_HANDLE, const wchar_t* pszName, DWORD dwAccess)
{
    g_script.accesses.push_back(dwAccess);
    g_script.names.emplace_back(pszName);
    if (g_script.openErrors.empty())
    {
        return FAKE_SERVICE;
    }
    SetLastError(g_script.openErrors.front());
    g_script.openErrors.pop_front();
    return nullptr;
}

BOOL WINAPI FakeQueryStatus(SC_HANDLE, SERVICE_STATUS* pStatus)
{
    SetLastError(g_script.dwQueryError != 0 ? g_script.dwQueryError : g_script.dwLastErrorAfterQuery);
    pStatus->dwCurrentState = g_script.dwState;
    return g_script.dwQueryError == 0;
}

BOOL WINAPI FakeStart(SC_HANDLE hService, DWORD nArguments, const wchar_t** ppszArguments)
{
    EXPECT_EQ(hService, FAKE_SERVICE);
    EXPECT_EQ(nArguments, 0u);
    EXPECT_EQ(ppszArguments, nullptr);
    ++g_script.nStarts;
    if (g_script.dwStartError != 0)
    {
        SetLastError(g_script.dwStartError);
    }
    return g_script.dwStartError == 0;
}

BOOL WINAPI FakeCloseService(SC_HANDLE h)
{
    g_script.closed.push_back(h);
    SetLastError(4799);
    return TRUE;
}

BOOL WINAPI FakeReport(HANDLE, WORD wType, WORD, DWORD, PSID, WORD, DWORD, const wchar_t** ppszStrings, void*)
{
    g_script.eventTypes.push_back(wType);
    g_script.events.emplace_back(ppszStrings[0]);
    return TRUE;
}

int WINAPI FakeLoadString(HINSTANCE, UINT uiString, wchar_t* pszText, int cchText)
{
    EXPECT_EQ(cchText, 2048);
    return static_cast<int>(g_script.strings.at(uiString).copy(pszText, cchText - 1));
}

class UtilService : public testing::Test
{
  protected:
    UtilService() { g_script = {}; }

    static std::wstring Event(const std::wstring& rest)
    {
        return L"\r\nTessaran Kestrel Desk Assist\r\n" + rest;
    }

    LogCapture m_log{"UtilService"};

  private:
    ImportHook<decltype(FakeOpenManager)> m_manager{"advapi32.dll", "OpenSCManagerW", &FakeOpenManager};
    ImportHook<decltype(FakeOpenService)> m_open{"advapi32.dll", "OpenServiceW", &FakeOpenService};
    ImportHook<decltype(FakeQueryStatus)> m_query{"advapi32.dll", "QueryServiceStatus", &FakeQueryStatus};
    ImportHook<decltype(FakeStart)> m_start{"advapi32.dll", "StartServiceW", &FakeStart};
    ImportHook<decltype(FakeCloseService)> m_close{"advapi32.dll", "CloseServiceHandle", &FakeCloseService};
    ImportHook<decltype(FakeReport)> m_report{"advapi32.dll", "ReportEventW", &FakeReport};
    ImportHook<decltype(FakeLoadString)> m_loadString{"user32.dll", "LoadStringW", &FakeLoadString};
};
} // namespace

TEST_F(UtilService, InstalledServiceIsFoundWithTheFirstOpen)
{
    SetLastError(4711);
    EXPECT_TRUE(IsServiceInstalled());
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(g_script.dwManagerAccess, static_cast<DWORD>(SC_MANAGER_CONNECT));
    EXPECT_THAT(g_script.accesses, ElementsAre(5u));
    EXPECT_THAT(g_script.names, ElementsAre(L"tkkdas"));
    EXPECT_THAT(g_script.closed, testing::UnorderedElementsAre(FAKE_MANAGER, FAKE_SERVICE));
    EXPECT_THAT(m_log.Texts(), ElementsAre("INFO IsServiceInstalled = 1"));
}

TEST_F(UtilService, ServiceThatMayOnlyBeStartedIsFoundWithTheThirdOpen)
{
    g_script.openErrors = {ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED};
    EXPECT_TRUE(IsServiceInstalled());
    EXPECT_THAT(g_script.accesses, ElementsAre(5u, 4u, 16u));
    EXPECT_THAT(g_script.events, IsEmpty());
}

TEST_F(UtilService, AbsentServiceIsNotInstalledAndNoEvent)
{
    g_script.openErrors = {ERROR_SERVICE_DOES_NOT_EXIST};
    EXPECT_FALSE(IsServiceInstalled());
    EXPECT_THAT(g_script.accesses, ElementsAre(5u));
    EXPECT_THAT(g_script.events, IsEmpty());
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_THAT(g_script.closed, ElementsAre(FAKE_MANAGER));
    EXPECT_THAT(m_log.Texts(), ElementsAre("INFO IsServiceInstalled = 0"));
}

TEST_F(UtilService, ThreeRefusalsReadAsNotInstalledAndAreReported)
{
    g_script.openErrors = {5, 5, 6};
    EXPECT_FALSE(IsServiceInstalled());
    EXPECT_THAT(g_script.eventTypes, ElementsAre(1));
    EXPECT_THAT(g_script.events,
                ElementsAre(Event(L"System Error: 6\r\nUnable to query service (OpenService).")));
    EXPECT_EQ(GetLastError(), 0u);
}

TEST_F(UtilService, UnreachableManagerReadsAsNotInstalledAndIsReported)
{
    g_script.dwManagerError = 1722;
    EXPECT_FALSE(IsServiceInstalled());
    EXPECT_THAT(g_script.events,
                ElementsAre(Event(L"System Error: 1722\r\nUnable to connect to Service Control "
                                  L"Manager (OpenSCManager).")));
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(UtilService, RunningServiceRuns)
{
    EXPECT_TRUE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_THAT(g_script.accesses, ElementsAre(4u));
    EXPECT_THAT(g_script.closed, testing::UnorderedElementsAre(FAKE_MANAGER, FAKE_SERVICE));
    EXPECT_THAT(m_log.Texts(), ElementsAre("INFO IsServiceRunning = 1"));
}

TEST_F(UtilService, OnlyTheRunningStateCountsAsRunning)
{
    for (const DWORD dwState : {SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_PAUSED})
    {
        g_script.dwState = dwState;
        EXPECT_FALSE(IsServiceRunning()) << dwState;
    }
}

TEST_F(UtilService, PendingOperationCountsAsNoError)
{
    g_script.dwLastErrorAfterQuery = ERROR_IO_PENDING;
    EXPECT_TRUE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 0u);
}

TEST_F(UtilService, DeletedServiceDoesNotRunAndSaysSoWithoutAnEvent)
{
    g_script.openErrors = {ERROR_SERVICE_DOES_NOT_EXIST};
    EXPECT_FALSE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 1060u);
    EXPECT_THAT(g_script.events, IsEmpty());
    EXPECT_THAT(m_log.Texts(), ElementsAre("INFO IsServiceRunning = 0"));
}

TEST_F(UtilService, RunningIsAskedASecondTimeAfterARefusal)
{
    g_script.openErrors = {5};
    EXPECT_TRUE(IsServiceRunning());
    EXPECT_THAT(g_script.accesses, ElementsAre(4u, 4u));
    EXPECT_THAT(g_script.events, IsEmpty());
}

TEST_F(UtilService, EachFailureOfTheRunningQueryIsReportedAndKeptAsTheLastError)
{
    g_script.openErrors = {5, 6};
    EXPECT_FALSE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 6u);
    g_script.dwQueryError = 7;
    EXPECT_FALSE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 7u);
    g_script.dwManagerError = 8;
    EXPECT_FALSE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 8u);
    EXPECT_THAT(
        g_script.events,
        ElementsAre(Event(L"System Error: 6\r\nUnable to call OpenService (1)."),
                    Event(L"System Error: 7\r\nUnable to Query Service Status (1)."),
                    Event(L"System Error: 8\r\nUnable to connect to Service Control Manager (OpenSCManager) "
                          L"(1).")));
    EXPECT_THAT(g_script.closed, testing::SizeIs(3));
}

TEST_F(UtilService, ConnectFailureWithoutAServiceSaysThatItIsMissing)
{
    g_script.openErrors = {ERROR_SERVICE_DOES_NOT_EXIST};
    ReportConnectFailure(10061);
    EXPECT_THAT(g_script.eventTypes, ElementsAre(4));
    EXPECT_THAT(g_script.events, ElementsAre(Event(L"missing")));
}

TEST_F(UtilService, ConnectFailureOfAStoppedServiceSaysThatItIsStopped)
{
    g_script.dwState = SERVICE_STOPPED;
    ReportConnectFailure(10061);
    EXPECT_THAT(g_script.eventTypes, ElementsAre(4));
    EXPECT_THAT(g_script.events, ElementsAre(Event(L"stopped")));
}

TEST_F(UtilService, ConnectFailureOfARunningServiceCarriesTheSystemsReason)
{
    ReportConnectFailure(10061);
    EXPECT_THAT(g_script.eventTypes, ElementsAre(1));
    ASSERT_EQ(g_script.events.size(), 1u);
    EXPECT_THAT(g_script.events[0],
                testing::StartsWith(Event(L"System Error: 10061\r\nrefused\r\nSystem Error: "
                                          L"10061\r\nSystem Message: ")));
}

TEST_F(UtilService, ConnectFailureTextStaysWithinItsBuffers)
{
    g_script.strings[25] = std::wstring(5000, L'x');
    ReportConnectFailure(10061);
    EXPECT_EQ(g_script.events.at(0).size(), 1299u);
}

TEST_F(UtilService, StartedServiceIsNoErrorWhateverFailedBefore)
{
    SetLastError(4711);
    EXPECT_EQ(StartLocalTkkdaService(), 0u);
    EXPECT_EQ(g_script.dwManagerAccess, static_cast<DWORD>(SC_MANAGER_ALL_ACCESS));
    EXPECT_THAT(g_script.names, ElementsAre(L"tkkdas"));
    EXPECT_THAT(g_script.accesses, ElementsAre(16u));
    EXPECT_EQ(g_script.nStarts, 1);
    EXPECT_THAT(g_script.closed, ElementsAre(FAKE_SERVICE, FAKE_MANAGER));
    EXPECT_THAT(m_log.Texts(),
                ElementsAre("INFO StartLocalTkkdaService", "INFO StartLocalTkkdaService exit"));
}

TEST_F(UtilService, EachStepThatKeepsTheServiceFromStartingAnswersItsError)
{
    g_script.dwStartError = 1056;
    EXPECT_EQ(StartLocalTkkdaService(), 1056u);
    EXPECT_EQ(GetLastError(), 1056u);
    g_script.openErrors = {1060};
    EXPECT_EQ(StartLocalTkkdaService(), 1060u);
    g_script.dwManagerError = 5;
    EXPECT_EQ(StartLocalTkkdaService(), 5u);
    EXPECT_EQ(g_script.nStarts, 1) << "only the first came that far";
    EXPECT_THAT(g_script.closed, ElementsAre(FAKE_SERVICE, FAKE_MANAGER, FAKE_MANAGER));
    EXPECT_THAT(g_script.events, IsEmpty());
    EXPECT_THAT(m_log.Lines(), testing::SizeIs(6));
}

namespace
{
/// The local service in the real service manager, as long as the object lives. Its program does nothing.
class InstalledService
{
  public:
    InstalledService()
        : m_hManager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)),
          m_hService(CreateServiceW(m_hManager.get(), SERVICE_NAME, SERVICE_NAME, SERVICE_ALL_ACCESS,
                                    SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE,
                                    Program().c_str(), nullptr, nullptr, nullptr, nullptr, nullptr))
    {
    }
    ~InstalledService()
    {
        Stop();
        DeleteService(m_hService.get());
    }
    InstalledService(const InstalledService&) = delete;
    InstalledService& operator=(const InstalledService&) = delete;

    explicit operator bool() const { return static_cast<bool>(m_hService); }

    bool WaitForState(DWORD dwState) const
    {
        constexpr DWORD LOOK_AGAIN_MS = 20;
        SERVICE_STATUS status = {};
        for (const ULONGLONG qwEnd = GetTickCount64() + PATIENCE_MS;
             QueryServiceStatus(m_hService.get(), &status) && status.dwCurrentState != dwState &&
             GetTickCount64() < qwEnd;)
        {
            Sleep(LOOK_AGAIN_MS);
        }
        return status.dwCurrentState == dwState;
    }
    bool Stop() const
    {
        SERVICE_STATUS status = {};
        ControlService(m_hService.get(), SERVICE_CONTROL_STOP, &status);
        return WaitForState(SERVICE_STOPPED);
    }

  private:
    static std::wstring Program()
    {
        return L'"' + (TestProgramFolder() / L"testmodules" / L"service_probe.exe").wstring() + L'"';
    }

    CServiceHandle m_hManager;
    CServiceHandle m_hService;
};

std::vector<std::wstring> g_texts; // of the event log

BOOL WINAPI KeepText(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, const wchar_t** ppszStrings, void*)
{
    g_texts.emplace_back(ppszStrings[0]);
    return TRUE;
}

/// What the administrator reads when the service is out of reach now.
std::wstring FailureText()
{
    g_texts.clear();
    const ImportHook report("advapi32.dll", "ReportEventW", &KeepText);
    ReportConnectFailure(WSAECONNREFUSED);
    return g_texts.size() == 1 ? g_texts[0] : L"";
}

class UtilServiceOnThisMachine : public testing::Test
{
  protected:
    void SetUp() override { g_hResourceModule = m_hResources.get(); }

    const CModule m_hResources{LoadLibraryExW((StageFolder() / L"TKDASTRES.dll").c_str(), nullptr,
                                              LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE)};
};
} // namespace

TEST_F(UtilServiceOnThisMachine, ServiceThatIsNotThereIsToldAsSuch)
{
    EXPECT_FALSE(IsServiceInstalled());
    EXPECT_FALSE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 1060u);
    EXPECT_EQ(StartLocalTkkdaService(), 1060u);
}

TEST_F(UtilServiceOnThisMachine, EachStateOfTheServiceIsToldAndReportedInItsOwnWords)
{
    const std::wstring missing = FailureText();
    const InstalledService service;
    ASSERT_TRUE(service);
    EXPECT_TRUE(IsServiceInstalled());
    EXPECT_FALSE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 0u);
    const std::wstring stopped = FailureText();

    EXPECT_EQ(StartLocalTkkdaService(), 0u);
    ASSERT_TRUE(service.WaitForState(SERVICE_RUNNING));
    EXPECT_TRUE(IsServiceInstalled());
    EXPECT_TRUE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(StartLocalTkkdaService(), 1056u) << "it runs already";
    const std::wstring running = FailureText();

    EXPECT_NE(missing, stopped);
    EXPECT_NE(stopped, running);
    EXPECT_NE(running.find(L"System Error: 10061"), std::wstring::npos);
    ASSERT_TRUE(service.Stop());
    EXPECT_FALSE(IsServiceRunning());
    EXPECT_EQ(FailureText(), stopped);
}

TEST_F(UtilServiceOnThisMachine, DeletedServiceIsGone)
{
    {
        const InstalledService service;
        ASSERT_TRUE(IsServiceInstalled());
    }
    EXPECT_FALSE(IsServiceInstalled());
    EXPECT_FALSE(IsServiceRunning());
    EXPECT_EQ(GetLastError(), 1060u);
}
