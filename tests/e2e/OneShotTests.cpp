#include "tests/e2e/AgentTest.h"
#include "tests/e2e/MenuTest.h"
#include "tests/support/SettingsTrace.h"

#include "Include/Handles.h"
#include "Include/LangUI.h"
#include "channel/TrayMessages.h"
#include "devservice/Person.h"

#include <gtest/gtest.h>

#include <sddl.h>

#include <filesystem>
#include <string>
#include <utility>

namespace
{
constexpr DWORD EXIT_CODE_REACHABLE = 0xFFFFFFD4;     // -44
constexpr DWORD EXIT_CODE_NOT_REACHABLE = 0xFFFFFFCE; // -50
constexpr DWORD EXIT_CODE_LOCKED_WORKSTATION = 1;
constexpr DWORD EXIT_CODE_SUCCEEDED = 1;
constexpr DWORD EXIT_CODE_FAILED = 0;
constexpr wchar_t PRODUCT_KEY[] = L"SOFTWARE\\Tessaran Development";

/// Puts the test's settings module that lacks the entry in the place of the folder's own.
void PutSettingsModule(const AgentFolder& folder, const wchar_t* pszMissing)
{
    std::filesystem::copy_file(TestProgramFolder() / TestSettingsFolder(pszMissing) / TEST_SETTINGS_MODULE,
                               folder.Path() / TEST_SETTINGS_MODULE,
                               std::filesystem::copy_options::overwrite_existing);
}

/// Programs that start the agent to have one thing done, and read its exit code.
class OneShotTest : public AgentTest
{
  protected:
    void SetUp() override { PutSettingsModule(m_folder, L"nothing"); }

    void ExpectRun(const AgentStart& start, DWORD dwExitCode)
    {
        StartAgent(start);
        ExpectExit(*m_agent, dwExitCode);
    }
    void ExpectRun(const std::wstring& line, DWORD dwExitCode)
    {
        AgentStart start;
        start.commandLine = line;
        ExpectRun(start, dwExitCode);
    }
    /// Runs "-ConsoleLock" while the desktop of that name is the input desktop.
    void ExpectConsoleLockOn(const wchar_t* pszDesktop, DWORD dwExitCode)
    {
        // On the test system the input desktop of a process is the one whose handle it has inherited.
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        const CDesktop hDesktop(CreateDesktopW(pszDesktop, nullptr, nullptr, 0, GENERIC_ALL, &inheritable));
        ASSERT_TRUE(hDesktop);
        AgentStart start;
        start.commandLine = L"-ConsoleLock";
        start.desktop = L"WinSta0\\Default";
        start.bInheritHandles = true;
        ExpectRun(start, dwExitCode);
    }

    SettingsTrace m_settings;
};

/// The folder of the data file, in the root of the drive that the agents are started on. It goes with the
/// object.
class DataFolder
{
  public:
    explicit DataFolder(const AgentFolder& folder) : m_path(folder.Path().root_path() / L"tkdas")
    {
        std::filesystem::create_directory(m_path);
    }
    ~DataFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    DataFolder(const DataFolder&) = delete;
    DataFolder& operator=(const DataFolder&) = delete;

    std::wstring Desktop() const
    {
        wchar_t szDesktop[MAX_PATH] = {};
        GetPrivateProfileStringW(L"Desktop", L"Desktop", L"nothing", szDesktop, MAX_PATH,
                                 (m_path / L"TKDAST.data").c_str());
        return szDesktop;
    }

  private:
    const std::filesystem::path m_path;
};

/// Takes the right to write values of the product's machine-wide key away, for as long as the object lives.
class ReadOnlyMachine
{
  public:
    ReadOnlyMachine()
    {
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, PRODUCT_KEY, 0, nullptr, 0, READ_CONTROL | WRITE_DAC, nullptr,
                        m_hKey.put(), nullptr);
        m_bSet = SetAccess(L"D:(D;;0x2;;;WD)(A;;KA;;;WD)");
    }
    ~ReadOnlyMachine() { SetAccess(L"D:(A;;KA;;;WD)"); }
    ReadOnlyMachine(const ReadOnlyMachine&) = delete;
    ReadOnlyMachine& operator=(const ReadOnlyMachine&) = delete;

