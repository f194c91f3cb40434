#include "tests/e2e/AgentTest.h"

#include "Include/BoundedText.h"
#include "Include/UtilFile.h"
#include "devservice/Person.h"
#include "devservice/ScriptRunner.h"
#include "devservice/ValueText.h"
#include "dialogs/ClientPermissionDialog.h"
#include "dialogs/PermissionAnswer.h"
#include "resources/resource.h"

#include <gtest/gtest.h>

#include <wtsapi32.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace
{
constexpr DWORD LOOK_MS = 20;
constexpr DWORD EXIT_CODE_SHOWN = 1;
constexpr DWORD EXIT_CODE_NOT_SHOWN = 0;
constexpr wchar_t DIALOG_CLASS[] = L"#32770";
constexpr wchar_t QUESTION[] = L"May Alice come in?";

using PROMPT = MSG_PERMISSION_PROMPT;

BOOL CALLBACK AddPromptWindow(HWND hWnd, LPARAM lParam)
{
    wchar_t szClass[64] = {};
    GetClassNameW(hWnd, szClass, ARRAYSIZE(szClass));
    if (std::wstring_view(szClass) == DIALOG_CLASS && IsWindowVisible(hWnd) &&
        GetDlgItem(hWnd, IDC_PERMISSION_COUNTDOWN) != nullptr)
    {
        reinterpret_cast<std::vector<HWND>*>(lParam)->push_back(hWnd);
    }
    return TRUE;
}

std::vector<HWND> PromptWindows()
{
    std::vector<HWND> windows;
    EnumWindows(AddPromptWindow, reinterpret_cast<LPARAM>(&windows));
    return windows;
}

std::wstring TextOf(HWND hDlg, int nControl)
{
    wchar_t szText[std::size(PROMPT().szPrompt)] = {};
    GetDlgItemTextW(hDlg, nControl, szText, static_cast<int>(std::size(szText)));
    return szText;
}

std::wstring OwnAccount()
{
    wchar_t szAccount[MAX_PATH] = {};
    GetAccountName(szAccount, MAX_PATH);
    return szAccount;
}

/// A prompt that a person sees.
class ShownPrompt
{
  public:
    explicit ShownPrompt(HWND hDlg) : m_hDlg(hDlg)
    {
        DWORD dwProcessId = 0;
        GetWindowThreadProcessId(hDlg, &dwProcessId);
        m_hProcess.reset(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_TERMINATE,
                                     FALSE, dwProcessId));
    }

    HWND Window() const { return m_hDlg; }
    void Press(int nControl) const { PostMessageW(GetDlgItem(m_hDlg, nControl), BM_CLICK, 0, 0); }
    /// As Alt+Tab does.
    bool TakeKeyboard() const
    {
        for (DWORD dwWaited = 0; dwWaited < PATIENCE_MS && GetForegroundWindow() != m_hDlg;
             dwWaited += LOOK_MS)
        {
            SetForegroundWindow(m_hDlg);
            Sleep(LOOK_MS);
        }
        return GetForegroundWindow() == m_hDlg;
    }
    void Close() const { PostMessageW(m_hDlg, WM_CLOSE, 0, 0); }
    void Kill() const { TerminateProcess(m_hProcess.get(), EXIT_CODE_KILLED); }
    void LetTimePass(int nSeconds) const
    {
        for (int n = 0; n < nSeconds; ++n)
        {
            PostMessageW(m_hDlg, WM_TIMER, TIMER_PERMISSION_COUNTDOWN, 0);
        }
    }
    bool IsRunning() const { return WaitForSingleObject(m_hProcess.get(), 0) == WAIT_TIMEOUT; }
    void ExpectEnd(DWORD dwExitCode) const
    {
        DWORD dwActual = STILL_ACTIVE;
        ASSERT_EQ(WaitForSingleObject(m_hProcess.get(), PATIENCE_MS), WAIT_OBJECT_0);
        EXPECT_TRUE(GetExitCodeProcess(m_hProcess.get(), &dwActual));
        EXPECT_EQ(dwActual, dwExitCode);
        EXPECT_FALSE(IsWindow(m_hDlg));
    }

    static constexpr DWORD EXIT_CODE_KILLED = 77;

  private:
    HWND m_hDlg;
    CKernelHandle m_hProcess;
};

