// The state of the whole process, which the tests share.

#include "Include/LangUI.h"
#include "startup/TKDAST.h"

#include <gtest/gtest.h>

namespace
{
/// Has every test begin as a program that has just started, whatever the tests before it have left.
class FreshProgram : public testing::EmptyTestEventListener
{
  public:
    void OnTestStart(const testing::TestInfo&) override
    {
        g_hInstance = GetModuleHandleW(nullptr);
        g_hResourceModule = g_hInstance;
        g_hQuitEvent.reset();
        g_nExitCode = EXIT_AGENT_ENDED;
        g_dwDesktopState = 0;
        g_bOneTimeSession = 0;
        g_bOtiInvitation = 0;
        g_szOtiInvitation[0] = L'\0';
        g_ProfileReg.SetRootKey(HKEY_LOCAL_MACHINE);
        SetEnvironmentVariableW(LANGUAGE_VALUE, nullptr);
    }
};

// Before main hands the program to the tests.
const bool g_bListens = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new FreshProgram);
    return true;
}();
} // namespace
