#include "drop/SFT_DropWindow.h"

#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "devservice/DroppedNames.h"
#include "devservice/FileDrag.h"
#include "dialogs/GradientFill.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/ObjectCounts.h"
#include "tests/unit/DropHarness.h"
#include "tests/unit/HeldKey.h"
#include "tests/unit/LogCapture.h"
#include "tray/TKDASTWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ole2.h>
#include <shlobj.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;
constexpr COLORREF PLAIN_COLOR = 0xF6DAC4;

class SftDropWindowTest : public DropHarness
{
  protected:
    void TearDown() override
    {
        for (const HWND hDrop : m_left)
        {
            DestroyWindow(hDrop);
        }
        DropHarness::TearDown();
    }

    // One that the list may forget.
    HWND Open(DWORD dwClientId = 5)
    {
        const HWND hDrop = OpenDrop(Client(dwClientId));
        m_left.push_back(hDrop);
        return hDrop;
    }

    // Drags from another thread, as another program does, while this one handles its messages.
    static bool Drag(const Names& paths, HWND hDrop)
    {
        std::atomic<bool> bDone = false;
        bool bTaken = false;
        std::thread dragger([&] {
            bTaken = DragFilesOnto(paths, hDrop);
            bDone = true;
        });
        while (!bDone)
        {
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
            PumpMessages();
        }
        dragger.join();
        PumpMessages();
        return bTaken;
    }

    // What somebody has copied in another program.
    static void Copy(UINT uFormat, HGLOBAL hBlock)
    {
        const CClipboard clipboard(nullptr);
        ASSERT_TRUE(clipboard && EmptyClipboard());
        ASSERT_TRUE(GiveToClipboard(uFormat, CGlobalBlock(hBlock)));
    }
    static void CopyFiles(const Names& paths) { Copy(CF_HDROP, MakeFileList(paths)); }

    // Presses a key in the window, with another held down.
    static void Press(HWND hDrop, WPARAM wKey, int nHeld, int nHeldToo = 0)
    {
        SetForegroundWindow(hDrop);
        PumpMessages();
        ASSERT_EQ(GetFocus(), hDrop) << "none of its controls could take keys";
        const HeldKey held(nHeld);
        const HeldKey heldToo(nHeldToo);
        SendMessageW(GetFocus(), WM_KEYDOWN, wKey, 0);
    }

    // Moves one window up and beside the other, so that neither is on the way of a drag to the other.
    static void MoveBeside(HWND hMoved, HWND hOther)
    {
        RECT moved = {};
        RECT other = {};
        GetWindowRect(hMoved, &moved);
        GetWindowRect(hOther, &other);
        SetWindowPos(hMoved, nullptr, other.right + 20, other.top - (moved.bottom - moved.top) - 20, 0, 0,
                     SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
        PumpMessages();
    }

  private:
    std::vector<HWND> m_left;
};

COLORREF PixelOf(HWND hWnd, int nX, int nY)
{
    const HDC hDC = GetDC(hWnd);
    const COLORREF crPixel = GetPixel(hDC, nX, nY);
    ReleaseDC(hWnd, hDC);
    return crPixel;
}

BOOL WINAPI FailGradient(HDC, PTRIVERTEX, ULONG, PVOID, ULONG, ULONG)
{
    return FALSE;
}

std::vector<std::wstring> g_drawnTexts;
std::vector<UINT> g_drawnFormats;
std::vector<HGDIOBJ> g_drawnFonts;
std::vector<RECT> g_drawnRects;
std::vector<POINT> g_drawnIcons;
decltype(&DrawTextW) g_pfnDrawText = nullptr;

int WINAPI RecordDrawText(HDC hDC, LPCWSTR pszText, int cchText, LPRECT pRect, UINT uFormat)
{
    g_drawnTexts.emplace_back(pszText, static_cast<size_t>(cchText));
    g_drawnFormats.push_back(uFormat);
    g_drawnRects.push_back(*pRect);
    g_drawnFonts.push_back(GetCurrentObject(hDC, OBJ_FONT));
    EXPECT_EQ(GetBkMode(hDC), TRANSPARENT);
    return g_pfnDrawText(hDC, pszText, cchText, pRect, uFormat);
}

BOOL WINAPI RecordDrawIcon(HDC, int nX, int nY, HICON hIcon)
{
    EXPECT_NE(hIcon, nullptr);
    g_drawnIcons.push_back({nX, nY});
    return TRUE;
}

// What the tray is told of a window, and whether that is still there by then.
decltype(&SendMessageW) g_pfnSendMessage = nullptr;
HWND g_hTold = nullptr;
std::vector<LPARAM> g_told;

LRESULT WINAPI RecordSend(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == 1038 && wParam == 1001)
    {
        EXPECT_TRUE(IsWindow(g_hTold));
        g_told.push_back(lParam);
    }
    return g_pfnSendMessage(hWnd, uMessage, wParam, lParam);
}

