#include "tests/soak/SystemSeries.h"

#include "Include/Handles.h"
#include "tests/support/HandleCount.h"
#include "tests/support/ObjectCounts.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include <tlhelp32.h>

namespace
{
constexpr DWORD SETTLING_MS = 200;
constexpr std::wstring_view LOG_FILE = L"TKDAST.log";
constexpr size_t KEPT_LOG_FILES = 4; // by the log configuration as shipped

size_t CountProcesses()
{
    const CFileHandle hSnapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process = {};
    process.dwSize = sizeof(process);
    size_t nProcesses = 0;
    for (BOOL bThere = Process32FirstW(hSnapshot.get(), &process); bThere;
         bThere = Process32NextW(hSnapshot.get(), &process))
    {
        ++nProcesses;
    }
    return nProcesses;
}

/// The files below the folder that an environment variable names.
size_t CountFiles(const wchar_t* pszVariable, bool bLog)
{
    const wchar_t* const pszFolder = _wgetenv(pszVariable);
    if (pszFolder == nullptr)
    {
        return 0;
    }
    std::error_code error;
    const auto files = std::filesystem::recursive_directory_iterator(pszFolder, error);
    return static_cast<size_t>(
        std::count_if(begin(files), end(files), [bLog](const std::filesystem::directory_entry& entry) {
            return entry.path().filename().wstring().starts_with(LOG_FILE) == bLog;
        }));
}

size_t CountFiles(bool bLog)
{
    return CountFiles(L"USERPROFILE", bLog) + CountFiles(L"PROGRAMDATA", bLog);
}
} // namespace

void SystemSeries::Sample()
{
    Sleep(SETTLING_MS);
    m_processes.Add(CountProcesses());
    m_handles.Add(CountHandles(std::nullopt) - CountHandles(GetCurrentProcessId()));
    m_windows.Add(CountAllWindows());
    m_files.Add(CountFiles(false));
    m_logFiles.Add(std::max(CountFiles(true), KEPT_LOG_FILES) - KEPT_LOG_FILES);
}

void SystemSeries::Tell(Report& report)
{
    m_processes.Tell(report);
    m_handles.Tell(report);
    m_windows.Tell(report);
    m_files.Tell(report);
    m_logFiles.Tell(report);
}
