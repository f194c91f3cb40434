#include "fuzz/SilentLog.h"

#include "Include/TKLogging.h"

#include <log4cxx/appenderskeleton.h>

// The macros of log4cxx name its types without its namespace.
using namespace log4cxx;

class SilentAppender : public AppenderSkeleton
{
  public:
    // cppcheck-suppress unknownMacro
    DECLARE_LOG4CXX_OBJECT(SilentAppender)
    BEGIN_LOG4CXX_CAST_MAP()
    LOG4CXX_CAST_ENTRY(SilentAppender)
    LOG4CXX_CAST_ENTRY_CHAIN(AppenderSkeleton)
    END_LOG4CXX_CAST_MAP()

    void close() override {}
    bool requiresLayout() const override { return false; }
    void append(const spi::LoggingEventPtr&, helpers::Pool&) override {}
};

IMPLEMENT_LOG4CXX_OBJECT(SilentAppender)

void SilenceLog()
{
    Logger::getRootLogger()->addAppender(std::make_shared<SilentAppender>());
}
