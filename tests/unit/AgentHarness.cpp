#include "tests/unit/AgentHarness.h"

#include "Include/BoundedText.h"
#include "channel/ConnectionInfo.h"
#include "startup/TKDAST.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>

namespace
{
// How long a look at the session pauses. The test system makes nearly every look pause, and no case here is
// about that.
constexpr DWORD SESSION_PAUSE = 1000;

std::optional<ImportHook<decltype(Sleep)>> g_sleep;

void WINAPI SleepButForTheSession(DWORD dwMilliseconds)
{
    g_sleep->Original()(dwMilliseconds != SESSION_PAUSE ? dwMilliseconds : 0);
}
} // namespace

void SystemTrace::Add(const std::string& call)
{
    const std::lock_guard lock(m_lock);
    m_calls.push_back(call);
    m_added.notify_all();
}

std::vector<std::string> SystemTrace::Calls() const
{
    const std::lock_guard lock(m_lock);
    return m_calls;
}

std::vector<std::string> SystemTrace::Calls(const std::string& prefix) const
{
    const std::lock_guard lock(m_lock);
    std::vector<std::string> calls;
    std::copy_if(m_calls.begin(), m_calls.end(), std::back_inserter(calls),
                 [&](const std::string& call) { return call.starts_with(prefix); });
    return calls;
}

bool SystemTrace::WaitFor(const std::string& call) const
{
    std::unique_lock lock(m_lock);
    return m_added.wait_for(lock, std::chrono::milliseconds(PATIENCE_MS),
                            [&] { return std::find(m_calls.begin(), m_calls.end(), call) != m_calls.end(); });
}

void SystemTrace::Forget()
{
    const std::lock_guard lock(m_lock);
    m_calls.clear();
}

AgentHarness* AgentHarness::s_pThis = nullptr;

void AgentHarness::SetUp()
{
    s_pThis = this;
    g_sleep.emplace("kernel32.dll", "Sleep", &SleepButForTheSession);
    ReadDesktopName(GetThreadDesktop(GetCurrentThreadId()), g_szDesktopName, sizeof(g_szDesktopName));
    LoopbackListener listener;
    CKernelHandle hReady(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_windowThread = std::thread([&, nPort = listener.Port()] {
        m_pWindow = std::make_unique<CTaskBarWindow>(nPort);
        // The test program has no icons; the agent tells them apart by their handles alone.
        HICON* const apIcons[] = {&m_pWindow->m_hIconActive, &m_pWindow->m_hIconIdle,
                                  &m_pWindow->m_hIconPermission, &m_pWindow->m_hIconReconfiguring};
        ULONG_PTR uIcon = 1;
        for (HICON* const phIcon : apIcons)
        {
            *phIcon = reinterpret_cast<HICON>(uIcon++);
        }
        m_pfnWindow = reinterpret_cast<WNDPROC>(
            SetWindowLongPtrW(m_pWindow->m_hWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&RecordMessage)));
        SetEvent(hReady.get());
        MSG message = {};
        while (GetMessageW(&message, nullptr, 0, 0) > 0)
        {
            if (message.message != WM_AGENT_INIT) // the test starts what it needs
            {
                DispatchMessageW(&message);
            }
        }
    });
    ASSERT_EQ(WaitForSingleObject(hReady.get(), PATIENCE_MS), WAIT_OBJECT_0);
    m_pWindow->m_pSocket = std::make_shared<CTKSocket>();
    m_reader = std::thread([this] { ConnectionInfo(m_pWindow.get()); });
    std::optional<LoopbackConnection> connection = listener.Accept(PATIENCE_MS);
    ASSERT_TRUE(connection.has_value());
    m_service = std::move(*connection);
}

void AgentHarness::TearDown()
{
    if (IsWindow(m_pWindow->m_hWnd))
    {
        SendMessageW(m_pWindow->m_hWnd, WM_CLOSE, 0, 0);
    }
    JoinWindow();
    JoinReader();
    m_pWindow.reset();
    g_sleep.reset();
    s_pThis = nullptr;
}

void AgentHarness::JoinReader()
{
    if (m_reader.joinable())
    {
        m_reader.join();
    }
}

void AgentHarness::JoinWindow()
{
    if (m_windowThread.joinable())
    {
        m_windowThread.join();
    }
}

void AgentHarness::SendType(DWORD dwType)
{
    ASSERT_TRUE(m_service.SendAll(&dwType, sizeof(dwType)));
}

void AgentHarness::Settle()
{
    SendType(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE);
    EXPECT_EQ(Receive<DWORD>(), static_cast<DWORD>(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE));
    // What the reader has posted is handled before what is posted now.
    OnWindowThread([] {});
}

void AgentHarness::Fire(UINT_PTR uTimer)
{
    PostMessageW(m_pWindow->m_hWnd, WM_TIMER, uTimer, 0);
    OnWindowThread([] {});
    OnWindowThread([] {}); // and what the timer's handler has posted
}

