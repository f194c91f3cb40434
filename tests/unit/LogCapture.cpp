#include "tests/unit/LogCapture.h"

#include <log4cxx/appenderskeleton.h>
#include <log4cxx/spi/loggingevent.h>

// The macros of log4cxx name its types without its namespace.
using namespace log4cxx;

class CollectingAppender : public AppenderSkeleton
{
  public:
    // cppcheck-suppress unknownMacro
    DECLARE_LOG4CXX_OBJECT(CollectingAppender)
    BEGIN_LOG4CXX_CAST_MAP()
    LOG4CXX_CAST_ENTRY(CollectingAppender)
    LOG4CXX_CAST_ENTRY_CHAIN(AppenderSkeleton)
    END_LOG4CXX_CAST_MAP()

    void close() override {}
    bool requiresLayout() const override { return false; }

    void append(const spi::LoggingEventPtr& event, helpers::Pool&) override
    {
        LogLine line;
        line.level = event->getLevel()->toString();
        line.message = event->getRenderedMessage();
        line.function = event->getLocationInformation().getMethodName();
        line.file = event->getLocationInformation().getShortFileName();
        event->getMDC("threadName", line.threadName);
        m_lines.push_back(line);
    }

    std::vector<LogLine> m_lines;
};

IMPLEMENT_LOG4CXX_OBJECT(CollectingAppender)

LogCapture::LogCapture(const char* pszLogger, const LevelPtr& pLevel)
    : m_pLogger(Logger::getLogger(pszLogger)), m_pAppender(std::make_shared<CollectingAppender>())
{
    m_pLogger->setAdditivity(false);
    m_pLogger->setLevel(pLevel);
    m_pLogger->addAppender(m_pAppender);
}

LogCapture::~LogCapture()
{
    m_pLogger->removeAppender(m_pAppender);
    m_pLogger->setLevel(nullptr);
    m_pLogger->setAdditivity(true);
}

const std::vector<LogLine>& LogCapture::Lines() const
{
    return m_pAppender->m_lines;
}

std::vector<std::string> LogCapture::Texts() const
{
    std::vector<std::string> texts;
    for (const LogLine& line : Lines())
    {
        texts.push_back(line.level + ' ' + line.message);
    }
    return texts;
}
