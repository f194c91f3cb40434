#include "tests/unit/DialogHarness.h"

#include "Include/BoundedText.h"
#include "dialogs/DialogPlacement.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"

#include <cstdio>
#include <cstdlib>

TASKBAR_ANSWER g_taskbarAnswer;

namespace
{
constexpr DWORD RESOURCES_ONLY = LOAD_LIBRARY_AS_IMAGE_RESOURCE | LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE;
constexpr size_t MAX_TEXT = 4200; // characters
constexpr int WARMING_ROUNDS = 8;

UINT_PTR WINAPI AnswerTaskbar(DWORD dwMessage, APPBARDATA* pData)
{
    g_taskbarAnswer.dwMessage = dwMessage;
    g_taskbarAnswer.cbData = pData->cbSize;
    pData->uEdge = g_taskbarAnswer.uEdge;
    pData->rc = g_taskbarAnswer.rect;
    return g_taskbarAnswer.bAnswers ? TRUE : FALSE;
}

HWND WINAPI FindAnyWindow(LPCWSTR, LPCWSTR)
{
    return GetDesktopWindow();
}

const bool g_bTaskbarStandIn = [] {
    const ImportHook shell("user32.dll", "FindWindowW", &FindAnyWindow);
    LateBinding binding;
    binding.Set("SHAppBarMessage", &AnswerTaskbar);
    return LoadAppBarMessage() != 0;
}();

std::wstring StagedModule(const std::wstring& language)
{
    std::filesystem::path folder = StageFolder();
    if (language != L"en")
    {
        folder = folder / L"Localization" / language;
    }
    return (folder / L"TKDASTRES.dll").make_preferred().wstring();
}
} // namespace

StagedLanguageModule::StagedLanguageModule(const wchar_t* pszLanguage)
    : m_hModule(LoadLibraryExW(StagedModule(pszLanguage).c_str(), nullptr, RESOURCES_ONLY))
{
    if (!m_hModule)
    {
        std::fprintf(stderr, "no staged module for %ls\n", pszLanguage);
        std::abort();
    }
    g_hResourceModule = m_hModule.get();
}

StagedLanguageModule::~StagedLanguageModule()
{
    g_hResourceModule = GetModuleHandleW(nullptr);
}

std::wstring StagedLanguageModule::Text(UINT uString) const
{
    const wchar_t* pText = nullptr;
    const int cchText = LoadStringW(m_hModule.get(), uString, reinterpret_cast<LPWSTR>(&pText), 0);
    return {pText, static_cast<size_t>(cchText)};
}

std::wstring ControlText(HWND hDlg, int nControl)
{
    std::wstring text(MAX_TEXT, L'\0');
    text.resize(GetDlgItemTextW(hDlg, nControl, text.data(), static_cast<int>(text.size())));
    return text;
}

void PumpMessages()
{
    MSG message = {};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

void ExpectNoMoreThan(const ObjectCounts& before)
{
    const ObjectCounts after = CountObjects();
    EXPECT_LE(after.dwHandles, before.dwHandles + HANDLES_OF_LOCKS);
    EXPECT_LE(after.dwGdiObjects, before.dwGdiObjects);
    EXPECT_LE(after.dwWindows, before.dwWindows);
    EXPECT_LE(after.dwMenus, before.dwMenus);
    EXPECT_LE(after.dwIcons, before.dwIcons);
}

void ExpectNothingLeftBy(int nRounds, const std::function<void(int nRound)>& play)
{
    const auto repeat = [&play](int nTimes) {
        for (int nRound = 0; nRound < nTimes; ++nRound)
        {
            play(nRound);
        }
    };
    repeat(WARMING_ROUNDS);
    const ObjectCounts before = CountObjects();
    repeat(nRounds);
    ExpectNoMoreThan(before);
}

DialogHarness* DialogHarness::s_pThis = nullptr;

void DialogHarness::SetUp()
{
    s_pThis = this;
    ASSERT_TRUE(g_bTaskbarStandIn);
    g_taskbarAnswer = TASKBAR_ANSWER();
    m_binding.Set("PlaySoundW", &RecordSound);
    m_pWindow = std::make_unique<CTaskBarWindow>(0);
    ASSERT_NE(m_pWindow->m_hWnd, nullptr);
    m_pfnWindow = reinterpret_cast<WNDPROC>(
        SetWindowLongPtrW(m_pWindow->m_hWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&RecordMessage)));
    m_trace.Forget();
}

