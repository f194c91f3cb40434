#include "certificates/ValidateCertDialog.h"

#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/ImportHook.h"
#include "tests/support/TestCertificates.h"
#include "tests/unit/BannerDialog.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/CertificateHarness.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/ModalScenario.h"
#include "tray/TrayWindowMessages.h"

#include <commctrl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace
{
using LINES = std::vector<std::string>;

constexpr wchar_t NAME[] = L"Example help desk & Co";

struct VIEWED
{
    DWORD dwKind;
    const void* pvContext;
};

/// The viewer of certificates as the dialog asks for it.
struct VIEWER
{
    std::vector<VIEWED> viewed;
    std::function<void()> whileOpen;
};
VIEWER g_viewer;

BOOL WINAPI RecordView(DWORD dwKind, const void* pvContext, HWND hWnd, LPCWSTR pszTitle, DWORD dwFlags,
                       void* pvReserved)
{
    EXPECT_TRUE(hWnd == nullptr && pszTitle == nullptr && dwFlags == 0 && pvReserved == nullptr);
    g_viewer.viewed.push_back({dwKind, pvContext});
    if (g_viewer.whileOpen)
    {
        g_viewer.whileOpen();
    }
    return TRUE;
}

// In what order an answer is carried out.
struct ENDING
{
    decltype(&EndDialog) pfnEnd = nullptr;
    decltype(&RegSetValueExW) pfnSet = nullptr;
    decltype(&PostMessageW) pfnPost = nullptr;
    LINES calls;
};
ENDING g_ending;

BOOL WINAPI RecordEnd(HWND hDialog, INT_PTR nResult)
{
    g_ending.calls.push_back("end " + std::to_string(nResult));
    return g_ending.pfnEnd(hDialog, nResult);
}

LSTATUS WINAPI RecordSet(HKEY hKey, LPCWSTR pszValue, DWORD dwReserved, DWORD dwType, const BYTE* pbData,
                         DWORD cbData)
{
    g_ending.calls.emplace_back("set");
    return g_ending.pfnSet(hKey, pszValue, dwReserved, dwType, pbData, cbData);
}

BOOL WINAPI RecordPost(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == WM_JOIN_SESSION_STATE)
    {
        g_ending.calls.push_back("post " + std::to_string(uMessage) + ' ' + std::to_string(wParam) + ' ' +
                                 std::to_string(lParam));
        EXPECT_EQ(hWnd, nullptr) << "nobody's";
    }
    return g_ending.pfnPost(hWnd, uMessage, wParam, lParam);
}

// A system that has the dialog end with this result at once.
INT_PTR g_nDialogResult = 0;

INT_PTR WINAPI AnswerDialog(HINSTANCE hModule, LPCWSTR pszTemplate, HWND hOwner, DLGPROC pfnProcedure,
                            LPARAM lParam)
{
    EXPECT_EQ(hModule, g_hResourceModule);
    EXPECT_EQ(pszTemplate, MAKEINTRESOURCEW(137));
    EXPECT_EQ(hOwner, nullptr);
    EXPECT_EQ(pfnProcedure, &ValidateCertProc);
    EXPECT_EQ(lParam, reinterpret_cast<LPARAM>(g_CertContext));
    return g_nDialogResult;
}

class ValidateCertTest : public CertificateHarness
{
  protected:
    void SetUp() override
    {
        CertificateHarness::SetUp();
        g_viewer = VIEWER();
        m_binding.Set("CryptUIDlgViewContext", &RecordView);
    }

    /// Asks, with a person who does that.
    static bool Ask(const std::function<void(HWND)>& scenario)
    {
        const ModalScenario modal(scenario);
        const bool bTrusted = ValidateCertDialog();
        EXPECT_TRUE(modal.HasRun()) << "nobody was asked";
        return bTrusted;
    }
    /// Whether the certificate is trusted without a question.
    static bool IsTrustedUnasked()
    {
        const ModalScenario modal([](HWND hDialog) { PostMessageW(hDialog, WM_CLOSE, 0, 0); });
        const bool bTrusted = ValidateCertDialog();
        return bTrusted && !modal.HasRun();
    }