const IDropTarget* TargetOf(HWND hDrop)
{
    return static_cast<const IDropTarget*>(GetPropW(hDrop, L"OleDropTargetInterface"));
}
} // namespace

// ---- What is shown.

TEST_F(SftDropWindowTest, SaysWhoGetsTheFilesOnTopOfTheOthersWithoutTakingTheKeyboard)
{
    const CWindow letter(CreateWindowExW(0, L"EDIT", L"", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 100, 100,
                                         nullptr, nullptr, nullptr, nullptr));
    SetForegroundWindow(letter.get());
    SetFocus(letter.get());
    PumpMessages();
    const HWND hDrop = Open();
    ASSERT_TRUE(IsWindowVisible(hDrop));
    EXPECT_EQ(ControlText(hDrop, IDC_DROP_TEXT), m_language.Text(IDS_DROP_HINT) + L"Alice");
    EXPECT_EQ(GetWindow(hDrop, GW_OWNER), Window().m_hWnd);
    EXPECT_NE(GetWindowLongPtrW(hDrop, GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
    EXPECT_EQ(GetFocus(), letter.get());
    EXPECT_EQ(GetForegroundWindow(), letter.get());
    EXPECT_EQ(reinterpret_cast<MSG_TRAYICON_SFT_DROP_CLIENT*>(GetWindowLongPtrW(hDrop, GWLP_USERDATA)),
              Window().m_DropWindows.front().get());
}

TEST_F(SftDropWindowTest, SaysALongNameWhole)
{
    const std::wstring name(261, L'n');
    MSG_TRAYICON_SFT_DROP_CLIENT client = Client();
    std::copy(name.begin(), name.end(), client.szClientName); // without a terminator
    const HWND hDrop = OpenDrop(client);
    EXPECT_EQ(ControlText(hDrop, IDC_DROP_TEXT), m_language.Text(IDS_DROP_HINT) + name);
    DestroyWindow(hDrop);
}

TEST_F(SftDropWindowTest, IsPaintedFromLightToDark)
{
    const HWND hDrop = Open();
    UpdateWindow(hDrop);
    RECT client = {};
    GetClientRect(hDrop, &client);
    EXPECT_EQ(PixelOf(hDrop, client.right - 1, 0), GRADIENT_TOP_COLOR);
    EXPECT_LT(GetRValue(PixelOf(hDrop, client.right - 1, client.bottom - 1)),
              GetRValue(GRADIENT_TOP_COLOR) - 50);
}

TEST_F(SftDropWindowTest, TextsLieOnTheGradientOrOnThePlainColour)
{
    const HWND hDrop = Open();
    const HDC hDC = GetDC(hDrop);
    for (const UINT uMessage :
         std::initializer_list<UINT>{WM_CTLCOLOREDIT, WM_CTLCOLORDLG, WM_CTLCOLORSTATIC})
    {
        SetBkMode(hDC, OPAQUE);
        EXPECT_EQ(SFTDropWndProc(hDrop, uMessage, reinterpret_cast<WPARAM>(hDC), 0),
                  reinterpret_cast<INT_PTR>(GetStockObject(HOLLOW_BRUSH)));
        EXPECT_EQ(GetBkMode(hDC), TRANSPARENT);
        EXPECT_EQ(GetBkColor(hDC), PLAIN_COLOR);
        EXPECT_EQ(GetTextColor(hDC), 0U);
        EXPECT_EQ(GetWindowLongPtrW(hDrop, DWLP_MSGRESULT), 1);
    }
    ReleaseDC(hDrop, hDC);
}

TEST_F(SftDropWindowTest, AGradientThatFailsGivesWayToThePlainColour)
{
    m_binding.Set("GradientFill", &FailGradient);
    const HWND hDrop = Open();
    UpdateWindow(hDrop);
    PumpMessages();
    RECT client = {};
    GetClientRect(hDrop, &client);
    EXPECT_EQ(PixelOf(hDrop, client.right - 1, 0), PLAIN_COLOR);
    EXPECT_EQ(PixelOf(hDrop, client.right - 1, client.bottom - 1), PLAIN_COLOR);
    const HDC hDC = GetDC(hDrop);
    LOGBRUSH brush = {};
    GetObjectW(
        reinterpret_cast<HGDIOBJ>(SFTDropWndProc(hDrop, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(hDC), 0)),
        sizeof(brush), &brush);
    EXPECT_EQ(brush.lbColor, PLAIN_COLOR);
    ReleaseDC(hDrop, hDC);
}

TEST_F(SftDropWindowTest, AHiddenTextIsDrawnInItsPlaceAndAVisibleOneIsNot)
{
    MSG_TRAYICON_SFT_DROP_CLIENT client = Client(5, L"Alice & Bob");
    const HWND hDrop = OpenDrop(client);
    const ImportHook<decltype(DrawTextW)> hook("user32.dll", "DrawTextW", &RecordDrawText);
    g_pfnDrawText = hook.Original();
    g_drawnTexts.clear();
    g_drawnFormats.clear();
    g_drawnFonts.clear();
    g_drawnRects.clear();
    SendMessageW(hDrop, WM_SYSCOLORCHANGE, 0, 0);
    EXPECT_TRUE(g_drawnTexts.empty());
    ShowWindow(GetDlgItem(hDrop, IDC_DROP_TEXT), SW_HIDE);
    for (const UINT uMessage : {WM_SYSCOLORCHANGE, WM_PALETTECHANGED, WM_DWMCOMPOSITIONCHANGED})
    {
        g_drawnTexts.clear();
        EXPECT_EQ(SFTDropWndProc(hDrop, static_cast<UINT>(uMessage), 0, 0), 0);
        ASSERT_EQ(g_drawnTexts.size(), 1U) << uMessage;
    }
    EXPECT_EQ(g_drawnTexts[0], m_language.Text(IDS_DROP_HINT) + L"Alice && Bob");
    EXPECT_EQ(g_drawnFormats[0], 0x2011U);
    EXPECT_EQ(g_drawnFonts[0], GetStockObject(ANSI_VAR_FONT));
    RECT place = {};
    GetWindowRect(GetDlgItem(hDrop, IDC_DROP_TEXT), &place);
    MapWindowPoints(nullptr, hDrop, reinterpret_cast<POINT*>(&place), 2);
    EXPECT_TRUE(EqualRect(&g_drawnRects[0], &place));
    DestroyWindow(hDrop);
}

TEST_F(SftDropWindowTest, ShowsTheProductsIconInItsCorner)
{
    const HWND hDrop = Open();
    UpdateWindow(hDrop);
    const ImportHook<decltype(DrawIcon)> hook("user32.dll", "DrawIcon", &RecordDrawIcon);
    g_drawnIcons.clear();
    SendMessageW(hDrop, WM_SYSCOLORCHANGE, 0, 0);
    ASSERT_EQ(g_drawnIcons.size(), 1U);
    EXPECT_EQ(g_drawnIcons[0].x, 2);
    EXPECT_EQ(g_drawnIcons[0].y, 2);
}

TEST_F(SftDropWindowTest, EachMessageIsLoggedByItsNumber)
{
    const LogCapture log("SFT_DropWindow");
    const HWND hDrop = Open();
    EXPECT_EQ(SFTDropWndProc(hDrop, WM_COMMAND, IDOK, 0), 1);
    const std::vector<std::string> texts = log.Texts();
    EXPECT_NE(std::find(texts.begin(), texts.end(), "DEBUG iMsg=272"), texts.end());
    EXPECT_EQ(texts[texts.size() - 3], "TRACE SFTDropWndProc entering.");
    EXPECT_EQ(texts[texts.size() - 2], "DEBUG iMsg=273");
    EXPECT_EQ(texts[texts.size() - 1], "TRACE SFTDropWndProc exiting.");
}

// ---- How it goes.

TEST_F(SftDropWindowTest, AClosedWindowTellsTheTrayWhichForgetsIt)
{
    const HWND hDrop = Open(5);
    const HWND hOther = Open(6);
    m_trace.Forget();
    SendMessageW(hDrop, WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(hDrop));
    EXPECT_TRUE(IsWindow(hOther));
    ASSERT_EQ(Window().m_DropWindows.size(), 1U);
    EXPECT_EQ(Window().m_DropWindows.front()->dwClientId, 6U);
}

TEST_F(SftDropWindowTest, TheTrayIsToldBeforeTheWindowGoesAndOnlyWhileItIsThere)
{
    const HWND hDrop = Open(5);
    {
        const ImportHook<decltype(SendMessageW)> hook("user32.dll", "SendMessageW", &RecordSend);
        g_pfnSendMessage = hook.Original();
        g_told.clear();
        g_hTold = hDrop;
        EXPECT_EQ(SFTDropWndProc(hDrop, WM_CLOSE, 0, 0), 0);
        EXPECT_EQ(g_told, std::vector<LPARAM>{5});
        EXPECT_FALSE(IsWindow(hDrop));
        g_told.clear();
        g_hTold = Open(6);
        const CWindow gone(
            CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
        Window().m_DropWindows.front()->ullOwnerSlot = reinterpret_cast<ULONG_PTR>(gone.get());
        DestroyWindow(gone.get());
        EXPECT_EQ(SFTDropWndProc(g_hTold, WM_CLOSE, 0, 0), 0);
        EXPECT_TRUE(g_told.empty());
    }
    EXPECT_FALSE(IsWindow(g_hTold));
    EXPECT_EQ(Window().m_DropWindows.size(), 1U) << "nobody was told";
}

TEST_F(SftDropWindowTest, EscapeLeavesItAndAltF4ClosesItAsTheCloseBoxDoes)
{
    const HWND hDrop = Open();
    MSG escape = {hDrop, WM_KEYDOWN, VK_ESCAPE, 0, 0, {}};
    EXPECT_TRUE(IsDialogMessageW(hDrop, &escape));
    SendMessageW(hDrop, WM_KEYDOWN, VK_ESCAPE, 0);
    EXPECT_EQ(SFTDropWndProc(hDrop, WM_COMMAND, IDCANCEL, 0), 1);
    PumpMessages();
    ASSERT_TRUE(IsWindowVisible(hDrop));
    constexpr LPARAM ALT_IS_DOWN = 1 << 29;
    SendMessageW(hDrop, WM_SYSKEYDOWN, VK_F4, ALT_IS_DOWN);
    PumpMessages();
    EXPECT_FALSE(IsWindow(hDrop));
    EXPECT_TRUE(Window().m_DropWindows.empty()) << "the tray was told";
}

TEST_F(SftDropWindowTest, TheTraysWordClosesItWithoutAWordBack)
{
    const HWND hDrop = Open();
    EXPECT_EQ(SFTDropWndProc(hDrop, WM_SFT_DROP_WINDOW, 0, 0), 1);
    EXPECT_FALSE(IsWindow(hDrop));
    EXPECT_EQ(Window().m_DropWindows.size(), 1U) << "it was the tray's own doing";
}

TEST_F(SftDropWindowTest, ASecondRequestClosesAndAThirdOpensAnew)
{
    const HWND hDrop = Open();
    OpenDrop();
    EXPECT_FALSE(IsWindow(hDrop));
    EXPECT_TRUE(Window().m_DropWindows.empty());
    EXPECT_TRUE(IsWindow(Open()));
}

TEST_F(SftDropWindowTest, ADisconnectClosesTheWindowOfThatClient)
{
    const HWND hDrop = Open(5);
    const HWND hOther = Open(6);
    Window().SFT_RemoveDropWindow(5);
    PumpMessages();
    EXPECT_FALSE(IsWindow(hDrop));
    EXPECT_TRUE(IsWindow(hOther));
    Window().SFT_RemoveDropWindow(ALL_DROP_WINDOWS);
    PumpMessages();
    EXPECT_FALSE(IsWindow(hOther));
}

TEST_F(SftDropWindowTest, AWindowThatTheListHasForgottenKeepsItsRecordAndGoesOn)
{
    PrepareService();
    const HWND hDrop = Open(5);
    const std::weak_ptr<MSG_TRAYICON_SFT_DROP_CLIENT> pRecord = Window().m_DropWindows.front();
    Window().SFT_RemoveDropWindow(1234); // nobody's
    PumpMessages();
    ASSERT_TRUE(Window().m_DropWindows.empty());
    ASSERT_TRUE(IsWindow(hDrop));
    EXPECT_FALSE(pRecord.expired());
    PostMessageW(hDrop, WM_CLOSE, 0, 0);
    PumpMessages();
    EXPECT_FALSE(IsWindow(hDrop));
    EXPECT_TRUE(pRecord.expired()) << "and nothing is left of it";
}

TEST_F(SftDropWindowTest, ARecordThatTheListDoesNotHoldOpensNothing)
{
    const MSG_TRAYICON_SFT_DROP_CLIENT stray = Client();
    SendMessageW(Window().m_hWnd, WM_SFT_DROP_WINDOW, DROP_WINDOW_CREATE, reinterpret_cast<LPARAM>(&stray));
    SendMessageW(Window().m_hWnd, WM_SFT_DROP_WINDOW, DROP_WINDOW_CREATE, 0x1000);
    SendMessageW(Window().m_hWnd, WM_SFT_DROP_WINDOW, DROP_WINDOW_CREATE, 0);
    EXPECT_EQ(stray.ullWindowSlot, 0U);
}

TEST_F(SftDropWindowTest, WithoutARecordItIsAnEmptyWindowThatCanBeClosed)
{
    const CWindow hDrop(
        CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_DROP), nullptr, SFTDropWndProc, 0));
    ASSERT_TRUE(hDrop);
    EXPECT_EQ(ControlText(hDrop.get(), IDC_DROP_TEXT), L"");
    EXPECT_EQ(TargetOf(hDrop.get()), nullptr);
    SendMessageW(hDrop.get(), WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(hDrop.get()));
}

TEST_F(SftDropWindowTest, TheEarlierOfTwoWindowsTakesTheLatersTargetAlong)
{
    const HWND hFirst = Open(5);
    const HWND hSecond = Open(6);
    ASSERT_NE(TargetOf(hFirst), nullptr);
    ASSERT_NE(TargetOf(hSecond), nullptr);
    SendMessageW(hFirst, WM_CLOSE, 0, 0);
    EXPECT_TRUE(IsWindow(hSecond));
    EXPECT_EQ(TargetOf(hSecond), nullptr) << "it takes no files any more";
    SendMessageW(hSecond, WM_SYSCOLORCHANGE, 0, 0);
    SendMessageW(hSecond, WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(hSecond));
    EXPECT_NE(TargetOf(Open(7)), nullptr) << "the next one works in full";
}

TEST_F(SftDropWindowTest, TheLaterOfTwoWindowsLeavesTheEarlierItsTarget)
{
    const HWND hFirst = Open(5);
    const HWND hSecond = Open(6);
    SendMessageW(hSecond, WM_CLOSE, 0, 0);
    EXPECT_NE(TargetOf(hFirst), nullptr);
    SendMessageW(hFirst, WM_SYSCOLORCHANGE, 0, 0);
    SendMessageW(hFirst, WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(hFirst));
}

TEST_F(SftDropWindowTest, AHundredWindowsLeaveNothingBehind)
{
    const int nModules = m_binding.OpenModules();
    ExpectNothingLeftBy(100, [this](int) {
        const HWND hDrop = OpenDrop();
        UpdateWindow(hDrop);
        SendMessageW(hDrop, WM_CLOSE, 0, 0);
        PumpMessages();
    });
    EXPECT_EQ(m_binding.OpenModules(), nModules);
}

// ---- Real drags.

TEST_F(SftDropWindowTest, FilesDraggedOntoItAreHandedOverAndItCloses)
{
    PrepareService();
    const HWND hDrop = Open();
    const Names paths = {L"C:\\a.txt", L"C:\\folder\\Grüße.txt"};
    const LogCapture log("SFT_DropWindow");
    EXPECT_TRUE(Drag(paths, hDrop));
    EXPECT_THAT(log.Texts(), testing::Each(testing::AnyOf(testing::StartsWith("DEBUG iMsg="),
                                                          testing::StartsWith("TRACE SFTDropWndProc "))))
        << "no word of what was dropped";
    EXPECT_EQ(ReadDroppedEntries(5), paths);
    EXPECT_TRUE(WasTold());
    EXPECT_FALSE(IsWindow(hDrop));
    EXPECT_TRUE(Window().m_DropWindows.empty());
}

TEST_F(SftDropWindowTest, ADropThatNobodyWaitsForLeavesTheWindowForAnotherTry)
{
    PrepareService();
    m_hEvent.reset();
    const HWND hDrop = Open();
    EXPECT_TRUE(Drag({L"C:\\a.txt"}, hDrop));
    EXPECT_TRUE(ReadDroppedEntries(5).empty());
    ASSERT_TRUE(IsWindow(hDrop));
    MakeEvent();
    EXPECT_TRUE(Drag({L"C:\\b.txt"}, hDrop));
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"C:\\b.txt"});
    EXPECT_FALSE(IsWindow(hDrop));
}

