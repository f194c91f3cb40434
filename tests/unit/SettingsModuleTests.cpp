#include "Include/Product.h"
#include "modules/common/ModuleLanguage.h"
#include "modules/settings/SettingsResource.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/DialogMeasures.h"
#include "tests/unit/SettingsHarness.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace
{
constexpr UINT LOOK_PERIOD = 10; // milliseconds

struct LANGUAGE_OF_TEST
{
    const wchar_t* pszCode;
    LANGID language;
    const wchar_t* pszTitle;
    const wchar_t* pszCancel;
};

void PrintTo(const LANGUAGE_OF_TEST& language, std::ostream* pStream)
{
    *pStream << testing::PrintToString(std::wstring(language.pszCode));
}

constexpr LANGUAGE_OF_TEST ENGLISH = {L"en", MODULE_ENGLISH, L"Kestrel Desk Assist Settings", L"Cancel"};
constexpr LANGUAGE_OF_TEST FRENCH = {L"fr", MODULE_FRENCH, L"Paramètres de Kestrel Desk Assist", L"Annuler"};
constexpr LANGUAGE_OF_TEST GERMAN = {L"de", MODULE_GERMAN, L"Kestrel Desk Assist: Einstellungen",
                                     L"Abbrechen"};

// Closes the message boxes of the module, whose imports can't be replaced, and keeps their words.
class BoxCloser
{
  public:
    BoxCloser() : m_uTimer(SetTimer(nullptr, 0, LOOK_PERIOD, Look)) { s_pThis = this; }
    ~BoxCloser()
    {
        KillTimer(nullptr, m_uTimer);
        s_pThis = nullptr;
    }
    BoxCloser(const BoxCloser&) = delete;
    BoxCloser& operator=(const BoxCloser&) = delete;

    std::vector<std::wstring> m_texts;

  private:
    static BoxCloser* s_pThis;

    static BOOL CALLBACK CloseBox(HWND hWnd, LPARAM)
    {
        if (TextOf(hWnd) != PRODUCT_NAME || !IsWindowVisible(hWnd))
        {
            return TRUE;
        }
        std::wstring text;
        for (const HWND hControl : ControlsOf(hWnd))
        {
            const std::wstring part = TextOf(hControl);
            text = part.size() > text.size() ? part : text; // the icon's and the button's are shorter
        }
        s_pThis->m_texts.push_back(text);
        EndDialog(hWnd, IDOK);
        return TRUE;
    }
    static void CALLBACK Look(HWND, UINT, UINT_PTR, DWORD)
    {
        EnumThreadWindows(GetCurrentThreadId(), CloseBox, 0);
    }

    UINT_PTR m_uTimer;
};
BoxCloser* BoxCloser::s_pThis = nullptr;

// The staged module through its exports, as any program has it.
class SettingsModuleTest : public SettingsHarness
{
  protected:
    int Run(const std::function<void(HWND)>& scenario, HWND hOwner = nullptr) const
    {
        return Play(scenario, [&] { return m_module.Show(hOwner); });
    }

    static std::wstring Selected(HWND hDialog, int nCombo) { return TextOf(GetDlgItem(hDialog, nCombo)); }
    static void Press(HWND hDialog, WPARAM wKey)
    {
        PostMessageW(GetFocus() != nullptr ? GetFocus() : hDialog, WM_KEYDOWN, wKey, 1);
    }
};

class SettingsModuleLanguages : public SettingsModuleTest,
                                public testing::WithParamInterface<LANGUAGE_OF_TEST>
{
  protected:
    void SetUp() override { SetEnvironmentVariableW(L"LangUI", GetParam().pszCode); }
    std::wstring Text(UINT uString) const
    {
        return LoadModuleText(m_module.Handle(), uString, GetParam().language);
    }
};

TEST_P(SettingsModuleLanguages, SpeaksTheAgentsLanguage)
{
    EXPECT_EQ(Run([&](HWND hDialog) {
                  EXPECT_EQ(TextOf(hDialog), GetParam().pszTitle);
                  EXPECT_EQ(ControlText(hDialog, IDCANCEL), GetParam().pszCancel);
                  EXPECT_EQ(ControlText(hDialog, IDC_SETTINGS_NOTE), Text(IDS_SETTINGS_NOTE_EVERYBODY));
                  EXPECT_EQ(Selected(hDialog, IDC_SETTINGS_ICON), Text(IDS_SETTINGS_ICON_ALWAYS));
                  Click(hDialog, IDCANCEL);
              }),
              0);
}

TEST_P(SettingsModuleLanguages, StoresWhatWasChangedOnOk)
{
    const int nResult = Run([](HWND hDialog) {
        SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L" 5000 ");
        Select(hDialog, IDC_SETTINGS_ICON, 1);
        Select(hDialog, IDC_SETTINGS_LANGUAGE, 3);
        Click(hDialog, IDC_SETTINGS_PERMISSION);
        Click(hDialog, IDOK);
    });
    EXPECT_NE(nResult, 0);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Port"), 5000u);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"TrayIcon"), 2u);
    EXPECT_EQ(SettingsRegistry::Text(HKEY_LOCAL_MACHINE, L"LangUI"), L"fr");
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Permission Required"), 1u);
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_CURRENT_USER));
}

