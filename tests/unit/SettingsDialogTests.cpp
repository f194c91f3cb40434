#include "modules/settings/SettingsDialog.h"

#include "Include/Product.h"
#include "modules/common/ModuleLanguage.h"
#include "modules/settings/SettingsResource.h"
#include "modules/settings/SettingsText.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/DialogMeasures.h"
#include "tests/unit/SettingsHarness.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace
{
using Values = std::vector<std::wstring>;

const Values ALL_VALUES = {L"Port", L"TrayIcon", L"LangUI", L"Permission Required"};

// The dialog's code in this program, whose imports can be replaced, with the staged module's words.
class SettingsDialog : public SettingsHarness
{
  protected:
    bool Run(const std::function<void(HWND)>& scenario, bool bApplicationMode = false)
    {
        return Play(scenario,
                    [&] { return RunSettingsDialog(m_module.Handle(), nullptr, bApplicationMode); });
    }

    static void ChangeEverything(HWND hDialog)
    {
        SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L"5000");
        Select(hDialog, IDC_SETTINGS_ICON, 2);
        Select(hDialog, IDC_SETTINGS_LANGUAGE, 3);
        Click(hDialog, IDC_SETTINGS_PERMISSION);
    }
    std::wstring Text(UINT uString) const
    {
        return LoadModuleText(m_module.Handle(), uString, MODULE_ENGLISH);
    }
    std::wstring Report(SETTING setting, bool bOthersStored) const
    {
        return ComposeStoreReport(m_module.Handle(), MODULE_ENGLISH, false, {{setting, ERROR_ACCESS_DENIED}},
                                  bOthersStored);
    }

    BoxTrace m_boxes;
};

// ---- What can't be stored.

TEST_F(SettingsDialog, TellsWhichValueCouldNotBeStoredAndStaysOpen)
{
    const SETTING settings[] = {SETTING::PORT, SETTING::TRAY_ICON, SETTING::LANGUAGE, SETTING::PERMISSION};
    for (size_t nDenied = 0; nDenied < ALL_VALUES.size(); ++nDenied)
    {
        const SettingsRegistry registry;
        DeniedRegistry denied;
        denied.m_value = ALL_VALUES[nDenied];
        m_boxes.Forget();
        const bool bResult = Run([&](HWND hDialog) {
            ChangeEverything(hDialog);
            Click(hDialog, IDOK);
            EXPECT_TRUE(IsWindowVisible(hDialog));
            ASSERT_EQ(m_boxes.Boxes().size(), 1u);
            EXPECT_EQ(m_boxes.Boxes()[0].text, Report(settings[nDenied], true));
            EXPECT_EQ(m_boxes.Boxes()[0].title, PRODUCT_NAME);
            EXPECT_EQ(m_boxes.Boxes()[0].uType, UINT{MB_ICONWARNING});
            EXPECT_EQ(m_boxes.Boxes()[0].hWndOwner, hDialog);
            EXPECT_EQ(SettingsRegistry::CountValues(HKEY_LOCAL_MACHINE), 3u);
            EXPECT_EQ(denied.m_attempts, ALL_VALUES);

            // A second OK tries only what is missing.
            denied.m_attempts.clear();
            Click(hDialog, IDOK);
            EXPECT_EQ(denied.m_attempts, Values{ALL_VALUES[nDenied]});
            EXPECT_EQ(m_boxes.Boxes().size(), 2u);
            EXPECT_EQ(m_boxes.Boxes().back().text, Report(settings[nDenied], true));
            EXPECT_TRUE(IsWindowVisible(hDialog));

            denied.m_value.reset();
            Click(hDialog, IDOK);
        });
        EXPECT_TRUE(bResult);
        EXPECT_EQ(m_boxes.Boxes().size(), 2u);
        EXPECT_EQ(SettingsRegistry::CountValues(HKEY_LOCAL_MACHINE), 4u);
    }
}