TEST_F(SftDropWindowTest, OfTwoWindowsEachTakesItsOwnFilesUntilTheEarlierGoes)
{
    PrepareService();
    const HWND hFirst = Open(5);
    const HWND hSecond = Open(6);
    MoveBeside(hFirst, hSecond);
    m_hEvent.reset(); // nobody waits: the windows stay
    EXPECT_TRUE(Drag({L"C:\\a.txt"}, hFirst));
    EXPECT_TRUE(Drag({L"C:\\b.txt"}, hSecond));
    ASSERT_TRUE(IsWindow(hFirst) && IsWindow(hSecond));
    MakeEvent();
    EXPECT_TRUE(Drag({L"C:\\c.txt"}, hFirst));
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"C:\\c.txt"});
    EXPECT_TRUE(WasTold());
    EXPECT_FALSE(IsWindow(hFirst));
    ASSERT_TRUE(IsWindow(hSecond));
    EXPECT_FALSE(Drag({L"C:\\d.txt"}, hSecond)) << "its target went with the first";
    EXPECT_TRUE(ReadDroppedEntries(6).empty());
    EXPECT_FALSE(WasTold());
    EXPECT_TRUE(IsWindow(hSecond));
}

TEST_F(SftDropWindowTest, OfTwoWindowsTheEarlierGoesOnTakingFilesWhenTheLaterHasGone)
{
    PrepareService();
    const HWND hFirst = Open(5);
    const HWND hSecond = Open(6);
    MoveBeside(hFirst, hSecond);
    EXPECT_TRUE(Drag({L"C:\\a.txt"}, hSecond));
    EXPECT_EQ(ReadDroppedEntries(6), Names{L"C:\\a.txt"});
    EXPECT_TRUE(WasTold());
    EXPECT_FALSE(IsWindow(hSecond));
    EXPECT_TRUE(Drag({L"C:\\b.txt"}, hFirst));
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"C:\\b.txt"});
    EXPECT_TRUE(WasTold());
    EXPECT_FALSE(IsWindow(hFirst));
}

