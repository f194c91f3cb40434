#include "tests/e2e/AgentTest.h"

#include "certificates/CertificateRegistry.h"
#include "devservice/Person.h"
#include "resources/resource.h"
#include "tests/support/TestCertificates.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace
{
constexpr DWORD EXIT_CODE_TRUSTED = 0;
constexpr DWORD EXIT_CODE_NOT_TRUSTED = 1;
constexpr wchar_t QUESTION[] = L"Trust a certificate?";
constexpr wchar_t VIEWER[] = L"Certificate";
constexpr wchar_t NAME[] = L"Example help desk & Co";
constexpr wchar_t SWITCH[] = L"-ValidateCert";

bool SleepOn(DWORD dwMilliseconds)
{
    Sleep(dwMilliseconds);
    return true;
}

/// A user without a candidate, who trusts nobody. What the agents write goes with the test.
class CertificateTest : public AgentTest
{
  protected:
    static void PutCandidate(const char* pszFile)
    {
        const std::vector<BYTE> data = TestCertificate(pszFile);
        ASSERT_FALSE(data.empty()) << pszFile;
        ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, CERTIFICATES_KEY, CANDIDATE_VALUE, REG_BINARY,
                                  data.data(), static_cast<DWORD>(data.size())),
                  ERROR_SUCCESS);
    }

    /// Starts the agent on that line and waits until it asks. Null when it doesn't.
    HWND StartAndWait(const std::wstring& line = SWITCH)
    {
        StartAgent(line);
        EXPECT_TRUE(WaitForShownWindow(QUESTION, true, PATIENCE_MS, SleepOn)) << m_folder.Log();
        return FindShownWindow(QUESTION);
    }
    static void Press(HWND hDialog, int nControl)
    {
        PostMessageW(GetDlgItem(hDialog, nControl), BM_CLICK, 0, 0);
    }
    void ExpectNoQuestion()
    {
        EXPECT_EQ(m_folder.CountInLog("ValidateCertProc"), 0U);
        EXPECT_EQ(FindShownWindow(QUESTION), nullptr);
    }

  private:
    RegistryValue m_candidate{HKEY_CURRENT_USER, CERTIFICATES_KEY, CANDIDATE_VALUE};
    RegistryValue m_trusted{HKEY_CURRENT_USER, CERTIFICATES_KEY, NAME};
    RegistryValue m_trustedTwin{HKEY_CURRENT_USER, CERTIFICATES_KEY, L"Twin"};
};
} // namespace

TEST_F(CertificateTest, ATrustedCertificateEndsWithZeroAndWithoutAWindow)
{
    const RegistryValue trusted(HKEY_CURRENT_USER, CERTIFICATES_KEY, NAME, REG_BINARY,
                                TestCertificate("rsa"));
    PutCandidate("rsa");
    StartAgent(SWITCH);
    ExpectExit(*m_agent, EXIT_CODE_TRUSTED);
    ExpectNoQuestion();
    EXPECT_EQ(m_folder.CountInLog("Displaying ValidateCert dialog"), 1U);
}

TEST_F(CertificateTest, ADeclinedCertificateEndsWithOneAndIsAskedAboutAgain)
{
    PutCandidate("rsa");
    Press(StartAndWait(), IDNO);
    ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
    PostMessageW(StartAndWait(), WM_CLOSE, 0, 0);
    ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
}

TEST_F(CertificateTest, AnAcceptedAndRememberedCertificateIsNotAskedAboutAgain)
{
    PutCandidate("rsa");
    const HWND hDialog = StartAndWait();
    wchar_t szName[MAX_PATH] = {};
    GetDlgItemTextW(hDialog, IDC_VALIDATE_NAME, szName, MAX_PATH);
    EXPECT_STREQ(szName, NAME);
    Press(hDialog, IDC_VALIDATE_REMEMBER);
    Press(hDialog, IDYES);
    ExpectExit(*m_agent, EXIT_CODE_TRUSTED);
    const size_t nBefore = m_folder.CountInLog("ValidateCertProc");
    StartAgent(SWITCH);
    ExpectExit(*m_agent, EXIT_CODE_TRUSTED);
    EXPECT_EQ(m_folder.CountInLog("ValidateCertProc"), nBefore) << "nobody was asked";
}

TEST_F(CertificateTest, ACertificateThatIsOnlyAcceptedIsAskedAboutAgain)
{
    PutCandidate("rsa");
    Press(StartAndWait(), IDYES);
    ExpectExit(*m_agent, EXIT_CODE_TRUSTED);
    Press(StartAndWait(), IDNO);
    ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
}

TEST_F(CertificateTest, AnotherCertificateOfATrustedNameIsAskedAbout)
{
    const RegistryValue trusted(HKEY_CURRENT_USER, CERTIFICATES_KEY, L"Twin", REG_BINARY,
                                TestCertificate("twin-1"));
    PutCandidate("twin-2");
    Press(StartAndWait(), IDNO);
    ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
}

TEST_F(CertificateTest, WithoutACandidateTheQuestionIsAskedAllTheSame)
{
    Press(StartAndWait(), IDYES);
    ExpectExit(*m_agent, EXIT_CODE_TRUSTED);
    Press(StartAndWait(), IDNO);
    ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
    EXPECT_EQ(m_folder.CountInLog("GetCertFromACRegistry returning false"), 2U);
}

TEST_F(CertificateTest, TheSwitchCountsAnywhereInTheLine)
{
    PutCandidate("ec");
    Press(StartAndWait(L"foo -ValidateCert"), IDNO);
    ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
}

TEST_F(CertificateTest, AnAgentThatRunsAlreadyIsNotInTheWay)
{
    AgentStart start;
    start.commandLine = ServicePort();
    const AgentProcess resident(m_folder, start);
    AcceptAgent();
    ShakeHands();
    PutCandidate("rsa");
    Press(StartAndWait(), IDNO);
    ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
    EXPECT_TRUE(resident.IsRunning());
}

TEST_F(CertificateTest, TheSystemsOwnViewerShowsTheCertificate)
{
    PutCandidate("rsa");
    const HWND hDialog = StartAndWait();
    Press(hDialog, IDC_VALIDATE_SHOW);
    HWND hViewer = nullptr;
    for (DWORD dwWaited = 0; dwWaited < PATIENCE_MS && hViewer == nullptr; dwWaited += 20)
    {
        Sleep(20);
        hViewer = FindWindowW(L"#32770", VIEWER);
    }
    ASSERT_NE(hViewer, nullptr);
    DWORD dwProcessId = 0;
    GetWindowThreadProcessId(hViewer, &dwProcessId);
    EXPECT_EQ(dwProcessId, m_agent->Id());
    EXPECT_TRUE(IsWindowVisible(hDialog));
    PostMessageW(hViewer, WM_CLOSE, 0, 0);
    for (DWORD dwWaited = 0; dwWaited < PATIENCE_MS && IsWindow(hViewer); dwWaited += 20)
    {
        Sleep(20);
    }
    EXPECT_FALSE(IsWindow(hViewer));
    EXPECT_TRUE(IsWindowVisible(hDialog));
    Press(hDialog, IDNO);
    ExpectExit(*m_agent, EXIT_CODE_NOT_TRUSTED);
}