TEST_F(SettingsDialog, NeverClaimsToHaveStoredWhatItHasNot)
{
    DeniedRegistry denied;
    denied.m_createOf = HKEY_LOCAL_MACHINE;
    const bool bResult = Run([&](HWND hDialog) {
        ChangeEverything(hDialog);
        Click(hDialog, IDOK);
        ASSERT_EQ(m_boxes.Boxes().size(), 1u);
        for (const UINT uName : {IDS_SETTINGS_NAME_PORT, IDS_SETTINGS_NAME_ICON, IDS_SETTINGS_NAME_LANGUAGE,
                                 IDS_SETTINGS_NAME_PERMISSION, IDS_SETTINGS_NONE_STORED})
        {
            EXPECT_NE(m_boxes.Boxes()[0].text.find(Text(uName)), std::wstring::npos) << uName;
        }
        EXPECT_EQ(m_boxes.Boxes()[0].text.find(Text(IDS_SETTINGS_REST_STORED)), std::wstring::npos);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        EXPECT_EQ(ControlText(hDialog, IDC_SETTINGS_PORT), L"5000") << "what was typed stays";
        Click(hDialog, IDCANCEL);
    });
    EXPECT_FALSE(bResult);
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_LOCAL_MACHINE));
}

TEST_F(SettingsDialog, StoresTheLanguageOfAUserWithoutRights)
{
    DeniedRegistry denied;
    denied.m_createOf = HKEY_LOCAL_MACHINE;
    const bool bResult = Run(
        [&](HWND hDialog) {
            Select(hDialog, IDC_SETTINGS_LANGUAGE, 2);
            SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L"5000");
            Click(hDialog, IDOK);
            ASSERT_EQ(m_boxes.Boxes().size(), 1u);
            EXPECT_EQ(m_boxes.Boxes()[0].text, Report(SETTING::PORT, true));
            SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L"6129");
            Click(hDialog, IDOK);
        },
        true);
    EXPECT_TRUE(bResult);
    EXPECT_EQ(SettingsRegistry::Text(HKEY_CURRENT_USER, L"LangUI"), L"de");
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_LOCAL_MACHINE));
}

TEST_F(SettingsDialog, SaysOnOpeningWhomItIsForAndWhetherRightsAreMissing)
{
    DeniedRegistry denied;
    std::set<std::wstring> notes;
    for (const bool bApplicationMode : {false, true})
    {
        for (const bool bCanStore : {false, true})
        {
            denied.m_createOf = bCanStore ? std::nullopt : std::optional(HKEY_LOCAL_MACHINE);
            Run(
                [&](HWND hDialog) {
                    EXPECT_EQ(ControlText(hDialog, IDC_SETTINGS_NOTE),
                              Text(ChooseNote(bApplicationMode, bCanStore)));
                    EXPECT_NE(SendDlgItemMessageW(hDialog, IDC_SETTINGS_NOTE_ICON, STM_GETICON, 0, 0), 0);
                    Click(hDialog, IDCANCEL);
                },
                bApplicationMode);
        }
    }
}

TEST_F(SettingsDialog, LetsTheRestBeChangedByWhoCanNotMendABadPort)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Port", 70000);
    DeniedRegistry denied;
    denied.m_createOf = HKEY_LOCAL_MACHINE;
    EXPECT_TRUE(Run(
        [](HWND hDialog) {
            EXPECT_EQ(ControlText(hDialog, IDC_SETTINGS_PORT), L"70000");
            Select(hDialog, IDC_SETTINGS_LANGUAGE, 2);
            Click(hDialog, IDOK);
        },
        true));
    EXPECT_TRUE(m_boxes.Boxes().empty());
    EXPECT_EQ(SettingsRegistry::Text(HKEY_CURRENT_USER, L"LangUI"), L"de");
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Port"), 70000u);
}

