#include "tests/support/ChatModule.h"

#include "Include/BoundedText.h"
#include "channel/NoticeMessages.h"
#include "modules/chat/ChatPayload.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/StagedEntry.h"
#include "tray/TrayWindowMessages.h"

#include <vector>

LoadedChatModule::LoadedChatModule()
    : m_hModule(LoadLibraryW((StageFolder() / L"TKDAChat.dll").make_preferred().c_str())),
      m_pfnCreate(FindStagedEntry<decltype(m_pfnCreate)>(m_hModule.get(), "TKDA_CreateChatWindow")),
      m_pfnAppend(FindStagedEntry<decltype(m_pfnAppend)>(m_hModule.get(), "TKDA_AppendChatMessage")),
      m_pfnClose(FindStagedEntry<decltype(m_pfnClose)>(m_hModule.get(), "TKDA_CloseChatWindow"))
{
}

void LoadedChatModule::Say(HWND hChat, std::wstring_view name, std::wstring_view text) const
{
    const std::vector<char> record = MakeChatRecord(name, text);
    Append(hChat, reinterpret_cast<const MSG_CHAT_MESSAGE*>(record.data()));
}

void LoadedChatModule::Tell(HWND hChat, bool bConnected, std::wstring_view notice, DWORD dwCount)
{
    CHAT_CONNECT_NOTICE block = {};
    block.bConnected = bConnected ? 1 : 0;
    block.dwConnectCount = dwCount;
    CopyText(block.szNotice, notice);
    SendMessageW(hChat, bConnected ? WM_CHAT_USER_CONNECTED : WM_CHAT_USER_DISCONNECTED,
                 reinterpret_cast<WPARAM>(&block), 0);
}