TEST_P(SettingsModuleLanguages, RefusesNonsenseForAPortAndStoresNothing)
{
    const std::pair<std::wstring, UINT> ports[] = {
        {L"", IDS_SETTINGS_PORT_EMPTY},
        {L"0", IDS_SETTINGS_PORT_OUT_OF_RANGE},
        {L"65536", IDS_SETTINGS_PORT_OUT_OF_RANGE},
        {L"abc", IDS_SETTINGS_PORT_NO_NUMBER},
        {L"+5", IDS_SETTINGS_PORT_NO_NUMBER},
        {L"99999999999999999999", IDS_SETTINGS_PORT_OUT_OF_RANGE},
        {std::wstring(1000, L'1'), IDS_SETTINGS_PORT_OUT_OF_RANGE},
        {L"\x0665\x0660\x0660\x0660", IDS_SETTINGS_PORT_NO_NUMBER},
        {L"\xFF16\xFF11\xFF12\xFF19", IDS_SETTINGS_PORT_NO_NUMBER}};
    BoxCloser boxes;
    const int nResult = Run([&](HWND hDialog) {
        Click(hDialog, IDC_SETTINGS_PERMISSION);
        for (const auto& [port, uComplaint] : ports)
        {
            boxes.m_texts.clear();
            SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, port.c_str());
            Click(hDialog, IDOK);
            EXPECT_EQ(boxes.m_texts, std::vector<std::wstring>{Text(uComplaint)}) << port;
            EXPECT_TRUE(IsWindowVisible(hDialog)) << port;
            EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, IDC_SETTINGS_PORT)) << port;
        }
        Click(hDialog, IDCANCEL);
    });
    EXPECT_EQ(nResult, 0);
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_LOCAL_MACHINE));
}

INSTANTIATE_TEST_SUITE_P(Everywhere, SettingsModuleLanguages, testing::Values(ENGLISH, FRENCH, GERMAN));

// ---- What it shows and what it leaves alone.

TEST_F(SettingsModuleTest, ShowsWhatIsStored)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Port", 7000);
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"TrayIcon", DWORD{0});
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Permission Required", 1);
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"LangUI", L"de");
    Run([](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_SETTINGS_PORT), L"7000");
        EXPECT_EQ(Selected(hDialog, IDC_SETTINGS_ICON), L"Never shown");
        EXPECT_EQ(Selected(hDialog, IDC_SETTINGS_LANGUAGE), L"Deutsch");
        EXPECT_EQ(IsDlgButtonChecked(hDialog, IDC_SETTINGS_PERMISSION), UINT{BST_CHECKED});
        Click(hDialog, IDCANCEL);
    });
}

TEST_F(SettingsModuleTest, MakesNothingWhereNothingWasChanged)
{
    EXPECT_NE(Run([](HWND hDialog) { Click(hDialog, IDOK); }), 0);
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_LOCAL_MACHINE));
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_CURRENT_USER));
}

TEST_F(SettingsModuleTest, LeavesValuesAloneThatItHasNoWordsFor)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"TrayIcon", 7);
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Permission Required", 5);
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"LangUI", L"es");
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"Something of the service", 42);
    EXPECT_NE(Run([](HWND hDialog) {
                  EXPECT_EQ(Selected(hDialog, IDC_SETTINGS_LANGUAGE), L"es (not installed)");
                  SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L"1");
                  Click(hDialog, IDOK);
              }),
              0);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Port"), 1u);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"TrayIcon"), 7u);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Permission Required"), 5u);
    EXPECT_EQ(SettingsRegistry::Text(HKEY_LOCAL_MACHINE, L"LangUI"), L"es");
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Something of the service"), 42u);
    EXPECT_EQ(SettingsRegistry::CountValues(HKEY_LOCAL_MACHINE), 5u);
}

TEST_F(SettingsModuleTest, StoresEveryIconMode)
{
    const std::pair<WPARAM, DWORD> modes[] = {{2, 0}, {1, 2}, {0, 1}};
    for (const auto& [wItem, dwMode] : modes)
    {
        const WPARAM wSelected = wItem;
        EXPECT_NE(Run([wSelected](HWND hDialog) {
                      Select(hDialog, IDC_SETTINGS_ICON, wSelected);
                      Click(hDialog, IDOK);
                  }),
                  0);
        EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"TrayIcon"), dwMode);
    }
}

TEST_F(SettingsModuleTest, StoresTheLanguageThatWindowsSpeaks)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"LangUI", L"fr");
    EXPECT_NE(Run([](HWND hDialog) {
                  Select(hDialog, IDC_SETTINGS_LANGUAGE, 0);
                  EXPECT_EQ(Selected(hDialog, IDC_SETTINGS_LANGUAGE), L"The one of Windows (English)");
                  Click(hDialog, IDOK);
              }),
              0);
    EXPECT_EQ(SettingsRegistry::Text(HKEY_LOCAL_MACHINE, L"LangUI"), L"en");
}

