#include "Include/UtilVersion.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace
{
using testing::ElementsAre;

constexpr LONG STATUS_OF_FAILURE = static_cast<LONG>(0xC0000001);

// The system's version as the test wants it.
DWORD g_dwMajor;
DWORD g_dwMinor;
WORD g_wServicePack;
int g_nFailures; // calls that fail before one works
std::vector<DWORD> g_sizes;

LONG WINAPI FakeRtlGetVersion(OSVERSIONINFOEXW* pVersion)
{
    g_sizes.push_back(pVersion->dwOSVersionInfoSize);
    if (g_nFailures-- > 0)
    {
        return STATUS_OF_FAILURE;
    }
    pVersion->dwMajorVersion = g_dwMajor;
    pVersion->dwMinorVersion = g_dwMinor;
    pVersion->wServicePackMajor = g_wServicePack;
    return 0;
}

BOOL WINAPI NotAnAdmin()
{
    return FALSE;
}

BOOL WINAPI FakeVersionBlock(const void*, const wchar_t*, void** ppInfo, UINT* pcbInfo)
{
    static VS_FIXEDFILEINFO s_info = {};
    s_info.dwFileVersionMS = 0xFFFE0007;
    *ppInfo = &s_info;
    *pcbInfo = sizeof(s_info);
    return TRUE;
}

class UtilVersion : public testing::Test
{
  protected:
    UtilVersion()
    {
        g_nFailures = 0;
        g_sizes.clear();
        m_binding.Set("RtlGetVersion", &FakeRtlGetVersion);
        SetVersion(10, 0, 0);
    }
    static void SetVersion(DWORD dwMajor, DWORD dwMinor, WORD wServicePack)
    {
        g_dwMajor = dwMajor;
        g_dwMinor = dwMinor;
        g_wServicePack = wServicePack;
    }

    LateBinding m_binding;
};
} // namespace

TEST_F(UtilVersion, Windows81IsNotWindows10)
{
    SetVersion(6, 3, 9);
    EXPECT_FALSE(IsWindows10OrGreater());
}

TEST_F(UtilVersion, MajorVersion10IsWindows10WithAnyMinorOne)
{
    for (const DWORD dwMinor : {0, 1, 99})
    {
        SetVersion(10, dwMinor, 0);
        EXPECT_TRUE(IsWindows10OrGreater());
    }
    SetVersion(11, 0, 0);
    EXPECT_TRUE(IsWindows10OrGreater());
}

TEST_F(UtilVersion, VersionsCompareByMajorThenMinorThenServicePack)
{
    SetVersion(6, 1, 1);
    EXPECT_TRUE(IsWindowsVersionEqualOrGreater(5, 9, 9));
    EXPECT_FALSE(IsWindowsVersionEqualOrGreater(7, 0, 0));
    EXPECT_TRUE(IsWindowsVersionEqualOrGreater(6, 0, 9));
    EXPECT_FALSE(IsWindowsVersionEqualOrGreater(6, 2, 0));
    EXPECT_TRUE(IsWindowsVersionEqualOrGreater(6, 1, 0));
    EXPECT_TRUE(IsWindowsVersionEqualOrGreater(6, 1, 1));
    EXPECT_FALSE(IsWindowsVersionEqualOrGreater(6, 1, 2));
}

TEST_F(UtilVersion, FullSizeIsTriedBeforeTheShortOne)
{
    OSVERSIONINFOEXW version = {};
    g_nFailures = 1;
    EXPECT_TRUE(GetRtlVersion(&version));
    EXPECT_THAT(g_sizes, ElementsAre(284u, 8u));
    EXPECT_EQ(version.dwMajorVersion, 10u);
    g_sizes.clear();
    EXPECT_TRUE(GetRtlVersion(&version));
    EXPECT_THAT(g_sizes, ElementsAre(284u));
}

TEST_F(UtilVersion, UnknownVersionIsLessThanAny)
{
    OSVERSIONINFOEXW version = {};
    g_nFailures = 2;
    EXPECT_FALSE(GetRtlVersion(&version));
    g_nFailures = 2;
    EXPECT_FALSE(IsWindowsVersionEqualOrGreater(0, 0, 0));
    m_binding.SetMissing("RtlGetVersion");
    EXPECT_FALSE(IsWindowsVersionEqualOrGreater(0, 0, 0));
    const ImportHook hook(
        "kernel32.dll", "GetModuleHandleW", +[](const wchar_t*) -> HMODULE { return nullptr; });
    EXPECT_FALSE(GetRtlVersion(&version));
}

TEST_F(UtilVersion, VersionTestsTraceTheirScopes)
{
    const LogCapture capture("UtilVersion");
    EXPECT_TRUE(IsWindows10OrGreater());
    EXPECT_THAT(capture.Texts(), ElementsAre("TRACE IsWindows10OrGreater entering.",
                                             "TRACE IsWindowsVersionEqualOrGreater entering.",
                                             "TRACE IsWindowsVersionEqualOrGreater exiting.",
                                             "TRACE IsWindows10OrGreater exiting."));
}

TEST_F(UtilVersion, ShellHasItsBalloons)
{
    EXPECT_GE(GetFileMajorVersion(L"Shell32.dll"), 5);
}

TEST_F(UtilVersion, FileWithoutAVersionHasZero)
{
    EXPECT_EQ(GetFileMajorVersion(L"no such file.dll"), 0);
    const ImportHook hook(
        "version.dll", "VerQueryValueW",
        +[](const void*, const wchar_t*, void**, UINT*) -> BOOL { return FALSE; });
    EXPECT_EQ(GetFileMajorVersion(L"Shell32.dll"), 0);
}

TEST_F(UtilVersion, MajorFileVersionIsSigned)
{
    const ImportHook hook("version.dll", "VerQueryValueW", &FakeVersionBlock);
    EXPECT_EQ(GetFileMajorVersion(L"Shell32.dll"), -2);
}

TEST_F(UtilVersion, AdministratorIsWhomTheShellCallsOne)
{
    m_binding.Set("IsUserAnAdmin", &NotAnAdmin);
    EXPECT_FALSE(IsUserAdmin());
    m_binding.SetMissing("IsUserAnAdmin");
    m_binding.Set("#680", &NotAnAdmin);
    EXPECT_FALSE(IsUserAdmin());
    EXPECT_EQ(m_binding.OpenModules(), 0);
}

TEST_F(UtilVersion, SystemThatCannotTellCountsTheUserAsAdministrator)
{
    m_binding.SetMissing("IsUserAnAdmin");
    m_binding.SetMissing(WORD{680});
    EXPECT_TRUE(IsUserAdmin());
    m_binding.Set("IsUserAnAdmin", &NotAnAdmin);
    m_binding.SetMissingModule(L"shell32.dll");
    EXPECT_TRUE(IsUserAdmin());
}
