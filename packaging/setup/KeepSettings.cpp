#include "packaging/setup/KeepSettings.h"

#include "Include/LangUI.h"
#include "Include/UtilRegistry.h"

#include <msiquery.h>

#include <string>

namespace
{
// Has a value for each setting that an installation brought along; the package writes and removes them.
constexpr wchar_t MARKS_KEY[] = L"SOFTWARE\\Tessaran Development\\Kestrel Desk Assist\\Setup";

constexpr wchar_t FOLDER_MARK[] = L"Folder";

std::wstring Mark(const wchar_t* pszName)
{
    wchar_t szMark[MAX_PATH] = {};
    DWORD cbMark = sizeof(szMark);
    const LSTATUS nResult =
        RegGetValueW(HKEY_LOCAL_MACHINE, MARKS_KEY, pszName, RRF_RT_REG_SZ, nullptr, szMark, &cbMark);
    return nResult == ERROR_SUCCESS ? szMark : std::wstring();
}

std::wstring PortInForce()
{
    return std::to_wstring(GetServicePort(NO_FALLBACK_PORT));
}

std::wstring TrayIconInForce()
{
    return std::to_wstring(GetTrayIconMode());
}

std::wstring PermissionInForce()
{
    return std::to_wstring(GetPermissionRequired());
}

std::wstring LanguageInForce()
{
    return CProfileReg(SETTINGS_COMPANY, SETTINGS_APPLICATION)
        .GetProfileString(SETTINGS_SECTION, LANGUAGE_VALUE, DEFAULT_LANGUAGE);
}

// The mark is the folder itself.
std::wstring FolderInForce()
{
    return Mark(FOLDER_MARK);
}

struct KEPT_PROPERTY
{
    const wchar_t* pszProperty;
    const wchar_t* pszMark;
    std::wstring (*pfnInForce)();
};

constexpr KEPT_PROPERTY KEPT_PROPERTIES[] = {
    {L"INSTALLDIR", FOLDER_MARK, &FolderInForce},
    {L"PORT", SERVICE_PORT_VALUE, &PortInForce},
    {L"ICONMODE", TRAY_ICON_VALUE, &TrayIconInForce},
    {L"PERMISSIONREQUIRED", PERMISSION_REQUIRED_VALUE, &PermissionInForce},
    {L"LANGUAGE", LANGUAGE_VALUE, &LanguageInForce},
};

bool IsGiven(MSIHANDLE hInstall, const wchar_t* pszProperty)
{
    wchar_t szNothing[] = L"";
    DWORD cchValue = 0;
    // Without room for anything, the length is all there is to learn.
    MsiGetPropertyW(hInstall, pszProperty, szNothing, &cchValue);
    return cchValue != 0;
}
} // namespace

UINT __stdcall KeepSettings(MSIHANDLE hInstall)
{
    for (const KEPT_PROPERTY& kept : KEPT_PROPERTIES)
    {
        if (IsGiven(hInstall, kept.pszProperty) || Mark(kept.pszMark).empty())
        {
            continue;
        }
        const UINT nResult = MsiSetPropertyW(hInstall, kept.pszProperty, kept.pfnInForce().c_str());
        if (nResult != ERROR_SUCCESS)
        {
            return nResult;
        }
    }
    return ERROR_SUCCESS;
}