    static void Click(HWND hDialog, int nControl) { SendDlgItemMessageW(hDialog, nControl, BM_CLICK, 0, 0); }
    static void Accept(HWND hDialog) { Click(hDialog, IDYES); }
    static void Decline(HWND hDialog) { Click(hDialog, IDNO); }
    static void AcceptForGood(HWND hDialog)
    {
        Click(hDialog, IDC_VALIDATE_REMEMBER);
        Accept(hDialog);
    }
    static void Press(HWND hControl, WPARAM wKey)
    {
        PostMessageW(hControl, WM_KEYDOWN, wKey, 0);
        PostMessageW(hControl, WM_KEYUP, wKey, 0);
    }
    /// What stands in the place of the name when there is none.
    std::wstring WordsForNoName() const
    {
        const CWindow hDialog(CreateDialogParamW(
            g_hResourceModule, MAKEINTRESOURCEW(IDD_VALIDATE_CERTIFICATE), nullptr,
            +[](HWND, UINT, WPARAM, LPARAM) -> INT_PTR { return FALSE; }, 0));
        return ControlText(hDialog.get(), IDC_VALIDATE_NAME);
    }

    StagedLanguageModule m_language;
    LateBinding m_binding;
    BoxTrace m_boxes;
    PlayedScreen m_screen;
    OpeningTrace m_opened;
};
} // namespace

TEST_F(ValidateCertTest, ATrustedCertificateIsNotAskedAbout)
{
    Put(NAME, TestCertificate("rsa"));
    PutCandidate(TestCertificate("rsa"));
    const LogCapture log("ValidateCertDialog");
    EXPECT_TRUE(IsTrustedUnasked());
    const LINES lines = log.Texts();
    EXPECT_EQ(lines.front(), "TRACE ValidateCertSession entering.");
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "TRACE ValidateCertDialog; Certificate found in HKCU registry store.");
    EXPECT_EQ(lines.back(), "TRACE ValidateCertSession exiting.");
}

TEST_F(ValidateCertTest, AnAcceptedAndRememberedCertificateIsNotAskedAboutAgain)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_EQ(Stored(NAME), TestCertificate("rsa"));
    Forget();
    EXPECT_TRUE(IsTrustedUnasked());
}

TEST_F(ValidateCertTest, ACertificateThatIsOnlyAcceptedIsAskedAboutAgain)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_TRUE(Ask(Accept));
    EXPECT_EQ(CountStored(), 1U) << "the candidate alone";
    Forget();
    EXPECT_FALSE(Ask(Decline));
}

TEST_F(ValidateCertTest, HoweverItIsDeclinedNothingIsKept)
{
    const std::vector<std::function<void(HWND)>> ways = {
        Decline,
        [](HWND hDialog) {
            Click(hDialog, IDC_VALIDATE_REMEMBER);
            Decline(hDialog);
        },
        [](HWND hDialog) { PostMessageW(hDialog, WM_CLOSE, 0, 0); },
        [](HWND hDialog) { PostMessageW(hDialog, WM_SYSCOMMAND, SC_CLOSE, 0); },
    };
    for (const auto& decline : ways)
    {
        Forget();
        PutCandidate(TestCertificate("rsa"));
        EXPECT_FALSE(Ask(decline));
        EXPECT_EQ(CountStored(), 1U) << "the candidate alone";
    }
}

TEST_F(ValidateCertTest, OnlyTheTwoAnswersAndTheCloseBoxEndIt)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_FALSE(Ask([](HWND hDialog) {
        for (const int nCommand :
             {IDOK, IDCANCEL, IDRETRY, IDIGNORE, IDCLOSE, IDC_VALIDATE_REMEMBER, IDC_VALIDATE_NAME})
        {
            EXPECT_EQ(ValidateCertProc(hDialog, WM_COMMAND, static_cast<WPARAM>(nCommand), 0), 0) << nCommand;
        }
        for (const UINT uMessage : {WM_USER, WM_TIMER, WM_CTLCOLORSTATIC, WM_ACTIVATE})
        {
            EXPECT_EQ(ValidateCertProc(hDialog, uMessage, 0, 0), 0) << uMessage;
        }
        Press(GetFocus(), VK_ESCAPE);
        PumpMessages();
        EXPECT_TRUE(IsWindowVisible(hDialog));
        Decline(hDialog);
    }));
}

