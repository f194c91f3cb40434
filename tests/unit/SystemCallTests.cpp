#include "Include/Pause.h"
#include "Include/SystemCall.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LateBinding.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{
using GetProcessIdFunction = DWORD(WINAPI*)();
std::vector<DWORD> g_sleeps;
} // namespace

TEST(SystemCall, FoundFunctionIsCalledAndItsModuleFreed)
{
    const LateBinding binding;
    {
        const CSystemCall<GetProcessIdFunction> call(L"Kernel32.dll", "GetCurrentProcessId");
        ASSERT_TRUE(call);
        EXPECT_EQ(call(), GetCurrentProcessId());
        EXPECT_EQ(binding.OpenModules(), 1);
    }
    EXPECT_EQ(binding.OpenModules(), 0);
}

TEST(SystemCall, MissingModuleOrEntryIsNoCall)
{
    const LateBinding binding;
    EXPECT_FALSE(CSystemCall<GetProcessIdFunction>(L"NoSuchModule.dll", "GetCurrentProcessId"));
    EXPECT_FALSE(CSystemCall<GetProcessIdFunction>(L"Kernel32.dll", "NoSuchEntry"));
    EXPECT_EQ(binding.OpenModules(), 0);
}

TEST(Pause, GivesUpTheTimeSliceBeforeAndAfterTheSleep)
{
    g_sleeps.clear();
    {
        const ImportHook hook(
            "kernel32.dll", "Sleep", +[](DWORD dwMilliseconds) { g_sleeps.push_back(dwMilliseconds); });
        PauseThread(250);
    }
    EXPECT_EQ(g_sleeps, (std::vector<DWORD>{0, 250, 0}));
}
