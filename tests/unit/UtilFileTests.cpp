#include "Include/UtilFile.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <shellapi.h>

#include <string>
#include <vector>

namespace
{
using testing::ElementsAre;
using testing::EndsWith;

constexpr char LOGGER_NAME[] = "UtilFile";
const HANDLE FAKE_PROCESS = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x51230));
const HANDLE FAKE_THREAD = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x51234));
const HMODULE FAKE_MODULE = reinterpret_cast<HMODULE>(static_cast<ULONG_PTR>(0x51238));

std::wstring ProgramDirectory()
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    const std::wstring path = szPath;
    return path.substr(0, path.rfind(L'\\') + 1);
}

std::wstring UserName()
{
    wchar_t szName[MAX_PATH] = {};
    DWORD cchName = MAX_PATH;
    GetUserNameW(szName, &cchName);
    return szName;
}

std::wstring AccountName()
{
    wchar_t szAccount[MAX_PATH] = L"what was here before";
    GetAccountName(szAccount, MAX_PATH);
    return szAccount;
}

// What the replaced functions were asked.
struct Calls
{
    SHELLEXECUTEINFOW shell = {};
    std::wstring path;
    std::wstring commandLine;
    std::wstring desktop;
    STARTUPINFOW startup = {};
    DWORD dwFlags = 0;
    BOOL bInherit = TRUE;
    std::vector<HANDLE> closed;
    std::vector<DWORD> accesses;
    DWORD cchUserName = 0;
};
Calls g_calls;
decltype(&CloseHandle) g_pfnCloseHandle;
decltype(&OpenProcess) g_pfnOpenProcess;

BOOL WINAPI RecordShellExecute(SHELLEXECUTEINFOW* pInfo)
{
    g_calls.shell = *pInfo;
    return 42;
}

HMODULE WINAPI RecordLoadLibrary(const wchar_t* pszPath)
{
    g_calls.path = pszPath;
    SetLastError(4711);
    return FAKE_MODULE;
}

BOOL WINAPI RecordCreateProcess(const wchar_t* pszPath, wchar_t* pszCommandLine, SECURITY_ATTRIBUTES*,
                                SECURITY_ATTRIBUTES*, BOOL bInherit, DWORD dwFlags, void*, const wchar_t*,
                                STARTUPINFOW* pStartup, PROCESS_INFORMATION* pProcess)
{
    g_calls.path = pszPath;
    g_calls.commandLine = pszCommandLine;
    g_calls.bInherit = bInherit;
    g_calls.dwFlags = dwFlags;
    g_calls.startup = *pStartup;
    g_calls.desktop = pStartup->lpDesktop != nullptr ? pStartup->lpDesktop : L"(none)";
    pProcess->hProcess = FAKE_PROCESS;
    pProcess->hThread = FAKE_THREAD;
    return TRUE;
}

BOOL WINAPI RefuseCreateProcess(const wchar_t*, wchar_t*, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL,
                                DWORD, void*, const wchar_t*, STARTUPINFOW*, PROCESS_INFORMATION*)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

BOOL WINAPI RecordCloseHandle(HANDLE h)
{
    g_calls.closed.push_back(h);
    return h == FAKE_PROCESS || h == FAKE_THREAD || g_pfnCloseHandle(h);
}

DWORD WINAPI FailModuleFileName(HMODULE, wchar_t* psz, DWORD cch)
{
    if (cch != 0)
    {
        psz[0] = L'?';
    }
    return 0;
}

DWORD WINAPI CutModuleFileName(HMODULE, wchar_t* psz, DWORD cch)
{
    const std::wstring path = L"C:\\folder\\" + std::wstring(cch, L'x');
    path.copy(psz, cch - 1);
    psz[cch - 1] = L'\0';
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return cch;
}

HANDLE WINAPI RefuseFullOpenProcess(DWORD dwAccess, BOOL bInherit, DWORD dwProcessId)
{
    g_calls.accesses.push_back(dwAccess);
    return dwAccess == PROCESS_QUERY_INFORMATION
               ? nullptr
               : g_pfnOpenProcess(PROCESS_QUERY_INFORMATION, bInherit, dwProcessId);
}

BOOL WINAPI RefuseOpenProcessToken(HANDLE, DWORD, HANDLE*)
{
    return FALSE;
}

BOOL WINAPI RefuseGetTokenInformation(HANDLE, TOKEN_INFORMATION_CLASS, void*, DWORD, DWORD*)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

