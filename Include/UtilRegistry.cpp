#include "Include/UtilRegistry.h"

#include "Include/Handles.h"
#include "channel/TrayMessages.h"

namespace
{
constexpr wchar_t MACHINE_KEY[] = L"SOFTWARE\\Tessaran Development";
constexpr wchar_t WRITE_PROBE_VALUE[] = L"Test";

constexpr DWORD DEFAULT_PERMISSION_REQUIRED = 0;
constexpr DWORD DEFAULT_TRAY_ICON_MODE = 1;

// The type isn't looked at: whatever fits into four bytes is taken for the number, missing bytes being zero.
// A value that holds nothing at all, or more than fits, counts as missing.
DWORD ReadServiceSetting(const wchar_t* pszValue, DWORD dwDefault)
{
    CRegKey hKey;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, 0, KEY_QUERY_VALUE, hKey.put()) !=
        ERROR_SUCCESS)
    {
        return dwDefault;
    }
    DWORD dwValue = 0;
    DWORD cbValue = sizeof(dwValue);
    const LSTATUS nResult =
        RegQueryValueExW(hKey.get(), pszValue, nullptr, nullptr, reinterpret_cast<BYTE*>(&dwValue), &cbValue);
    return nResult == ERROR_SUCCESS && cbValue != 0 ? dwValue : dwDefault;
}
} // namespace

DWORD GetServicePort(DWORD dwFallback)
{
    return ReadServiceSetting(SERVICE_PORT_VALUE,
                              dwFallback == NO_FALLBACK_PORT ? DEFAULT_SERVICE_PORT : dwFallback);
}

DWORD GetPermissionRequired()
{
    return ReadServiceSetting(PERMISSION_REQUIRED_VALUE, DEFAULT_PERMISSION_REQUIRED);
}

DWORD GetTrayIconMode()
{
    return ReadServiceSetting(TRAY_ICON_VALUE, DEFAULT_TRAY_ICON_MODE);
}

bool CanWriteMachineSettings()
{
    CRegKey hKey;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, MACHINE_KEY, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                        nullptr, hKey.put(), nullptr) != ERROR_SUCCESS)
    {
        return false;
    }
    constexpr DWORD dwProbe = 1;
    return RegSetValueExW(hKey.get(), WRITE_PROBE_VALUE, 0, REG_DWORD,
                          reinterpret_cast<const BYTE*>(&dwProbe), sizeof(dwProbe)) == ERROR_SUCCESS &&
           RegDeleteValueW(hKey.get(), WRITE_PROBE_VALUE) == ERROR_SUCCESS;
}