void AgentHarness::OnWindowThread(const std::function<void()>& work)
{
    const CKernelHandle hDone(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const std::function<void()> posted = [&] {
        work();
        SetEvent(hDone.get());
    };
    PostMessageW(m_pWindow->m_hWnd, RUN_WORK, 0, reinterpret_cast<LPARAM>(&posted));
    ASSERT_EQ(WaitForSingleObject(hDone.get(), PATIENCE_MS), WAIT_OBJECT_0);
}

MSG_TRAYICON_SETTINGS AgentHarness::PlainSettings(DWORD dwType)
{
    MSG_TRAYICON_SETTINGS settings = {};
    settings.dwType = dwType;
    settings.dwTrayIcon = TRAY_ICON_SHOWN;
    settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
    settings.dwExitLock2 = 1;
    CopyText(settings.szTrayTip, L"Kestrel");
    return settings;
}

MSG_TRAYICON_CONNECT AgentHarness::Connection(DWORD dwType, DWORD dwConnectCount, DWORD dwConnectionType)
{
    MSG_TRAYICON_CONNECT connection = {};
    connection.dwType = dwType;
    connection.dwConnectCount = dwConnectCount;
    connection.dwConnectionType = dwConnectionType;
    CopyText(connection.szClientName, L"Alice");
    return connection;
}

UINT_PTR WINAPI AgentHarness::RecordTimer(HWND, UINT_PTR uTimer, UINT uPeriod, TIMERPROC)
{
    s_pThis->m_trace.Add("timer " + std::to_string(uTimer) + " " + std::to_string(uPeriod));
    return uTimer;
}

BOOL WINAPI AgentHarness::RecordKillTimer(HWND, UINT_PTR uTimer)
{
    s_pThis->m_trace.Add("kill " + std::to_string(uTimer));
    return TRUE;
}

BOOL WINAPI AgentHarness::RecordIcon(DWORD dwMessage, PNOTIFYICONDATAW pData)
{
    s_pThis->m_icons.push_back(*pData);
    s_pThis->m_trace.Add("icon " + std::to_string(dwMessage));
    return s_pThis->m_bShellAnswers ? TRUE : FALSE;
}

BOOL WINAPI AgentHarness::PlayParameters(UINT uAction, UINT uParam, PVOID pvParam, UINT uFlags)
{
    const bool bSets = uFlags != 0;
    const bool bText = uAction == SPI_SETDESKPATTERN || uAction == SPI_SETDESKWALLPAPER;
    std::string call = (bSets ? "set " : "get ") + std::to_string(uAction) + " " + std::to_string(uParam);
    if (bText)
    {
        const std::wstring text = static_cast<const wchar_t*>(pvParam);
        call += " '" + std::string(text.begin(), text.end()) + "'";
    }
    else if (bSets)
    {
        call += " " + std::to_string(reinterpret_cast<ULONG_PTR>(pvParam));
    }
    s_pThis->m_trace.Add(call);
    if (bSets)
    {
        EXPECT_EQ(uFlags, static_cast<UINT>(SPIF_SENDCHANGE)) << "the stored profile stays untouched";
        return s_pThis->m_bParametersCanBeSet ? TRUE : FALSE;
    }
    if (uAction == SPI_GETDESKWALLPAPER)
    {
        CopyText(static_cast<wchar_t*>(pvParam), uParam, s_pThis->m_wallpaper);
    }
    else
    {
        *static_cast<DWORD*>(pvParam) = uAction == SPI_GETSCREENSAVERRUNNING ? FALSE : s_pThis->m_dwEffectsOn;
    }
    return TRUE;
}

HINSTANCE WINAPI AgentHarness::RecordShellStart(HWND hOwner, LPCWSTR pszVerb, LPCWSTR pszFile,
                                                LPCWSTR pszParameters, LPCWSTR, INT)
{
    SHELLEXECUTEINFOW info = {};
    info.hwnd = hOwner;
    info.lpVerb = pszVerb;
    info.lpFile = pszFile;
    info.lpParameters = pszParameters;
    RecordStartEx(&info);
    constexpr INT_PTR STARTED = 42;
    return reinterpret_cast<HINSTANCE>(STARTED);
}

BOOL WINAPI AgentHarness::RecordStartEx(SHELLEXECUTEINFOW* pInfo)
{
    const std::wstring call = std::wstring(L"start ") + pInfo->lpVerb + L' ' + pInfo->lpParameters;
    s_pThis->m_hStartOwner = pInfo->hwnd;
    s_pThis->m_trace.Add(std::string(call.begin(), call.end()));
    return TRUE;
}

HWND WINAPI AgentHarness::PlayFindWindow(LPCWSTR, LPCWSTR)
{
    return s_pThis->m_bShellIsUp ? GetDesktopWindow() : nullptr;
}

LRESULT CALLBACK AgentHarness::RecordMessage(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == RUN_WORK)
    {
        (*reinterpret_cast<const std::function<void()>*>(lParam))();
        return 0;
    }
    if (uMessage == WM_COMMAND || uMessage > WM_USER)
    {
        s_pThis->m_trace.Add("message " + std::to_string(uMessage) + " " + std::to_string(wParam));
    }
    return CallWindowProcW(s_pThis->m_pfnWindow, hWnd, uMessage, wParam, lParam);
}