BOOL WINAPI RecordGetUserName(wchar_t* pszName, DWORD* pcchName)
{
    g_calls.cchUserName = *pcchName;
    pszName[0] = L'u';
    pszName[1] = L'\0';
    return TRUE;
}

template <char Domain>
BOOL WINAPI AnswerAccount(const wchar_t*, PSID, wchar_t* pszName, DWORD* pcchName, wchar_t* pszDomain,
                          DWORD* pcchDomain, SID_NAME_USE*)
{
    EXPECT_EQ(*pcchName, 520u);
    EXPECT_EQ(*pcchDomain, 520u);
    pszName[0] = L'n';
    pszName[1] = L'\0';
    pszDomain[0] = static_cast<wchar_t>(Domain);
    pszDomain[1] = L'\0';
    return TRUE;
}

class UtilFile : public testing::Test
{
  protected:
    UtilFile() { g_calls = {}; }
};
} // namespace

TEST_F(UtilFile, InformationOfAFileThatExistsIsFound)
{
    WIN32_FIND_DATAW info = {};
    const std::wstring path = ProgramDirectory() + L"*";
    EXPECT_EQ(GetFileInformation(path.c_str(), &info), 1);
    EXPECT_NE(info.cFileName[0], L'\0');
}

TEST_F(UtilFile, InformationOfNothingIsClearedOrLeftAlone)
{
    WIN32_FIND_DATAW info = {};
    info.dwFileAttributes = 4711;
    EXPECT_EQ(GetFileInformation(nullptr, &info), 0);
    EXPECT_EQ(GetFileInformation(L"", &info), 0);
    EXPECT_EQ(info.dwFileAttributes, 4711u);
    EXPECT_EQ(GetFileInformation(L"x", nullptr), 0);
    EXPECT_EQ(GetFileInformation(L"C:\\no such file", &info), 0);
    EXPECT_EQ(info.dwFileAttributes, 0u);
}

TEST_F(UtilFile, FileInformationAndModuleLoadingShareTheirWords)
{
    const LogCapture capture(LOGGER_NAME, log4cxx::Level::getInfo());
    GetFileInformation(L"a file", nullptr);
    KDA_LoadLibrary(L"nomodule.dll");
    EXPECT_THAT(capture.Texts(),
                ElementsAre("INFO KDA_LoadLibrary: a file", "INFO KDA_LoadLibrary: nomodule.dll"));
}

TEST_F(UtilFile, ShellGetsTheWholeRequestAndItsAnswerIsTheResult)
{
    const LogCapture capture(LOGGER_NAME, log4cxx::Level::getInfo());
    const ImportHook hook("shell32.dll", "ShellExecuteExW", &RecordShellExecute);
    const HWND hWnd = GetDesktopWindow();
    EXPECT_EQ(TKShellExec(hWnd, L"runas", L"path", L"-Settings", nullptr), 42);
    EXPECT_EQ(g_calls.shell.cbSize, 112u);
    EXPECT_EQ(g_calls.shell.fMask, 0x4000u);
    EXPECT_EQ(g_calls.shell.hwnd, hWnd);
    EXPECT_STREQ(g_calls.shell.lpVerb, L"runas");
    EXPECT_STREQ(g_calls.shell.lpFile, L"path");
    EXPECT_STREQ(g_calls.shell.lpParameters, L"-Settings");
    EXPECT_EQ(g_calls.shell.lpDirectory, nullptr);
    EXPECT_EQ(g_calls.shell.nShow, 1);
    EXPECT_THAT(capture.Texts(),
                ElementsAre("INFO TKShellExec pszVerb=runas pszPath=path pszParameters=-Settings "
                            "pszDirectory=null"));
}

TEST_F(UtilFile, ModuleOnTheSearchPathButNotBesideTheProgramIsNotLoaded)
{
    SetLastError(0);
    EXPECT_EQ(KDA_LoadLibrary(L"version.dll"), nullptr);
    EXPECT_NE(GetLastError(), 0u);
}

TEST_F(UtilFile, ModuleIsAskedForByItsFullPathAndSuccessClearsTheLastError)
{
    const ImportHook hook("kernel32.dll", "LoadLibraryW", &RecordLoadLibrary);
    EXPECT_EQ(KDA_LoadLibrary(L"TKDAChat.dll"), FAKE_MODULE);
    EXPECT_EQ(g_calls.path, ProgramDirectory() + L"TKDAChat.dll");
    EXPECT_EQ(GetLastError(), 0u);
    KDA_LoadLibrary(std::wstring(400, L'x').c_str());
    EXPECT_EQ(g_calls.path.size(), 259u);
}