TEST_F(SettingsDialog, HasABadPortMendedByWhoCan)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Port", 70000);
    EXPECT_FALSE(Run([this](HWND hDialog) {
        Click(hDialog, IDOK);
        ASSERT_EQ(m_boxes.Boxes().size(), 1u);
        EXPECT_EQ(m_boxes.Boxes()[0].text, Text(IDS_SETTINGS_PORT_OUT_OF_RANGE));
        Click(hDialog, IDCANCEL);
    }));
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Port"), 70000u);
}

// ---- Complaints.

TEST_F(SettingsDialog, PutsTheCaretWhereThePortIsWrong)
{
    struct COMPLAINT
    {
        const wchar_t* pszPort;
        UINT uText;
        DWORD dwBegin;
        DWORD dwEnd;
    };
    constexpr COMPLAINT COMPLAINTS[] = {{L"", IDS_SETTINGS_PORT_EMPTY, 0, 0},
                                        {L"0", IDS_SETTINGS_PORT_OUT_OF_RANGE, 0, 1},
                                        {L"65536", IDS_SETTINGS_PORT_OUT_OF_RANGE, 0, 5},
                                        {L"61x29", IDS_SETTINGS_PORT_NO_NUMBER, 2, 3},
                                        {L"+5", IDS_SETTINGS_PORT_NO_NUMBER, 0, 1},
                                        {L" 99999999999999999999 ", IDS_SETTINGS_PORT_OUT_OF_RANGE, 1, 21}};
    EXPECT_FALSE(Run([&](HWND hDialog) {
        for (const COMPLAINT& complaint : COMPLAINTS)
        {
            m_boxes.Forget();
            SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, complaint.pszPort);
            SetFocus(GetDlgItem(hDialog, IDOK));
            Click(hDialog, IDOK);
            ASSERT_EQ(m_boxes.Boxes().size(), 1u) << complaint.pszPort;
            EXPECT_EQ(m_boxes.Boxes()[0].text, Text(complaint.uText)) << complaint.pszPort;
            EXPECT_EQ(m_boxes.Boxes()[0].title, PRODUCT_NAME);
            EXPECT_EQ(m_boxes.Boxes()[0].uType, UINT{MB_ICONINFORMATION});
            EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, IDC_SETTINGS_PORT));
            DWORD dwBegin = 0;
            DWORD dwEnd = 0;
            SendDlgItemMessageW(hDialog, IDC_SETTINGS_PORT, EM_GETSEL, reinterpret_cast<WPARAM>(&dwBegin),
                                reinterpret_cast<LPARAM>(&dwEnd));
            EXPECT_EQ(dwBegin, complaint.dwBegin) << complaint.pszPort;
            EXPECT_EQ(dwEnd, complaint.dwEnd) << complaint.pszPort;
        }
        Click(hDialog, IDCANCEL);
    }));
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_LOCAL_MACHINE));
}

// ---- Its life.

TEST_F(SettingsDialog, IsOpenOnceOnly)
{
    EXPECT_TRUE(Run([this](HWND hDialog) {
        EXPECT_FALSE(RunSettingsDialog(m_module.Handle(), nullptr, false));
        Click(hDialog, IDOK);
    }));
}

TEST_F(SettingsDialog, ForgetsWhatAnEarlierOneHasSeen)
{
    {
        DeniedRegistry denied;
        denied.m_value = L"Port";
        EXPECT_FALSE(Run([](HWND hDialog) {
            ChangeEverything(hDialog);
            Click(hDialog, IDOK);
            Click(hDialog, IDCANCEL);
        }));
    }
    const SettingsRegistry empty;
    DeniedRegistry denied;
    denied.m_createOf = HKEY_LOCAL_MACHINE;
    m_boxes.Forget();
    EXPECT_FALSE(Run([this](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_SETTINGS_PORT), L"6129");
        SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L"5000");
        Click(hDialog, IDOK);
        ASSERT_EQ(m_boxes.Boxes().size(), 1u);
        EXPECT_EQ(m_boxes.Boxes()[0].text, Report(SETTING::PORT, false));
        Click(hDialog, IDCANCEL);
    }));
}

