#include "Include/UtilRegistry.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/RegistrySandbox.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
constexpr wchar_t SETTINGS_KEY[] = L"SOFTWARE\\Tessaran Development\\Kestrel Desk Assist Service\\Settings";
constexpr wchar_t PROBE_KEY[] = L"SOFTWARE\\Tessaran Development";

class UtilRegistry : public testing::Test
{
  protected:
    static void Store(const wchar_t* pszValue, DWORD dwType, const void* pData, DWORD cbData)
    {
        ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, SETTINGS_KEY, pszValue, dwType, pData, cbData),
                  ERROR_SUCCESS);
    }
    static void StoreNumber(const wchar_t* pszValue, DWORD dwData)
    {
        Store(pszValue, REG_DWORD, &dwData, sizeof(dwData));
    }

  private:
    RegistrySandbox m_machine{HKEY_LOCAL_MACHINE};
};

// What the write probe asks of the system, in order.
struct ProbeCalls
{
    decltype(&RegOpenKeyExW) pfnOpen = nullptr;
    decltype(&RegCreateKeyExW) pfnCreate = nullptr;
    decltype(&RegSetValueExW) pfnSet = nullptr;
    decltype(&RegDeleteValueW) pfnDelete = nullptr;
    std::vector<std::string> calls;
};
ProbeCalls g_probe;

LSTATUS WINAPI RecordOpenKey(HKEY hKey, const wchar_t* pszKey, DWORD dwOptions, REGSAM access, HKEY* phKey)
{
    EXPECT_EQ(access, 1u);
    g_probe.calls.emplace_back("open");
    return g_probe.pfnOpen(hKey, pszKey, dwOptions, access, phKey);
}

LSTATUS WINAPI RecordCreateKey(HKEY hKey, const wchar_t* pszKey, DWORD dwReserved, wchar_t* pszClass,
                               DWORD dwOptions, REGSAM access, SECURITY_ATTRIBUTES* pAttributes, HKEY* phKey,
                               DWORD* pdwDisposition)
{
    EXPECT_EQ(hKey, HKEY_LOCAL_MACHINE);
    EXPECT_STREQ(pszKey, PROBE_KEY);
    EXPECT_EQ(dwOptions, 0u);
    EXPECT_EQ(access, 0xF003Fu);
    g_probe.calls.emplace_back("create");
    return g_probe.pfnCreate(hKey, pszKey, dwReserved, pszClass, dwOptions, access, pAttributes, phKey,
                             pdwDisposition);
}

LSTATUS WINAPI RecordSetValue(HKEY hKey, const wchar_t* pszValue, DWORD dwReserved, DWORD dwType,
                              const BYTE* pbData, DWORD cbData)
{
    EXPECT_STREQ(pszValue, L"Test");
    EXPECT_EQ(dwType, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(std::vector<BYTE>(pbData, pbData + cbData), (std::vector<BYTE>{1, 0, 0, 0}));
    g_probe.calls.emplace_back("set");
    return g_probe.pfnSet(hKey, pszValue, dwReserved, dwType, pbData, cbData);
}

LSTATUS WINAPI RecordDeleteValue(HKEY hKey, const wchar_t* pszValue)
{
    EXPECT_STREQ(pszValue, L"Test");
    g_probe.calls.emplace_back("delete");
    return g_probe.pfnDelete(hKey, pszValue);
}

LSTATUS WINAPI RefuseCreateKey(HKEY, const wchar_t*, DWORD, wchar_t*, DWORD, REGSAM, SECURITY_ATTRIBUTES*,
                               HKEY*, DWORD*)
{
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI RefuseSetValue(HKEY, const wchar_t*, DWORD, DWORD, const BYTE*, DWORD)
{
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI RefuseDeleteValue(HKEY, const wchar_t*)
{
    return ERROR_ACCESS_DENIED;
}
} // namespace

TEST_F(UtilRegistry, MissingKeyGivesTheDefaultsAndStaysMissing)
{
    EXPECT_EQ(GetServicePort(NO_FALLBACK_PORT), 6129u);
    EXPECT_EQ(GetServicePort(1234), 1234u);
    EXPECT_EQ(GetServicePort(0), 0u);
    EXPECT_EQ(GetPermissionRequired(), 0u);
    EXPECT_EQ(GetTrayIconMode(), 1u);
    HKEY hKey = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, PROBE_KEY, 0, KEY_READ, &hKey), ERROR_FILE_NOT_FOUND);
}