TEST_F(UtilFile, NothingIsLoadedOrStartedFromAnUnknownFolder)
{
    const ImportHook directory("kernel32.dll", "GetModuleFileNameW", &FailModuleFileName);
    const ImportHook load("kernel32.dll", "LoadLibraryW", &RecordLoadLibrary);
    const ImportHook start("kernel32.dll", "CreateProcessW", &RecordCreateProcess);
    EXPECT_EQ(KDA_LoadLibrary(L"TKDAChat.dll"), nullptr);
    EXPECT_EQ(KDA_LoadLibrary(nullptr), nullptr);
    EXPECT_EQ(ExecutePermission(1, 2), 0);
    EXPECT_EQ(g_calls.path, L"");
}

TEST_F(UtilFile, PermissionPromptIsStartedAsACopyOfTheAgent)
{
    const LogCapture capture(LOGGER_NAME, log4cxx::Level::getInfo());
    const ImportHook start("kernel32.dll", "CreateProcessW", &RecordCreateProcess);
    const ImportHook close("kernel32.dll", "CloseHandle", &RecordCloseHandle);
    g_pfnCloseHandle = close.Original();
    EXPECT_EQ(ExecutePermission(50123, 2), 1);
    EXPECT_EQ(g_calls.path, ProgramDirectory() + L"TKDAST.exe");
    EXPECT_EQ(g_calls.commandLine, L" -Permission 50123 2");
    EXPECT_EQ(g_calls.bInherit, FALSE);
    EXPECT_EQ(g_calls.dwFlags, 48u);
    EXPECT_EQ(g_calls.startup.cb, 104u);
    EXPECT_EQ(g_calls.desktop, L"");
    EXPECT_EQ(g_calls.startup.dwFlags, 0u);
    EXPECT_THAT(g_calls.closed, testing::UnorderedElementsAre(FAKE_PROCESS, FAKE_THREAD));
    EXPECT_THAT(capture.Texts(), ElementsAre("INFO ExecutePermission nPort=50123 nAfType=2"));
}

