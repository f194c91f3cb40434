#include "Include/UtilFile.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/Product.h"
#include "Include/TKLogging.h"
#include "startup/TKDAST.h"

#include <shellapi.h>

#include <algorithm>
#include <string>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("UtilFile");

constexpr size_t MAX_PERMISSION_COMMAND_LINE = 120; // characters, terminator included
constexpr DWORD MAX_ACCOUNT_PART = 520;             // characters of a name or a domain, terminator included
constexpr DWORD MAX_FALLBACK_ACCOUNT = 130;         // characters, terminator included

static_assert(sizeof(WIN32_FIND_DATAW) == 592);
static_assert(sizeof(SHELLEXECUTEINFOW) == 112);
static_assert(sizeof(STARTUPINFOW) == 104);

CKernelHandle OpenThisProcessToken()
{
    CKernelHandle hProcess(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, GetCurrentProcessId()));
    if (!hProcess)
    {
        hProcess.reset(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, GetCurrentProcessId()));
    }
    CKernelHandle hToken;
    if (hProcess && !OpenProcessToken(hProcess.get(), TOKEN_QUERY, hToken.put()))
    {
        hToken.reset();
    }
    return hToken;
}

CHeapBlock ReadTokenUser(HANDLE hToken)
{
    DWORD cbUser = 0;
    if (GetTokenInformation(hToken, TokenUser, nullptr, 0, &cbUser) ||
        GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    {
        return CHeapBlock();
    }
    CHeapBlock pUser(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, cbUser));
    if (pUser && !GetTokenInformation(hToken, TokenUser, pUser.get(), cbUser, &cbUser))
    {
        pUser.reset();
    }
    return pUser;
}

// Empty when the token's owner can't be told.
std::wstring LookUpTokenAccount()
{
    const CKernelHandle hToken = OpenThisProcessToken();
    if (!hToken)
    {
        return {};
    }
    const CHeapBlock pUser = ReadTokenUser(hToken.get());
    if (!pUser)
    {
        return {};
    }
    wchar_t szName[MAX_ACCOUNT_PART] = {};
    wchar_t szDomain[MAX_ACCOUNT_PART] = {};
    DWORD cchName = MAX_ACCOUNT_PART;
    DWORD cchDomain = MAX_ACCOUNT_PART;
    SID_NAME_USE kind = SidTypeUnknown;
    if (!LookupAccountSidW(nullptr, static_cast<const TOKEN_USER*>(pUser.get())->User.Sid, szName, &cchName,
                           szDomain, &cchDomain, &kind))
    {
        return {};
    }
    return szDomain[0] != L'\0' ? std::wstring(szDomain) + L'\\' + szName : std::wstring(szName);
}
} // namespace

int GetFileInformation(const wchar_t* pszPath, WIN32_FIND_DATAW* pInfo)
{
    // The same words as those of KDA_LoadLibrary; what reads the logs knows them so.
    TK_LOG_INFO(g_pLogger, L"KDA_LoadLibrary: " << pszPath);
    if (pszPath == nullptr || pszPath[0] == L'\0' || pInfo == nullptr)
    {
        return 0;
    }
    *pInfo = {};
    const CFindHandle hFind(FindFirstFileW(pszPath, pInfo));
    return hFind ? 1 : 0;
}

int TKShellExec(HWND hWnd, const wchar_t* pszVerb, const wchar_t* pszPath, const wchar_t* pszParameters,
                const wchar_t* pszDirectory)
{
    TK_LOG_INFO(g_pLogger, L"TKShellExec pszVerb=" << pszVerb << L" pszPath=" << pszPath << L" pszParameters="
                                                   << pszParameters << L" pszDirectory=" << pszDirectory);
    SHELLEXECUTEINFOW info = {};
    info.cbSize = sizeof(info);
    info.fMask = SEE_MASK_UNICODE;
    info.hwnd = hWnd;
    info.lpVerb = pszVerb;
    info.lpFile = pszPath;
    info.lpParameters = pszParameters;
    info.lpDirectory = pszDirectory;
    info.nShow = SW_SHOWNORMAL;
    return ShellExecuteExW(&info);
}

