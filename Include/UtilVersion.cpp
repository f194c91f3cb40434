#include "Include/UtilVersion.h"

#include "Include/BoundedText.h"
#include "Include/SystemCall.h"
#include "Include/TKLogging.h"

#include <cstring>
#include <cwchar>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("UtilVersion");

using RtlGetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOEXW*);
using IsUserAnAdminFunction = BOOL(WINAPI*)();

constexpr LONG STATUS_OF_SUCCESS = 0;
constexpr DWORD SHORT_VERSION_SIZE = 8;   // the second size that is tried where the full one is refused
constexpr size_t VERSION_BLOCK_SLACK = 2; // bytes
constexpr size_t MAX_VERSION_PATH = 64;   // characters, terminator included
constexpr WORD IS_USER_AN_ADMIN_ORDINAL = 680;

static_assert(sizeof(OSVERSIONINFOEXW) == 284);
} // namespace

bool GetRtlVersion(OSVERSIONINFOEXW* pVersion)
{
    const HMODULE hModule = GetModuleHandleW(L"ntdll.dll");
    if (hModule == nullptr)
    {
        return false;
    }
    const auto pfnRtlGetVersion = FindModuleEntry<RtlGetVersionFunction>(hModule, "RtlGetVersion");
    if (pfnRtlGetVersion == nullptr)
    {
        return false;
    }
    for (const DWORD cbVersion : {static_cast<DWORD>(sizeof(*pVersion)), SHORT_VERSION_SIZE})
    {
        pVersion->dwOSVersionInfoSize = cbVersion;
        if (pfnRtlGetVersion(pVersion) == STATUS_OF_SUCCESS)
        {
            return true;
        }
    }
    return false;
}

bool IsWindowsVersionEqualOrGreater(unsigned short major, unsigned short minor, unsigned short servicePack)
{
    const TKLogBlock block(L"IsWindowsVersionEqualOrGreater", g_pLogger);
    OSVERSIONINFOEXW version = {};
    if (!GetRtlVersion(&version))
    {
        return false;
    }
    if (version.dwMajorVersion != major)
    {
        return version.dwMajorVersion > major;
    }
    if (version.dwMinorVersion != minor)
    {
        return version.dwMinorVersion > minor;
    }
    return version.wServicePackMajor >= servicePack;
}

bool IsWindows10OrGreater()
{
    const TKLogBlock block(L"IsWindows10OrGreater", g_pLogger);
    return IsWindowsVersionEqualOrGreater(10, 0, 0);
}

std::vector<std::byte> ReadVersionBlock(const wchar_t* pszPath)
{
    DWORD dwUnused = 0;
    const DWORD cbBlock = GetFileVersionInfoSizeW(pszPath, &dwUnused);
    if (cbBlock == 0)
    {
        return {};
    }
    std::vector<std::byte> block(cbBlock + VERSION_BLOCK_SLACK);
    if (!GetFileVersionInfoW(pszPath, 0, cbBlock, block.data()))
    {
        return {};
    }
    return block;
}

std::wstring ReadVersionText(const std::vector<std::byte>& block, const wchar_t* pszName)
{
    void* pTranslation = nullptr;
    UINT cbTranslation = 0;
    if (block.empty() ||
        !VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation", &pTranslation, &cbTranslation) ||
        cbTranslation < 2 * sizeof(WORD))
    {
        return {};
    }
    WORD awTranslation[2] = {}; // language, code page
    std::memcpy(awTranslation, pTranslation, sizeof(awTranslation));
    wchar_t szPath[MAX_VERSION_PATH] = {};
    swprintf(szPath, MAX_VERSION_PATH, L"\\StringFileInfo\\%04hX%04hX\\", awTranslation[0], awTranslation[1]);
    void* pText = nullptr;
    UINT cchText = 0;
    if (!VerQueryValueW(block.data(), (std::wstring(szPath) + pszName).c_str(), &pText, &cchText))
    {
        return {};
    }
    return std::wstring(FixedText(static_cast<const wchar_t*>(pText), cchText));
}

int GetFileMajorVersion(const wchar_t* pszPath)
{
    const std::vector<std::byte> block = ReadVersionBlock(pszPath);
    void* pInfo = nullptr;
    UINT cbInfo = 0;
    if (block.empty() || !VerQueryValueW(block.data(), L"\\", &pInfo, &cbInfo) ||
        cbInfo < sizeof(VS_FIXEDFILEINFO))
    {
        return 0;
    }
    return static_cast<short>(HIWORD(static_cast<const VS_FIXEDFILEINFO*>(pInfo)->dwFileVersionMS));
}

bool IsUserAdmin()
{
    const CSystemModule shell(L"shell32.dll");
    auto pfnIsUserAnAdmin = shell.Find<IsUserAnAdminFunction>("IsUserAnAdmin");
    if (pfnIsUserAnAdmin == nullptr)
    {
        pfnIsUserAnAdmin = shell.Find<IsUserAnAdminFunction>(MAKEINTRESOURCEA(IS_USER_AN_ADMIN_ORDINAL));
    }
    return pfnIsUserAnAdmin == nullptr || pfnIsUserAnAdmin();
}