PROMPT MakeQuestion(const wchar_t* pszText = QUESTION)
{
    PROMPT question = {};
    question.dwType = MSG_TYPE_PERMISSION_PROMPT;
    CopyText(question.szPrompt, pszText);
    question.abGap8208[1] = 0xA5; // comes back, too
    return question;
}

/// The service's side of one exchange.
class Exchange
{
  public:
    std::wstring Port() const { return std::to_wstring(m_port.Port()); }
    MSG_TRAYICON_PERMISSION Message() const { return {MSG_TYPE_TRAYICON_PERMISSION, m_port.Port(), AF_INET}; }

    /// Takes the opening datagram of a prompt and answers it.
    void Ask(const PROMPT& question = MakeQuestion())
    {
        TakeOpening();
        ASSERT_TRUE(m_port.Reply(&question, sizeof(question)));
    }
    void AskWithBytes(size_t cb)
    {
        TakeOpening();
        std::vector<BYTE> bytes(cb);
        const PROMPT question = MakeQuestion();
        memcpy(bytes.data(), &question, std::min(cb, sizeof(question)));
        ASSERT_TRUE(m_port.Reply(bytes.data(), bytes.size()));
    }
    /// Any whole record ends the prompt.
    void Withdraw()
    {
        const PROMPT any = {};
        ASSERT_TRUE(m_port.Reply(&any, sizeof(any)));
    }
    void Close() { m_port.Close(); }

    /// The answer to the question, and nothing behind it.
    void ExpectAnswer(DWORD dwAnswer, DWORD bAnswered, PROMPT expected = MakeQuestion())
    {
        const auto bytes = m_port.Receive(PATIENCE_MS);
        ASSERT_TRUE(bytes.has_value()) << "no answer";
        const PROMPT answer = RecordAs<PROMPT>(*bytes);
        EXPECT_EQ(answer.dwAnswer, dwAnswer);
        EXPECT_EQ(answer.bAnswered, bAnswered);
        EXPECT_EQ(FixedText(answer.szUsername), OwnAccount());
        expected.dwAnswer = answer.dwAnswer;
        expected.bAnswered = answer.bAnswered;
        ReplaceText(expected.szUsername, FixedText(answer.szUsername));
        EXPECT_EQ(memcmp(&answer, &expected, sizeof(expected)), 0) << "the image comes back as it was sent";
    }
    /// For a prompt that has ended or must say nothing.
    void ExpectSilence(DWORD dwMilliseconds = SILENCE_MS)
    {
        EXPECT_FALSE(m_port.Receive(dwMilliseconds).has_value());
    }

  private:
    void TakeOpening()
    {
        const auto bytes = m_port.Receive(PATIENCE_MS);
        ASSERT_TRUE(bytes.has_value()) << "no prompt has come";
        PROMPT opening = {};
        opening.dwType = MSG_TYPE_PERMISSION_PROMPT;
        const PROMPT actual = RecordAs<PROMPT>(*bytes);
        EXPECT_EQ(memcmp(&actual, &opening, sizeof(opening)), 0);
    }

    LoopbackResponder m_port;
};

class PermissionTest : public AgentTest
{
  protected:
    void SetUp() override { ASSERT_TRUE(PromptWindows().empty()) << "of an earlier test"; }

    void MeetAgent()
    {
        StartAgent();
        AcceptAgent();
        ShakeHands();
    }

    /// The service asks on the main channel, and the agent's prompt comes up.
    ShownPrompt ShowPrompt(const PROMPT& question = MakeQuestion())
    {
        EXPECT_TRUE(m_channel->Send(m_exchange.Message()));
        m_exchange.Ask(question);
        return ShownPrompt(WaitForPrompt());
    }