// ---- What those do who don't drag.

TEST_F(SftDropWindowTest, CopiedFilesArePastedAsIfTheyWereDropped)
{
    PrepareService();
    const Names paths = {L"C:\\a.txt", L"C:\\folder\\Grüße.txt"};
    for (const auto& [wKey, nHeld] :
         {std::pair{WPARAM{'V'}, VK_CONTROL}, std::pair{WPARAM{VK_INSERT}, VK_SHIFT}})
    {
        const HWND hDrop = Open();
        CopyFiles(paths);
        Press(hDrop, wKey, nHeld);
        EXPECT_EQ(ReadDroppedEntries(5), paths);
        EXPECT_TRUE(WasTold());
        PumpMessages();
        EXPECT_FALSE(IsWindow(hDrop));
        EXPECT_TRUE(Window().m_DropWindows.empty());
        RemoveDroppedEntries(5);
    }
    EXPECT_TRUE(m_trace.Calls("beep").empty());
}

TEST_F(SftDropWindowTest, NoOtherKeyPastes)
{
    PrepareService();
    const HWND hDrop = Open();
    CopyFiles({L"C:\\a.txt"});
    Press(hDrop, 'V', 0);
    Press(hDrop, 'V', VK_SHIFT);
    Press(hDrop, 'V', VK_CONTROL, VK_SHIFT);
    Press(hDrop, 'V', VK_CONTROL, VK_MENU);
    Press(hDrop, 'C', VK_CONTROL);
    Press(hDrop, VK_INSERT, VK_CONTROL);
    Press(hDrop, VK_INSERT, 0);
    Press(hDrop, VK_RETURN, 0);
    EXPECT_TRUE(ReadDroppedEntries(5).empty());
    EXPECT_FALSE(WasTold());
    EXPECT_TRUE(IsWindow(hDrop));
}

