#include "dialogs/AboutDialog.h"

#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "dialogs/AboutText.h"
#include "dialogs/GradientFill.h"
#include "resources/resource.h"
#include "resources/version.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/ModalScenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;

std::wstring g_program; // what the agent takes for its executable

DWORD WINAPI NameProgram(HMODULE, LPWSTR pszPath, DWORD cchPath)
{
    return static_cast<DWORD>(CopyText(pszPath, cchPath, g_program));
}

std::wstring StagedProgram(const wchar_t* pszName)
{
    return (StageFolder() / pszName).make_preferred().wstring();
}

std::wstring ClipboardText()
{
    const CClipboard clipboard(nullptr);
    const HANDLE hText = clipboard ? GetClipboardData(CF_UNICODETEXT) : nullptr;
    if (hText == nullptr)
    {
        return L"nothing";
    }
    EXPECT_GE(GlobalSize(hText), 8192U);
    std::wstring text = static_cast<const wchar_t*>(GlobalLock(hText));
    GlobalUnlock(hText);
    return text;
}

// Pixels of the product's colour around a control's top left corner.
size_t CountOrangeAt(HWND hDialog, int nControl)
{
    constexpr int ICON_SIZE = 32;
    RECT rect = {};
    GetWindowRect(GetDlgItem(hDialog, nControl), &rect);
    MapWindowPoints(nullptr, hDialog, reinterpret_cast<POINT*>(&rect), 2);
    const HDC hDC = GetDC(hDialog);
    size_t nOrange = 0;
    for (int nX = 0; nX < ICON_SIZE; ++nX)
    {
        for (int nY = 0; nY < ICON_SIZE; ++nY)
        {
            const COLORREF cr = GetPixel(hDC, rect.left + nX, rect.top + nY);
            nOrange += GetRValue(cr) > 200 && GetBValue(cr) < 100 ? 1 : 0;
        }
    }
    ReleaseDC(hDialog, hDC);
    return nOrange;
}

std::vector<std::wstring> g_versionFiles; // whose version was asked for
decltype(&GetFileVersionInfoSizeW) g_pfnVersionSize = nullptr;

DWORD WINAPI RecordVersionFile(LPCWSTR pszPath, LPDWORD pdwUnused)
{
    g_versionFiles.emplace_back(pszPath);
    return g_pfnVersionSize(pszPath, pdwUnused);
}

std::vector<std::wstring> g_versionQueries;
decltype(&VerQueryValueW) g_pfnVersionQuery = nullptr;

BOOL WINAPI RecordVersionQuery(LPCVOID pBlock, LPCWSTR pszName, LPVOID* ppValue, PUINT pcbValue)
{
    g_versionQueries.emplace_back(pszName);
    return g_pfnVersionQuery(pBlock, pszName, ppValue, pcbValue);
}

std::vector<std::pair<UINT, SIZE_T>> g_allocations;
decltype(&GlobalAlloc) g_pfnGlobalAlloc = nullptr;

HGLOBAL WINAPI RecordAllocation(UINT uFlags, SIZE_T cbBlock)
{
    g_allocations.emplace_back(uFlags, cbBlock);
    return g_pfnGlobalAlloc(uFlags, cbBlock);
}

int g_nFreedBlocks = 0;

HGLOBAL WINAPI CountFreed(HGLOBAL hBlock)
{
    ++g_nFreedBlocks;
    return hBlock; // and leaked: the count is what matters
}

decltype(&CloseClipboard) g_pfnCloseClipboard = nullptr;

BOOL WINAPI CloseWithAnErrorLeft()
{
    const BOOL bClosed = g_pfnCloseClipboard();
    SetLastError(ERROR_INVALID_HANDLE);
    return bClosed;
}

class AboutDialogTest : public DialogHarness
{
  protected:
    void SetUp() override
    {
        DialogHarness::SetUp();
        g_program = StagedProgram(L"TKDAST.exe");
        CopyText(m_addresses.szInfo55, L"FRONT-DESK %s");
        CopyText(m_addresses.szInfo60, L"203.0.113.77");
    }

    // What the dialog ended with.
    INT_PTR RunAbout(const std::function<void(HWND)>& scenario)
    {
        const ModalScenario modal(scenario);
        const INT_PTR nResult =
            DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_ABOUT), Window().m_hWnd, AboutWndProc,
                            reinterpret_cast<LPARAM>(&m_addresses));
        EXPECT_TRUE(modal.HasRun());
        PumpMessages();
        return nResult;
    }

    static void Close(HWND hDialog) { PostMessageW(hDialog, WM_COMMAND, IDOK, 0); }

    MSG_TRAYICON_IP_ADDRESSES m_addresses = {};
    ImportHook<decltype(GetModuleFileNameW)> m_name{"kernel32.dll", "GetModuleFileNameW", &NameProgram};
};
} // namespace