    explicit operator bool() const { return m_bSet; }

  private:
    bool SetAccess(const wchar_t* pszAccess) const
    {
        CLocalBlock pDescriptor;
        return ConvertStringSecurityDescriptorToSecurityDescriptorW(pszAccess, SDDL_REVISION_1,
                                                                    pDescriptor.put(), nullptr) &&
               RegSetKeySecurity(m_hKey.get(), DACL_SECURITY_INFORMATION, pDescriptor.get()) == ERROR_SUCCESS;
    }

    CRegKey m_hKey;
    bool m_bSet = false;
};

TEST_F(OneShotTest, SettingsOfTheApplicationAnswerWhetherTheDialogSucceeded)
{
    ExpectRun(L"-SettingsAsApplication", EXIT_CODE_SUCCEEDED);
    EXPECT_EQ(m_settings->nModesBeforeDialog, 1);
    EXPECT_EQ(m_settings->hOwner, nullptr);
    m_settings->nResult = 0;
    ExpectRun(L"-SettingsAsApplication", EXIT_CODE_FAILED);
    EXPECT_EQ(m_settings->nDialogs, 2);
    EXPECT_EQ(m_settings->nFreed, 2);
}

TEST_F(OneShotTest, SettingsOfTheMachineAnswerWhetherTheDialogSucceeded)
{
    const RegistryValue language(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, LANGUAGE_VALUE,
                                 std::wstring(L"de"));
    AgentStart start;
    start.commandLine = L"-Settings";
    start.environment = {{LANGUAGE_VALUE, L"fr"}};
    ExpectRun(start, EXIT_CODE_SUCCEEDED);
    EXPECT_EQ(m_settings->nModes, 0);
    EXPECT_STREQ(m_settings->szLanguage, L"de") << "the machine's";
    m_settings->nResult = 0;
    ExpectRun(start, EXIT_CODE_FAILED);
    EXPECT_EQ(m_settings->nDialogs, 2);
}

TEST_F(OneShotTest, AUserWithoutRightsIsAskedInTheMachinesLanguage)
{
    const RegistryValue language(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, LANGUAGE_VALUE,
                                 std::wstring(L"fr"));
    const ReadOnlyMachine readOnly;
    ASSERT_TRUE(readOnly);
    for (const auto& [nAnswer, dwExitCode] :
         {std::pair{IDNO, EXIT_CODE_FAILED}, {IDYES, EXIT_CODE_SUCCEEDED}})
    {
        StartAgent(L"-Settings");
        ASSERT_TRUE(WaitForShownWindow(QUESTION_TITLE, true, PATIENCE_MS, PauseTest)) << m_folder.Log();
        const HWND hBox = FindShownWindow(QUESTION_TITLE);
        EXPECT_EQ(m_settings->nLoads, 0) << "the question comes first";
        constexpr int TEXT_CONTROL = 0xFFFF;
        wchar_t szText[MAX_PATH] = {};
        GetDlgItemTextW(hBox, TEXT_CONTROL, szText, MAX_PATH);
        EXPECT_NE(std::wstring(szText).find(L"ouvrir les paramètres"), std::wstring::npos) << szText;
        PostMessageW(hBox, WM_COMMAND, static_cast<WPARAM>(nAnswer), 0);
        ExpectExit(*m_agent, dwExitCode);
    }
    EXPECT_EQ(m_settings->nDialogs, 1);
    ExpectRun(L"-SettingsAsApplication", EXIT_CODE_SUCCEEDED);
}

TEST_F(OneShotTest, SettingsWithoutTheirModuleOrItsDialogFailWithoutAWord)
{
    for (const wchar_t* const pszSwitch : {L"-Settings", L"-SettingsAsApplication"})
    {
        PutSettingsModule(m_folder, L"mode");
        ExpectRun(pszSwitch, EXIT_CODE_SUCCEEDED);
        PutSettingsModule(m_folder, L"dialog");
        ExpectRun(pszSwitch, EXIT_CODE_FAILED);
        std::filesystem::remove(m_folder.Path() / TEST_SETTINGS_MODULE);
        ExpectRun(pszSwitch, EXIT_CODE_FAILED);
    }
    EXPECT_EQ(m_settings->nDialogs, 2);
    EXPECT_EQ(m_settings->nModes, 1) << "of the module that has nothing else";
}