TEST_F(SettingsDialog, SurvivesItsEndWhileItComplains)
{
    DeniedRegistry denied;
    denied.m_createOf = HKEY_LOCAL_MACHINE;
    for (const wchar_t* const pszPort : {L"nonsense", L"5000"})
    {
        EXPECT_FALSE(Run([&](HWND hDialog) {
            m_boxes.m_whileOpen = [hDialog] { EndDialog(hDialog, IDCANCEL); };
            SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, pszPort);
            Click(hDialog, IDOK);
        }));
    }
}

TEST_F(SettingsDialog, FitsItsIconToAnotherResolution)
{
    EXPECT_FALSE(Run([](HWND hDialog) {
        const HWND hPlace = GetDlgItem(hDialog, IDC_SETTINGS_NOTE_ICON);
        const RECT window = {0, 0, 900, 700};
        SendMessageW(hDialog, WM_DPICHANGED, MAKEWPARAM(192, 192), reinterpret_cast<LPARAM>(&window));
        SetWindowPos(hPlace, nullptr, 0, 0, 60, 60, SWP_NOMOVE | SWP_NOZORDER);
        PumpMessages();
        ICONINFO icon = {};
        GetIconInfo(reinterpret_cast<HICON>(SendMessageW(hPlace, STM_GETICON, 0, 0)), &icon);
        const CGdiObject hColour(icon.hbmColor);
        const CGdiObject hMask(icon.hbmMask);
        BITMAP bitmap = {};
        GetObjectW(hColour.get(), sizeof(bitmap), &bitmap);
        EXPECT_EQ(bitmap.bmWidth, 60);
        Click(hDialog, IDCANCEL);
    }));
}

// ---- Its looks.

class SettingsDialogLanguages : public SettingsDialog, public testing::WithParamInterface<const wchar_t*>
{
  protected:
    void SetUp() override { SetEnvironmentVariableW(L"LangUI", GetParam()); }

    static std::wstring ItemText(HWND hCombo, WPARAM wItem)
    {
        std::wstring text(static_cast<size_t>(SendMessageW(hCombo, CB_GETLBTEXTLEN, wItem, 0)) + 1, L'\0');
        text.resize(static_cast<size_t>(
            SendMessageW(hCombo, CB_GETLBTEXT, wItem, reinterpret_cast<LPARAM>(text.data()))));
        return text;
    }

    static void ExpectRoomForItems(HWND hCombo)
    {
        COMBOBOXINFO info = {};
        info.cbSize = sizeof(info);
        ASSERT_TRUE(GetComboBoxInfo(hCombo, &info));
        const LONG nWidth = info.rcItem.right - info.rcItem.left;
        const LRESULT nItems = SendMessageW(hCombo, CB_GETCOUNT, 0, 0);
        for (LRESULT nItem = 0; nItem < nItems; ++nItem)
        {
            const std::wstring text = ItemText(hCombo, static_cast<WPARAM>(nItem));
            EXPECT_TRUE(HasRoomToSpareFor(hCombo, text, nWidth)) << GetDlgCtrlID(hCombo) << " " << nItem;
        }
    }

    static void ExpectRoomEverywhere(HWND hDialog)
    {
        for (const HWND hControl : ControlsOf(hDialog))
        {
            EXPECT_TRUE(HasRoomToSpare(hControl)) << GetDlgCtrlID(hControl);
        }
        const HWND hBox = GetDlgItem(hDialog, IDC_SETTINGS_PERMISSION);
        const RECT box = PlaceInDialog(hDialog, hBox);
        const LONG nTick = GetSystemMetrics(SM_CXMENUCHECK) + GetSystemMetrics(SM_CXEDGE) * 2;
        EXPECT_TRUE(HasRoomToSpareFor(hBox, TextOf(hBox), box.right - box.left - nTick));
        ExpectRoomForItems(GetDlgItem(hDialog, IDC_SETTINGS_ICON));
        ExpectRoomForItems(GetDlgItem(hDialog, IDC_SETTINGS_LANGUAGE));
    }
};

