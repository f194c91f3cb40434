#include "modules/common/ModuleContext.h"
#include "tests/support/SettingsModule.h"

#include <gtest/gtest.h>

namespace
{
HANDLE CurrentContext()
{
    HANDLE hContext = nullptr;
    GetCurrentActCtx(&hContext);
    ReleaseActCtx(hContext);
    return hContext;
}

TEST(ModuleContext, IsTheModulesOwnForItsLife)
{
    const LoadedSettingsModule module;
    const HANDLE hBefore = CurrentContext();
    {
        const CModuleContext context(module.Handle());
        EXPECT_TRUE(context.IsActive());
        EXPECT_NE(CurrentContext(), hBefore);
    }
    EXPECT_EQ(CurrentContext(), hBefore);
}

TEST(ModuleContext, IsTheProgramsWhereTheModuleHasNone)
{
    const HANDLE hBefore = CurrentContext();
    const CModuleContext context(GetModuleHandleW(L"ntdll.dll"));
    EXPECT_FALSE(context.IsActive());
    EXPECT_EQ(CurrentContext(), hBefore);
}

TEST(ModuleContext, KeepsTheLastErrorAsItEnds)
{
    const LoadedSettingsModule module;
    {
        const CModuleContext context(module.Handle());
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_WINDOW_HANDLE});
}
} // namespace
