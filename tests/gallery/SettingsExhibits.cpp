#include "tests/gallery/SettingsExhibits.h"

#include "modules/settings/SettingsDialog.h"
#include "modules/settings/SettingsResource.h"
#include "tests/support/ImportHook.h"
#include "tests/support/SettingsModule.h"

namespace
{
// A user whom the machine's part of the registry is closed to. The dialog's own code runs in this program,
// whose imports can be replaced; words and template are the staged module's.
class NoRights
{
  public:
    NoRights() { s_pThis = this; }

  private:
    static NoRights* s_pThis;

    static LSTATUS WINAPI Open(HKEY hRoot, LPCWSTR pszKey, DWORD dwOptions, REGSAM access, PHKEY phKey)
    {
        return (access & KEY_SET_VALUE) != 0
                   ? ERROR_ACCESS_DENIED
                   : s_pThis->m_open.Original()(hRoot, pszKey, dwOptions, access, phKey);
    }
    static LSTATUS WINAPI Create(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, const LPSECURITY_ATTRIBUTES,
                                 PHKEY, LPDWORD)
    {
        return ERROR_ACCESS_DENIED;
    }

    ImportHook<decltype(RegOpenKeyExW)> m_open{"advapi32.dll", "RegOpenKeyExW", &Open};
    ImportHook<decltype(RegCreateKeyExW)> m_create{"advapi32.dll", "RegCreateKeyExW", &Create};
};
NoRights* NoRights::s_pThis = nullptr;

BOOL CALLBACK TakeDialog(HWND hWnd, LPARAM lParam)
{
    if (GetDlgItem(hWnd, IDC_SETTINGS_PORT) == nullptr || !IsWindowVisible(hWnd))
    {
        return TRUE;
    }
    *reinterpret_cast<HWND*>(lParam) = hWnd;
    return FALSE;
}

// In the loop of the dialog, as soon as it is there.
template <void (*FILL)(HWND)>
void CALLBACK FillDialog(HWND, UINT, UINT_PTR uTimer, DWORD)
{
    HWND hDlg = nullptr;
    EnumThreadWindows(GetCurrentThreadId(), TakeDialog, reinterpret_cast<LPARAM>(&hDlg));
    if (hDlg != nullptr)
    {
        KillTimer(nullptr, uTimer);
        FILL(hDlg);
    }
}

void TypeBadPort(HWND hDlg)
{
    SetDlgItemTextW(hDlg, IDC_SETTINGS_PORT, L"61x29");
    SendDlgItemMessageW(hDlg, IDOK, BM_CLICK, 0, 0);
}

void ChangeEverything(HWND hDlg)
{
    SetDlgItemTextW(hDlg, IDC_SETTINGS_PORT, L"6130");
    SendDlgItemMessageW(hDlg, IDC_SETTINGS_ICON, CB_SETCURSEL, 1, 0);
    SendDlgItemMessageW(hDlg, IDC_SETTINGS_LANGUAGE, CB_SETCURSEL, 2, 0);
    SendDlgItemMessageW(hDlg, IDC_SETTINGS_PERMISSION, BM_CLICK, 0, 0);
    SendDlgItemMessageW(hDlg, IDOK, BM_CLICK, 0, 0);
}
} // namespace

void ShowSettings(CTaskBarWindow&)
{
    LoadedSettingsModule().Show(nullptr);
}

void ShowSettingsForUser(CTaskBarWindow&)
{
    const LoadedSettingsModule module;
    module.SetApplicationMode();
    module.Show(nullptr);
}

void ShowSettingsNoRights(CTaskBarWindow&)
{
    const NoRights rights;
    RunSettingsDialog(LoadedSettingsModule().Handle(), nullptr, false);
}

void ShowSettingsUserNoRights(CTaskBarWindow&)
{
    const NoRights rights;
    RunSettingsDialog(LoadedSettingsModule().Handle(), nullptr, true);
}

void ShowSettingsBadPort(CTaskBarWindow&)
{
    SetTimer(nullptr, 0, USER_TIMER_MINIMUM, FillDialog<TypeBadPort>);
    LoadedSettingsModule().Show(nullptr);
}

void ShowSettingsRefused(CTaskBarWindow&)
{
    const NoRights rights;
    SetTimer(nullptr, 0, USER_TIMER_MINIMUM, FillDialog<ChangeEverything>);
    RunSettingsDialog(LoadedSettingsModule().Handle(), nullptr, false);
}
