#include "tests/e2e/AgentTest.h"
#include "tests/support/PlantedModules.h"
#include "tests/support/ShellTrayCatcher.h"
#include "tests/support/TestCertificates.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "certificates/CertificateRegistry.h"
#include "devservice/Person.h"
#include "resources/resource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace
{
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

constexpr DWORD EXIT_CODE_FAILED = 0;
constexpr DWORD EXIT_CODE_LOCKED_WORKSTATION = 1;
constexpr DWORD EXIT_CODE_NOT_TRUSTED = 1;
constexpr DWORD EXIT_CODE_REACHABLE = 0xFFFFFFD4; // -44
constexpr DWORD NETWORK_ERROR = 2250;             // whose text is in a module of its own
constexpr wchar_t POPUP_TITLE[] = L"Somebody looks at your screen";
constexpr wchar_t QUESTION[] = L"Trust a certificate?";
constexpr wchar_t VIEWER[] = L"Certificate";
constexpr wchar_t RESULT_TITLE[] = L"Tessaran Kestrel Desk Assist";
constexpr wchar_t CERTIFICATE_SWITCH[] = L"-ValidateCert";
constexpr wchar_t SESSION_MANAGER_KEY[] = L"System\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t NOBODYS_MODULE[] = L"nobodys.dll";

// No run of the agent looks for these; a run to come might.
const ModuleNames NAMES_BESIDES = {L"p2p.dll", L"oledlg.dll", L"tkdastevents.dll", NOBODYS_MODULE};

// A few that must be found, lest nothing is planted where the agent looks.
const ModuleNames SOME_OF_THE_NAMES = {L"cryptui.dll",   L"kernel32.dll", L"mpr.dll",     L"msimg32.dll",
                                       L"netmsg.dll",    L"tkdachat.dll", L"tkdaset.dll", L"user32.dll",
                                       L"tkdastres.dll", L"version.dll",  L"winmm.dll",   L"wship6.dll",
                                       L"wtsapi32.dll",  L"ws2_32.dll",   L"shell32.dll"};

// Loaded, with what they import, before a program runs.
const ModuleNames NAMES_OF_EVERY_PROGRAM = {L"kernel32.dll", L"kernelbase.dll", L"msvcrt.dll", L"ntdll.dll"};

// What modules of the test system import on first use. Its loader looks for that in the standard order,
// whatever the process has asked for.
const ModuleNames NAMES_IMPORTED_LATE = {L"msimg32.dll"};

bool PauseTest(DWORD dwMilliseconds)
{
    Sleep(dwMilliseconds);
    return true;
}

bool WaitForWindow(const wchar_t* pszTitle)
{
    return WaitForShownWindow(pszTitle, true, PATIENCE_MS, PauseTest);
}

ModuleNames AllOf(ModuleNames names, ModuleNames others)
{
    names.merge(others);
    return names;
}

ModuleNames Without(ModuleNames names, const ModuleNames& others)
{
    std::erase_if(names, [&](const std::wstring& name) { return others.contains(name); });
    return names;
}

/// Memory of another process with a text in it.
class RemoteText
{
  public:
    RemoteText(HANDLE hProcess, const std::wstring& text)
        : m_hProcess(hProcess),
          m_pText(VirtualAllocEx(hProcess, nullptr, Bytes(text), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE))
    {
        WriteProcessMemory(hProcess, m_pText, text.c_str(), Bytes(text), nullptr);
    }
    ~RemoteText() { VirtualFreeEx(m_hProcess, m_pText, 0, MEM_RELEASE); }
    RemoteText(const RemoteText&) = delete;
    RemoteText& operator=(const RemoteText&) = delete;

    void* Get() const { return m_pText; }

  private:
    static size_t Bytes(const std::wstring& text) { return (text.size() + 1) * sizeof(wchar_t); }

    HANDLE m_hProcess;
    void* m_pText;
};

/// Agents that are started where somebody else has put modules, in the current folder and on the path. A
/// module that is loaded as data runs no code and leaves no trace. The test system's loader looks for such
/// ones everywhere, whatever it is told; the unit tests see to what it is told.
class PlantedModuleTest : public AgentTest
{
  protected:
    PlantedModuleTest() : m_planted(m_folder), m_names(NAMES_BESIDES)
    {
        // The agent's own programs and the modules that it takes into its process.
        for (const wchar_t* const pszImage : {L"TKDAST.exe", L"TKDAChat.dll", L"TKDASET.DLL"})
        {
            m_names.merge(ModulesNamedIn(m_folder.Path() / pszImage));
        }
        EXPECT_THAT(m_names, IsSupersetOf(SOME_OF_THE_NAMES));
    }

    /// Leaves the agent without its product's other modules, each of which it looks for.
    void RemoveProductModules()
    {
        for (const wchar_t* const pszFile : {L"TKDAChat.dll", L"TKDASET.DLL", L"Localization"})
        {
            std::filesystem::remove_all(m_folder.Path() / pszFile);
        }
    }
    void MeetAgent()
    {
        AgentStart start = m_planted.Start(ServicePort());
        start.environment[L"LangUI"] = L"fr";
        StartAgent(start);
        AcceptAgent();
        ShakeHands();
        ASSERT_NE(m_agent->WaitForTrayWindow(PATIENCE_MS), nullptr);
    }
    void ExpectRun(const std::wstring& line, DWORD dwExitCode)
    {
        StartAgent(m_planted.Start(line));
        ExpectExit(*m_agent, dwExitCode);
    }

    /// A viewer comes, which is shown and heard.
    void LetSomebodyConnect()
    {
        MSG_TRAYICON_SETTINGS settings = PlainSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
        settings.bNotifyConnect = 1;
        CopyText(settings.szNotifyTitle, POPUP_TITLE);
        ASSERT_TRUE(m_channel->Send(settings));
        ExpectEcho();
        ASSERT_TRUE(SendConnect(MSG_TYPE_TRAYICON_CONNECT_COUNT, 1));
        ASSERT_TRUE(m_channel->Send(DWORD{MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE}));
        ASSERT_TRUE(WaitForWindow(POPUP_TITLE));
        // Posted as the popup shows; an answer of the window comes behind the sound.
        SendMessageW(m_agent->FindTrayWindow(), WM_NULL, 0, 0);
    }
    void OpenChat()
    {
        MSG_TRAYICON_CHAT_OPEN record = {};
        record.dwType = MSG_TYPE_TRAYICON_CHAT_OPEN;
        CopyText(record.szUsername, L"Alice");
        ASSERT_TRUE(m_channel->Send(record));
        EXPECT_TRUE(m_folder.WaitForLog("Failed to load TKDAChat.dll. Error: 126", PATIENCE_MS));
    }
    /// A connection that the agent has called for fails for a reason of the network's.
    void FailReverseConnection()
    {
        MSG_REVERSE_CONNECTION record = {};
        record.dwType = MSG_TYPE_REVERSE_CONNECTION;
        record.dwReverseCode = REVERSE_CODE_FINISHED;
        record.dwError = NETWORK_ERROR;
        ASSERT_TRUE(m_channel->Send(record));
        ASSERT_TRUE(WaitForWindow(RESULT_TITLE));
        PostMessageW(FindShownWindow(RESULT_TITLE), WM_COMMAND, IDOK, 0);
    }
    /// Starts the question whether a certificate may be trusted.
    void AskAboutCertificate()
    {
        StartAgent(m_planted.Start(CERTIFICATE_SWITCH));
        ASSERT_TRUE(WaitForWindow(QUESTION)) << m_folder.Log();
    }
    /// Looks at the certificate, then declines.
    void ViewAndDecline()
    {
        PostMessageW(GetDlgItem(FindShownWindow(QUESTION), IDC_VALIDATE_SHOW), BM_CLICK, 0, 0);
        ASSERT_TRUE(WaitForWindow(VIEWER));
        PostMessageW(FindShownWindow(VIEWER), WM_CLOSE, 0, 0);
        PostMessageW(GetDlgItem(FindShownWindow(QUESTION), IDNO), BM_CLICK, 0, 0);
        ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
    }
    /// Has the agent's process load a module as a careless program does.
    void LoadPlainlyInAgent(const std::wstring& module)
    {
        const RemoteText name(m_agent->Handle(), module);
        const auto load = reinterpret_cast<LPTHREAD_START_ROUTINE>(
            reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW")));
        const CKernelHandle hThread(
            CreateRemoteThread(m_agent->Handle(), nullptr, 0, load, name.Get(), 0, nullptr));
        ASSERT_EQ(WaitForSingleObject(hThread.get(), PATIENCE_MS), WAIT_OBJECT_0) << module;
    }

    PlantedModules m_planted;
    ModuleNames m_names;
    RegistryValue m_candidate{HKEY_CURRENT_USER, CERTIFICATES_KEY, CANDIDATE_VALUE, REG_BINARY,
                              TestCertificate("rsa")};
    ShellTrayCatcher m_catcher;
};

/// On such a machine the current folder comes before the system's own, so that whoever loads a module of the
/// system by its bare name gets a planted one. The program's imports are found before it can do anything
/// about that, so those folders are filled once it runs.
class CurrentFolderFirstTest : public PlantedModuleTest
{
    RegistryValue m_unsafe{HKEY_LOCAL_MACHINE, SESSION_MANAGER_KEY, L"SafeDllSearchMode", DWORD{0}};
};
} // namespace

TEST_F(PlantedModuleTest, NoRunLoadsOne)
{
    m_planted.Plant(AllOf(m_names, ModulesOfSystem()));
    RemoveProductModules();
    MeetAgent();
    LetSomebodyConnect();
    OpenChat();
    FailReverseConnection();
    ExpectEcho();
    ExpectEndWithService();
    ExpectRun(L"-SettingsAsApplication", EXIT_CODE_FAILED);
    ExpectRun(L"-LockWorkstation", EXIT_CODE_LOCKED_WORKSTATION);
    AskAboutCertificate();
    ViewAndDecline();
    m_folder.UseSystemSessionModule();
    ExpectRun(L"-ConsoleLock", EXIT_CODE_REACHABLE);
    EXPECT_THAT(m_planted.LoadedPaths(), IsEmpty());
}

TEST_F(CurrentFolderFirstTest, AnAgentThatRunsLoadsNone)
{
    RemoveProductModules();
    MeetAgent();
    m_planted.Plant(Without(m_names, NAMES_IMPORTED_LATE));
    LetSomebodyConnect();
    OpenChat();
    FailReverseConnection();
    ExpectEcho();
    EXPECT_THAT(m_planted.LoadedPaths(), IsEmpty());
}

TEST_F(CurrentFolderFirstTest, TheViewerOfCertificatesIsNone)
{
    AskAboutCertificate();
    m_planted.Plant(Without(m_names, NAMES_IMPORTED_LATE));
    ViewAndDecline();
    EXPECT_THAT(m_planted.LoadedPaths(), IsEmpty());
}

// Modules of others run in the agent's process, too, and need not be as careful.
TEST_F(CurrentFolderFirstTest, APlainLoadInTheAgentTakesNone)
{
    MeetAgent();
    m_planted.Plant(m_names);
    for (const std::wstring& name : m_names)
    {
        LoadPlainlyInAgent(name);
    }
    EXPECT_THAT(m_planted.LoadedPaths(), IsEmpty());
    LoadPlainlyInAgent((m_planted.CurrentFolder() / NOBODYS_MODULE).wstring());
    EXPECT_THAT(m_planted.Loaded(), ElementsAre(NOBODYS_MODULE)) << "such a load must be seen";
}

// What the other tests rely on: a program that loads by bare name would take each of these modules.
TEST_F(CurrentFolderFirstTest, APlainLoadInACarelessProgramTakesEach)
{
    for (const std::wstring& name : m_names)
    {
        std::filesystem::remove(m_folder.Path() / name); // the program's own folder comes first
    }
    std::filesystem::copy_file(TestProgramFolder() / L"testmodules" / L"plain_loader.exe", m_folder.Program(),
                               std::filesystem::copy_options::overwrite_existing);
    const ModuleNames lookedFor = Without(m_names, NAMES_OF_EVERY_PROGRAM);
    m_planted.Plant(lookedFor);
    std::wstring line;
    for (const std::wstring& name : lookedFor)
    {
        line.append(name).append(L" ");
    }
    ExpectRun(line, EXIT_CODE_ENDED);
    EXPECT_EQ(m_planted.Loaded(), lookedFor);
}
