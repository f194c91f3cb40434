#include "tray/TKDASTWindow.h"

#include "Include/SystemCall.h"
#include "Include/TKLogging.h"
#include "Include/UtilLog.h"

#include <string>
#include <string_view>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDASTWindowChat");

template <typename Function>
bool TakeChatEntry(HMODULE hChatModule, std::string_view name, Function& pfnEntry)
{
    pfnEntry = FindModuleEntry<Function>(hChatModule, name.data());
    if (pfnEntry != nullptr)
    {
        return true;
    }
    const DWORD dwError = GetLastError();
    TK_LOG_ERROR(g_pLogger, L"Failed to GetProcAddress for " << std::wstring(name.begin(), name.end())
                                                             << L" from TKDAChat.dll. "
                                                             << ComposeErrorText(dwError));
    return false;
}
} // namespace

int CTaskBarWindow::InitChatWindow()
{
    const TKLogBlock block(L"CTaskBarWindow::InitChatWindow", g_pLogger);
    if (m_pfnCreateChatWindow != nullptr)
    {
        return 1;
    }
    m_pfnAppendChatMessage = nullptr;
    m_pfnCloseChatWindow = nullptr;
    // By its short name, yet never from the current folder or the path, which anybody may have filled.
    m_hChatModule = TKLoadSystemLibrary(L"TKDAChat.dll", nullptr, 0);
    if (m_hChatModule == nullptr)
    {
        const DWORD dwError = GetLastError();
        TK_LOG_ERROR(g_pLogger, L"Failed to load TKDAChat.dll. " << ComposeErrorText(dwError));
        return 0;
    }
    const bool bComplete = TakeChatEntry(m_hChatModule, "TKDA_CreateChatWindow", m_pfnCreateChatWindow) &&
                           TakeChatEntry(m_hChatModule, "TKDA_AppendChatMessage", m_pfnAppendChatMessage) &&
                           TakeChatEntry(m_hChatModule, "TKDA_CloseChatWindow", m_pfnCloseChatWindow);
    return bComplete ? 1 : 0;
}

// A module that lacks an entry has been complained of as it was loaded; what it does have is used.
void CTaskBarWindow::OpenChatWindow()
{
    const TKLogBlock block(L"CTaskBarWindow::OpenChatWindow", g_pLogger);
    const HWND hChatWindow = m_hChatWindow;
    if (IsWindow(hChatWindow))
    {
        BringWindowToTop(hChatWindow);
        return;
    }
    if (m_hChatModule == nullptr)
    {
        InitChatWindow();
    }
    m_hChatWindow = m_pfnCreateChatWindow != nullptr ? m_pfnCreateChatWindow(m_hWnd) : nullptr;
}

void CTaskBarWindow::ShowChatMessage(const MSG_CHAT_MESSAGE* pMessage)
{
    const TKLogBlock block(L"CTaskBarWindow::ShowChatMessage", g_pLogger);
    OpenChatWindow();
    const HWND hChatWindow = m_hChatWindow;
    if (hChatWindow != nullptr && m_pfnAppendChatMessage != nullptr)
    {
        m_pfnAppendChatMessage(hChatWindow, pMessage);
    }
}

void CTaskBarWindow::CloseChatWindow()
{
    const TKLogBlock block(L"CTaskBarWindow::CloseChatWindow", g_pLogger);
    const HWND hChatWindow = m_hChatWindow;
    if (IsWindow(hChatWindow))
    {
        DestroyWindow(hChatWindow);
    }
    m_hChatWindow = nullptr;
}