TEST_F(UtilFile, PermissionPromptThatCannotStartGivesZeroAndTheReason)
{
    const ImportHook start("kernel32.dll", "CreateProcessW", &RefuseCreateProcess);
    EXPECT_EQ(ExecutePermission(-1, -1), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(UtilFile, AccountIsThatOfThisProcess)
{
    EXPECT_THAT(AccountName(), EndsWith(UserName()));
}

TEST_F(UtilFile, AccountHasItsDomainInFrontWhenThereIsOne)
{
    {
        const ImportHook hook("advapi32.dll", "LookupAccountSidW", &AnswerAccount<'d'>);
        EXPECT_EQ(AccountName(), L"d\\n");
    }
    const ImportHook hook("advapi32.dll", "LookupAccountSidW", &AnswerAccount<'\0'>);
    EXPECT_EQ(AccountName(), L"n");
}

TEST_F(UtilFile, AccountLookupContentsItselfWithLimitedAccess)
{
    const ImportHook open("kernel32.dll", "OpenProcess", &RefuseFullOpenProcess);
    const ImportHook lookup("advapi32.dll", "LookupAccountSidW", &AnswerAccount<'d'>);
    g_pfnOpenProcess = open.Original();
    EXPECT_EQ(AccountName(), L"d\\n");
    EXPECT_THAT(g_calls.accesses, ElementsAre(1024u, 4096u));
}

TEST_F(UtilFile, UnresolvedAccountFallsBackToTheUserName)
{
    {
        const ImportHook hook("advapi32.dll", "OpenProcessToken", &RefuseOpenProcessToken);
        EXPECT_EQ(AccountName(), UserName());
    }
    const ImportHook token("advapi32.dll", "GetTokenInformation", &RefuseGetTokenInformation);
    const ImportHook user("advapi32.dll", "GetUserNameW", &RecordGetUserName);
    EXPECT_EQ(AccountName(), L"u");
    EXPECT_EQ(g_calls.cchUserName, 130u);
}

TEST_F(UtilFile, AHundredLooksForTheAccountAndForFilesLeaveNothingOpen)
{
    ExpectNothingLeftBy(100, [](int) {
        EXPECT_NE(AccountName(), L"");
        WIN32_FIND_DATAW info = {};
        EXPECT_EQ(GetFileInformation((ProgramDirectory() + L"*").c_str(), &info), 1);
    });
}

TEST_F(UtilFile, AccountNeverLeavesASmallBuffer)
{
    wchar_t szAccount[] = L"abcdef";
    {
        const ImportHook hook("advapi32.dll", "LookupAccountSidW", &AnswerAccount<'d'>);
        GetAccountName(szAccount, 3);
        EXPECT_STREQ(szAccount, L"d\\");
        EXPECT_EQ(szAccount[3], L'd');
    }
    const ImportHook token("advapi32.dll", "OpenProcessToken", &RefuseOpenProcessToken);
    const ImportHook user("advapi32.dll", "GetUserNameW", &RecordGetUserName);
    GetAccountName(szAccount, 3);
    EXPECT_EQ(g_calls.cchUserName, 3u);
    GetAccountName(szAccount, 0);
    EXPECT_STREQ(szAccount, L"u");
}

TEST_F(UtilFile, ProgramDirectoryKeepsItsLastBackslash)
{
    wchar_t szDirectory[MAX_PATH] = {};
    GetProgramDirectory(szDirectory, MAX_PATH);
    EXPECT_EQ(szDirectory, ProgramDirectory());
    EXPECT_THAT(std::wstring(szDirectory), EndsWith(L"\\"));
}

TEST_F(UtilFile, UnknownOrTooLongProgramDirectoryLeavesTheBufferAlone)
{
    wchar_t szDirectory[MAX_PATH] = L"before";
    {
        const ImportHook hook("kernel32.dll", "GetModuleFileNameW", &FailModuleFileName);
        GetProgramDirectory(szDirectory, MAX_PATH);
        EXPECT_STREQ(szDirectory, L"before");
    }
    {
        const ImportHook hook("kernel32.dll", "GetModuleFileNameW", &CutModuleFileName);
        GetProgramDirectory(szDirectory, MAX_PATH);
        EXPECT_STREQ(szDirectory, L"before");
    }
    GetProgramDirectory(szDirectory, 3);
    EXPECT_STREQ(szDirectory, L"before");
}

TEST_F(UtilFile, PathBesideTheProgramIsFoundWhereTheFolderIsKnown)
{
    wchar_t szPath[MAX_PATH] = {};
    EXPECT_TRUE(GetPathBesideProgram(szPath, L"a.exe"));
    EXPECT_EQ(szPath, ProgramDirectory() + L"a.exe");
    EXPECT_TRUE(GetPathBesideProgram(szPath, std::wstring(MAX_PATH, L'x')));
    EXPECT_EQ(std::wstring(szPath).size(), MAX_PATH - 1) << "cut to the buffer";

    const ImportHook hook("kernel32.dll", "GetModuleFileNameW", &FailModuleFileName);
    EXPECT_FALSE(GetPathBesideProgram(szPath, L"a.exe"));
}

TEST_F(UtilFile, TheSearchForModulesIsRestrictedToTheFoldersThatSystemModulesComeFrom)
{
    static DWORD s_dwFlags;
    static BOOL s_bAnswer;
    const ImportHook hook(
        "kernel32.dll", "SetDefaultDllDirectories", +[](DWORD dwFlags) {
            s_dwFlags = dwFlags;
            return s_bAnswer;
        });
    s_bAnswer = TRUE;
    EXPECT_TRUE(RestrictModuleSearch());
    EXPECT_EQ(s_dwFlags, 0x1000u);
    s_bAnswer = FALSE;
    EXPECT_FALSE(RestrictModuleSearch());
}

TEST_F(UtilFile, SystemModulesAreNeverTakenFromTheCurrentDirectory)
{
    static DWORD s_dwFlags;
    const ImportHook hook(
        "kernel32.dll", "LoadLibraryExW", +[](const wchar_t*, HANDLE, DWORD dwFlags) {
            s_dwFlags = dwFlags;
            return FAKE_MODULE;
        });
    EXPECT_EQ(TKLoadSystemLibrary(L"x.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE), FAKE_MODULE);
    EXPECT_EQ(s_dwFlags, 0x1002u);
    s_dwFlags = 0;
    EXPECT_EQ(TKLoadSystemLibrary(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(s_dwFlags, 0u);
}