TEST_F(SftDropWindowTest, WithNothingToPasteItBeepsAndStays)
{
    PrepareService();
    const HWND hDrop = Open();
    Copy(CF_UNICODETEXT, GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 16));
    Press(hDrop, 'V', VK_CONTROL);
    Copy(CF_HDROP, GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(DROPFILES) - 1));
    Press(hDrop, 'V', VK_CONTROL);
    EXPECT_EQ(m_trace.Calls("beep"), (Calls{"beep 0", "beep 0"}));
    EXPECT_TRUE(ReadDroppedEntries(5).empty());
    EXPECT_TRUE(IsWindow(hDrop));
}

TEST_F(SftDropWindowTest, AListWhoseNamesBeginBehindItsMemoryIsNotPasted)
{
    PrepareService();
    const HWND hDrop = Open();
    const HGLOBAL hBlock = GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, sizeof(DROPFILES));
    auto* const pFiles = static_cast<DROPFILES*>(hBlock);
    pFiles->pFiles = static_cast<DWORD>(GlobalSize(hBlock)) + 1;
    pFiles->fWide = TRUE;
    Copy(CF_HDROP, hBlock);
    Press(hDrop, 'V', VK_CONTROL);
    EXPECT_EQ(m_trace.Calls("beep"), Calls{"beep 0"});
    EXPECT_TRUE(ReadDroppedEntries(5).empty());
    EXPECT_TRUE(IsWindow(hDrop));
}