void DialogHarness::TearDown()
{
    SendMessageW(m_pWindow->m_hWnd, WM_CLOSE, 0, 0);
    m_pWindow.reset();
    PumpMessages(); // and the quit message with them
    g_taskbarAnswer = TASKBAR_ANSWER();
    s_pThis = nullptr;
}

HWND DialogHarness::ShowPopup(NOTIFY_MODE mode)
{
    m_pWindow->m_nNotifyMode = mode;
    SendMessageW(m_pWindow->m_hWnd, WM_SHOW_DISCONNECT_DLG, 0, 0);
    PumpMessages();
    return m_pWindow->m_hNotifyDlg;
}

MSG_TRAYICON_CONNECT DialogHarness::Alice()
{
    MSG_TRAYICON_CONNECT connection = {};
    CopyText(connection.szClientName, L"Alice");
    CopyText(connection.szClientDetail1, L"Example Ltd");
    CopyText(connection.szClientDetail2, L"HELPDESK");
    connection.dwConnectionType = ORDINARY_CONNECTION_TYPE;
    connection.dwConnectCount = 1;
    return connection;
}

UINT_PTR WINAPI DialogHarness::RecordTimer(HWND hWnd, UINT_PTR uTimer, UINT uPeriod, TIMERPROC pfnTimer)
{
    s_pThis->m_trace.Add("timer " + std::to_string(uTimer) + " " + std::to_string(uPeriod));
    return s_pThis->m_setTimer.Original()(hWnd, uTimer, uPeriod, pfnTimer);
}

BOOL WINAPI DialogHarness::RecordKillTimer(HWND hWnd, UINT_PTR uTimer)
{
    s_pThis->m_trace.Add("kill " + std::to_string(uTimer));
    return s_pThis->m_killTimer.Original()(hWnd, uTimer);
}

BOOL WINAPI DialogHarness::RecordSound(LPCWSTR pszSound, HMODULE hModule, DWORD dwFlags)
{
    EXPECT_EQ(hModule, nullptr);
    const HWND hPopup = s_pThis->m_pWindow->m_hNotifyDlg;
    const bool bPainted = IsWindowVisible(hPopup) && !GetUpdateRect(hPopup, nullptr, FALSE);
    const std::wstring sound = pszSound;
    s_pThis->m_trace.Add("sound " + std::string(sound.begin(), sound.end()) + " " + std::to_string(dwFlags) +
                         (bPainted ? " painted" : ""));
    return s_pThis->m_bSoundWorks ? TRUE : FALSE;
}

BOOL WINAPI DialogHarness::RecordBeep(UINT uType)
{
    s_pThis->m_trace.Add("beep " + std::to_string(uType));
    return TRUE;
}

BOOL WINAPI DialogHarness::AnswerUserName(LPWSTR pszName, LPDWORD pcchName)
{
    CopyText(pszName, *pcchName, s_pThis->m_userName);
    return TRUE;
}

LRESULT CALLBACK DialogHarness::RecordMessage(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (uMessage == WM_AGENT_INIT)
    {
        return 0; // there is no service
    }
    if (uMessage == WM_COMMAND)
    {
        s_pThis->m_trace.Add("message " + std::to_string(uMessage) + " " + std::to_string(wParam));
        return 0;
    }
    return CallWindowProcW(s_pThis->m_pfnWindow, hWnd, uMessage, wParam, lParam);
}
