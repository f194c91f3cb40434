#include "tray/TKDASTWindow.h"

#include "Include/TKLogging.h"
#include "Include/BoundedText.h"
#include "Include/LangUI.h"
#include "Include/UtilDesktop.h"
#include "Include/UtilFile.h"
#include "Include/UtilRegistry.h"
#include "Include/UtilVersion.h"
#include "channel/ConnectionInfo.h"
#include "channel/DesktopWatch.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tray/DesktopOptions.h"

#include <objbase.h>
#include <process.h>

#include <iterator>

UINT g_uTaskbarCreatedMessage = 0;

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDASTWindow");

constexpr int SHELL_WITH_BALLOONS = 5; // major version of Shell32.dll
} // namespace

CTaskBarWindow::CTaskBarWindow(unsigned int uiPort)
{
    const TKLogBlock block(L"CTaskBarWindow::CTaskBarWindow", g_pLogger);
    TK_LOG_INFO(g_pLogger, "uiPort=" << uiPort);
    // Never undone: the process's end does it, after the last window is gone.
    (void)CoInitialize(nullptr);
    m_uiPort = uiPort;
    if (IsSystemAccount())
    {
        PostQuitMessage(0);
        return;
    }
    InitMembers();
    if (!CreateTrayWindow())
    {
        PostQuitMessage(0);
        return;
    }
    LoadTrayIcons();
}

CTaskBarWindow::~CTaskBarWindow()
{
    const TKLogBlock block(L"CTaskBarWindow::~CTaskBarWindow", g_pLogger);
    DelTrayIcon();
}

// What the icon needs before the service has answered; its first settings record overwrites it.
void CTaskBarWindow::InitMembers()
{
    m_bShellV5 = GetFileMajorVersion(L"Shell32.dll") >= SHELL_WITH_BALLOONS ? 1 : 0;
    m_bNotifyPending = 1;
    m_dwConnectionType = ORDINARY_CONNECTION_TYPE;
    m_Settings.dwTrayIcon = g_bOneTimeSession != 0 ? TRAY_ICON_SHOWN : GetTrayIconMode();
    m_Settings.bPermissionRequired = g_bOneTimeSession != 0 ? 1 : GetPermissionRequired();
    CopyText(m_Settings.szLanguage, DEFAULT_LANGUAGE);
    m_dwAppliedOptions = DESKTOP_OPTIONS_NONE;
    m_dwRequestedOptions = DESKTOP_OPTIONS_NONE;
    m_nNotifyMode = NOTIFY_MODE_CONNECTED;
    m_bAwaitingFirstSettings = 1;
    m_uTrayIconId = TRAY_ICON_ID;
}

bool CTaskBarWindow::CreateTrayWindow()
{
    WNDCLASSEXW windowClass = {};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = WndProc;
    windowClass.hInstance = g_hInstance;
    windowClass.hIcon = LoadIconW(g_hResourceModule, MAKEINTRESOURCEW(IDI_TRAY_IDLE));
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.hbrBackground = static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH));
    windowClass.lpszClassName = TRAY_WINDOW_CLASS;
    windowClass.hIconSm = windowClass.hIcon;
    RegisterClassExW(&windowClass); // without its class there is no window either

    m_hWnd = CreateWindowExW(0, TRAY_WINDOW_CLASS, TRAY_WINDOW_TITLE, WS_OVERLAPPEDWINDOW, 0, 0, 0, 0,
                             nullptr, nullptr, g_hInstance, nullptr);
    if (m_hWnd == nullptr)
    {
        return false;
    }
    ShowWindow(m_hWnd, SW_HIDE);
    SetWindowLongPtrW(m_hWnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    return true;
}

void CTaskBarWindow::LoadTrayIcons()
{
    m_hIconActive = LoadIconW(g_hResourceModule, MAKEINTRESOURCEW(IDI_TRAY_ACTIVE));
    m_hIconIdle = LoadIconW(g_hResourceModule, MAKEINTRESOURCEW(IDI_TRAY_IDLE));
    m_hIconPermission = LoadIconW(g_hResourceModule, MAKEINTRESOURCEW(IDI_TRAY_PERMISSION));
    m_hIconReconfiguring = LoadIconW(g_hResourceModule, MAKEINTRESOURCEW(IDI_TRAY_RECONFIGURING));
}

bool CTaskBarWindow::OnInit()
{
    const TKLogBlock block(L"CTaskBarWindow::OnInit", g_pLogger);
    m_pSocket = CreateSharedSocket();
    if (m_pSocket.load() == nullptr)
    {
        return false;
    }
    StartReaderThread();
    m_hDesktopEvent.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    StartDesktopThread(DesktopHaveChanged);
    StartDesktopThread(DesktopChange);
    return true;
}

// Suspended, so that the thread finds its own handle in the object.
void CTaskBarWindow::StartReaderThread()
{
    const CKernelHandle hThread(reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, ConnectionInfo, this, CREATE_SUSPENDED, nullptr)));
    if (!hThread)
    {
        return;
    }
    DuplicateHandle(GetCurrentProcess(), hThread.get(), GetCurrentProcess(), m_hReaderThread.put(), 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    ResumeThread(hThread.get());
}

// Nobody joins it: it ends with the reader thread or with the quit event.
void CTaskBarWindow::StartDesktopThread(unsigned int(__stdcall* pfnThread)(void*))
{
    const CKernelHandle hThread(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, pfnThread, this, 0, nullptr)));
}

void CTaskBarWindow::CloseChannel()
{
    m_bExiting = 1;
    const std::shared_ptr<CTKSocket> pSocket = m_pSocket.exchange(nullptr);
    if (pSocket != nullptr)
    {
        pSocket->Close(); // what wakes the reader thread
    }
}

void CTaskBarWindow::GetDesktopUserInformation(MSG_TRAYICON_DESKTOP_USER_INFORMATION* pInfo)
{
    pInfo->dwDesktopFlags = 0;
    if (IsScreenSaverRunning())
    {
        pInfo->dwDesktopFlags |= DESKTOP_FLAG_SCREEN_SAVER;
    }
    const CDesktop hDesktop(OpenInputDesktop(0, FALSE, DESKTOP_READOBJECTS));
    if (hDesktop)
    {
        pInfo->dwDesktopFlags |= DESKTOP_FLAG_INPUT_DESKTOP;
        ReadDesktopName(hDesktop.get(), pInfo->szDesktop, sizeof(pInfo->szDesktop));
        if (lstrcmpiW(pInfo->szDesktop, SCREEN_SAVER_DESKTOP_NAME) == 0)
        {
            pInfo->dwDesktopFlags |= DESKTOP_FLAG_SCREEN_SAVER;
        }
    }
    else
    {
        pInfo->dwDesktopFlags |= DESKTOP_FLAG_NO_INPUT_DESKTOP;
    }
    GetAccountName(pInfo->szUsername, std::size(pInfo->szUsername));
}

int CTaskBarWindow::SendToService(char* pRecord, unsigned int nBytes)
{
    const std::shared_ptr<CTKSocket> pSocket = m_pSocket.load();
    return IsSocketValid(pSocket.get()) ? pSocket->WriteAll(pRecord, nBytes) : 0;
}