TEST_F(SftDropWindowTest, PastedNamesGoOverTheClipboardWhereTheFolderIsMissing)
{
    MakeEvent();
    const HWND hDrop = Open();
    CopyFiles({L"C:\\a", L"C:\\b"});
    Press(hDrop, 'V', VK_CONTROL);
    EXPECT_EQ(ReadDroppedClipboard(), (Names{L"C:\\a", L"C:\\b"}));
    EXPECT_TRUE(WasTold());
}

TEST_F(SftDropWindowTest, APasteThatNobodyWaitsForLeavesTheWindowForAnotherTry)
{
    PrepareService();
    m_hEvent.reset();
    const HWND hDrop = Open();
    CopyFiles({L"C:\\a.txt"});
    Press(hDrop, 'V', VK_CONTROL);
    PumpMessages();
    EXPECT_TRUE(ReadDroppedEntries(5).empty());
    ASSERT_TRUE(IsWindow(hDrop));
    MakeEvent();
    Press(hDrop, 'V', VK_CONTROL);
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"C:\\a.txt"}) << "it is still on the clipboard";
}

TEST_F(SftDropWindowTest, AListThatForgetsItsEndIsReadToTheEndOfItsMemory)
{
    PrepareService();
    const HWND hDrop = Open();
    const HGLOBAL hBlock = GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, sizeof(DROPFILES) + 2 * sizeof(wchar_t));
    auto* const pFiles = static_cast<DROPFILES*>(hBlock);
    pFiles->pFiles = sizeof(DROPFILES);
    pFiles->fWide = TRUE;
    memcpy(pFiles + 1, L"ab", 2 * sizeof(wchar_t));
    Copy(CF_HDROP, hBlock);
    Press(hDrop, 'V', VK_CONTROL);
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"ab"});
}

TEST_F(SftDropWindowTest, WithoutARecordNothingCanBePasted)
{
    const CWindow hDrop(
        CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_DROP), nullptr, SFTDropWndProc, 0));
    CopyFiles({L"C:\\a.txt"});
    SendMessageW(hDrop.get(), WM_PASTE, 0, 0);
    EXPECT_EQ(m_trace.Calls("beep"), Calls{"beep 0"});
}