TEST_F(ValidateCertTest, TheResultIsTheNumberOfTheAnswer)
{
    for (const auto& [nCommand, nResult] : {std::pair{IDYES, 6}, {IDNO, 7}, {0, 2}})
    {
        const ModalScenario modal([nCommand = nCommand](HWND hDialog) {
            PostMessageW(hDialog, nCommand != 0 ? WM_COMMAND : WM_CLOSE, static_cast<WPARAM>(nCommand), 0);
        });
        EXPECT_EQ(DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(137), nullptr, ValidateCertProc, 0),
                  nResult);
    }
}

TEST_F(ValidateCertTest, AnythingButAnAcceptIsANo)
{
    const ImportHook hook("user32.dll", "DialogBoxParamW", &AnswerDialog);
    for (const char* const pszFile : {"rsa", ""})
    {
        Forget();
        PutCandidate(TestCertificate(pszFile));
        for (const INT_PTR nResult : {-1, 0, 1, 2, 3, 5, 7, 8})
        {
            g_nDialogResult = nResult;
            EXPECT_FALSE(ValidateCertDialog()) << nResult;
        }
        g_nDialogResult = 6;
        EXPECT_TRUE(ValidateCertDialog());
    }
}

TEST_F(ValidateCertTest, WhatAnAnswerEntailsIsDoneBeforeTheDialogEnds)
{
    const ImportHook end("user32.dll", "EndDialog", &RecordEnd);
    const ImportHook set("advapi32.dll", "RegSetValueExW", &RecordSet);
    const ImportHook post("user32.dll", "PostMessageW", &RecordPost);
    g_ending = {end.Original(), set.Original(), post.Original(), {}};
    PutCandidate(TestCertificate("rsa"));
    g_ending.calls.clear();
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_EQ(g_ending.calls, (LINES{"set", "end 6"}));
    PutCandidate(TestCertificate("ec"));
    g_ending.calls.clear();
    EXPECT_FALSE(Ask(Decline));
    EXPECT_EQ(g_ending.calls, (LINES{"post 1041 2 0", "end 7"}));
    PumpMessages();
}

TEST_F(ValidateCertTest, ADeclineAlsoTellsWhoeverOwnsTheDialog)
{
    PumpMessages();
    EXPECT_FALSE(Ask(Decline));
    MSG message = {};
    ASSERT_TRUE(PeekMessageW(&message, reinterpret_cast<HWND>(-1), WM_JOIN_SESSION_STATE,
                             WM_JOIN_SESSION_STATE, PM_REMOVE));
    EXPECT_EQ(message.wParam, JOIN_SESSION_CANCEL);
    EXPECT_EQ(message.lParam, 0);
    EXPECT_TRUE(Ask(Accept));
    EXPECT_FALSE(PeekMessageW(&message, reinterpret_cast<HWND>(-1), WM_JOIN_SESSION_STATE,
                              WM_JOIN_SESSION_STATE, PM_REMOVE));
}

TEST_F(ValidateCertTest, AnotherCertificateOfATrustedNameIsAskedAboutAndTakesItsPlace)
{
    Put(L"Twin", TestCertificate("twin-1"));
    PutCandidate(TestCertificate("twin-2"));
    EXPECT_FALSE(Ask(Decline));
    EXPECT_EQ(Stored(L"Twin"), TestCertificate("twin-1"));
    Forget();
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_EQ(Stored(L"Twin"), TestCertificate("twin-2"));
}

TEST_F(ValidateCertTest, TheQuestionShowsTheName)
{
    for (const auto& [pszFile, name] :
         {std::pair<const char*, std::wstring>{"rsa", NAME},
          {"organisation", L"Example Support Ltd"},
          {"foreign", L"Pr\u00FCfstelle \u017B\u00F3\u0142\u0107 \u8A3C\u660E\u66F8"},
          {"short", L"A"},
          {"expired", L"Expired"}})
    {
        Forget();
        PutCandidate(TestCertificate(pszFile));
        Ask([&name = name](HWND hDialog) {
            EXPECT_EQ(ControlText(hDialog, IDC_VALIDATE_NAME), name);
            Decline(hDialog);
        });
    }
}