HINSTANCE KDA_LoadLibrary(const wchar_t* pszName)
{
    TK_LOG_INFO(g_pLogger, L"KDA_LoadLibrary: " << pszName);
    wchar_t szPath[MAX_PATH] = {};
    if (pszName == nullptr || !GetPathBesideProgram(szPath, pszName))
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const HINSTANCE hModule = LoadLibraryW(szPath);
    if (hModule != nullptr)
    {
        SetLastError(ERROR_SUCCESS);
    }
    return hModule;
}

int ExecutePermission(int nPort, int nAfType)
{
    TK_LOG_INFO(g_pLogger, L"ExecutePermission nPort=" << nPort << L" nAfType=" << nAfType);
    wchar_t szPath[MAX_PATH] = {};
    if (!GetPathBesideProgram(szPath, AGENT_EXECUTABLE))
    {
        return 0;
    }

    // CreateProcessW may write to the command line, and the structure takes no constant either.
    wchar_t szCommandLine[MAX_PERMISSION_COMMAND_LINE] = {};
    CopyText(szCommandLine, L" -Permission " + std::to_wstring(nPort) + L' ' + std::to_wstring(nAfType));
    wchar_t szDesktopOfThisProcess[] = L"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.lpDesktop = szDesktopOfThisProcess;

    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(szPath, szCommandLine, nullptr, nullptr, FALSE,
                        CREATE_NEW_CONSOLE | NORMAL_PRIORITY_CLASS, nullptr, nullptr, &startup, &process))
    {
        return 0;
    }
    const CKernelHandle hProcess(process.hProcess);
    const CKernelHandle hThread(process.hThread);
    return 1;
}

void GetAccountName(wchar_t* pszAccount, size_t cchAccount)
{
    std::fill_n(pszAccount, cchAccount, L'\0');
    CopyText(pszAccount, cchAccount, LookUpTokenAccount());
    if (cchAccount == 0 || pszAccount[0] != L'\0')
    {
        return;
    }
    DWORD cchFallback = static_cast<DWORD>(std::min<size_t>(cchAccount, MAX_FALLBACK_ACCOUNT));
    GetUserNameW(pszAccount, &cchFallback);
}

void GetProgramDirectory(wchar_t* pszDirectory, size_t cchDirectory)
{
    wchar_t szProgram[MAX_PATH] = {};
    const DWORD cchProgram = GetModuleFileNameW(g_hInstance, szProgram, MAX_PATH);
    // A path that fills the buffer was cut short: its last folder would be another one.
    if (cchProgram == 0 || cchProgram >= MAX_PATH)
    {
        return;
    }
    const std::wstring_view program(szProgram, cchProgram);
    const std::wstring_view directory = program.substr(0, program.rfind(L'\\') + 1);
    if (directory.size() < cchDirectory)
    {
        CopyText(pszDirectory, cchDirectory, directory);
    }
}

bool GetPathBesideProgram(wchar_t (&szPath)[MAX_PATH], std::wstring_view fileName)
{
    wchar_t szDirectory[MAX_PATH] = {};
    GetProgramDirectory(szDirectory, MAX_PATH);
    std::wstring path(szDirectory);
    if (path.empty())
    {
        return false;
    }
    if (path.back() != L'\\')
    {
        path += L'\\';
    }
    CopyText(szPath, path.append(fileName));
    return true;
}

bool RestrictModuleSearch()
{
    return SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
}

HMODULE TKLoadSystemLibrary(const wchar_t* pszName, HANDLE hFile, DWORD dwFlags)
{
    if (pszName == nullptr)
    {
        return nullptr;
    }
    return LoadLibraryExW(pszName, hFile, dwFlags | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
}
