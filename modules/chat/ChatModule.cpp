#include "modules/chat/ChatModule.h"

#include "modules/chat/ChatWindow.h"

namespace
{
HMODULE g_hModule = nullptr;
} // namespace

BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, LPVOID pProcessEnds)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        g_hModule = hModule;
        DisableThreadLibraryCalls(hModule);
    }
    else if (dwReason == DLL_PROCESS_DETACH && pProcessEnds == nullptr)
    {
        // The next module at this address must not meet a class whose procedure has gone.
        CChatWindow::Unregister(hModule);
    }
    return TRUE;
}

HWND TKDA_CreateChatWindow(HWND hOwner) noexcept
{
    return CChatWindow::Open(g_hModule, hOwner);
}

void TKDA_AppendChatMessage(HWND hChatWindow, const MSG_CHAT_MESSAGE* pMessage) noexcept
{
    CChatWindow* const pWindow = CChatWindow::Find(hChatWindow);
    if (pWindow != nullptr && pMessage != nullptr)
    {
        pWindow->ShowMessage(*pMessage);
    }
}

void TKDA_CloseChatWindow() noexcept
{
    CChatWindow::CloseOpen();
}