TEST_F(ValidateCertTest, ANameOf250CharactersIsShownWhole)
{
    PutCandidate(TestCertificate("long"));
    Ask([](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_VALIDATE_NAME).size(), 250U);
        const HWND hName = GetDlgItem(hDialog, IDC_VALIDATE_NAME);
        RECT room = {};
        GetClientRect(hName, &room);
        RECT needed = room;
        const HDC hDC = GetDC(hName);
        const HGDIOBJ hOld =
            SelectObject(hDC, reinterpret_cast<HGDIOBJ>(SendMessageW(hName, WM_GETFONT, 0, 0)));
        DrawTextW(hDC, ControlText(hDialog, IDC_VALIDATE_NAME).c_str(), -1, &needed,
                  DT_CALCRECT | DT_WORDBREAK | DT_EDITCONTROL | DT_NOPREFIX);
        SelectObject(hDC, hOld);
        ReleaseDC(hName, hDC);
        EXPECT_LE(needed.bottom, room.bottom);
        Decline(hDialog);
    });
}

TEST_F(ValidateCertTest, WithoutANameTheTemplatesWordsStay)
{
    const std::wstring words = WordsForNoName();
    EXPECT_FALSE(words.empty());
    const auto look = [&words](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_VALIDATE_NAME), words);
        Decline(hDialog);
    };
    Ask(look);
    PutCandidate(TestCertificate("nameless"));
    Ask(look);
    EXPECT_NE(g_CertContext, nullptr);
}

TEST_F(ValidateCertTest, LessThanACharacterAndItsEndIsNoName)
{
    const std::wstring words = WordsForNoName();
    PutCandidate(TestCertificate("rsa"));
    const ImportHook hook(
        "crypt32.dll", "CertGetNameStringW",
        +[](PCCERT_CONTEXT, DWORD dwType, DWORD dwFlags, void* pParameter, LPWSTR pszName,
            DWORD cchName) -> DWORD {
            EXPECT_TRUE(dwType == 4 && dwFlags == 0 && pParameter == nullptr);
            if (pszName != nullptr)
            {
                EXPECT_EQ(cchName, 256U);
                pszName[0] = L'x';
            }
            return 1;
        });
    Ask([&words](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_VALIDATE_NAME), words);
        Decline(hDialog);
    });
}

TEST_F(ValidateCertTest, TheCertificateIsShownAsOftenAsOneAsksAndTheQuestionStays)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_FALSE(Ask([](HWND hDialog) {
        g_viewer.whileOpen = [hDialog] { EXPECT_TRUE(IsWindowVisible(hDialog)); };
        for (int nTime = 0; nTime < 3; ++nTime)
        {
            EXPECT_EQ(ValidateCertProc(
                          hDialog, WM_COMMAND,
                          MAKEWPARAM(IDC_VALIDATE_SHOW, nTime != 0 ? BN_DOUBLECLICKED : BN_CLICKED), 0),
                      1)
                << "whatever the high word says";
        }
        ASSERT_EQ(g_viewer.viewed.size(), 3U);
        EXPECT_EQ(g_viewer.viewed[0].dwKind, 1U);
        EXPECT_EQ(g_viewer.viewed[0].pvContext, g_CertContext);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        Decline(hDialog);
    }));
    EXPECT_TRUE(m_boxes.Boxes().empty());
    EXPECT_EQ(m_binding.OpenModules(), 0);
}

TEST_F(ValidateCertTest, AnAnswerBehindAnOpenViewerCounts)
{
    PutCandidate(TestCertificate("rsa"));
    EXPECT_TRUE(Ask([](HWND hDialog) {
        g_viewer.whileOpen = [hDialog] { AcceptForGood(hDialog); };
        Click(hDialog, IDC_VALIDATE_SHOW);
    }));
    EXPECT_EQ(Stored(NAME), TestCertificate("rsa"));
}

TEST_F(ValidateCertTest, ASystemWithoutAViewerShowsNothing)
{
    m_binding.SetMissing("CryptUIDlgViewContext");
    PutCandidate(TestCertificate("rsa"));
    EXPECT_TRUE(Ask([](HWND hDialog) {
        Click(hDialog, IDC_VALIDATE_SHOW);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        Accept(hDialog);
    }));
    EXPECT_TRUE(m_boxes.Boxes().empty());
}

