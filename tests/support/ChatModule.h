#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "modules/chat/ChatModule.h"

#include <string_view>

/// The staged chat module, as the agent has it: loaded by name, with its entries. It is freed with the
/// object, so its window must be closed before. Ends the program when the module or an entry is missing.
class LoadedChatModule
{
  public:
    LoadedChatModule();

    HMODULE Handle() const { return m_hModule.get(); }
    HWND Create(HWND hOwner) const { return m_pfnCreate(hOwner); }
    void Append(HWND hChat, const MSG_CHAT_MESSAGE* pMessage) const { m_pfnAppend(hChat, pMessage); }
    void Close() const { m_pfnClose(); }

    /// Appends a message as it comes from the service.
    void Say(HWND hChat, std::wstring_view name, std::wstring_view text) const;

    /// Tells the window, as the agent does, who has connected or left.
    static void Tell(HWND hChat, bool bConnected, std::wstring_view notice, DWORD dwCount);

  private:
    CModule m_hModule;
    decltype(&TKDA_CreateChatWindow) m_pfnCreate;
    decltype(&TKDA_AppendChatMessage) m_pfnAppend;
    decltype(&TKDA_CloseChatWindow) m_pfnClose;
};
