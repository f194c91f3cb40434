#include "fuzz/PlayedSystem.h"

#include "Include/BoundedText.h"
#include "Include/Product.h"
#include "channel/NoticeMessages.h"
#include "channel/TrayMessages.h"
#include "fuzz/FuzzTarget.h"
#include "modules/chat/ChatPayload.h"
#include "modules/chat/ChatText.h"
#include "tests/support/AgentFolder.h"
#include "startup/TKDAST.h"
#include "tray/TKDASTWindow.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>

namespace
{
constexpr size_t MOST_POSTED = 256; // as a real queue has an end
constexpr SIZE_T LARGEST_BLOCK = 16 * 1024 * 1024;
constexpr INT_PTR STARTED = 42;
constexpr INT_PTR DIALOG_FAILED = -1;
constexpr DWORD FLAG_ON = 1;
constexpr size_t MOST_BOX_TEXT = 8192; // characters

// The agent's messages and tests may end it; the stand-in for its window goes on.
HWND MakeStandIn()
{
    return CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
}

HWND g_hPlayedChat = nullptr;

HDESK PlayedDesktop()
{
    return reinterpret_cast<HDESK>(static_cast<ULONG_PTR>(0x4B4B));
}

bool EndsWith(LPCWSTR pszText, std::wstring_view end)
{
    return std::wstring_view(pszText).ends_with(end);
}

HWND __cdecl OpenPlayedChat(HWND)
{
    return g_hPlayedChat;
}

void __cdecl AppendToPlayedChat(HWND, const MSG_CHAT_MESSAGE* pMessage)
{
    const std::wstring text = CleanChatText(ReadChatText(*pMessage));
    const std::wstring name = CleanChatName(ChatSender(*pMessage));
    Expect(text.size() <= MAX_CHAT_TEXT && name.size() <= MAX_SHOWN_NAME, "a chat line has its limits");
}

void __cdecl ClosePlayedChat() {}
} // namespace

CPlayedSystem* CPlayedSystem::s_pThis = nullptr;

CPlayedSystem::CPlayedSystem(CChoices& choices) : m_choices(choices)
{
    s_pThis = this;
    g_hPlayedChat = m_hChatWindow;
    g_hInstance = GetModuleHandleW(nullptr);
    g_hResourceModule = m_hLanguage != nullptr ? m_hLanguage : g_hInstance;
}

CPlayedSystem::~CPlayedSystem()
{
    for (const auto& [pBlock, pPages] : m_blocks)
    {
        VirtualFree(pPages, 0, MEM_RELEASE);
    }
    SetWindowLongPtrW(m_hTrayWindow, GWLP_USERDATA, 0);
    g_hInstance = m_hInstanceBefore;
    g_hResourceModule = m_hResourcesBefore;
    s_pThis = nullptr;
}

HWND CPlayedSystem::TrayWindow()
{
    static const HWND s_hWnd = MakeStandIn();
    return s_hWnd;
}

HWND CPlayedSystem::ChatWindow()
{
    static const HWND s_hWnd = MakeStandIn();
    return s_hWnd;
}