TEST_F(SettingsModuleTest, KeepsTheLanguageOfAUserByItselfInApplicationMode)
{
    SettingsRegistry::Store(HKEY_LOCAL_MACHINE, L"LangUI", L"fr");
    const LoadedSettingsModule module;
    module.SetApplicationMode();
    EXPECT_NE(Run([](HWND hDialog) {
                  EXPECT_EQ(Selected(hDialog, IDC_SETTINGS_LANGUAGE), L"Français");
                  EXPECT_NE(ControlText(hDialog, IDC_SETTINGS_NOTE).find(L"for you alone"),
                            std::wstring::npos);
                  Select(hDialog, IDC_SETTINGS_LANGUAGE, 2);
                  Click(hDialog, IDOK);
              }),
              0);
    EXPECT_EQ(SettingsRegistry::Text(HKEY_CURRENT_USER, L"LangUI"), L"de");
    EXPECT_EQ(SettingsRegistry::Text(HKEY_LOCAL_MACHINE, L"LangUI"), L"fr");
}

// ---- Coming and going.

TEST(SettingsModule, CanBeFreedAndForgetsItsModeThen)
{
    const SettingsRegistry registry;
    std::vector<std::wstring> notes;
    for (const bool bApplicationMode : {true, false})
    {
        const LoadedSettingsModule module;
        if (bApplicationMode)
        {
            module.SetApplicationMode();
        }
        const ModalScenario modal([&notes](HWND hDialog) {
            notes.push_back(ControlText(hDialog, IDC_SETTINGS_NOTE));
            EndDialog(hDialog, IDCANCEL);
        });
        EXPECT_EQ(module.Show(nullptr), 0);
    }
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_NE(notes[0].find(L"for you alone"), std::wstring::npos);
    EXPECT_EQ(notes[1].find(L"for you alone"), std::wstring::npos);
}

TEST_F(SettingsModuleTest, IsCancelledByEscapeByItsCloseBoxAndByItsButton)
{
    const std::function<void(HWND)> waysOut[] = {[](HWND hDialog) { Press(hDialog, VK_ESCAPE); },
                                                 [](HWND hDialog) { SendMessageW(hDialog, WM_CLOSE, 0, 0); },
                                                 [](HWND hDialog) { Click(hDialog, IDCANCEL); }};
    for (const std::function<void(HWND)>& wayOut : waysOut)
    {
        EXPECT_EQ(Run([&wayOut](HWND hDialog) {
                      SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L"5000");
                      wayOut(hDialog);
                  }),
                  0);
    }
    EXPECT_FALSE(SettingsRegistry::HasKey(HKEY_LOCAL_MACHINE));
}

TEST_F(SettingsModuleTest, IsAnsweredByEnter)
{
    EXPECT_NE(Run([](HWND hDialog) {
                  SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L"5000");
                  Press(hDialog, VK_RETURN);
              }),
              0);
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Port"), 5000u);
}

TEST_F(SettingsModuleTest, DisablesItsOwnerWhileItIsOpen)
{
    const CWindow hOwner(CreateWindowW(L"STATIC", L"", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 100, 100,
                                       nullptr, nullptr, nullptr, nullptr));
    ASSERT_TRUE(hOwner);
    const HWND hWanted = hOwner.get();
    Run(
        [hWanted](HWND hDialog) {
            EXPECT_EQ(GetWindow(hDialog, GW_OWNER), hWanted);
            EXPECT_FALSE(IsWindowEnabled(hWanted));
            Click(hDialog, IDCANCEL);
        },
        hWanted);
    EXPECT_TRUE(IsWindowEnabled(hWanted));
}

TEST_F(SettingsModuleTest, IsNotShownForAnOwnerThatIsNoWindow)
{
    EXPECT_EQ(m_module.Show(reinterpret_cast<HWND>(-2)), 0);
    EXPECT_NE(Run([](HWND hDialog) { Click(hDialog, IDOK); }), 0);
}

TEST_F(SettingsModuleTest, LeavesNothingBehindAfterFiftyDialogs)
{
    constexpr int DIALOGS = 50;
    constexpr DWORD FIRST_PORT = 5000;
    ExpectNothingLeftBy(DIALOGS, [this](int nRound) {
        BoxCloser boxes;
        Run([nRound](HWND hDialog) {
            SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT, L"nonsense");
            Click(hDialog, IDOK);
            SetDlgItemTextW(hDialog, IDC_SETTINGS_PORT,
                            std::to_wstring(FIRST_PORT + static_cast<DWORD>(nRound)).c_str());
            Click(hDialog, IDOK);
        });
        const LoadedSettingsModule again;
    });
    EXPECT_EQ(SettingsRegistry::Number(HKEY_LOCAL_MACHINE, L"Port"), FIRST_PORT + DIALOGS - 1);
}
} // namespace