TEST_F(AboutDialogTest, ShowsVersionAndInformationOnTopOfEverything)
{
    RunAbout([this](HWND hDialog) {
        EXPECT_NE(GetWindowLongPtrW(hDialog, GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
        wchar_t szVersion[64] = {};
        EXPECT_EQ(GetExeVersion(szVersion, 64), 1);
        const std::wstring version = ControlText(hDialog, IDC_ABOUT_VERSION);
        EXPECT_NE(version.find(szVersion + std::wstring(L", 64 bit")), std::wstring::npos);
        EXPECT_TRUE(version.ends_with(L"Tessaran Development")) << "the agent's own copyright";
        EXPECT_EQ(ControlText(hDialog, IDC_ABOUT_TEXT), ComposeAboutText(m_addresses, false));
        EXPECT_EQ(GetFocus(), GetDlgItem(hDialog, IDOK));
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, InAOneTimeSessionTheServicesReadinessIsNotShown)
{
    g_bOneTimeSession = 1;
    RunAbout([this](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_ABOUT_TEXT), ComposeAboutText(m_addresses, true));
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, WithoutAVersionBlockTheTemplatesTextStays)
{
    g_program = L"C:\\nowhere\\TKDAST.exe";
    RunAbout([](HWND hDialog) {
        EXPECT_EQ(ControlText(hDialog, IDC_ABOUT_VERSION), L"Kestrel Desk Assist");
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, EndsAfterThirtySecondsWithNobodyNear)
{
    EXPECT_EQ(RunAbout([this](HWND hDialog) {
                  EXPECT_EQ(m_trace.Calls("timer 111"), Calls{"timer 111 30000"});
                  PostMessageW(hDialog, WM_TIMER, TIMER_CLOSE_ABOUT, 0);
              }),
              0);
    EXPECT_EQ(m_trace.Calls("kill 111"), Calls{"kill 111"});
}

TEST_F(AboutDialogTest, EndsWhenItIsLeft)
{
    const CWindow hOther(CreateWindowExW(0, L"STATIC", L"other", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 100,
                                         100, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(RunAbout([&](HWND hDialog) {
                  EXPECT_EQ(GetActiveWindow(), hDialog);
                  SetActiveWindow(hOther.get());
              }),
              0);
}

TEST_F(AboutDialogTest, EndsWithZeroHoweverItIsClosed)
{
    for (const auto& way :
         {std::pair<UINT, WPARAM>{WM_COMMAND, IDOK}, {WM_COMMAND, IDCANCEL}, {WM_CLOSE, 0}, {WM_TIMER, 5}})
    {
        EXPECT_EQ(RunAbout([&](HWND hDialog) { PostMessageW(hDialog, way.first, way.second, 0); }), 0)
            << way.first;
    }
}

TEST_F(AboutDialogTest, ACommandWithoutANumberIsIgnored)
{
    RunAbout([](HWND hDialog) {
        SendMessageW(hDialog, WM_COMMAND, 0, 0);
        EXPECT_TRUE(IsWindowVisible(hDialog));
        EXPECT_EQ(ControlText(hDialog, IDC_ABOUT_TEXT).empty(), false);
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, ItsButtonCopiesTheInformation)
{
    RunAbout([this](HWND hDialog) {
        SendMessageW(GetDlgItem(hDialog, IDC_ABOUT_COPY), BM_CLICK, 0, 0);
        EXPECT_EQ(ClipboardText(), ComposeAboutText(m_addresses, false));
        Close(hDialog);
    });
    EXPECT_EQ(ClipboardText(), ComposeAboutText(m_addresses, false)) << "outlives the dialog";
}

TEST_F(AboutDialogTest, TheClipboardsBlockIsMovableAndZeroed)
{
    RunAbout([](HWND hDialog) {
        const ImportHook hook("kernel32.dll", "GlobalAlloc", &RecordAllocation);
        g_pfnGlobalAlloc = hook.Original();
        g_allocations.clear();
        EXPECT_EQ(CopyToClipboard(hDialog), 1);
        EXPECT_EQ(g_allocations, (std::vector<std::pair<UINT, SIZE_T>>{{0x42, 8192}}));
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, AFailedStepOfCopyingIsTold)
{
    RunAbout([](HWND hDialog) {
        EXPECT_EQ(CopyToClipboard(hDialog), 1);
        {
            const ImportHook hook(
                "user32.dll", "OpenClipboard", +[](HWND) -> BOOL { return FALSE; });
            EXPECT_EQ(CopyToClipboard(hDialog), 0);
        }
        {
            const ImportHook hook(
                "user32.dll", "EmptyClipboard", +[]() -> BOOL { return FALSE; });
            EXPECT_EQ(CopyToClipboard(hDialog), 0);
        }
        {
            const ImportHook hook(
                "kernel32.dll", "GlobalAlloc", +[](UINT, SIZE_T) -> HGLOBAL { return nullptr; });
            EXPECT_EQ(CopyToClipboard(hDialog), 0);
        }
        EXPECT_EQ(ClipboardText(), L"nothing") << "emptied before there is a text";
        {
            const ImportHook hook(
                "user32.dll", "SetClipboardData", +[](UINT, HANDLE) -> HANDLE { return nullptr; });
            const ImportHook freed("kernel32.dll", "GlobalFree", &CountFreed);
            g_nFreedBlocks = 0;
            EXPECT_EQ(CopyToClipboard(hDialog), 0);
            EXPECT_EQ(g_nFreedBlocks, 1) << "what nobody took over";
        }
        {
            const ImportHook hook(
                "user32.dll", "SetClipboardData", +[](UINT, HANDLE) -> HANDLE {
                    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                    return nullptr;
                });
            const ImportHook close("user32.dll", "CloseClipboard", &CloseWithAnErrorLeft);
            g_pfnCloseClipboard = close.Original();
            EXPECT_EQ(CopyToClipboard(hDialog), 0);
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY)) << "why it failed";
        }
        EXPECT_EQ(CopyToClipboard(hDialog), 1) << "the clipboard was closed each time";
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, TheIconIsDrawnAtItsPlaceWithAndWithoutAGradient)
{
    for (const bool bGradient : {true, false})
    {
        if (!bGradient)
        {
            m_binding.SetMissing("GradientFill");
        }
        RunAbout([](HWND hDialog) {
            EXPECT_FALSE(IsWindowVisible(GetDlgItem(hDialog, IDC_ABOUT_ICON)));
            UpdateWindow(hDialog);
            EXPECT_GT(CountOrangeAt(hDialog, IDC_ABOUT_ICON), 20U) << "the kestrel's wings";
            Close(hDialog);
        });
    }
}

TEST_F(AboutDialogTest, APictureOfTheTemplatesGivesWayToTheGradientOnly)
{
    for (const bool bGradient : {true, false})
    {
        if (!bGradient)
        {
            m_binding.SetMissing("GradientFill");
        }
        RunAbout([&](HWND hDialog) {
            UnloadGradientFill();
            ShowWindow(GetDlgItem(hDialog, IDC_ABOUT_ICON), SW_SHOWNA);
            SendMessageW(hDialog, WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(&m_addresses));
            EXPECT_EQ(IsWindowVisible(GetDlgItem(hDialog, IDC_ABOUT_ICON)) != FALSE, !bGradient);
            Close(hDialog);
        });
    }
}

TEST_F(AboutDialogTest, WithoutAPlaceForItTheIconIsNotDrawn)
{
    static int s_nDrawn = 0;
    RunAbout([](HWND hDialog) {
        const ImportHook hook(
            "user32.dll", "DrawIcon", +[](HDC, int, int, HICON) -> BOOL {
                ++s_nDrawn;
                return TRUE;
            });
        s_nDrawn = 0;
        InvalidateRect(hDialog, nullptr, TRUE);
        UpdateWindow(hDialog);
        EXPECT_EQ(s_nDrawn, 1);
        DestroyWindow(GetDlgItem(hDialog, IDC_ABOUT_ICON));
        InvalidateRect(hDialog, nullptr, TRUE);
        UpdateWindow(hDialog);
        EXPECT_EQ(s_nDrawn, 1);
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, ControlsStandTransparentlyOnTheGradient)
{
    RunAbout([](HWND hDialog) {
        const HDC hDC = GetDC(hDialog);
        for (const UINT uMessage : std::initializer_list<UINT>{WM_CTLCOLORDLG, WM_CTLCOLORSTATIC})
        {
            SetTextColor(hDC, RGB(9, 9, 9));
            SetBkMode(hDC, OPAQUE);
            SetWindowLongPtrW(hDialog, DWLP_MSGRESULT, 0);
            EXPECT_EQ(AboutWndProc(hDialog, uMessage, reinterpret_cast<WPARAM>(hDC),
                                   reinterpret_cast<LPARAM>(hDialog)),
                      reinterpret_cast<INT_PTR>(GetStockObject(NULL_BRUSH)));
            EXPECT_EQ(GetWindowLongPtrW(hDialog, DWLP_MSGRESULT), 1);
            EXPECT_EQ(GetBkMode(hDC), TRANSPARENT);
            EXPECT_EQ(GetTextColor(hDC), 0U);
        }
        UnloadGradientFill(); // another dialog has ended
        InvalidateRect(hDialog, nullptr, TRUE);
        UpdateWindow(hDialog);
        EXPECT_EQ(AboutWndProc(hDialog, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(hDC),
                               reinterpret_cast<LPARAM>(hDialog)),
                  0);
        ReleaseDC(hDialog, hDC);
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, ItsEndTakesTheGradientAwayFromAllDialogs)
{
    RECT rect = {0, 0, 1, 1};
    const HDC hScreen = GetDC(nullptr);
    const HDC hMemory = CreateCompatibleDC(hScreen);
    RunAbout([&](HWND hDialog) {
        EXPECT_EQ(FillGradientRect(hMemory, &rect, 0, 0, FALSE), 1);
        Close(hDialog);
    });
    EXPECT_EQ(FillGradientRect(hMemory, &rect, 0, 0, FALSE), 0);
    DeleteDC(hMemory);
    ReleaseDC(nullptr, hScreen);
}

TEST_F(AboutDialogTest, AScreenReadersFocusStartsAtTheButtonThatCloses)
{
    RunAbout([](HWND hDialog) {
        EXPECT_EQ(GetNextDlgTabItem(hDialog, nullptr, FALSE), GetDlgItem(hDialog, IDOK));
        EXPECT_EQ(LOWORD(SendMessageW(hDialog, DM_GETDEFID, 0, 0)), IDOK);
        Close(hDialog);
    });
}

TEST_F(AboutDialogTest, TheVersionIsTheServicesInDottedForm)
{
    wchar_t szVersion[64] = L"as before";
    EXPECT_EQ(GetExeVersion(szVersion, 64), 1);
    EXPECT_TRUE(std::all_of(szVersion, szVersion + wcslen(szVersion),
                            [](wchar_t ch) { return ch == L'.' || (ch >= L'0' && ch <= L'9'); }));
    wchar_t szShort[4] = {};
    EXPECT_EQ(GetExeVersion(szShort, 4), 1);
    EXPECT_EQ(std::wstring(szShort), std::wstring(szVersion).substr(0, 3));
}

TEST_F(AboutDialogTest, TheVersionIsReadFromTheServicesProgramAndTheCopyrightFromTheAgents)
{
    const ImportHook size("version.dll", "GetFileVersionInfoSizeW", &RecordVersionFile);
    const ImportHook query("version.dll", "VerQueryValueW", &RecordVersionQuery);
    g_pfnVersionSize = size.Original();
    g_pfnVersionQuery = query.Original();
    g_versionFiles.clear();
    g_versionQueries.clear();
    RunAbout(Close);
    EXPECT_EQ(g_versionFiles,
              (std::vector<std::wstring>{StagedProgram(L"TKDAS.exe"), StagedProgram(L"TKDAST.exe")}));
    EXPECT_EQ(g_versionQueries, (std::vector<std::wstring>{L"\\VarFileInfo\\Translation",
                                                           L"\\StringFileInfo\\040904B0\\FileVersion",
                                                           L"\\VarFileInfo\\Translation",
                                                           L"\\StringFileInfo\\040904B0\\LegalCopyright"}));
}

TEST_F(AboutDialogTest, ABlockWithoutAVersionLeavesTheOutputAsItWas)
{
    const ImportHook hook(
        "version.dll", "VerQueryValueW", +[](LPCVOID, LPCWSTR, LPVOID*, PUINT) -> BOOL { return FALSE; });
    wchar_t szVersion[64] = L"as before";
    EXPECT_EQ(GetExeVersion(szVersion, 64), 1);
    EXPECT_STREQ(szVersion, L"as before");
}

TEST_F(AboutDialogTest, AProgramWithoutAVersionBlockHasNone)
{
    g_program = L"C:\\nowhere\\TKDAST.exe";
    wchar_t szVersion[64] = L"as before";
    EXPECT_EQ(GetExeVersion(szVersion, 64), 0);
    EXPECT_STREQ(szVersion, L"as before");
}

TEST_F(AboutDialogTest, LogsEveryMessage)
{
    const LogCapture capture("AboutDialog", log4cxx::Level::getDebug());
    RunAbout(Close);
    EXPECT_THAT(capture.Texts(), testing::Contains("DEBUG iMsg=272"));
    EXPECT_THAT(capture.Texts(), testing::Contains("DEBUG iMsg=2"));
}

TEST_F(AboutDialogTest, ManyInARowLeaveNothingBehind)
{
    ExpectNothingLeftBy(300, [this](int) { RunAbout(Close); });
}
