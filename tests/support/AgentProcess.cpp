#include "tests/support/AgentProcess.h"

#include "tests/support/LogonSession.h"

#include <cstdio>
#include <vector>

namespace
{
constexpr wchar_t TRAY_CLASS[] = L"Tessaran KDA Tray Icon Class";
constexpr DWORD LOOK_AGAIN_MS = 20;
constexpr int START_TRIES = 3;

/// Windows compares the names of variables without regard to case.
struct NameOrder
{
    bool operator()(const std::wstring& first, const std::wstring& second) const
    {
        return _wcsicmp(first.c_str(), second.c_str()) < 0;
    }
};

using Variables = std::map<std::wstring, std::wstring, NameOrder>;

Variables OwnVariables()
{
    Variables variables;
    wchar_t* pszBlock = GetEnvironmentStringsW();
    for (const wchar_t* pszEntry = pszBlock; *pszEntry != L'\0'; pszEntry += wcslen(pszEntry) + 1)
    {
        // A leading equals sign belongs to the name of the entries that hold the drives' folders.
        const std::wstring entry = pszEntry;
        const size_t nEquals = entry.find(L'=', 1);
        variables[entry.substr(0, nEquals)] = entry.substr(nEquals + 1);
    }
    FreeEnvironmentStringsW(pszBlock);
    return variables;
}

std::vector<wchar_t> EnvironmentBlock(const AgentStart& start)
{
    Variables variables = OwnVariables();
    for (const auto& [name, value] : start.environment)
    {
        variables[name] = value;
    }
    std::vector<wchar_t> block;
    for (const auto& [name, value] : variables)
    {
        block.insert(block.end(), name.begin(), name.end());
        block.push_back(L'=');
        block.insert(block.end(), value.begin(), value.end());
        block.push_back(L'\0');
    }
    block.push_back(L'\0');
    return block;
}

HANDLE NewJob()
{
    const HANDLE hJob = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(hJob, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
    return hJob;
}

struct OwnWindowSearch
{
    DWORD dwProcessId;
    const std::function<bool(HWND hWnd)>& test;
    HWND hWnd;
};

BOOL CALLBACK IsNotTheWindow(HWND hWnd, LPARAM lParam)
{
    auto& search = *reinterpret_cast<OwnWindowSearch*>(lParam);
    DWORD dwProcessId = 0;
    GetWindowThreadProcessId(hWnd, &dwProcessId);
    if (dwProcessId != search.dwProcessId || !search.test(hWnd))
    {
        return TRUE;
    }
    search.hWnd = hWnd;
    return FALSE;
}

bool IsTrayWindow(HWND hWnd)
{
    wchar_t szClass[64] = {};
    GetClassNameW(hWnd, szClass, ARRAYSIZE(szClass));
    return wcscmp(szClass, TRAY_CLASS) == 0;
}
} // namespace

AgentProcess::AgentProcess(const AgentFolder& folder, const AgentStart& start)
    : m_desktop(start.desktop), m_hJob(NewJob())
{
    std::wstring commandLine = L"\"" + folder.Program().wstring() + L"\"";
    commandLine += start.commandLine.empty() ? L"" : L" " + start.commandLine;
    std::wstring desktop = start.desktop;
    std::vector<wchar_t> environment = EnvironmentBlock(start);
    const std::filesystem::path& currentFolder =
        start.currentFolder.empty() ? folder.Path() : start.currentFolder;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.lpDesktop = desktop.empty() ? nullptr : desktop.data();
    PROCESS_INFORMATION process = {};
    // On a loaded machine the test system has refused one start in some thousands; the next one works.
    for (int nTry = 0; !m_hProcess && nTry < START_TRIES; ++nTry)
    {
        if (CreateProcessW(folder.Program().c_str(), commandLine.data(), nullptr, nullptr,
                           start.bInheritHandles, CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT,
                           environment.data(), currentFolder.c_str(), &startup, &process))
        {
            m_hProcess.reset(process.hProcess);
        }
        else
        {
            m_dwStartError = GetLastError();
            std::fprintf(stderr, "AgentProcess: %ls was not started, error %lu\n", commandLine.c_str(),
                         m_dwStartError);
        }
    }
    if (!m_hProcess)
    {
        return;
    }
    m_dwProcessId = process.dwProcessId;
    const CKernelHandle hThread(process.hThread);
    AssignProcessToJobObject(m_hJob.get(), process.hProcess);
    if (start.pSession != nullptr && !start.pSession->Take(process.hProcess))
    {
        std::fprintf(stderr, "AgentProcess: %ls is in the test's session\n", commandLine.c_str());
    }
    ResumeThread(hThread.get());
}

AgentProcess::~AgentProcess()
{
    TerminateJobObject(m_hJob.get(), 1);
    WaitForSingleObject(m_hProcess.get(), INFINITE);
}

bool AgentProcess::IsRunning() const
{
    return IsStarted() && !WaitForExit(0).has_value();
}

std::optional<DWORD> AgentProcess::WaitForExit(DWORD dwTimeoutMs) const
{
    DWORD dwExitCode = 0;
    if (WaitForSingleObject(m_hProcess.get(), dwTimeoutMs) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(m_hProcess.get(), &dwExitCode))
    {
        return std::nullopt;
    }
    return dwExitCode;
}

HWND AgentProcess::FindTrayWindow() const
{
    return FindOwnWindow(IsTrayWindow);
}

HWND AgentProcess::FindOwnWindow(const std::function<bool(HWND hWnd)>& test) const
{
    OwnWindowSearch search = {m_dwProcessId, test, nullptr};
    const auto lParam = reinterpret_cast<LPARAM>(&search);
    if (m_desktop.empty())
    {
        EnumWindows(IsNotTheWindow, lParam);
        return search.hWnd;
    }
    const CDesktop hDesktop(
        OpenDesktopW(m_desktop.c_str(), 0, FALSE, DESKTOP_READOBJECTS | DESKTOP_ENUMERATE));
    EnumDesktopWindows(hDesktop.get(), IsNotTheWindow, lParam);
    return search.hWnd;
}

HWND AgentProcess::WaitForTrayWindow(DWORD dwTimeoutMs) const
{
    const ULONGLONG qwEnd = GetTickCount64() + dwTimeoutMs;
    WaitForInputIdle(m_hProcess.get(), dwTimeoutMs);
    HWND hWnd = FindTrayWindow();
    while (hWnd == nullptr && GetTickCount64() < qwEnd)
    {
        if (WaitForExit(LOOK_AGAIN_MS).has_value())
        {
            return nullptr;
        }
        hWnd = FindTrayWindow();
    }
    return hWnd;
}