    static HWND WaitForPrompt(size_t nCount = 1)
    {
        for (DWORD dwWaited = 0; dwWaited < PATIENCE_MS; dwWaited += LOOK_MS)
        {
            const std::vector<HWND> windows = PromptWindows();
            if (windows.size() >= nCount)
            {
                return windows.front();
            }
            Sleep(LOOK_MS);
        }
        ADD_FAILURE() << "no prompt is shown";
        return nullptr;
    }

    /// The agent has nothing to do with the prompt's end.
    void ExpectAgentUnmoved()
    {
        ExpectEcho();
        EXPECT_EQ(m_channel->CountOf(MSG_TYPE_TRAYICON_PERMISSION), 0U);
        EXPECT_TRUE(m_channel->IsFrameIntact());
    }

    void ExpectRun(const std::wstring& commandLine, DWORD dwExitCode)
    {
        const AgentProcess run(m_folder, {commandLine, {}, {}, false});
        ExpectExit(run, dwExitCode);
        EXPECT_TRUE(PromptWindows().empty());
    }

    Exchange m_exchange;
};

TEST_F(PermissionTest, AllowIsAnsweredOnceAndTheAgentIsNotMoved)
{
    MeetAgent();
    const ShownPrompt prompt = ShowPrompt();
    EXPECT_EQ(TextOf(prompt.Window(), IDC_PERMISSION_TEXT), QUESTION);
    ExpectAgentUnmoved(); // while the prompt waits
    m_exchange.ExpectSilence();
    prompt.Press(IDOK);
    m_exchange.ExpectAnswer(1111, 1);
    prompt.ExpectEnd(EXIT_CODE_SHOWN);
    m_exchange.ExpectSilence();
    ExpectAgentUnmoved();
    EXPECT_TRUE(
        m_folder.WaitForLog("TKDAST lpCmdLine=-Permission " + ToUtf8(m_exchange.Port()) + " 2", PATIENCE_MS))
        << m_folder.Log();
}

TEST_F(PermissionTest, DenyAndTheCloseBoxAreBothARefusal)
{
    MeetAgent();
    {
        const ShownPrompt prompt = ShowPrompt();
        prompt.Press(IDCANCEL);
        m_exchange.ExpectAnswer(2222, 1);
        prompt.ExpectEnd(EXIT_CODE_SHOWN);
    }
    const ShownPrompt prompt = ShowPrompt();
    prompt.Close();
    m_exchange.ExpectAnswer(2222, 1);
    prompt.ExpectEnd(EXIT_CODE_SHOWN);
    m_exchange.ExpectSilence();
}

TEST_F(PermissionTest, AnExpiredCountdownIsAnsweredOnceEvenWhenDenyIsTheDefault)
{
    MeetAgent();
    PROMPT question = MakeQuestion();
    question.bDefaultDeny = 1;
    const ShownPrompt prompt = ShowPrompt(question);
    prompt.LetTimePass(PERMISSION_SECONDS);
    m_exchange.ExpectAnswer(3333, 1, question);
    prompt.ExpectEnd(EXIT_CODE_SHOWN);
    m_exchange.ExpectSilence();
}

TEST_F(PermissionTest, AWithdrawnPromptClosesAndSaysSo)
{
    MeetAgent();
    const ShownPrompt prompt = ShowPrompt();
    m_exchange.Withdraw();
    m_exchange.ExpectAnswer(4444, 0);
    prompt.ExpectEnd(EXIT_CODE_SHOWN);
    m_exchange.ExpectSilence();
    ExpectAgentUnmoved();
}

TEST_F(PermissionTest, OnALockedDesktopNobodyIsAsked)
{
    MeetLockedAgent();
    ASSERT_TRUE(m_channel->Send(m_exchange.Message()));
    m_exchange.Ask();
    m_exchange.ExpectAnswer(6666, 1);
    m_exchange.ExpectSilence();
    EXPECT_TRUE(PromptWindows().empty());
    ExpectAgentUnmoved();
}

