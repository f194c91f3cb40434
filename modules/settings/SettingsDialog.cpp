#include "modules/settings/SettingsDialog.h"

#include "Include/Handles.h"
#include "Include/Product.h"
#include "modules/common/ModuleContext.h"
#include "modules/common/ModuleLanguage.h"
#include "modules/settings/SettingsChoice.h"
#include "modules/settings/SettingsResource.h"
#include "modules/settings/SettingsStore.h"
#include "modules/settings/SettingsText.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace
{
// Posted: the note's icon is loaded anew, as its place has got another size.
constexpr UINT WM_SETTINGS_FIT_ICON = WM_APP;

constexpr WPARAM MAX_PORT_TEXT = 64; // characters; what is typed beyond isn't taken

struct ICON_ROW
{
    TRAY_ICON_MODE mode;
    UINT uText;
};
constexpr ICON_ROW ICON_ROWS[] = {{TRAY_ICON_SHOWN, IDS_SETTINGS_ICON_ALWAYS},
                                  {TRAY_ICON_WHILE_CONNECTED, IDS_SETTINGS_ICON_CONNECTED},
                                  {TRAY_ICON_HIDDEN, IDS_SETTINGS_ICON_NEVER}};

struct SETTINGS_START
{
    HMODULE hModule;
    LANGID language;
    bool bApplicationMode;
};

struct SETTINGS_STATE
{
    SETTINGS_START start = {};
    HWND hDlg = nullptr;
    bool bCanStore = false;
    SETTINGS stored;          // as they stand in the registry
    bool bSomeStored = false; // by an OK that failed for others
    std::vector<LANGUAGE_CHOICE> languages;
    CIcon hNoteIcon;
};

SETTINGS_STATE g_state;

std::wstring Text(UINT uString)
{
    return LoadModuleText(g_state.start.hModule, uString, g_state.start.language);
}

std::wstring ControlText(HWND hWnd, int nControl)
{
    const HWND hControl = GetDlgItem(hWnd, nControl);
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(hControl)) + 1, L'\0');
    text.resize(static_cast<size_t>(GetWindowTextW(hControl, text.data(), static_cast<int>(text.size()))));
    return text;
}

void AddItem(HWND hWnd, int nCombo, const std::wstring& text)
{
    SendDlgItemMessageW(hWnd, nCombo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text.c_str()));
}

// One is selected at all times.
size_t SelectedItem(HWND hWnd, int nCombo, size_t nItems)
{
    return std::min(static_cast<size_t>(SendDlgItemMessageW(hWnd, nCombo, CB_GETCURSEL, 0, 0)), nItems - 1);
}

void ShowNoteIcon(HWND hWnd)
{
    RECT place = {};
    GetClientRect(GetDlgItem(hWnd, IDC_SETTINGS_NOTE_ICON), &place);
    const int nSize = static_cast<int>(std::min(place.right, place.bottom));
    const HICON hSystemIcon = LoadIconW(nullptr, g_state.bCanStore ? IDI_INFORMATION : IDI_WARNING);
    CIcon hIcon(static_cast<HICON>(CopyImage(hSystemIcon, IMAGE_ICON, nSize, nSize, LR_COPYFROMRESOURCE)));
    SendDlgItemMessageW(hWnd, IDC_SETTINGS_NOTE_ICON, STM_SETICON, reinterpret_cast<WPARAM>(hIcon.get()), 0);
    g_state.hNoteIcon = std::move(hIcon);
}

void ShowNote(HWND hWnd)
{
    SetDlgItemTextW(hWnd, IDC_SETTINGS_NOTE,
                    Text(ChooseNote(g_state.start.bApplicationMode, g_state.bCanStore)).c_str());
    ShowNoteIcon(hWnd);
}

void ShowIconMode(HWND hWnd)
{
    for (const ICON_ROW& row : ICON_ROWS)
    {
        AddItem(hWnd, IDC_SETTINGS_ICON, Text(row.uText));
    }
    const auto* const pRow =
        std::find_if(std::begin(ICON_ROWS), std::end(ICON_ROWS),
                     [](const ICON_ROW& row) { return row.mode == g_state.stored.trayIcon; });
    SendDlgItemMessageW(hWnd, IDC_SETTINGS_ICON, CB_SETCURSEL,
                        static_cast<WPARAM>(pRow - std::begin(ICON_ROWS)), 0);
}

void ShowLanguages(HWND hWnd)
{
    g_state.languages =
        ListLanguages(InstalledLanguages(g_state.start.hModule), WindowsLocale(), g_state.stored.language,
                      {Text(IDS_SETTINGS_AS_WINDOWS), Text(IDS_SETTINGS_NOT_INSTALLED)});
    for (const LANGUAGE_CHOICE& choice : g_state.languages)
    {
        AddItem(hWnd, IDC_SETTINGS_LANGUAGE, choice.text);
    }
    SendDlgItemMessageW(hWnd, IDC_SETTINGS_LANGUAGE, CB_SETCURSEL,
                        FindLanguage(g_state.languages, g_state.stored.language), 0);
}

