#include "tray/TKDASTWindow.h"

#include "Include/BoundedText.h"
#include "channel/ConnectionInfo.h"
#include "channel/DesktopWatch.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/support/ImportHook.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/Patience.h"
#include "tests/support/RegistryValue.h"
#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
constexpr unsigned int TEST_PORT = 1;
constexpr wchar_t SETTINGS_KEY[] = L"SOFTWARE\\Tessaran Development\\Kestrel Desk Assist Service\\Settings";

std::vector<std::string> g_calls;

BOOL WINAPI SystemUserName(LPWSTR pszName, LPDWORD pcchName)
{
    EXPECT_EQ(*pcchName, 240U);
    CopyText(pszName, *pcchName, L"SYSTEM");
    return TRUE;
}

HWND WINAPI NoWindow(DWORD, LPCWSTR, LPCWSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE, LPVOID)
{
    return nullptr;
}

void RemoveMessages()
{
    MSG message = {};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) || message.message == WM_QUIT)
    {
        message = {};
    }
}

bool TakeQuit()
{
    MSG message = {};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    {
        if (message.message == WM_QUIT)
        {
            return true;
        }
    }
    return false;
}

class TrayWindowTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        g_calls.clear();
        RemoveMessages();
    }

    void TearDown() override
    {
        if (m_pWindow != nullptr && IsWindow(m_pWindow->m_hWnd))
        {
            DestroyWindow(m_pWindow->m_hWnd);
        }
        m_pWindow.reset();
        RemoveMessages();
    }

    CTaskBarWindow& MakeWindow()
    {
        m_pWindow = std::make_unique<CTaskBarWindow>(TEST_PORT);
        return *m_pWindow;
    }

    std::unique_ptr<CTaskBarWindow> m_pWindow;
};
} // namespace