TEST_F(PermissionTest, OnTheSecureDesktopNobodyIsAskedAndTheParentIsToldSo)
{
    // On the test system the input desktop of a process is the one whose handle it has inherited.
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    const CDesktop hDesktop(CreateDesktopW(L"Winlogon", nullptr, nullptr, 0, GENERIC_ALL, &inheritable));
    ASSERT_TRUE(hDesktop);
    const AgentProcess run(m_folder,
                           {L"-Permission " + m_exchange.Port() + L" 2", {}, L"WinSta0\\Default", true});
    m_exchange.Ask();
    m_exchange.ExpectAnswer(6666, 1);
    ExpectExit(run, EXIT_CODE_NOT_SHOWN);
    EXPECT_TRUE(PromptWindows().empty());
}

TEST_F(PermissionTest, AKilledPromptIsASilenceAndTheAgentLivesOn)
{
    MeetAgent();
    const ShownPrompt prompt = ShowPrompt();
    prompt.Kill();
    prompt.ExpectEnd(ShownPrompt::EXIT_CODE_KILLED);
    m_exchange.ExpectSilence();
    ExpectAgentUnmoved();
    const ShownPrompt next = ShowPrompt();
    next.Press(IDOK);
    m_exchange.ExpectAnswer(1111, 1);
}

TEST_F(PermissionTest, APromptOutlivesTheAgentThatHasStartedIt)
{
    MeetAgent();
    const ShownPrompt prompt = ShowPrompt();
    ExpectEndWithService();
    EXPECT_TRUE(prompt.IsRunning());
    prompt.Press(IDOK);
    m_exchange.ExpectAnswer(1111, 1);
    prompt.ExpectEnd(EXIT_CODE_SHOWN);
}

TEST_F(PermissionTest, AServiceThatHasGoneHindersNobodyFromClosingThePrompt)
{
    MeetAgent();
    const ShownPrompt prompt = ShowPrompt();
    m_exchange.Close();
    prompt.Press(IDOK);
    prompt.ExpectEnd(EXIT_CODE_SHOWN);
    ExpectAgentUnmoved();
}

TEST_F(PermissionTest, TwoPromptsOfOneAgentAreAnsweredEachForItself)
{
    MeetAgent();
    const ShownPrompt first = ShowPrompt();
    Exchange other;
    const PROMPT otherQuestion = MakeQuestion(L"May Bob come in?");
    ASSERT_TRUE(m_channel->Send(other.Message()));
    other.Ask(otherQuestion);
    WaitForPrompt(2);
    for (const HWND hWnd : PromptWindows())
    {
        ShownPrompt(hWnd).Press(hWnd == first.Window() ? IDCANCEL : IDOK);
    }
    m_exchange.ExpectAnswer(2222, 1);
    other.ExpectAnswer(1111, 1, otherQuestion);
    m_exchange.ExpectSilence();
    other.ExpectSilence(0);
}

TEST_F(PermissionTest, TwoAgentsOfTwoServicesAskAtTheSameTime)
{
    MeetAgent();
    const ShownPrompt first = ShowPrompt();
    LoopbackListener otherService;
    const AgentProcess otherAgent(
        m_folder, {L"-onetimesession " + std::to_wstring(otherService.Port()), {}, {}, false});
    const auto resident = std::move(m_channel);
    AcceptAgent(otherService);
    ShakeHands();
    Exchange other;
    ASSERT_TRUE(m_channel->Send(other.Message()));
    other.Ask();
    WaitForPrompt(2);
    for (const HWND hWnd : PromptWindows())
    {
        ShownPrompt(hWnd).Press(hWnd == first.Window() ? IDOK : IDCANCEL);
    }
    other.ExpectAnswer(2222, 1);
    m_exchange.ExpectAnswer(1111, 1);
    first.ExpectEnd(EXIT_CODE_SHOWN);
    ExpectEcho();
}