TEST_F(OneShotTest, ConsoleLockTellsWhetherTheSessionIsLocked)
{
    ExpectRun(L"-ConsoleLock", EXIT_CODE_REACHABLE);
    m_session->nSessionFlags = SESSION_FLAGS_LOCKED;
    ExpectRun(L"-ConsoleLock", EXIT_CODE_NOT_REACHABLE);
    EXPECT_EQ(m_session->nStateQueries, 0) << "the session's state is for older systems";
}

TEST_F(OneShotTest, ConsoleLockGoesByTheNameOfTheInputDesktop)
{
    m_session->nSessionFlags = SESSION_FLAGS_LOCKED;
    ExpectConsoleLockOn(L"Screen-saver", EXIT_CODE_REACHABLE);
    m_session->nSessionFlags = SESSION_FLAGS_UNLOCKED;
    ExpectConsoleLockOn(L"WINLOGON", EXIT_CODE_NOT_REACHABLE);
}

TEST_F(OneShotTest, ConsoleLockReachesAForeignDesktopAndWritesItsNameDown)
{
    const DataFolder data(m_folder);
    ExpectRun(L"-ConsoleLock", EXIT_CODE_REACHABLE);
    EXPECT_EQ(data.Desktop(), L"nothing") << "the own desktop is not written down";
    ExpectConsoleLockOn(L"TkdastKiosk", EXIT_CODE_REACHABLE);
    EXPECT_EQ(data.Desktop(), L"TkdastKiosk");
    m_session->nSessionFlags = SESSION_FLAGS_LOCKED;
    ExpectConsoleLockOn(L"TkdastOther", EXIT_CODE_NOT_REACHABLE);
    EXPECT_EQ(data.Desktop(), L"TkdastOther");
}

TEST_F(OneShotTest, WithoutAFolderForTheNameTheAnswerIsTheSame)
{
    ExpectConsoleLockOn(L"TkdastKiosk", EXIT_CODE_REACHABLE);
}

TEST_F(OneShotTest, LockingTheWorkstationIsAlwaysOne)
{
    ExpectRun(L"-LockWorkstation", EXIT_CODE_LOCKED_WORKSTATION);
    EXPECT_EQ(m_folder.CountInLog("LockWorkstation entering."), 1U);
}

TEST_F(OneShotTest, RunsGoOnBesideAnAgentAndMarkNothing)
{
    AgentStart start;
    start.commandLine = ServicePort();
    const AgentProcess resident(m_folder, start);
    AcceptAgent();
    ShakeHands();
    ExpectRun(L"-ConsoleLock", EXIT_CODE_REACHABLE);
    ExpectRun(L"-Settings", EXIT_CODE_SUCCEEDED);
    ExpectRun(L"-SettingsAsApplication", EXIT_CODE_SUCCEEDED);
    ExpectRun(L"-LockWorkstation", EXIT_CODE_LOCKED_WORKSTATION);
    EXPECT_TRUE(resident.IsRunning());
    ExpectEcho();
    EXPECT_EQ(m_folder.CountInLog("CheckInstance entering."), 1U) << "the agent's own";
}

TEST_F(OneShotTest, AOneTimeLineWithASwitchForItsPortIsBad)
{
    ExpectRun(L"-onetimesession -Settings", EXIT_CODE_BAD_PARAMETER);
    EXPECT_EQ(m_settings->nLoads, 0);
}

TEST_F(OneShotTest, ALineThatIsNotWhollyASwitchHasTheStandardPort)
{
    LoopbackListener standard(DEFAULT_SERVICE_PORT);
    StartAgent(L"-Settings x");
    AcceptAgent(standard);
    ShakeHands();
    ExpectEndWithService();
    EXPECT_EQ(m_settings->nLoads, 0);
}