TEST_F(UtilRegistry, MissingValueGivesTheDefault)
{
    StoreNumber(L"Other", 7);
    EXPECT_EQ(GetServicePort(NO_FALLBACK_PORT), 6129u);
    EXPECT_EQ(GetPermissionRequired(), 0u);
    EXPECT_EQ(GetTrayIconMode(), 1u);
}

TEST_F(UtilRegistry, StoredValueWinsOverEveryDefault)
{
    StoreNumber(L"Port", 6130);
    StoreNumber(L"Permission Required", 3);
    StoreNumber(L"TrayIcon", 0);
    EXPECT_EQ(GetServicePort(1234), 6130u);
    EXPECT_EQ(GetPermissionRequired(), 3u);
    EXPECT_EQ(GetTrayIconMode(), 0u);
}

TEST_F(UtilRegistry, ValueOfAnotherTypeIsReadAsTheFourBytesItHolds)
{
    const BYTE abPort[] = {0x34, 0x12, 0, 0};
    Store(L"Port", REG_BINARY, abPort, sizeof(abPort));
    EXPECT_EQ(GetServicePort(NO_FALLBACK_PORT), 0x1234u);
    Store(L"Port", REG_SZ, L"1", 4);
    EXPECT_EQ(GetServicePort(NO_FALLBACK_PORT), 0x31u);
    Store(L"Port", REG_BINARY, abPort, 1);
    EXPECT_EQ(GetServicePort(NO_FALLBACK_PORT), 0x34u);
}

TEST_F(UtilRegistry, ValueThatHoldsNothingOrTooMuchCountsAsMissing)
{
    Store(L"Port", REG_SZ, L"6130", 10);
    EXPECT_EQ(GetServicePort(1234), 1234u);
    Store(L"Port", REG_BINARY, nullptr, 0);
    EXPECT_EQ(GetServicePort(1234), 1234u);
}

TEST_F(UtilRegistry, WriteProbeLeavesNoValueBehind)
{
    EXPECT_TRUE(CanWriteMachineSettings());
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, PROBE_KEY, L"Test", RRF_RT_ANY, nullptr, nullptr, nullptr),
              ERROR_FILE_NOT_FOUND);
}

TEST_F(UtilRegistry, WriteProbeSetsANumberAndDeletesIt)
{
    const ImportHook create("advapi32.dll", "RegCreateKeyExW", &RecordCreateKey);
    const ImportHook set("advapi32.dll", "RegSetValueExW", &RecordSetValue);
    const ImportHook remove("advapi32.dll", "RegDeleteValueW", &RecordDeleteValue);
    g_probe = {nullptr, create.Original(), set.Original(), remove.Original(), {}};
    EXPECT_TRUE(CanWriteMachineSettings());
    EXPECT_EQ(g_probe.calls, (std::vector<std::string>{"create", "set", "delete"}));
}

TEST_F(UtilRegistry, SettingsAreOnlyQueried)
{
    const ImportHook open("advapi32.dll", "RegOpenKeyExW", &RecordOpenKey);
    g_probe = {open.Original(), nullptr, nullptr, nullptr, {}};
    GetServicePort(NO_FALLBACK_PORT);
    GetPermissionRequired();
    GetTrayIconMode();
    EXPECT_EQ(g_probe.calls, std::vector<std::string>(3, "open"));
}

TEST_F(UtilRegistry, ReadOnlyRegistryFailsTheWriteProbe)
{
    const ImportHook hook("advapi32.dll", "RegCreateKeyExW", &RefuseCreateKey);
    EXPECT_FALSE(CanWriteMachineSettings());
}

TEST_F(UtilRegistry, WriteProbeNeedsBothTheSetAndTheDelete)
{
    {
        const ImportHook hook("advapi32.dll", "RegSetValueExW", &RefuseSetValue);
        EXPECT_FALSE(CanWriteMachineSettings());
    }
    const ImportHook hook("advapi32.dll", "RegDeleteValueW", &RefuseDeleteValue);
    EXPECT_FALSE(CanWriteMachineSettings());
}