TEST_P(SettingsDialogLanguages, GivesEveryTextRoomToSpare)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"LangUI", L"es-419");
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Port", 65535);
    DeniedRegistry denied;
    for (const bool bApplicationMode : {false, true})
    {
        for (const bool bCanStore : {false, true})
        {
            denied.m_createOf = bCanStore ? std::nullopt : std::optional(HKEY_LOCAL_MACHINE);
            Run(
                [](HWND hDialog) {
                    ExpectRoomEverywhere(hDialog);
                    Click(hDialog, IDCANCEL);
                },
                bApplicationMode);
        }
    }
}

TEST_P(SettingsDialogLanguages, KeepsItsControlsInsideAndApart)
{
    Run([](HWND hDialog) {
        RECT client = {};
        GetClientRect(hDialog, &client);
        const std::vector<HWND> controls = ControlsOf(hDialog);
        for (size_t nFirst = 0; nFirst < controls.size(); ++nFirst)
        {
            const RECT first = PlaceInDialog(hDialog, controls[nFirst]);
            EXPECT_TRUE(first.left > 0 && first.top > 0 && first.right < client.right &&
                        first.bottom < client.bottom)
                << GetDlgCtrlID(controls[nFirst]);
            for (size_t nSecond = nFirst + 1; nSecond < controls.size(); ++nSecond)
            {
                const RECT second = PlaceInDialog(hDialog, controls[nSecond]);
                RECT both = {};
                EXPECT_FALSE(IntersectRect(&both, &first, &second))
                    << GetDlgCtrlID(controls[nFirst]) << " and " << GetDlgCtrlID(controls[nSecond]);
            }
        }
        Click(hDialog, IDCANCEL);
    });
}

TEST_P(SettingsDialogLanguages, HasAShortcutKeyForEveryInputAndNoneTwice)
{
    Run([](HWND hDialog) {
        std::set<wchar_t> keys;
        for (const HWND hControl : ControlsOf(hDialog))
        {
            // A note is read and not gone to.
            const wchar_t chKey = GetDlgCtrlID(hControl) != IDC_SETTINGS_NOTE ? ShortcutKey(hControl) : L'\0';
            EXPECT_TRUE(chKey == L'\0' || keys.insert(chKey).second) << GetDlgCtrlID(hControl);
        }
        EXPECT_EQ(keys.size(), 4u);
        Click(hDialog, IDCANCEL);
    });
}

TEST_P(SettingsDialogLanguages, NamesEachInputByTheLabelBeforeIt)
{
    Run([](HWND hDialog) {
        for (const int nInput : {IDC_SETTINGS_PORT, IDC_SETTINGS_ICON, IDC_SETTINGS_LANGUAGE})
        {
            const HWND hLabel = GetWindow(GetDlgItem(hDialog, nInput), GW_HWNDPREV);
            EXPECT_NE(ShortcutKey(hLabel), L'\0') << nInput;
        }
        Click(hDialog, IDCANCEL);
    });
}

TEST_P(SettingsDialogLanguages, IsGoneThroughFromTopToBottomByTab)
{
    Run([](HWND hDialog) {
        EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, IDC_SETTINGS_PORT));
        for (const int nControl : {IDC_SETTINGS_ICON, IDC_SETTINGS_LANGUAGE, IDC_SETTINGS_PERMISSION, IDOK,
                                   IDCANCEL, IDC_SETTINGS_PORT})
        {
            SetFocus(GetNextDlgTabItem(hDialog, GetFocus(), FALSE));
            EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, nControl)) << nControl;
        }
        Click(hDialog, IDCANCEL);
    });
}

INSTANTIATE_TEST_SUITE_P(Everywhere, SettingsDialogLanguages, testing::Values(L"en", L"fr", L"de"));
} // namespace
