#include "dialogs/DialogBackground.h"

#include "Include/BoundedText.h"
#include "certificates/ValidateCertDialog.h"
#include "dialogs/AboutDialog.h"
#include "dialogs/ConnectInProgressDialog.h"
#include "dialogs/GradientFill.h"
#include "dialogs/JoinAttendedSessionDialog.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/ColorScheme.h"
#include "tests/unit/PermissionHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <commctrl.h>

namespace
{
constexpr int PROBED_COLUMN = 1; // pixels from the edge: no dialog has a control there
constexpr int SCHEME_CHANGES = 200;

// Colours that no dialog has of its own; every channel of the text's is brighter.
const std::vector<SCHEME_COLOR> DARK = {{COLOR_WINDOW, RGB(20, 30, 40)},
                                        {COLOR_WINDOWTEXT, RGB(250, 240, 200)},
                                        {COLOR_3DFACE, RGB(90, 10, 10)},
                                        {COLOR_BTNTEXT, RGB(0, 250, 0)}};
const std::vector<SCHEME_COLOR> LIGHT = {{COLOR_WINDOW, RGB(230, 210, 250)},
                                         {COLOR_WINDOWTEXT, RGB(60, 20, 30)},
                                         {COLOR_3DFACE, RGB(10, 90, 10)},
                                         {COLOR_BTNTEXT, RGB(0, 0, 250)}};

std::set<UINT_PTR> g_toldControls;

LRESULT CALLBACK CountColorChange(HWND hControl, UINT uMessage, WPARAM wParam, LPARAM lParam,
                                  UINT_PTR uControl, DWORD_PTR)
{
    if (uMessage == WM_SYSCOLORCHANGE)
    {
        g_toldControls.insert(uControl);
    }
    return DefSubclassProc(hControl, uMessage, wParam, lParam);
}

struct PAINTED_TEXT
{
    const char* pszDialog;
    HWND hDlg;
    int nControl; // whose place it is in
};

// The pixels of a part of a window's client area, from top to bottom.
std::vector<COLORREF> PixelsIn(HWND hWnd, const RECT& rect)
{
    const int cx = rect.right - rect.left;
    const int cy = rect.bottom - rect.top;
    BITMAPINFO info = {};
    info.bmiHeader = {sizeof(info.bmiHeader), cx, -cy, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    void* pvBits = nullptr;
    const HDC hWindow = GetDC(hWnd);
    const HDC hMemory = CreateCompatibleDC(hWindow);
    const CGdiObject hBitmap(CreateDIBSection(hMemory, &info, DIB_RGB_COLORS, &pvBits, nullptr, 0));
    const HGDIOBJ hBefore = SelectObject(hMemory, hBitmap.get());
    BitBlt(hMemory, 0, 0, cx, cy, hWindow, rect.left, rect.top, SRCCOPY);
    GdiFlush();
    const RGBQUAD* const pPixels = static_cast<const RGBQUAD*>(pvBits);
    std::vector<COLORREF> pixels;
    std::transform(pPixels, pPixels + cx * cy, std::back_inserter(pixels),
                   [](const RGBQUAD& pixel) { return RGB(pixel.rgbRed, pixel.rgbGreen, pixel.rgbBlue); });
    SelectObject(hMemory, hBefore);
    DeleteDC(hMemory);
    ReleaseDC(hWnd, hWindow);
    return pixels;
}

std::vector<COLORREF> ColumnOf(HWND hDlg)
{
    RECT client = {};
    GetClientRect(hDlg, &client);
    return PixelsIn(hDlg, {PROBED_COLUMN, 0, PROBED_COLUMN + 1, client.bottom});
}

// Without the scroll bar and the frame that a control may have.
std::vector<COLORREF> PixelsOf(const PAINTED_TEXT& text)
{
    RECT place = {};
    const HWND hControl = GetDlgItem(text.hDlg, text.nControl);
    GetClientRect(hControl, &place);
    MapWindowPoints(hControl, text.hDlg, reinterpret_cast<POINT*>(&place), 2);
    return PixelsIn(text.hDlg, place);
}

bool IsBetween(BYTE bChannel, BYTE bOne, BYTE bOther)
{
    return bChannel >= std::min(bOne, bOther) && bChannel <= std::max(bOne, bOther);
}

// As edges of letters are.
bool IsMixture(COLORREF cr, COLORREF crOne, COLORREF crOther)
{
    return IsBetween(GetRValue(cr), GetRValue(crOne), GetRValue(crOther)) &&
           IsBetween(GetGValue(cr), GetGValue(crOne), GetGValue(crOther)) &&
           IsBetween(GetBValue(cr), GetBValue(crOne), GetBValue(crOther));
}

void ExpectText(const PAINTED_TEXT& text, COLORREF crText, COLORREF crGround)
{
    const std::vector<COLORREF> pixels = PixelsOf(text);
    EXPECT_GT(std::count(pixels.begin(), pixels.end(), crText), 5) << text.pszDialog << text.nControl;
    EXPECT_GT(std::count(pixels.begin(), pixels.end(), crGround), 50) << text.pszDialog << text.nControl;
    const auto stranger = std::find_if(pixels.begin(), pixels.end(), [crText, crGround](COLORREF cr) {
        return !IsMixture(cr, crText, crGround);
    });
    EXPECT_EQ(stranger, pixels.end()) << text.pszDialog << text.nControl << std::hex << " " << *stranger;
}

// The four dialogs that paint themselves, all up at once.
class DialogBackgroundTest : public PermissionHarness
{
  protected:
    void SetUp() override
    {
        PermissionHarness::SetUp();
        Window().m_Connection = Alice();
        CopyText(Window().m_Settings.szNotifyText, L"Your help desk.");
        CopyText(m_client.szClientName, L"Alice");
    }

    void InAllDialogs(const std::function<void()>& scenario)
    {
        RunPrompt(ShortPrompt(), [&](HWND hPrompt) {
            const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
            Window().SFT_AddDropWindow(m_client);
            const HWND hDrop =
                reinterpret_cast<HWND>(static_cast<ULONG_PTR>(Window().m_DropWindows.back()->ullWindowSlot));
            const HWND hAbout = CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_ABOUT), nullptr,
                                                   AboutWndProc, reinterpret_cast<LPARAM>(&m_addresses));
            m_texts = {{"popup ", hPopup, IDC_NOTIFY_HEAD},
                       {"popup ", hPopup, IDC_NOTIFY_BODY},
                       {"drop window ", hDrop, IDC_DROP_TEXT},
                       {"about ", hAbout, IDC_ABOUT_VERSION},
                       {"about ", hAbout, IDC_ABOUT_TEXT},
                       {"prompt ", hPrompt, IDC_LABEL},
                       {"prompt ", hPrompt, IDC_PERMISSION_TEXT},
                       {"prompt ", hPrompt, IDC_PERMISSION_REQUEST},
                       {"prompt ", hPrompt, IDC_PERMISSION_COUNTDOWN}};
            m_dialogs = {hPopup, hDrop, hAbout, hPrompt};
            Settle();
            scenario();
            DestroyWindow(hAbout);
            SendMessageW(hDrop, WM_CLOSE, 0, 0);
            Deny(hPrompt);
        });
    }