TEST_F(ValidateCertTest, WithoutACertificateTheShowButtonComplainsAndTheQuestionStays)
{
    for (const int nAnswer : {IDOK, IDCANCEL})
    {
        m_boxes.m_nAnswer = nAnswer;
        m_boxes.Forget();
        const LogCapture log("ValidateCertDialog", log4cxx::Level::getError());
        m_boxes.m_whileOpen = [&log] { EXPECT_TRUE(log.Texts().empty()) << "told when it is over"; };
        EXPECT_FALSE(Ask([](HWND hDialog) {
            Click(hDialog, IDC_VALIDATE_SHOW);
            EXPECT_TRUE(IsWindowVisible(hDialog));
            Decline(hDialog);
        }));
        ASSERT_EQ(m_boxes.Boxes().size(), 1U);
        EXPECT_EQ(m_boxes.Boxes()[0].text,
                  L"There was an error when displaying certificate, certificate wasn't properly processed");
        EXPECT_EQ(m_boxes.Boxes()[0].title, L"Error displaying certificate");
        EXPECT_EQ(m_boxes.Boxes()[0].uType, 1U);
        EXPECT_EQ(log.Texts(), LINES{"ERROR Certificate context is null, cert hasn't been shown in "
                                     "CryptUIDlgViewContext dialog."});
        EXPECT_TRUE(g_viewer.viewed.empty());
    }
}

TEST_F(ValidateCertTest, WithoutACertificateAnAcceptCountsAndKeepsNothing)
{
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getWarn());
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_EQ(log.Texts(), (LINES{"WARN GetCertFromACRegistry returning false",
                                  "WARN Certificate not assigned, OK clicked - no cert hash is saved"}));
    EXPECT_EQ(CountStored(), 0U);
    EXPECT_TRUE(Ask(Accept));
}

TEST_F(ValidateCertTest, ACertificateThatCannotBeKeptIsAcceptedForThisRun)
{
    PutCandidate(TestCertificate("nameless"));
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getError());
    EXPECT_TRUE(Ask(AcceptForGood));
    EXPECT_THAT(log.Texts().back(), testing::HasSubstr("registry key), result = 0"));
    EXPECT_EQ(CountStored(), 1U) << "the candidate alone";
}

TEST_F(ValidateCertTest, WithoutItsTemplateTheAnswerIsNo)
{
    g_hResourceModule = GetModuleHandleW(nullptr);
    PutCandidate(TestCertificate("rsa"));
    EXPECT_FALSE(ValidateCertDialog());
    Put(NAME, TestCertificate("rsa"));
    Forget();
    EXPECT_TRUE(ValidateCertDialog()) << "what is trusted needs no dialog";
}

TEST_F(ValidateCertTest, TheLinkOpensItsAddressByMouseAndByEnter)
{
    Ask([this](HWND hDialog) {
        EXPECT_EQ(NotifyFrom(hDialog, IDC_VALIDATE_HELP, static_cast<UINT>(NM_SETFOCUS)), 0);
        EXPECT_EQ(NotifyFrom(hDialog, IDC_VALIDATE_BANNER, static_cast<UINT>(NM_CLICK)), 0);
        NMHDR other = {GetDlgItem(hDialog, IDC_VALIDATE_HELP), IDC_VALIDATE_HELP,
                       static_cast<UINT>(NM_RETURN)};
        EXPECT_EQ(ValidateCertProc(hDialog, WM_NOTIFY, other.idFrom, reinterpret_cast<LPARAM>(&other)), 0);
        EXPECT_TRUE(m_opened.Documents().empty());
        other.code = static_cast<UINT>(NM_CLICK);
        EXPECT_EQ(ValidateCertProc(hDialog, WM_NOTIFY, other.idFrom, reinterpret_cast<LPARAM>(&other)), 1);
        ASSERT_EQ(m_opened.Documents().size(), 1U);
        EXPECT_EQ(m_opened.Documents()[0].hWnd, nullptr);
        EXPECT_EQ(m_opened.Documents()[0].verb, L"open");
        EXPECT_EQ(m_opened.Documents()[0].address, m_language.Text(76));
        EXPECT_TRUE(m_opened.Documents()[0].address.starts_with(L"https://"));
        EXPECT_EQ(m_opened.Documents()[0].nShow, SW_SHOWNORMAL);
        SetFocus(GetDlgItem(hDialog, IDC_VALIDATE_HELP));
        Press(GetFocus(), VK_RETURN);
        MSG message = {};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            if (!IsDialogMessageW(hDialog, &message))
            {
                DispatchMessageW(&message);
            }
        }
        EXPECT_EQ(m_opened.Documents().size(), 2U);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        Decline(hDialog);
    });
}