class NearMissTest : public OneShotTest, public testing::WithParamInterface<const wchar_t*>
{
};

TEST_P(NearMissTest, StartsTheNormalRun)
{
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", m_listener.Port());
    StartAgent(GetParam());
    AcceptAgent();
    ShakeHands();
    ExpectEndWithService();
    EXPECT_EQ(m_settings->nLoads, 0);
    EXPECT_EQ(m_folder.CountInLog("Logoff entering."), 0U);
}

// A blank in front of the line never reaches the program: its start-up code takes it for a part of the gap.
INSTANTIATE_TEST_SUITE_P(Lines, NearMissTest,
                         testing::Values(L"-settings", L"-Settings ", L"-SettingsAsapplication",
                                         L"-consolelock", L"-ConsoleLock 1", L"-logoff", L"\" -Logoff\"",
                                         L"-Logoff ", L"-LogoffForceNow", L"-Logoff -LogoffForce",
                                         L"-lockworkstation", L"-LockWorkStation", L"-invitation 5 2",
                                         L"-validatecert"));

/// The settings as they are called for from outside, with the test's module in the agent's folder.
class SettingsLaunchTest : public MenuTest
{
  protected:
    void SetUp() override
    {
        PutSettingsModule(m_folder, L"nothing");
        MenuTest::SetUp();
    }
    void SendLocks(DWORD dwExitLock1, DWORD dwExitLock2)
    {
        MSG_TRAYICON_SETTINGS settings = MenuSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
        settings.bSettingsMenu = 1;
        settings.dwExitLock1 = dwExitLock1;
        settings.dwExitLock2 = dwExitLock2;
        ASSERT_TRUE(m_channel->Send(settings));
        ExpectEcho();
    }
    /// Waits for the end of so many runs of the settings.
    void ExpectRuns(size_t nRuns)
    {
        EXPECT_TRUE(m_folder.WaitForLog("DisplaySettingsDialog exiting.", PATIENCE_MS, nRuns))
            << m_folder.Log();
        EXPECT_EQ(m_settings->nDialogs, static_cast<LONG>(nRuns));
    }

    SettingsTrace m_settings;
};

TEST_F(SettingsLaunchTest, TheMenusCommandRunsTheDialogInAProcessOfItsOwn)
{
    SendLocks(0, 0);
    ChooseByKeys(L"S");
    ExpectRuns(1);
    EXPECT_EQ(m_settings->nModes, 1);
    EXPECT_EQ(m_folder.CountInLog("lpCmdLine=-SettingsAsApplication"), 1U);
    SendLocks(1, 0);
    ChooseByKeys(L"S");
    ExpectRuns(2);
    EXPECT_EQ(m_settings->nModes, 1) << "the machine's settings are at stake";
    EXPECT_EQ(m_folder.CountInLog("lpCmdLine=-Settings\r\n"), 1U);
    ExpectEcho();
    ExpectEndWithService();
}

TEST_F(SettingsLaunchTest, TheServicesWordRunsTheDialogInAProcessOfItsOwn)
{
    SendLocks(0, 1);
    ASSERT_TRUE(m_channel->Send(MSG_TRAYICON_SETTINGS_DIALOG{MSG_TYPE_TRAYICON_SETTINGS_DIALOG, {}}));
    ExpectRuns(1);
    EXPECT_EQ(m_folder.CountInLog("Running self with -Settings"), 1U);
    EXPECT_EQ(m_settings->nModes, 0);
    ExpectEcho();
    ExpectEndWithService();
}

TEST_F(SettingsLaunchTest, AnAgentWithoutASettingsModuleGoesOn)
{
    std::filesystem::remove(m_folder.Path() / TEST_SETTINGS_MODULE);
    SendLocks(0, 0);
    ASSERT_TRUE(m_channel->Send(MSG_TRAYICON_SETTINGS_DIALOG{MSG_TYPE_TRAYICON_SETTINGS_DIALOG, {}}));
    EXPECT_TRUE(m_folder.WaitForLog("DisplaySettingsDialog exiting.", PATIENCE_MS)) << m_folder.Log();
    ExpectEcho();
    ExpectEndWithService();
}
} // namespace