    void Settle() const
    {
        for (const HWND hDlg : m_dialogs)
        {
            UpdateWindow(hDlg);
        }
    }

    void ChangeOften(int nTimes)
    {
        for (int nChange = 0; nChange < nTimes; ++nChange)
        {
            m_scheme.SetHighContrast(nChange % 2 == 0);
        }
    }

    void ExpectColors(const std::vector<SCHEME_COLOR>& scheme) const
    {
        for (const HWND hDlg : m_dialogs)
        {
            const std::vector<COLORREF> column = ColumnOf(hDlg);
            EXPECT_EQ(static_cast<size_t>(std::count(column.begin(), column.end(), scheme[0].cr)),
                      column.size())
                << GetDlgCtrlID(hDlg);
        }
        for (const PAINTED_TEXT& text : m_texts)
        {
            ExpectText(text, scheme[1].cr, scheme[0].cr);
        }
    }

    void ExpectGradient() const
    {
        for (const HWND hDlg : m_dialogs)
        {
            const std::vector<COLORREF> column = ColumnOf(hDlg);
            EXPECT_NEAR(GetRValue(column.front()), GetRValue(GRADIENT_TOP_COLOR), 2);
            EXPECT_NEAR(GetRValue(column.back()), GetRValue(GRADIENT_BOTTOM_COLOR), 3);
        }
        for (const PAINTED_TEXT& text : m_texts)
        {
            const std::vector<COLORREF> pixels = PixelsOf(text);
            EXPECT_GT(std::count(pixels.begin(), pixels.end(), RGB(0, 0, 0)), 5)
                << text.pszDialog << text.nControl;
        }
    }

    ColorScheme m_scheme;
    std::vector<PAINTED_TEXT> m_texts;
    std::vector<HWND> m_dialogs;
    MSG_TRAYICON_IP_ADDRESSES m_addresses = {};

  private:
    // Whose text leaves room for a ground beside it.
    static MSG_PERMISSION_PROMPT ShortPrompt()
    {
        MSG_PERMISSION_PROMPT prompt = Prompt();
        prompt.bKeepPlace = 1;
        return prompt;
    }

    MSG_TRAYICON_SFT_DROP_CLIENT m_client = {};
};
} // namespace

TEST_F(DialogBackgroundTest, InHighContrastEveryTextIsInTheSystemsColours)
{
    m_scheme.Use(DARK, true);
    for (const wchar_t* const pszLanguage : {L"en", L"fr", L"de"})
    {
        SCOPED_TRACE(::testing::Message() << pszLanguage);
        const StagedLanguageModule language(pszLanguage);
        InAllDialogs([&] { ExpectColors(DARK); });
    }
}