HMODULE CPlayedSystem::LanguageModule()
{
    static const HMODULE s_hModule =
        LoadLibraryExW((StageFolder() / LANGUAGE_MODULE).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    return s_hModule;
}

HINSTANCE CPlayedSystem::Instance()
{
    return g_hInstance;
}

HMODULE CPlayedSystem::Resources()
{
    return g_hResourceModule;
}

void CPlayedSystem::DeliverPosted()
{
    // What handlers post on and on, such as a box that is due again, is left for the next time.
    MSG message = {};
    for (size_t nLeft = MOST_POSTED; nLeft > 0 && TakePosted(m_hTrayWindow, message); --nLeft)
    {
        CTaskBarWindow::WndProc(message.hwnd, message.message, message.wParam, message.lParam);
    }
}

bool CPlayedSystem::TakePosted(HWND hWnd, MSG& message)
{
    const auto itPosted = std::find_if(m_posted.begin(), m_posted.end(),
                                       [hWnd](const POSTED& posted) { return posted.hWnd == hWnd; });
    if (itPosted == m_posted.end())
    {
        return false;
    }
    message.hwnd = hWnd;
    message.message = itPosted->uMessage;
    message.wParam = itPosted->wParam;
    message.lParam = itPosted->lParam;
    m_posted.erase(itPosted);
    return true;
}

void CPlayedSystem::FireTimer()
{
    if (!m_timers.empty())
    {
        const UINT_PTR uTimer = m_timers[m_choices.Below(static_cast<std::uint32_t>(m_timers.size()))];
        CTaskBarWindow::WndProc(m_hTrayWindow, WM_TIMER, uTimer, 0);
    }
}

HWND WINAPI CPlayedSystem::MakeWindow(DWORD dwExStyle, LPCWSTR pszClass, LPCWSTR pszTitle, DWORD dwStyle,
                                      int nX, int nY, int nWidth, int nHeight, HWND hParent, HMENU hMenu,
                                      HINSTANCE hInstance, LPVOID pParam)
{
    const bool bAtom = reinterpret_cast<ULONG_PTR>(pszClass) <= MAXWORD;
    if (!bAtom && wcscmp(pszClass, TRAY_WINDOW_CLASS) == 0)
    {
        return s_pThis->m_hTrayWindow;
    }
    return s_pThis->m_makeWindow.Original()(dwExStyle, pszClass, pszTitle, dwStyle, nX, nY, nWidth, nHeight,
                                            hParent, hMenu, hInstance, pParam);
}

BOOL WINAPI CPlayedSystem::EndWindow(HWND hWnd)
{
    if (hWnd == s_pThis->m_hTrayWindow)
    {
        CTaskBarWindow::WndProc(hWnd, WM_DESTROY, 0, 0);
        return TRUE;
    }
    if (hWnd == s_pThis->m_hChatWindow)
    {
        return TRUE;
    }
    return s_pThis->m_endWindow.Original()(hWnd);
}

UINT_PTR WINAPI CPlayedSystem::StartTimer(HWND hWnd, UINT_PTR uTimer, UINT, TIMERPROC)
{
    std::vector<UINT_PTR>& timers = s_pThis->m_timers;
    if (hWnd == s_pThis->m_hTrayWindow && std::find(timers.begin(), timers.end(), uTimer) == timers.end())
    {
        timers.push_back(uTimer);
    }
    return uTimer != 0 ? uTimer : FLAG_ON;
}

BOOL WINAPI CPlayedSystem::StopTimer(HWND hWnd, UINT_PTR uTimer)
{
    if (hWnd == s_pThis->m_hTrayWindow)
    {
        std::erase(s_pThis->m_timers, uTimer);
    }
    return TRUE;
}

BOOL WINAPI CPlayedSystem::Post(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (hWnd == nullptr || s_pThis->m_posted.size() >= MOST_POSTED)
    {
        return FALSE;
    }
    s_pThis->m_posted.push_back({hWnd, uMessage, wParam, lParam});
    return TRUE;
}

LRESULT WINAPI CPlayedSystem::Send(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (hWnd == s_pThis->m_hTrayWindow)
    {
        return CTaskBarWindow::WndProc(hWnd, uMessage, wParam, lParam);
    }
    if (hWnd == s_pThis->m_hChatWindow)
    {
        const auto* const pNotice = reinterpret_cast<const CHAT_CONNECT_NOTICE*>(wParam);
        Expect(wcsnlen(pNotice->szNotice, std::size(pNotice->szNotice)) < std::size(pNotice->szNotice),
               "a chat notice has an end");
        return 0;
    }
    return s_pThis->m_send.Original()(hWnd, uMessage, wParam, lParam);
}

// What the system does of its own would end the stand-in.
LRESULT WINAPI CPlayedSystem::Default(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (hWnd != s_pThis->m_hTrayWindow)
    {
        return s_pThis->m_default.Original()(hWnd, uMessage, wParam, lParam);
    }
    return uMessage == WM_CLOSE ? EndWindow(hWnd) : 0;
}

void WINAPI CPlayedSystem::PostQuit(int) {}

BOOL WINAPI CPlayedSystem::Parameters(UINT uAction, UINT uParam, PVOID pvParam, UINT uFlags)
{
    if (uFlags != 0)
    {
        Expect(uFlags == SPIF_SENDCHANGE, "the stored profile stays untouched");
        return TRUE;
    }
    switch (uAction)
    {
    case SPI_GETDESKWALLPAPER:
        CopyText(static_cast<wchar_t*>(pvParam), uParam, L"C:\\user.bmp");
        break;
    case SPI_GETWORKAREA:
        *static_cast<RECT*>(pvParam) = {0, 0, 1280, 760};
        break;
    case SPI_GETNONCLIENTMETRICS:
        return s_pThis->m_parameters.Original()(uAction, uParam, pvParam, uFlags);
    case SPI_GETSCREENSAVERRUNNING:
        *static_cast<DWORD*>(pvParam) = 0;
        break;
    default:
        *static_cast<DWORD*>(pvParam) = FLAG_ON;
        break;
    }
    return TRUE;
}

HWND WINAPI CPlayedSystem::Find(LPCWSTR, LPCWSTR)
{
    return s_pThis->m_choices.OneIn(8) ? nullptr : s_pThis->m_hTrayWindow;
}

// The test system's text shaping doesn't survive noise, and what dialogs say is played without them.
HWND WINAPI CPlayedSystem::MakeDialog(HINSTANCE, LPCWSTR, HWND, DLGPROC, LPARAM)
{
    return nullptr;
}

INT_PTR WINAPI CPlayedSystem::RunDialog(HINSTANCE, LPCWSTR, HWND, DLGPROC pfnDialog, LPARAM lParam)
{
    if (s_pThis->m_pfnDialog != nullptr)
    {
        return s_pThis->m_pfnDialog(*s_pThis, pfnDialog, lParam);
    }
    constexpr INT_PTR RESULTS[] = {IDCANCEL, IDOK, 0, DIALOG_FAILED};
    return RESULTS[s_pThis->m_choices.Below(static_cast<std::uint32_t>(std::size(RESULTS)))];
}

int WINAPI CPlayedSystem::ShowBox(HWND, LPCWSTR pszText, LPCWSTR pszTitle, UINT)
{
    Expect(wcslen(pszText) < MOST_BOX_TEXT && wcslen(pszTitle) < MOST_BOX_TEXT, "a box has a text");
    constexpr int ANSWERS[] = {IDNO, IDYES, IDOK, IDCANCEL, 0};
    return ANSWERS[s_pThis->m_choices.Below(static_cast<std::uint32_t>(std::size(ANSWERS)))];
}

BOOL WINAPI CPlayedSystem::ShowMenu(HMENU, UINT, int, int, int, HWND, const RECT*)
{
    return TRUE;
}

HDESK WINAPI CPlayedSystem::OpenDesktop(DWORD, BOOL, ACCESS_MASK)
{
    return s_pThis->m_choices.OneIn(8) ? nullptr : PlayedDesktop();
}

BOOL WINAPI CPlayedSystem::CloseDesk(HDESK)
{
    return TRUE;
}

BOOL WINAPI CPlayedSystem::NameDesktop(HANDLE, int, PVOID pvName, DWORD cbName, LPDWORD pcbNeeded)
{
    constexpr const wchar_t* NAMES[] = {L"Screen-saver", L"Default", L"Winlogon", L""};
    const std::wstring_view name =
        NAMES[s_pThis->m_choices.Below(static_cast<std::uint32_t>(std::size(NAMES)))];
    const DWORD cbNeeded = static_cast<DWORD>((name.size() + 1) * sizeof(wchar_t));
    if (pcbNeeded != nullptr)
    {
        *pcbNeeded = cbNeeded;
    }
    if (cbName < cbNeeded)
    {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    CopyText(static_cast<wchar_t*>(pvName), cbName / sizeof(wchar_t), name);
    return TRUE;
}

BOOL WINAPI CPlayedSystem::ChangeIcon(DWORD, PNOTIFYICONDATAW pData)
{
    Expect(pData->cbSize == NOTIFYICONDATAW_V1_SIZE || pData->cbSize == NOTIFYICONDATAW_V2_SIZE,
           "the shell knows the icon's structure by its size");
    Expect(FixedText(pData->szTip).size() < std::size(pData->szTip), "a tip has an end");
    Expect(FixedText(pData->szInfo).size() < std::size(pData->szInfo), "a balloon has an end");
    Expect(FixedText(pData->szInfoTitle).size() < std::size(pData->szInfoTitle), "a title has an end");
    return s_pThis->m_choices.OneIn(8) ? FALSE : TRUE;
}

HINSTANCE WINAPI CPlayedSystem::StartByShell(HWND, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, INT)
{
    return reinterpret_cast<HINSTANCE>(STARTED);
}

BOOL WINAPI CPlayedSystem::StartByShellEx(SHELLEXECUTEINFOW*)
{
    return TRUE;
}

void WINAPI CPlayedSystem::Wait(DWORD) {}

BOOL WINAPI CPlayedSystem::StartProcess(LPCWSTR, LPWSTR pszCommandLine, LPSECURITY_ATTRIBUTES,
                                        LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID, LPCWSTR, LPSTARTUPINFOW,
                                        LPPROCESS_INFORMATION)
{
    Expect(std::wstring_view(pszCommandLine).starts_with(L" -Permission "), "only a prompt is started");
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

HMODULE WINAPI CPlayedSystem::Load(LPCWSTR pszName, HANDLE, DWORD)
{
    if (EndsWith(pszName, L"TKDAChat.dll"))
    {
        return g_hInstance;
    }
    if (EndsWith(pszName, LANGUAGE_MODULE))
    {
        return s_pThis->m_hLanguage;
    }
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

BOOL WINAPI CPlayedSystem::Free(HMODULE)
{
    return TRUE;
}

FARPROC WINAPI CPlayedSystem::FindEntry(HMODULE hModule, LPCSTR pszName)
{
    if (reinterpret_cast<ULONG_PTR>(pszName) > MAXWORD && hModule == g_hInstance)
    {
        const std::string_view name = pszName;
        if (name == "TKDA_CreateChatWindow")
        {
            return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&OpenPlayedChat));
        }
        if (name == "TKDA_AppendChatMessage")
        {
            return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&AppendToPlayedChat));
        }
        if (name == "TKDA_CloseChatWindow")
        {
            return reinterpret_cast<FARPROC>(&ClosePlayedChat);
        }
    }
    return s_pThis->m_findEntry.Original()(hModule, pszName);
}

