#include "channel/TrayMessages.h"
#include "tests/unit/AgentHarness.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

namespace
{
// The prompts that the agent has started.
struct STARTED_PROCESSES
{
    std::mutex lock;
    std::vector<std::wstring> commandLines;
    bool bRefused = false;
};
STARTED_PROCESSES g_started;

BOOL WINAPI RecordStart(LPCWSTR, LPWSTR pszCommandLine, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
                        DWORD, LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION pProcess)
{
    const std::lock_guard lock(g_started.lock);
    g_started.commandLines.emplace_back(pszCommandLine);
    if (g_started.bRefused)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *pProcess = {};
    return TRUE;
}

class PermissionMessageTest : public AgentHarness
{
  protected:
    void SetUp() override
    {
        g_started.commandLines.clear();
        g_started.bRefused = false;
        AgentHarness::SetUp();
    }

    void SendPermission(DWORD nPort, DWORD nAfType)
    {
        Send(MSG_TRAYICON_PERMISSION{MSG_TYPE_TRAYICON_PERMISSION, nPort, nAfType});
    }

    static std::vector<std::wstring> Started()
    {
        const std::lock_guard lock(g_started.lock);
        return g_started.commandLines;
    }

    ImportHook<decltype(CreateProcessW)> m_start{"kernel32.dll", "CreateProcessW", &RecordStart};
};

using Lines = std::vector<std::wstring>;
} // namespace

TEST_F(PermissionMessageTest, EachMessageStartsAPromptOfItsOwn)
{
    SendPermission(50123, 2);
    SendPermission(50124, 23);
    SendPermission(0xFFFFFFFF, 0x80000000);
    Settle();
    EXPECT_EQ(Started(),
              (Lines{L" -Permission 50123 2", L" -Permission 50124 23", L" -Permission -1 -2147483648"}));
}

TEST_F(PermissionMessageTest, NothingIsAnsweredOnTheMainChannel)
{
    SendPermission(50123, 2);
    Settle(); // reads nothing but its own echo
    EXPECT_TRUE(m_service.StaysSilent(0));
    EXPECT_EQ(Started().size(), 1U);
}

TEST_F(PermissionMessageTest, APromptThatCannotStartHindersNothing)
{
    g_started.bRefused = true;
    SendPermission(50123, 2);
    SendPermission(50123, 2);
    Settle();
    EXPECT_EQ(Started().size(), 2U);
    EXPECT_TRUE(m_service.StaysSilent(0));
}

TEST_F(PermissionMessageTest, NoPromptStartsBeforeTheRecordIsWhole)
{
    const MSG_TRAYICON_PERMISSION record = {MSG_TYPE_TRAYICON_PERMISSION, 50123, 2};
    const BYTE* const pBytes = reinterpret_cast<const BYTE*>(&record);
    constexpr size_t cbFirst = sizeof(record) - 1;
    SendType(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE);
    ASSERT_TRUE(m_service.SendAll(pBytes, cbFirst));
    EXPECT_EQ(Receive<DWORD>(), static_cast<DWORD>(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE));
    EXPECT_TRUE(Started().empty());
    ASSERT_TRUE(m_service.SendAll(pBytes + cbFirst, sizeof(record) - cbFirst));
    Settle();
    EXPECT_EQ(Started(), Lines{L" -Permission 50123 2"});
}

TEST_F(PermissionMessageTest, ARecordThatBreaksOffStartsNoPrompt)
{
    const DWORD head[] = {MSG_TYPE_TRAYICON_PERMISSION, 50123};
    ASSERT_TRUE(m_service.SendAll(head, sizeof(head)));
    m_service.Close();
    JoinReader();
    EXPECT_TRUE(Started().empty());
}
