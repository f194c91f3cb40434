#include "tray/TKDASTWindow.h"

#include "Include/TKLogging.h"
#include "drop/SFT_DropWindow.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tray/DesktopOptions.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDASTWindow");

HWND DropWindowOf(const MSG_TRAYICON_SFT_DROP_CLIENT& record)
{
    return reinterpret_cast<HWND>(static_cast<ULONG_PTR>(record.ullWindowSlot));
}

void CloseDropWindow(const MSG_TRAYICON_SFT_DROP_CLIENT& record)
{
    const HWND hDropWindow = DropWindowOf(record);
    if (IsWindow(hDropWindow))
    {
        PostMessageW(hDropWindow, WM_SFT_DROP_WINDOW, 0, 0);
    }
}
} // namespace

bool IsConnectNoticeWanted(const MSG_TRAYICON_SETTINGS& settings, DWORD dwConnectionType)
{
    return settings.bNotifyConnect != 0 || dwConnectionType == ALWAYS_ANNOUNCED_CONNECTION_TYPE ||
           (settings.bNotifyKind2 != 0 && dwConnectionType == SECOND_KIND_CONNECTION_TYPE);
}

void CTaskBarWindow::NotifyConnect()
{
    const TKLogBlock block(L"CTaskBarWindow::NotifyConnect", g_pLogger);
    SetDesktopOptionsDelayed();
    SetTrayIcon();
    if (m_Connection.dwConnectCount == 0 || !IsConnectNoticeWanted(m_Settings, m_dwConnectionType))
    {
        return;
    }
    m_nNotifyMode = NOTIFY_MODE_CONNECTED;
    PostMessageW(m_hWnd, WM_SHOW_NOTIFY_DLG, SHOW_CONNECT_NOTICE, 0);
}

void CTaskBarWindow::NotifyDisconnect()
{
    const TKLogBlock block(L"CTaskBarWindow::NotifyDisconnect", g_pLogger);
    m_bNotifyPending = 1;
    SendMessageW(m_hWnd, WM_CLOSE_NOTIFY_DLG, 0, 1);
    m_nNotifyMode = NOTIFY_MODE_DISCONNECTED;
    if (m_Settings.bNotifyConnect != 0 && m_Settings.bNotifyDisconnect != 0)
    {
        PostMessageW(m_hWnd, WM_SHOW_DISCONNECT_DLG, 0, 0);
    }
    if (m_Connection.dwConnectCount != 0)
    {
        return;
    }
    if (m_dwAppliedOptions > DESKTOP_OPTIONS_NONE)
    {
        RetoreDesktopOptions();
        m_dwAppliedOptions = DESKTOP_OPTIONS_NONE;
    }
    SetTrayIcon();
}

void CTaskBarWindow::NotifyAll()
{
    const TKLogBlock block(L"CTaskBarWindow::NotifyAll", g_pLogger);
    m_nNotifyMode = NOTIFY_MODE_EVERYONE;
    PostMessageW(m_hWnd, WM_SHOW_NOTIFY_DLG, SHOW_EVERYONE_NOTICE, 0);
}

void CTaskBarWindow::SFT_AddDropWindow(const MSG_TRAYICON_SFT_DROP_CLIENT& record)
{
    const TKLogBlock block(L"CTaskBarWindow::SFT_AddDropWindow", g_pLogger);
    const DROP_RECORD pCopy = AppendDropRecord(record);
    if (pCopy != nullptr)
    {
        SendMessageW(m_hWnd, WM_SFT_DROP_WINDOW, DROP_WINDOW_CREATE, reinterpret_cast<LPARAM>(pCopy.get()));
    }
}

// Null when the client has a window already, which is then closed, or when there is no memory.
CTaskBarWindow::DROP_RECORD CTaskBarWindow::AppendDropRecord(const MSG_TRAYICON_SFT_DROP_CLIENT& record)
{
    const std::lock_guard lock(m_dropWindowsLock);
    const auto itEntry = FindDropRecord(record.dwClientId);
    if (itEntry != m_DropWindows.end())
    {
        PostMessageW(DropWindowOf(**itEntry), WM_CLOSE, 0, 0);
        return nullptr;
    }
    try
    {
        DROP_RECORD pCopy = std::make_shared<MSG_TRAYICON_SFT_DROP_CLIENT>(record);
        pCopy->dwListSlot = static_cast<DWORD>(m_DropWindows.size());
        pCopy->ullWindowSlot = 0;
        pCopy->ullOwnerSlot = reinterpret_cast<ULONG_PTR>(m_hWnd);
        m_DropWindows.push_back(pCopy);
        return pCopy;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

std::list<CTaskBarWindow::DROP_RECORD>::iterator CTaskBarWindow::FindDropRecord(DWORD dwClientId)
{
    return std::find_if(m_DropWindows.begin(), m_DropWindows.end(),
                        [dwClientId](const DROP_RECORD& pEntry) { return pEntry->dwClientId == dwClientId; });
}

// Null when the list has forgotten it meanwhile, or never held it: a message may come from anywhere.
CTaskBarWindow::DROP_RECORD CTaskBarWindow::ListedDropRecord(LPARAM lRecord)
{
    const std::lock_guard lock(m_dropWindowsLock);
    const auto itEntry =
        std::find_if(m_DropWindows.begin(), m_DropWindows.end(), [lRecord](const DROP_RECORD& pEntry) {
            return reinterpret_cast<LPARAM>(pEntry.get()) == lRecord;
        });
    return itEntry != m_DropWindows.end() ? *itEntry : nullptr;
}

void CTaskBarWindow::OpenDropWindow(const DROP_RECORD& pRecord) const
{
    if (pRecord == nullptr)
    {
        return;
    }
    const HWND hDropWindow = CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_DROP), m_hWnd,
                                                SFTDropWndProc, reinterpret_cast<LPARAM>(pRecord.get()));
    pRecord->ullWindowSlot = reinterpret_cast<ULONG_PTR>(hDropWindow);
    if (!IsWindow(hDropWindow))
    {
        return;
    }
    HoldDropRecord(hDropWindow, pRecord);
    SetWindowLongPtrW(hDropWindow, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(pRecord.get()));
    ShowWindow(hDropWindow, SW_SHOW);
}

void CTaskBarWindow::SFT_RemoveDropWindow(DWORD dwClientId)
{
    const TKLogBlock block(L"CTaskBarWindow::SFT_RemoveDropWindow", g_pLogger);
    TakeDropRecords(dwClientId, true);
}

void CTaskBarWindow::SFT_EraseDropWindow(DWORD dwClientId)
{
    const TKLogBlock block(L"CTaskBarWindow::SFT_EraseDropWindow", g_pLogger);
    TakeDropRecords(dwClientId, false);
}

void CTaskBarWindow::TakeDropRecords(DWORD dwClientId, bool bCloseWindows)
{
    const std::lock_guard lock(m_dropWindowsLock);
    auto itFirst = m_DropWindows.begin();
    auto itLast = m_DropWindows.end();
    if (dwClientId != ALL_DROP_WINDOWS)
    {
        itFirst = FindDropRecord(dwClientId);
        if (itFirst == m_DropWindows.end())
        {
            m_DropWindows.clear(); // an unknown client empties the list; the windows stay and go on working
            return;
        }
        itLast = std::next(itFirst);
    }
    if (bCloseWindows)
    {
        std::for_each(itFirst, itLast, [](const DROP_RECORD& pEntry) { CloseDropWindow(*pEntry); });
    }
    m_DropWindows.erase(itFirst, itLast);
}
