#include "tests/support/Watchdog.h"

#include <gtest/gtest.h>

namespace
{
/// Counts each test's time for the watchdog.
class WatchdogListener : public testing::EmptyTestEventListener
{
  public:
    void OnTestStart(const testing::TestInfo& info) override
    {
        m_watchdog.Arm(std::string(info.test_suite_name()) + "." + info.name());
    }
    void OnTestEnd(const testing::TestInfo&) override { m_watchdog.Disarm(); }

  private:
    Watchdog m_watchdog;
};
} // namespace

int main(int argc, char** argv)
{
    InstallCrashFilter();
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new WatchdogListener);
    return RUN_ALL_TESTS();
}