TEST_F(TrayWindowTest, TheWindowIsHiddenAndFoundByItsClassAndTitle)
{
    const CTaskBarWindow& window = MakeWindow();
    EXPECT_EQ(FindWindowW(L"Tessaran KDA Tray Icon Class", L"Tessaran KDA Tray Icon"), window.m_hWnd);
    EXPECT_FALSE(IsWindowVisible(window.m_hWnd));
    EXPECT_EQ(GetWindowLongPtrW(window.m_hWnd, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(&window));
    EXPECT_EQ(GetParent(window.m_hWnd), nullptr);
}

TEST_F(TrayWindowTest, StartsWithWhatTheIconNeedsBeforeTheServiceAnswers)
{
    const CTaskBarWindow& window = MakeWindow();
    EXPECT_EQ(window.m_uiPort, TEST_PORT);
    EXPECT_EQ(window.m_Settings.dwTrayIcon, 1U);
    EXPECT_EQ(window.m_Settings.bPermissionRequired, 0U);
    EXPECT_EQ(FixedText(window.m_Settings.szLanguage), L"en");
    EXPECT_EQ(window.m_dwConnectionType, 1U);
    EXPECT_EQ(window.m_bNotifyPending, 1U);
    EXPECT_EQ(window.m_nNotifyMode, 1);
    EXPECT_EQ(window.m_dwAppliedOptions, 1U);
    EXPECT_EQ(window.m_dwRequestedOptions, 1U);
    EXPECT_EQ(window.m_bAwaitingFirstSettings, 1U);
    EXPECT_EQ(window.m_uTrayIconId, 44444U);
    EXPECT_EQ(window.m_bShellV5, 1U);
    EXPECT_EQ(window.m_bExiting, 0U);
    EXPECT_EQ(window.m_pSocket.load(), nullptr);
}

TEST_F(TrayWindowTest, TheMachinesSettingsDecideUntilTheServiceDoes)
{
    const RegistryValue icon(HKEY_LOCAL_MACHINE, SETTINGS_KEY, L"TrayIcon", DWORD{2});
    const RegistryValue permission(HKEY_LOCAL_MACHINE, SETTINGS_KEY, L"Permission Required", DWORD{1});
    const CTaskBarWindow& window = MakeWindow();
    EXPECT_EQ(window.m_Settings.dwTrayIcon, 2U);
    EXPECT_EQ(window.m_Settings.bPermissionRequired, 1U);
}

TEST_F(TrayWindowTest, AOneTimeAgentShowsItsIconAndAsksForPermissionWhateverTheMachineSays)
{
    const RegistryValue icon(HKEY_LOCAL_MACHINE, SETTINGS_KEY, L"TrayIcon", DWORD{0});
    const RegistryValue permission(HKEY_LOCAL_MACHINE, SETTINGS_KEY, L"Permission Required", DWORD{0});
    g_bOneTimeSession = 1;
    const CTaskBarWindow& window = MakeWindow();
    EXPECT_EQ(window.m_Settings.dwTrayIcon, 1U);
    EXPECT_EQ(window.m_Settings.bPermissionRequired, 1U);
}

TEST_F(TrayWindowTest, TheSystemAccountGetsNoWindow)
{
    const ImportHook hook("advapi32.dll", "GetUserNameW", &SystemUserName);
    const CTaskBarWindow& window = MakeWindow();
    EXPECT_EQ(window.m_hWnd, nullptr);
    EXPECT_EQ(window.m_uiPort, TEST_PORT);
    EXPECT_EQ(window.m_dwConnectionType, 0U) << "the rest of the object stays zero";
    EXPECT_EQ(window.m_bAwaitingFirstSettings, 0U);
    EXPECT_EQ(window.m_Settings.szLanguage[0], L'\0');
    EXPECT_EQ(window.m_uTrayIconId, 0U);
    EXPECT_TRUE(TakeQuit());
}

TEST_F(TrayWindowTest, WithoutAWindowTheLoopEndsAtOnce)
{
    const ImportHook hook("user32.dll", "CreateWindowExW", &NoWindow);
    MakeWindow();
    EXPECT_TRUE(TakeQuit());
}

namespace
{
WNDCLASSEXW g_class = {};
CREATESTRUCTW g_window = {};

ATOM WINAPI KeepClass(const WNDCLASSEXW* pClass)
{
    g_calls.emplace_back("class");
    g_class = *pClass;
    return 1;
}

HWND WINAPI KeepWindow(DWORD dwExStyle, LPCWSTR pszClass, LPCWSTR pszTitle, DWORD dwStyle, int nX, int nY,
                       int nWidth, int nHeight, HWND hParent, HMENU hMenu, HINSTANCE hInstance, LPVOID)
{
    g_calls.emplace_back("window");
    g_window = {nullptr,  hInstance, hMenu,    hParent, nHeight, nWidth, nY, nX, static_cast<LONG>(dwStyle),
                pszTitle, pszClass,  dwExStyle};
    return nullptr;
}

HICON WINAPI NumberAsIcon(HINSTANCE hModule, LPCWSTR pszIcon)
{
    EXPECT_EQ(hModule, g_hResourceModule.load());
    return reinterpret_cast<HICON>(const_cast<wchar_t*>(pszIcon));
}

HRESULT WINAPI KeepCoInitialize(LPVOID)
{
    g_calls.emplace_back("COM");
    return S_OK;
}
} // namespace

TEST_F(TrayWindowTest, ClassAndWindowAreAsOtherProgramsKnowThem)
{
    const ImportHook com("ole32.dll", "CoInitialize", &KeepCoInitialize);
    const ImportHook icon("user32.dll", "LoadIconW", &NumberAsIcon);
    const ImportHook registration("user32.dll", "RegisterClassExW", &KeepClass);
    const ImportHook creation("user32.dll", "CreateWindowExW", &KeepWindow);
    MakeWindow();
    EXPECT_TRUE(TakeQuit());
    EXPECT_EQ(g_calls, (std::vector<std::string>{"COM", "class", "window"}));
    EXPECT_STREQ(g_class.lpszClassName, L"Tessaran KDA Tray Icon Class");
    EXPECT_EQ(g_class.cbSize, sizeof(g_class));
    EXPECT_EQ(g_class.style, 0U);
    EXPECT_EQ(g_class.lpfnWndProc, &CTaskBarWindow::WndProc);
    EXPECT_EQ(g_class.cbClsExtra, 0);
    EXPECT_EQ(g_class.cbWndExtra, 0);
    EXPECT_EQ(g_class.hInstance, g_hInstance);
    EXPECT_EQ(g_class.hCursor, LoadCursorW(nullptr, IDC_ARROW));
    EXPECT_EQ(g_class.hbrBackground, GetStockObject(WHITE_BRUSH));
    EXPECT_EQ(g_class.lpszMenuName, nullptr);
    EXPECT_EQ(g_class.hIcon, reinterpret_cast<HICON>(7));
    EXPECT_EQ(g_class.hIconSm, g_class.hIcon);
    EXPECT_STREQ(g_window.lpszClass, L"Tessaran KDA Tray Icon Class");
    EXPECT_STREQ(g_window.lpszName, L"Tessaran KDA Tray Icon");
    EXPECT_EQ(g_window.dwExStyle, 0U);
    EXPECT_EQ(g_window.style, static_cast<LONG>(WS_OVERLAPPEDWINDOW));
    EXPECT_EQ(g_window.hInstance, g_hInstance);
    EXPECT_EQ(g_window.hwndParent, nullptr);
    EXPECT_EQ(g_window.hMenu, nullptr);
    EXPECT_EQ(g_window.x | g_window.y | g_window.cx | g_window.cy, 0);
}

TEST_F(TrayWindowTest, ItsLifeIsTracedAndThePortIsTold)
{
    const LogCapture capture("TKDASTWindow");
    MakeWindow();
    const std::vector<std::string> birth = capture.Texts();
    ASSERT_GE(birth.size(), 3U);
    EXPECT_EQ(birth[0], "TRACE CTaskBarWindow::CTaskBarWindow entering.");
    EXPECT_EQ(birth[1], "INFO uiPort=1");
    EXPECT_EQ(birth.back(), "TRACE CTaskBarWindow::CTaskBarWindow exiting.");
    DestroyWindow(m_pWindow->m_hWnd);
    const size_t nLines = capture.Texts().size();
    m_pWindow.reset();
    const std::vector<std::string> all = capture.Texts();
    ASSERT_GT(all.size(), nLines);
    EXPECT_EQ(all[nLines], "TRACE CTaskBarWindow::~CTaskBarWindow entering.");
    EXPECT_EQ(all.back(), "TRACE CTaskBarWindow::~CTaskBarWindow exiting.");
}

TEST_F(TrayWindowTest, ItsBirthAsksForTheShellsMessageAndPutsTheRestOff)
{
    g_uTaskbarCreatedMessage = 0;
    const CTaskBarWindow& window = MakeWindow();
    EXPECT_EQ(g_uTaskbarCreatedMessage, RegisterWindowMessageW(L"TaskbarCreated"));
    MSG message = {};
    EXPECT_TRUE(PeekMessageW(&message, window.m_hWnd, WM_AGENT_INIT, WM_AGENT_INIT, PM_REMOVE));
    EXPECT_EQ(message.wParam, 0U);
    EXPECT_EQ(message.lParam, 0);
}

TEST_F(TrayWindowTest, ALostChannelDestroysTheWindowAndEndsTheLoop)
{
    const CTaskBarWindow& window = MakeWindow();
    const HWND hWnd = window.m_hWnd;
    SendMessageW(hWnd, WM_SERVICE_CHANNEL_LOST, 0, 0);
    EXPECT_FALSE(IsWindow(hWnd));
    EXPECT_EQ(window.m_bExiting, 1U);
    EXPECT_TRUE(TakeQuit());
}

namespace
{
decltype(&SetEvent) g_pfnSetEvent = nullptr;
decltype(&shutdown) g_pfnShutdown = nullptr;
decltype(&DestroyWindow) g_pfnDestroyWindow = nullptr;
decltype(&KillTimer) g_pfnKillTimer = nullptr;
decltype(&PostQuitMessage) g_pfnPostQuitMessage = nullptr;
HWND g_hPopup = nullptr;
HWND g_hChat = nullptr;
const CTaskBarWindow* g_pGoing = nullptr;

BOOL WINAPI RecordingSetEvent(HANDLE hEvent)
{
    g_calls.emplace_back("SetEvent");
    return g_pfnSetEvent(hEvent);
}

int WSAAPI RecordingShutdown(SOCKET hSocket, int nHow)
{
    g_calls.emplace_back(g_pGoing->m_bExiting != 0 ? "shutdown" : "shutdown too early");
    return g_pfnShutdown(hSocket, nHow);
}

BOOL WINAPI RecordingDestroyWindow(HWND hWnd)
{
    g_calls.emplace_back(hWnd == g_hPopup  ? "destroy popup"
                         : hWnd == g_hChat ? "destroy chat"
                                           : "destroy window");
    return g_pfnDestroyWindow(hWnd);
}

BOOL WINAPI RecordingKillTimer(HWND hWnd, UINT_PTR uTimer)
{
    g_calls.emplace_back("KillTimer");
    return g_pfnKillTimer(hWnd, uTimer);
}

void WINAPI RecordingSleep(DWORD dwMilliseconds)
{
    g_calls.push_back("Sleep " + std::to_string(dwMilliseconds));
}

void WINAPI RecordingPostQuitMessage(int nExitCode)
{
    g_calls.emplace_back("PostQuitMessage");
    g_pfnPostQuitMessage(nExitCode);
}

BOOL WINAPI RecordingParameters(UINT uAction, UINT uParam, PVOID, UINT)
{
    g_calls.push_back("set " + std::to_string(uAction) + " " + std::to_string(uParam));
    return TRUE;
}

BOOL WINAPI RecordingUnRegister(HWND hWnd)
{
    g_calls.emplace_back(hWnd == g_pGoing->m_hWnd ? "unregister" : "unregister another");
    return TRUE;
}

// Without an owner: the system would destroy an owned one by itself before the handler sees it.
HWND MakeBareWindow()
{
    return CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
}
} // namespace

TEST_F(TrayWindowTest, TheEndTellsThreadsFirstThenRestoresAndClosesChannelPopupChatAndTimer)
{
    CTaskBarWindow& window = MakeWindow();
    g_pGoing = &window;
    window.m_dwAppliedOptions = 0x21;
    LateBinding binding;
    binding.Set("WTSUnRegisterSessionNotification", &RecordingUnRegister);
    g_hQuitEvent.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    window.m_pSocket = std::make_shared<CTKSocket>();
    window.m_hNotifyDlg = g_hPopup = MakeBareWindow();
    window.m_hChatWindow = g_hChat = MakeBareWindow();
    window.m_uTrayRetryTimer = SetTimer(window.m_hWnd, 1006, 100000, nullptr);
    const HWND hWnd = window.m_hWnd;
    {
        const ImportHook parameters("user32.dll", "SystemParametersInfoW", &RecordingParameters);
        const ImportHook setEvent("kernel32.dll", "SetEvent", &RecordingSetEvent);
        g_pfnSetEvent = setEvent.Original();
        const ImportHook shutdownHook("ws2_32.dll", "shutdown", &RecordingShutdown);
        g_pfnShutdown = shutdownHook.Original();
        const ImportHook destroy("user32.dll", "DestroyWindow", &RecordingDestroyWindow);
        g_pfnDestroyWindow = destroy.Original();
        const ImportHook killTimer("user32.dll", "KillTimer", &RecordingKillTimer);
        g_pfnKillTimer = killTimer.Original();
        const ImportHook sleep("kernel32.dll", "Sleep", &RecordingSleep);
        const ImportHook postQuit("user32.dll", "PostQuitMessage", &RecordingPostQuitMessage);
        g_pfnPostQuitMessage = postQuit.Original();
        SendMessageW(hWnd, WM_SERVICE_CHANNEL_LOST, 0, 0);
    }
    // The socket shuts down twice: as it is closed, and as its last owner lets go of it.
    EXPECT_EQ(g_calls,
              (std::vector<std::string>{"destroy window", "unregister", "SetEvent", "set 37 1", "shutdown",
                                        "shutdown", "destroy popup", "destroy chat", "KillTimer", "Sleep 0",
                                        "Sleep 250", "Sleep 0", "PostQuitMessage"}));
    EXPECT_EQ(WaitForSingleObject(g_hQuitEvent.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(window.m_pSocket.load(), nullptr);
    EXPECT_EQ(window.m_hNotifyDlg, nullptr);
    EXPECT_EQ(window.m_hChatWindow, nullptr);
    EXPECT_EQ(window.m_uTrayRetryTimer, 0U);
    EXPECT_EQ(window.m_bExiting, 1U);
}

TEST_F(TrayWindowTest, TheAgentStartsItsReaderWhenTheWindowIsUp)
{
    LoopbackListener listener;
    CTaskBarWindow& window = MakeWindow();
    window.m_uiPort = listener.Port();
    EXPECT_EQ(SendMessageW(window.m_hWnd, WM_AGENT_INIT, 0, 0), 1);
    EXPECT_TRUE(listener.Accept(PATIENCE_MS).has_value());
    ASSERT_TRUE(window.m_hReaderThread);
    EXPECT_TRUE(window.m_hDesktopEvent);
    EXPECT_EQ(WaitForSingleObject(window.m_hDesktopEvent.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    const CKernelHandle hReader(window.m_hReaderThread.release());
    DestroyWindow(window.m_hWnd);
    EXPECT_EQ(WaitForSingleObject(hReader.get(), PATIENCE_MS), WAIT_OBJECT_0)
        << "closing the socket wakes the reader";
}

namespace
{
decltype(&CreateEventW) g_pfnCreateEvent = nullptr;
decltype(&WSAStartup) g_pfnStartWinsock = nullptr;
decltype(&OpenInputDesktop) g_pfnOpenInput = nullptr;
void* g_pThreadParameter = nullptr;

HANDLE WINAPI RecordingCreateEvent(LPSECURITY_ATTRIBUTES pSecurity, BOOL bManual, BOOL bSet, LPCWSTR pszName)
{
    g_calls.push_back("event " + std::to_string(bManual) + std::to_string(bSet) +
                      (pszName != nullptr ? " named" : ""));
    return g_pfnCreateEvent(pSecurity, bManual, bSet, pszName);
}

int WSAAPI RecordingStartWinsock(WORD wVersion, LPWSADATA pData)
{
    g_calls.emplace_back("socket");
    return g_pfnStartWinsock(wVersion, pData);
}

HDESK WINAPI RecordingOpenInput(DWORD dwFlags, BOOL bInherit, ACCESS_MASK dwAccess)
{
    g_calls.emplace_back("look");
    return g_pfnOpenInput(dwFlags, bInherit, dwAccess);
}

BOOL WINAPI RecordingRegister(HWND, DWORD dwFlags)
{
    g_calls.push_back("register " + std::to_string(dwFlags));
    return TRUE;
}

uintptr_t __cdecl RecordingBegin(void*, unsigned, unsigned(__stdcall* pfnThread)(void*), void* pParameter,
                                 unsigned uFlags, unsigned*)
{
    g_pThreadParameter = pParameter;
    g_calls.emplace_back(pfnThread == ConnectionInfo       ? "reader"
                         : pfnThread == DesktopHaveChanged ? "reports"
                         : pfnThread == DesktopChange      ? "switches"
                                                           : "another");
    if (uFlags == CREATE_SUSPENDED)
    {
        g_calls.back() += " suspended";
    }
    return 0;
}
} // namespace

TEST_F(TrayWindowTest, TheAgentLooksAtTheDesktopThenOpensItsChannelThenStartsItsThreads)
{
    CTaskBarWindow& window = MakeWindow();
    const LogCapture capture("TKDASTWindow");
    {
        LateBinding binding;
        binding.Set("WTSRegisterSessionNotification", &RecordingRegister);
        const ImportHook openInput("user32.dll", "OpenInputDesktop", &RecordingOpenInput);
        g_pfnOpenInput = openInput.Original();
        const ImportHook winsock("ws2_32.dll", "WSAStartup", &RecordingStartWinsock);
        g_pfnStartWinsock = winsock.Original();
        const ImportHook createEvent("kernel32.dll", "CreateEventW", &RecordingCreateEvent);
        g_pfnCreateEvent = createEvent.Original();
        const ImportHook begin("msvcrt.dll", "_beginthreadex", &RecordingBegin);
        EXPECT_EQ(SendMessageW(window.m_hWnd, WM_AGENT_INIT, 0, 0), 1);
    }
    EXPECT_EQ(g_calls, (std::vector<std::string>{"look", "register 0", "socket", "reader suspended",
                                                 "event 10", "reports", "switches"}));
    EXPECT_EQ(g_pThreadParameter, &window);
    EXPECT_THAT(capture.Texts(), testing::IsSupersetOf({"TRACE CTaskBarWindow::OnInit entering.",
                                                        "TRACE CTaskBarWindow::OnInit exiting."}));
    EXPECT_FALSE(window.m_hReaderThread) << "there is none, and the window lives on";
    EXPECT_TRUE(IsWindow(window.m_hWnd));
}

TEST_F(TrayWindowTest, WhatIsSentWithoutASocketIsRefusedAtOnce)
{
    CTaskBarWindow& window = MakeWindow();
    char abRecord[4] = {};
    EXPECT_EQ(window.SendToService(abRecord, sizeof(abRecord)), 0);
    window.m_pSocket = std::make_shared<CTKSocket>();
    EXPECT_EQ(window.SendToService(abRecord, sizeof(abRecord)), 0);
}

TEST_F(TrayWindowTest, WhatIsSentArrivesWhole)
{
    LoopbackListener listener;
    CTaskBarWindow& window = MakeWindow();
    const auto pSocket = std::make_shared<CTKSocket>();
    ASSERT_EQ(pSocket->Connect(L"localhost", listener.Port(), SOCK_STREAM, AF_UNSPEC), 1);
    window.m_pSocket = pSocket;
    std::optional<LoopbackConnection> service = listener.Accept(PATIENCE_MS);
    ASSERT_TRUE(service.has_value());
    char abRecord[] = "a record";
    EXPECT_EQ(window.SendToService(abRecord, sizeof(abRecord)), 1);
    char abReceived[sizeof(abRecord)] = {};
    ASSERT_TRUE(service->ReceiveExactly(abReceived, sizeof(abReceived), PATIENCE_MS));
    EXPECT_STREQ(abReceived, abRecord);
}

namespace
{
HDESK WINAPI NoInputDesktop(DWORD, BOOL, ACCESS_MASK)
{
    return nullptr;
}

BOOL WINAPI ScreenSaverRuns(UINT uAction, UINT, PVOID pvParameter, UINT)
{
    EXPECT_EQ(uAction, static_cast<UINT>(SPI_GETSCREENSAVERRUNNING));
    *static_cast<BOOL*>(pvParameter) = TRUE;
    return TRUE;
}

BOOL WINAPI ScreenSaverDesktop(HANDLE, int, PVOID pvInfo, DWORD cbInfo, LPDWORD)
{
    EXPECT_EQ(cbInfo, 520U);
    CopyText(static_cast<wchar_t*>(pvInfo), cbInfo / sizeof(wchar_t), L"Screen-Saver");
    return TRUE;
}
} // namespace

TEST_F(TrayWindowTest, TheDesktopUserBlockTellsUserAndInputDesktop)
{
    MSG_TRAYICON_DESKTOP_USER_INFORMATION information = {};
    CTaskBarWindow::GetDesktopUserInformation(&information);
    EXPECT_EQ(information.dwType, 0U);
    EXPECT_EQ(FixedText(information.szDesktop), L"Default");
    EXPECT_EQ(information.dwDesktopFlags, 0x04U);
    const std::wstring user(FixedText(information.szUsername));
    EXPECT_NE(user.find(L'\\'), std::wstring::npos) << "domain, backslash, name";
}

TEST_F(TrayWindowTest, TheDesktopUserBlockTellsAnInputDesktopThatCannotBeOpened)
{
    const ImportHook hook("user32.dll", "OpenInputDesktop", &NoInputDesktop);
    MSG_TRAYICON_DESKTOP_USER_INFORMATION information = {};
    CTaskBarWindow::GetDesktopUserInformation(&information);
    EXPECT_EQ(information.dwDesktopFlags, 0x02U);
    EXPECT_EQ(information.szDesktop[0], L'\0');
}

TEST_F(TrayWindowTest, TheDesktopUserBlockTellsARunningScreenSaver)
{
    {
        const ImportHook hook("user32.dll", "SystemParametersInfoW", &ScreenSaverRuns);
        MSG_TRAYICON_DESKTOP_USER_INFORMATION information = {};
        CTaskBarWindow::GetDesktopUserInformation(&information);
        EXPECT_EQ(information.dwDesktopFlags, 0x14U);
    }
    const ImportHook hook("user32.dll", "GetUserObjectInformationW", &ScreenSaverDesktop);
    MSG_TRAYICON_DESKTOP_USER_INFORMATION information = {};
    CTaskBarWindow::GetDesktopUserInformation(&information);
    EXPECT_EQ(information.dwDesktopFlags, 0x14U) << "its own desktop tells it too, once and not twice";
}
