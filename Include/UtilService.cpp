#include "Include/UtilService.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/Product.h"
#include "Include/TKLogging.h"
#include "Include/UtilLog.h"
#include "Include/UtilResource.h"
#include "resources/resource.h"

#include <array>
#include <string>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("UtilService");

constexpr int MAX_FAILURE_TEXT = 2048; // characters, terminator included
constexpr int MAX_REASON_TEXT = 1024;  // characters, terminator included

// Logs what failed in the service manager and leaves its error as the thread's last one.
void ReportServiceFailure(const wchar_t* pszText)
{
    const CKeepLastError keepLastError;
    LogErrorMsg(pszText, GetLastError());
}

CServiceHandle OpenServiceManager(const wchar_t* pszFailureText)
{
    CServiceHandle hManager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!hManager)
    {
        ReportServiceFailure(pszFailureText);
    }
    return hManager;
}

// Tries one access after the other, as an account may have only some of the rights. Null, with the last
// error, when all are refused or there is no such service, which no other access can change.
template <size_t N>
CServiceHandle OpenLocalService(SC_HANDLE hManager, const std::array<DWORD, N>& accesses)
{
    CServiceHandle hService;
    for (const DWORD dwAccess : accesses)
    {
        hService.reset(OpenServiceW(hManager, SERVICE_NAME, dwAccess));
        if (hService || GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST)
        {
            break;
        }
    }
    return hService;
}

bool CanOpenLocalService(SC_HANDLE hManager)
{
    constexpr std::array<DWORD, 3> accesses = {SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS,
                                               SERVICE_QUERY_STATUS, SERVICE_START};
    const CServiceHandle hService = OpenLocalService(hManager, accesses);
    if (!hService && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST)
    {
        ReportServiceFailure(L"Unable to query service (OpenService).");
    }
    return static_cast<bool>(hService);
}

// The last error tells what came of it.
void TryToStartLocalService()
{
    const CServiceHandle hManager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!hManager)
    {
        return;
    }
    const CServiceHandle hService(OpenServiceW(hManager.get(), SERVICE_NAME, SERVICE_START));
    if (hService)
    {
        StartServiceW(hService.get(), 0, nullptr);
    }
}
} // namespace

bool IsServiceInstalled()
{
    const CServiceHandle hManager =
        OpenServiceManager(L"Unable to connect to Service Control Manager (OpenSCManager).");
    bool bInstalled = false;
    if (hManager)
    {
        bInstalled = CanOpenLocalService(hManager.get());
        TK_LOG_INFO(g_pLogger, L"IsServiceInstalled = " << bInstalled);
    }
    SetLastError(ERROR_SUCCESS);
    return bInstalled;
}

bool IsServiceRunning()
{
    const CServiceHandle hManager =
        OpenServiceManager(L"Unable to connect to Service Control Manager (OpenSCManager) (1).");
    if (!hManager)
    {
        return false;
    }
    constexpr std::array<DWORD, 2> accesses = {SERVICE_QUERY_STATUS, SERVICE_QUERY_STATUS};
    const CServiceHandle hService = OpenLocalService(hManager.get(), accesses);
    if (!hService && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST)
    {
        ReportServiceFailure(L"Unable to call OpenService (1).");
        return false;
    }
    SERVICE_STATUS status = {};
    if (hService && !QueryServiceStatus(hService.get(), &status))
    {
        ReportServiceFailure(L"Unable to Query Service Status (1).");
        return false;
    }
    if (GetLastError() == ERROR_IO_PENDING)
    {
        SetLastError(ERROR_SUCCESS);
    }
    const bool bRunning = status.dwCurrentState == SERVICE_RUNNING;
    TK_LOG_INFO(g_pLogger, L"IsServiceRunning = " << bRunning);
    return bRunning;
}

DWORD StartLocalTkkdaService()
{
    TK_LOG_INFO(g_pLogger, L"StartLocalTkkdaService");
    SetLastError(ERROR_SUCCESS); // a success leaves what it found
    TryToStartLocalService();
    TK_LOG_INFO(g_pLogger, L"StartLocalTkkdaService exit");
    return GetLastError();
}

void ReportConnectFailure(DWORD dwConnectError)
{
    if (!IsServiceInstalled())
    {
        LogInformationMsg(LoadResourceText(IDS_SERVICE_NOT_INSTALLED, MAX_FAILURE_TEXT).c_str());
        return;
    }
    if (!IsServiceRunning())
    {
        LogInformationMsg(LoadResourceText(IDS_SERVICE_STOPPED, MAX_FAILURE_TEXT).c_str());
        return;
    }
    wchar_t szReason[MAX_REASON_TEXT] = {};
    FormatSystemError(szReason, MAX_REASON_TEXT, dwConnectError);
    wchar_t szText[MAX_FAILURE_TEXT] = {};
    CopyText(szText, LoadResourceText(IDS_CONNECT_FAILED, MAX_FAILURE_TEXT) + L"\r\n" + szReason);
    // The queries above have changed the last error; the entry must carry the one that the text is about.
    SetLastError(dwConnectError);
    LogErrorMsg(szText, GetLastError());
}