TEST_F(ValidateCertTest, OnlyAFinerScreenGetsTheFinerBanner)
{
    for (const auto& [nDotsPerInch, nWidth] : {std::pair<int, LONG>{72, USUAL_BANNER},
                                               {USUAL_SCREEN, USUAL_BANNER},
                                               {97, FINE_BANNER},
                                               {FINE_SCREEN, FINE_BANNER},
                                               {192, FINE_BANNER}})
    {
        m_screen.nDotsPerInch = nDotsPerInch;
        Ask([nWidth = nWidth](HWND hDialog) {
            EXPECT_EQ(BannerWidth(hDialog, IDC_VALIDATE_BANNER), nWidth);
            Decline(hDialog);
        });
    }
}

TEST_F(ValidateCertTest, WithoutAFinerBannerTheTemplatesOwnStays)
{
    m_screen.nDotsPerInch = FINE_SCREEN;
    const ImportHook hook(
        "user32.dll", "LoadImageW",
        +[](HINSTANCE, LPCWSTR, UINT, int, int, UINT) -> HANDLE { return nullptr; });
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getDebug());
    Ask([](HWND hDialog) {
        EXPECT_EQ(BannerWidth(hDialog, IDC_VALIDATE_BANNER), USUAL_BANNER);
        Decline(hDialog);
    });
    EXPECT_THAT(log.Texts(),
                testing::Contains("DEBUG Failed to load IDB_BITMAP_INTERNET_SESSION_BANNER scale bitmap."));
}

TEST_F(ValidateCertTest, TheKeyboardStartsAtTheRefusalAndReachesEverything)
{
    Ask([](HWND hDialog) {
        EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, IDNO));
        EXPECT_EQ(LOWORD(SendMessageW(hDialog, DM_GETDEFID, 0, 0)), IDNO);
        EXPECT_FALSE(IsDlgButtonChecked(hDialog, IDC_VALIDATE_REMEMBER));
        HWND hControl = nullptr;
        for (const int nControl : {IDNO, IDC_VALIDATE_SHOW, IDC_VALIDATE_REMEMBER, IDC_VALIDATE_HELP, IDYES})
        {
            hControl = GetNextDlgTabItem(hDialog, hControl, FALSE);
            EXPECT_EQ(GetDlgCtrlID(hControl), nControl);
        }
        EXPECT_EQ(ControlText(hDialog, IDYES).find(L'&'), std::wstring::npos)
            << "a letter meant for another window must not trust anybody";
        Decline(hDialog);
    });
}

TEST_F(ValidateCertTest, EachMessageIsLogged)
{
    const LogCapture log("ValidateCertDialog");
    Ask(Decline);
    const LINES lines = log.Texts();
    const auto init = std::find(lines.begin(), lines.end(), "DEBUG iMsg=272");
    ASSERT_NE(init, lines.end());
    EXPECT_EQ(*(init - 1), "TRACE ValidateCertProc entering.");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "TRACE ValidateCertProc entering."),
              std::count(lines.begin(), lines.end(), "TRACE ValidateCertProc exiting."));
}

TEST_F(ValidateCertTest, ManyInARowLeaveNothingBehindOnAnyScreen)
{
    for (const int nDotsPerInch : {USUAL_SCREEN, FINE_SCREEN})
    {
        m_screen.nDotsPerInch = nDotsPerInch;
        ExpectNothingLeftBy(50, [](int) {
            Ask(Decline);
            PumpMessages();
        });
    }
}
