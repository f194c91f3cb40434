#pragma once

#include "tests/support/AgentFolder.h"
#include "tests/support/ChatTrace.h"
#include "tests/unit/AgentHarness.h"

#include <string>
#include <string_view>
#include <vector>

/// An agent whose chat module is the test's. The modules that lack an entry go by what they lack.
class ChatHarness : public AgentHarness
{
  protected:
    void TearDown() override
    {
        AgentHarness::TearDown();
        while (const HMODULE hModule = GetModuleHandleW(CHAT_MODULE))
        {
            FreeLibrary(hModule);
        }
        HideModule();
    }

    void OfferModule(const std::wstring& missing = L"nothing")
    {
        HideModule();
        m_pOffered = AddDllDirectory((TestProgramFolder() / ChatModuleFolder(missing)).c_str());
        ASSERT_NE(m_pOffered, nullptr);
    }

    void HideModule()
    {
        if (m_pOffered != nullptr)
        {
            RemoveDllDirectory(m_pOffered);
        }
        m_pOffered = nullptr;
    }

    /// A name may fill its field, without a terminator.
    static std::vector<BYTE> ChatRecord(const std::vector<BYTE>& payload,
                                        std::wstring_view username = L"Alice");

    /// Bytes that no mistake in order or place leaves the same.
    static std::vector<BYTE> Payload(size_t nBytes, DWORD dwSeed = 1);

    void SendBytes(const std::vector<BYTE>& bytes)
    {
        ASSERT_TRUE(m_service.SendAll(bytes.data(), bytes.size()));
    }

    /// A message of the service, and the end of its handling.
    void SendChat(const std::vector<BYTE>& payload = {'h', 0, 'i', 0})
    {
        SendBytes(ChatRecord(payload));
        Settle();
    }

    void SendChatOpen(std::wstring_view username = L"Alice")
    {
        MSG_TRAYICON_CHAT_OPEN record = {};
        record.dwType = MSG_TYPE_TRAYICON_CHAT_OPEN;
        username.copy(record.szUsername, std::size(record.szUsername));
        Send(record);
        Settle();
    }

    void SendChatClose()
    {
        SendType(MSG_TYPE_TRAYICON_CHAT_CLOSE);
        Settle();
    }

    ChatTrace m_chat;

  private:
    DLL_DIRECTORY_COOKIE m_pOffered = nullptr;
};