INT_PTR OnInitDialog(HWND hWnd, const SETTINGS_START& start)
{
    g_state = SETTINGS_STATE();
    g_state.start = start;
    g_state.hDlg = hWnd;
    g_state.bCanStore = CanStoreForMachine();
    g_state.stored = ReadSettings(start.bApplicationMode);
    ShowNote(hWnd);
    SendDlgItemMessageW(hWnd, IDC_SETTINGS_PORT, EM_LIMITTEXT, MAX_PORT_TEXT, 0);
    SetDlgItemTextW(hWnd, IDC_SETTINGS_PORT, std::to_wstring(g_state.stored.dwPort).c_str());
    ShowIconMode(hWnd);
    ShowLanguages(hWnd);
    CheckDlgButton(hWnd, IDC_SETTINGS_PERMISSION,
                   g_state.stored.bPermissionRequired ? BST_CHECKED : BST_UNCHECKED);
    return TRUE;
}

void ComplainOfPort(HWND hWnd, const PORT_INPUT& input)
{
    MessageBoxW(hWnd, Text(ChoosePortComplaint(input.fault)).c_str(), PRODUCT_NAME, MB_ICONINFORMATION);
    SetFocus(GetDlgItem(hWnd, IDC_SETTINGS_PORT));
    SendDlgItemMessageW(hWnd, IDC_SETTINGS_PORT, EM_SETSEL, input.nFaultBegin,
                        static_cast<LPARAM>(input.nFaultEnd));
    SendDlgItemMessageW(hWnd, IDC_SETTINGS_PORT, EM_SCROLLCARET, 0, 0);
}

// A port that is stored wrongly must not keep anybody from changing the rest who can't mend it.
bool TakePort(HWND hWnd, DWORD& dwPort)
{
    const std::wstring text = ControlText(hWnd, IDC_SETTINGS_PORT);
    if (!g_state.bCanStore && text == std::to_wstring(g_state.stored.dwPort))
    {
        dwPort = g_state.stored.dwPort;
        return true;
    }
    const PORT_INPUT input = ParsePortInput(text);
    if (input.fault != PORT_FAULT::NONE)
    {
        ComplainOfPort(hWnd, input);
        return false;
    }
    dwPort = input.dwPort;
    return true;
}

bool TakeSettings(HWND hWnd, SETTINGS& wanted)
{
    wanted.trayIcon = ICON_ROWS[SelectedItem(hWnd, IDC_SETTINGS_ICON, std::size(ICON_ROWS))].mode;
    wanted.language =
        g_state.languages[SelectedItem(hWnd, IDC_SETTINGS_LANGUAGE, g_state.languages.size())].code;
    wanted.bPermissionRequired = IsDlgButtonChecked(hWnd, IDC_SETTINGS_PERMISSION) == BST_CHECKED;
    return TakePort(hWnd, wanted.dwPort);
}

// What was stored counts as stored from here on: another OK tries only the rest.
std::vector<STORE_FAILURE> StoreChanges(const SETTINGS& wanted)
{
    std::vector<STORE_FAILURE> failures;
    for (const SETTING setting : ChangedSettings(g_state.stored, wanted))
    {
        const LSTATUS nResult = StoreSetting(wanted, setting, g_state.start.bApplicationMode);
        if (nResult != ERROR_SUCCESS)
        {
            failures.push_back({setting, nResult});
            continue;
        }
        TakeSetting(g_state.stored, wanted, setting);
        g_state.bSomeStored = true;
    }
    return failures;
}

void OnOk(HWND hWnd)
{
    SETTINGS wanted;
    if (!TakeSettings(hWnd, wanted))
    {
        return;
    }
    const std::vector<STORE_FAILURE> failures = StoreChanges(wanted);
    if (failures.empty())
    {
        EndDialog(hWnd, IDOK);
        return;
    }
    const std::wstring report =
        ComposeStoreReport(g_state.start.hModule, g_state.start.language, g_state.start.bApplicationMode,
                           failures, g_state.bSomeStored);
    MessageBoxW(hWnd, report.c_str(), PRODUCT_NAME, MB_ICONWARNING);
}

void OnCommand(HWND hWnd, int nControl)
{
    switch (nControl)
    {
    case IDOK:
        OnOk(hWnd);
        break;
    case IDCANCEL:
        EndDialog(hWnd, IDCANCEL);
        break;
    default:
        break;
    }
}

INT_PTR CALLBACK SettingsWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd, *reinterpret_cast<const SETTINGS_START*>(lParam));
    case WM_COMMAND:
        OnCommand(hWnd, LOWORD(wParam));
        return TRUE;
    case WM_CLOSE:
        EndDialog(hWnd, IDCANCEL);
        return TRUE;
    case WM_DPICHANGED:
        PostMessageW(hWnd, WM_SETTINGS_FIT_ICON, 0, 0); // the system moves the controls after this
        return FALSE;
    case WM_SETTINGS_FIT_ICON:
        ShowNoteIcon(hWnd);
        return TRUE;
    case WM_DESTROY:
        g_state = SETTINGS_STATE();
        return TRUE;
    default:
        return FALSE;
    }
}
} // namespace

bool RunSettingsDialog(HMODULE hModule, HWND hOwner, bool bApplicationMode)
{
    if (g_state.hDlg != nullptr)
    {
        SetForegroundWindow(g_state.hDlg);
        return false;
    }
    const CModuleContext context(hModule);
    const SETTINGS_START start = {hModule, CurrentModuleLanguage(), bApplicationMode};
    const DLGTEMPLATE* const pTemplate = FindModuleDialog(hModule, IDD_SETTINGS, start.language);
    return pTemplate != nullptr && DialogBoxIndirectParamW(hModule, pTemplate, hOwner, SettingsWndProc,
                                                           reinterpret_cast<LPARAM>(&start)) == IDOK;
}