struct KEYS_ANSWER
{
    const char* pszName;
    DWORD bDefaultDeny;
    std::vector<const wchar_t*> keys;
    DWORD dwAnswer;
};

class PermissionKeysTest : public PermissionTest, public testing::WithParamInterface<KEYS_ANSWER>
{
};

TEST_P(PermissionKeysTest, TheKeyboardAloneIsEnough)
{
    MeetAgent();
    PROMPT question = MakeQuestion();
    question.bDefaultDeny = GetParam().bDefaultDeny;
    const ShownPrompt prompt = ShowPrompt(question);
    ASSERT_TRUE(prompt.TakeKeyboard());
    for (const wchar_t* const pszKey : GetParam().keys)
    {
        ASSERT_TRUE(PressKey(pszKey));
    }
    m_exchange.ExpectAnswer(GetParam().dwAnswer, 1, question);
    prompt.ExpectEnd(EXIT_CODE_SHOWN);
    m_exchange.ExpectSilence();
}

INSTANTIATE_TEST_SUITE_P(Keys, PermissionKeysTest,
                         testing::Values(KEYS_ANSWER{"Enter", 0, {L"Enter"}, 1111},
                                         KEYS_ANSWER{"EnterWhereDenyIsTheDefault", 1, {L"Enter"}, 2222},
                                         KEYS_ANSWER{"Escape", 0, {L"Escape"}, 2222},
                                         KEYS_ANSWER{"MnemonicOfAllow", 1, {L"Tab", L"A"}, 1111},
                                         KEYS_ANSWER{"MnemonicOfDeny", 0, {L"Tab", L"D"}, 2222}),
                         [](const testing::TestParamInfo<KEYS_ANSWER>& info) { return info.param.pszName; });

using PermissionLineTest = PermissionTest;

TEST_F(PermissionLineTest, AParentSeesWhetherThePromptWasShown)
{
    for (const std::wstring& line :
         {L"-Permission " + m_exchange.Port() + L" 2", L"-Invitation " + m_exchange.Port() + L" 2",
          L"foo -Permission " + m_exchange.Port() + L" 2",
          L"-onetimesession " + m_exchange.Port() + L" -Invitation",
          L"-onetimesession " + m_exchange.Port() + L" -Permission 7 2"})
    {
        const AgentProcess run(m_folder, {line, {}, {}, false});
        m_exchange.Ask();
        ShownPrompt(WaitForPrompt()).Press(IDOK);
        m_exchange.ExpectAnswer(1111, 1);
        ExpectExit(run, EXIT_CODE_SHOWN);
        m_exchange.ExpectSilence(0);
    }
}

TEST_F(PermissionLineTest, APromptOfAnotherSizeIsNone)
{
    for (const size_t cb : {sizeof(PROMPT) - 1, sizeof(PROMPT) + 1, size_t{0}})
    {
        const AgentProcess run(m_folder, {L"-Permission " + m_exchange.Port() + L" 2", {}, {}, false});
        m_exchange.AskWithBytes(cb);
        ExpectExit(run, EXIT_CODE_NOT_SHOWN);
        EXPECT_TRUE(PromptWindows().empty());
        m_exchange.ExpectSilence(0);
    }
}

TEST_F(PermissionLineTest, AServiceThatSaysNothingIsGivenUpAfterFiveSeconds)
{
    const AgentProcess run(m_folder, {L"-Permission " + m_exchange.Port() + L" 2", {}, {}, false});
    ExpectExit(run, EXIT_CODE_NOT_SHOWN);
    EXPECT_TRUE(PromptWindows().empty());
}