// Not every system's edit control fills what it has erased.
TEST_F(DialogBackgroundTest, InHighContrastNoGradientIsLaidUnderATextThatScrolls)
{
    constexpr int FROM_EDGE = 2; // pixels
    m_scheme.Use(DARK, true);
    InAllDialogs([&] {
        for (const PAINTED_TEXT& text : m_texts)
        {
            if (text.nControl == IDC_ABOUT_TEXT || text.nControl == IDC_PERMISSION_TEXT)
            {
                const HWND hEdit = GetDlgItem(text.hDlg, text.nControl);
                const HDC hDC = GetDC(hEdit);
                SendMessageW(hEdit, WM_ERASEBKGND, reinterpret_cast<WPARAM>(hDC), 0);
                EXPECT_EQ(GetPixel(hDC, FROM_EDGE, FROM_EDGE), DARK[0].cr) << text.pszDialog;
                ReleaseDC(hEdit, hDC);
            }
        }
    });
}

TEST_F(DialogBackgroundTest, AnotherSchemeIsFollowedWhileTheDialogsAreUp)
{
    m_scheme.Use(DARK, true);
    InAllDialogs([&] {
        m_scheme.Use(LIGHT, true);
        Settle();
        ExpectColors(LIGHT);
        m_scheme.Use(DARK, true);
        Settle();
        ExpectColors(DARK);
    });
}

TEST_F(DialogBackgroundTest, TheGradientGivesWayToHighContrastAndComesBack)
{
    InAllDialogs([&] {
        ExpectGradient();
        m_scheme.Use(DARK, true);
        Settle();
        ExpectColors(DARK);
        m_scheme.SetHighContrast(false);
        Settle();
        ExpectGradient();
        m_scheme.SetHighContrast(true);
        Settle();
        ExpectColors(DARK);
    });
}

TEST_F(DialogBackgroundTest, WithoutHighContrastColoursOfTheSystemChangeNothing)
{
    m_scheme.Use(DARK, false);
    InAllDialogs([&] {
        ExpectGradient();
        m_scheme.Use(LIGHT, false);
        Settle();
        ExpectGradient();
    });
}

TEST_F(DialogBackgroundTest, ASettingOfAnotherKindIsNoReasonToAskOrToPaint)
{
    InAllDialogs([&] {
        const int nQuestions = m_scheme.Questions();
        for (const HWND hDlg : m_dialogs)
        {
            SendMessageW(hDlg, WM_SETTINGCHANGE, SPI_SETWORKAREA, 0);
            EXPECT_FALSE(GetUpdateRect(hDlg, nullptr, FALSE));
        }
        EXPECT_EQ(m_scheme.Questions(), nQuestions);
    });
}

TEST_F(DialogBackgroundTest, WhereThereIsNoGradientThePaintedBodyIsAsReadableAsTheLabels)
{
    m_scheme.Use(DARK, false);
    m_binding.SetMissing("GradientFill");
    const HWND hPopup = ShowPopup(NOTIFY_MODE_CONNECTED);
    InvalidateRect(hPopup, nullptr, FALSE); // the colours of erasing don't stand in
    UpdateWindow(hPopup);
    for (const int nControl : {IDC_NOTIFY_HEAD, IDC_NOTIFY_BODY})
    {
        ExpectText({"popup ", hPopup, nControl}, DARK[1].cr, DARK[2].cr);
    }
}

// The dialogs alone are told, and but one of them often: whoever draws much takes long.
TEST_F(DialogBackgroundTest, TwoHundredChangesLeaveNoObjectBehind)
{
    ShowPopup(NOTIFY_MODE_CONNECTED);
    ChangeOften(2);
    const ObjectCounts before = CountObjects();
    ChangeOften(SCHEME_CHANGES);
    ExpectNoMoreThan(before);
}

TEST_F(DialogBackgroundTest, ChangesLeaveNoObjectOfAnyDialogBehind)
{
    InAllDialogs([&] {
        ChangeOften(2);
        const ObjectCounts before = CountObjects();
        ChangeOften(SCHEME_CHANGES / 10);
        ExpectNoMoreThan(before);
    });
}

// ---- Dialogs that the system paints, but for their links and bars.

TEST_F(DialogBackgroundTest, LinksAndBarsAreToldOfNewColours)
{
    const std::pair<int, DLGPROC> dialogs[] = {{IDD_JOIN_ATTENDED_SESSION, JoinAttendedSessionProc},
                                               {IDD_VALIDATE_CERTIFICATE, ValidateCertProc},
                                               {IDD_CONNECT_IN_PROGRESS, ConnectInProgressProc}};
    for (const auto& [nTemplate, pfnDialog] : dialogs)
    {
        const HWND hDlg =
            CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(nTemplate), Window().m_hWnd, pfnDialog, 0);
        size_t nControls = 0;
        for (HWND hControl = GetWindow(hDlg, GW_CHILD); hControl != nullptr;
             hControl = GetWindow(hControl, GW_HWNDNEXT))
        {
            SetWindowSubclass(hControl, &CountColorChange, ++nControls, 0);
        }
        g_toldControls.clear();
        SendMessageW(hDlg, WM_SYSCOLORCHANGE, 0, 0);
        EXPECT_EQ(g_toldControls.size(), nControls) << nTemplate;
        EXPECT_GT(nControls, 2U);
        DestroyWindow(hDlg);
    }
}
