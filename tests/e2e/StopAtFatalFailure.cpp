#include <gtest/gtest.h>

#include <windows.h>

namespace
{
/// A failed ASSERT in a fixture's helper ends the whole test, not only the helper: without the agent that the
/// helper was to bring, the rest of the test would crash the program and take the tests behind it along.
class FatalFailureListener : public testing::EmptyTestEventListener
{
  public:
    void OnTestPartResult(const testing::TestPartResult& result) override
    {
        if (result.fatally_failed() && GetCurrentThreadId() == m_dwTestThread)
        {
            throw testing::AssertionException(result);
        }
    }

  private:
    const DWORD m_dwTestThread = GetCurrentThreadId();
};

/// Has to be the last listener, so it's added when all others are.
class FatalFailureEnvironment : public testing::Environment
{
  public:
    void SetUp() override { testing::UnitTest::GetInstance()->listeners().Append(new FatalFailureListener); }
};

[[maybe_unused]] const testing::Environment* const g_pStopAtFatalFailure =
    testing::AddGlobalTestEnvironment(new FatalFailureEnvironment);
} // namespace
