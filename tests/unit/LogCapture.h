#pragma once

#include <log4cxx/level.h>
#include <log4cxx/logger.h>

#include <memory>
#include <string>
#include <vector>

class CollectingAppender;

/// What one log line was made of.
struct LogLine
{
    std::string level;
    std::string message; // UTF-8
    std::string function;
    std::string file;
    std::string threadName;
};

/// Collects what one logger writes while the object lives, at that level and above; other appenders get
/// nothing of it meanwhile. Collect on one thread at a time.
class LogCapture
{
  public:
    explicit LogCapture(const char* pszLogger, const log4cxx::LevelPtr& pLevel = log4cxx::Level::getTrace());
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogLine>& Lines() const;

    /// Level, blank, message of each line.
    std::vector<std::string> Texts() const;

  private:
    log4cxx::LoggerPtr m_pLogger;
    std::shared_ptr<CollectingAppender> m_pAppender;
};