// Each block ends where its pages end.
LPVOID WINAPI CPlayedSystem::Allocate(HANDLE, DWORD, SIZE_T cb)
{
    if (cb > LARGEST_BLOCK)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    constexpr SIZE_T PAGE = 4096;
    cb += cb % sizeof(wchar_t); // texts in it stand where texts may
    const SIZE_T cbUsable = std::max((cb + PAGE - 1) / PAGE * PAGE, PAGE);
    auto* const pPages =
        static_cast<BYTE*>(VirtualAlloc(nullptr, cbUsable + PAGE, MEM_RESERVE, PAGE_NOACCESS));
    const void* const pCommitted =
        pPages != nullptr ? VirtualAlloc(pPages, cbUsable, MEM_COMMIT, PAGE_READWRITE) : nullptr;
    if (pCommitted == nullptr)
    {
        return nullptr;
    }
    BYTE* const pBlock = pPages + cbUsable - cb;
    s_pThis->m_blocks[pBlock] = pPages;
    return pBlock;
}

BOOL WINAPI CPlayedSystem::Release(HANDLE hHeap, DWORD dwFlags, LPVOID p)
{
    const auto itBlock = s_pThis->m_blocks.find(p);
    if (itBlock == s_pThis->m_blocks.end())
    {
        return s_pThis->m_release.Original()(hHeap, dwFlags, p);
    }
    VirtualFree(itBlock->second, 0, MEM_RELEASE);
    s_pThis->m_blocks.erase(itBlock);
    return TRUE;
}

BOOL WINAPI CPlayedSystem::SetVariable(LPCWSTR, LPCWSTR)
{
    return TRUE;
}

HANDLE WINAPI CPlayedSystem::OpenOwnProcess(DWORD, BOOL, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

LSTATUS WINAPI CPlayedSystem::OpenKey(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY)
{
    return ERROR_FILE_NOT_FOUND;
}

LSTATUS WINAPI CPlayedSystem::OpenKeyPlainly(HKEY, LPCWSTR, PHKEY)
{
    return ERROR_FILE_NOT_FOUND;
}
