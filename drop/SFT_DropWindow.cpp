#include "drop/SFT_DropWindow.h"

#include "Include/BoundedText.h"
#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "dialogs/Announcement.h"
#include "dialogs/DialogBackground.h"
#include "dialogs/DialogControls.h"
#include "dialogs/DialogPlacement.h"
#include "dialogs/PaintedFont.h"
#include "drop/DropTarget.h"
#include "drop/DroppedFiles.h"
#include "resources/resource.h"
#include "tray/TrayWindowMessages.h"

#include <map>
#include <string>
#include <utility>

#include <ole2.h>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("SFT_DropWindow");

constexpr POINT ICON_PLACE = {2, 2};
constexpr size_t MAX_HINT = 260;          // characters, terminator included
constexpr size_t MAX_PAINTED_TEXT = 4096; // characters, terminator included
constexpr UINT HINT_FORMAT = DT_CENTER | DT_WORDBREAK | DT_EDITCONTROL;
static_assert(HINT_FORMAT == 0x2011);

// Of the window that came last. An earlier one's target stays with OLE, which alone knows it by then.
struct DROP_STATE
{
    CDropTarget* pTarget = nullptr; // counts its references itself: see CDropTarget::LetGo
    CDialogBackground background;
};

DROP_STATE g_state;

std::map<HWND, std::shared_ptr<const MSG_TRAYICON_SFT_DROP_CLIENT>> g_heldRecords;

INT_PTR OnInitDialog(HWND hWnd, MSG_TRAYICON_SFT_DROP_CLIENT* pClient)
{
    if (pClient == nullptr)
    {
        return FALSE;
    }
    pClient->ullWindowSlot = reinterpret_cast<ULONG_PTR>(hWnd);
    g_state.pTarget = new CDropTarget(hWnd, *pClient);
    RegisterDragDrop(hWnd, g_state.pTarget);
    g_state.background.Load();
    g_state.background.CreatePlainBrush();
    const std::wstring hint = LoadResourceText(IDS_DROP_HINT, MAX_HINT);
    SetDlgItemTextW(hWnd, IDC_DROP_TEXT, (hint + std::wstring(FixedText(pClient->szClientName))).c_str());
    ShowTopmost(hWnd);
    AnnounceWindow(hWnd, std::wstring());
    return FALSE;
}

void OnPaint(HWND hWnd)
{
    PAINTSTRUCT paint = {};
    const HDC hDC = BeginPaint(hWnd, &paint);
    g_state.background.Paint(hWnd, hDC);
    g_state.background.DrawProductIcon(hDC, ICON_PLACE);
    if (!IsWindowVisible(GetDlgItem(hWnd, IDC_DROP_TEXT)))
    {
        DrawControlText(hWnd, hDC, IDC_DROP_TEXT, HINT_FORMAT, MAX_PAINTED_TEXT);
    }
    EndPaint(hWnd, &paint);
}

void TellTray(const MSG_TRAYICON_SFT_DROP_CLIENT& client)
{
    const HWND hTray = reinterpret_cast<HWND>(static_cast<ULONG_PTR>(client.ullOwnerSlot));
    if (IsWindow(hTray))
    {
        SendMessageW(hTray, WM_SFT_DROP_WINDOW, DROP_WINDOW_FORGET, static_cast<LPARAM>(client.dwClientId));
    }
}

void OnClose(HWND hWnd)
{
    // Null until whoever creates the window has stored it.
    const auto* const pClient =
        reinterpret_cast<const MSG_TRAYICON_SFT_DROP_CLIENT*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
    if (pClient != nullptr)
    {
        TellTray(*pClient);
    }
    DestroyWindow(hWnd);
}

bool IsPasteKey(WPARAM wKey)
{
    const bool bControl = GetKeyState(VK_CONTROL) < 0;
    const bool bShift = GetKeyState(VK_SHIFT) < 0;
    if (GetKeyState(VK_MENU) < 0 || bControl == bShift)
    {
        return false;
    }
    return wKey == static_cast<WPARAM>(bControl ? 'V' : VK_INSERT);
}

void OnKeyDown(HWND hWnd, WPARAM wKey)
{
    if (IsPasteKey(wKey))
    {
        SendMessageW(hWnd, WM_PASTE, 0, 0);
    }
}

// As if what was copied had been dropped: the way of whoever doesn't drag.
void OnPaste(HWND hWnd)
{
    const auto held = g_heldRecords.find(hWnd);
    const auto pClient = held != g_heldRecords.end() ? held->second : nullptr;
    const CGlobalBlock hFiles = ReadCopiedFiles(hWnd);
    if (pClient == nullptr || !hFiles)
    {
        MessageBeep(MB_OK);
        return;
    }
    HandOver(static_cast<HDROP>(hFiles.get()), *pClient, hWnd);
}

void OnDestroy()
{
    if (g_state.pTarget != nullptr)
    {
        if (IsWindow(g_state.pTarget->GetWindow()))
        {
            RevokeDragDrop(g_state.pTarget->GetWindow());
        }
        g_state.pTarget->LetGo();
    }
    g_state.background.Unload();
    g_state = DROP_STATE();
}
} // namespace

void HoldDropRecord(HWND hWnd, std::shared_ptr<const MSG_TRAYICON_SFT_DROP_CLIENT> pRecord)
{
    g_heldRecords[hWnd] = std::move(pRecord);
}

INT_PTR CALLBACK SFTDropWndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    const TKLogBlock block(L"SFTDropWndProc", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"iMsg=" << uMessage);
    switch (uMessage)
    {
    case WM_INITDIALOG:
        return OnInitDialog(hWnd, reinterpret_cast<MSG_TRAYICON_SFT_DROP_CLIENT*>(lParam));
    case WM_PAINT:
        OnPaint(hWnd);
        return FALSE;
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
        return g_state.background.AnswerPlainControlColor(hWnd, reinterpret_cast<HDC>(wParam));
    case WM_COMMAND:
    case WM_SETFOCUS: // stays with the window: the text would have no use for keys
        return TRUE;
    case WM_KEYDOWN:
        OnKeyDown(hWnd, wParam);
        return TRUE;
    case WM_PASTE:
        OnPaste(hWnd);
        return TRUE;
    case WM_SYSCOLORCHANGE:
    case WM_PALETTECHANGED:
    case WM_DWMCOMPOSITIONCHANGED:
    case WM_THEMECHANGED:
        g_state.background.FollowColors(hWnd);
        return FALSE;
    case WM_SETTINGCHANGE:
        g_state.background.FollowSetting(hWnd, wParam);
        return FALSE;
    case WM_CLOSE:
        OnClose(hWnd);
        return FALSE;
    case WM_SFT_DROP_WINDOW:
        DestroyWindow(hWnd);
        return TRUE;
    case WM_DESTROY:
        OnDestroy();
        return FALSE;
    case WM_NCDESTROY:
        g_heldRecords.erase(hWnd);
        return FALSE;
    default:
        return FALSE;
    }
}