TEST_F(PermissionLineTest, LinesWithoutAPortShowNothing)
{
    ExpectRun(L"-Permission", EXIT_CODE_NOT_SHOWN);
    ExpectRun(L"-Invitation", EXIT_CODE_NOT_SHOWN);
    ExpectRun(L"-Permission  " + m_exchange.Port() + L" 2", EXIT_CODE_NOT_SHOWN);
    ExpectRun(L"-Permission " + std::wstring(30000, L'1') + L" 2", EXIT_CODE_NOT_SHOWN);
    ExpectRun(L"-onetimesession -Permission " + m_exchange.Port() + L" 2", EXIT_CODE_BAD_PARAMETER);
    m_exchange.ExpectSilence(0);
}

TEST_F(PermissionLineTest, APortOfNobodyShowsNothing)
{
    const std::wstring port = m_exchange.Port();
    m_exchange.Close();
    ExpectRun(L"-Permission " + port + L" 2", EXIT_CODE_NOT_SHOWN);
}

TEST_F(PermissionLineTest, ASwitchInAnotherCaseStartsAnAgent)
{
    const RegistryValue port(HKEY_LOCAL_MACHINE, SERVICE_SETTINGS_KEY, L"Port", m_listener.Port());
    StartAgent(L"-permission " + m_exchange.Port() + L" 2");
    AcceptAgent();
    ShakeHands();
    m_exchange.ExpectSilence(0);
}

TEST_F(PermissionLineTest, APromptRunsBesideAnAgentAndMarksNothing)
{
    const AgentProcess run(m_folder, {L"-Permission " + m_exchange.Port() + L" 2", {}, {}, false});
    m_exchange.Ask();
    const ShownPrompt prompt(WaitForPrompt());
    EXPECT_EQ(run.FindTrayWindow(), nullptr);
    MeetAgent(); // whose desktop isn't taken
    prompt.Press(IDCANCEL);
    ExpectExit(run, EXIT_CODE_SHOWN);
    ExpectEcho();
}

/// The whole way by the stand-in's own script.
class PermissionStoryTest : public PermissionTest
{
  protected:
    PermissionStoryTest() : m_runner(m_service, Settings()) {}

    SCRIPT_SETTINGS Settings() const
    {
        SCRIPT_SETTINGS settings;
        settings.nPort = 0;
        settings.programFolder = m_folder.Path().wstring();
        return settings;
    }

    void Play(std::wstring_view text)
    {
        std::vector<SCRIPT_STATEMENT> statements;
        std::wstring error;
        ASSERT_TRUE(ParseScript(text, statements, error) && CScriptRunner::Check(statements, error))
            << ToUtf8(error);
        EXPECT_EQ(m_runner.Run(statements), SCRIPT_RESULT::Done)
            << ToUtf8(m_runner.GetError()) << m_folder.Log();
    }

    void TearDown() override { m_runner.EndPrograms(); }

    CStandInService m_service;
    CScriptRunner m_runner;
};

TEST_F(PermissionStoryTest, AScriptAsksAnswersAndWithdraws)
{
    Play(L"listen\n"
         L"start \"$dir\\\\TKDAST.exe\" $port\n"
         L"agent wait 1\n"
         L"permission May Alice come in?\n"
         L"window \"Kestrel Desk Assist\"\n"
         L"press 1\n"
         L"permission expect allowed user=\"$account\"\n"
         L"window \"Kestrel Desk Assist\" gone\n"
         L"permission \"And Bob?\" bDefaultDeny=1 bVariantText=1\n"
         L"window \"Kestrel Desk Assist\" text=\"And Bob?\"\n"
         L"timer 888 times=119\n"
         L"permission expect expired\n"
         L"window \"Kestrel Desk Assist\" gone\n"
         L"permission And Carol? bKeepPlace=1\n"
         L"window \"Kestrel Desk Assist\"\n"
         L"permission withdraw\n"
         L"permission expect withdrawn\n"
         L"window \"Kestrel Desk Assist\" gone\n"
         L"echo\n"
         L"exit\n"
         L"expect-exit -56\n");
}
} // namespace
