#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/LastError.h"

#include <log4cxx/level.h>
#include <log4cxx/logger.h>
#include <log4cxx/helpers/messagebuffer.h>
#include <log4cxx/spi/location/locationinfo.h>

#include <utility>

/// The logger of a source file, fetched by name when the program starts:
/// `static const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("UtilFile");`
///
/// The pointer lives for ever on purpose: nobody joins the agent's threads, and one that still runs while the
/// process ends may log after the source's own statics are gone. The first call also keeps log4cxx from
/// taking a configuration out of the current directory, which anybody may have filled. Any thread.
const log4cxx::LoggerPtr& TKGetLogger(const char* pszName);

/// Reads the log configuration; unreadable or broken, logging is off and the program goes on without it. Call
/// it once, on the main thread, before other threads log. Result: whether a configuration is in force; the
/// last error stays.
bool ConfigureLogging(const wchar_t* pszConfigurationPath) noexcept;

/// Names the calling thread in its log lines: name, "@", thread id. Without memory they go without it. Any
/// thread.
void SetThreadLogName(const wchar_t* pszName) noexcept;

/// Names the calling thread "main" in its log lines. Main thread.
void SetMainThreadLogName() noexcept;

/// Composes and writes one line whose level is known to be enabled. Whatever goes wrong on the way costs the
/// line, never the caller; the last error stays. Any thread.
template <typename Compose>
void TKLogMessage(const log4cxx::LoggerPtr& pLogger, const log4cxx::LevelPtr& pLevel,
                  const log4cxx::spi::LocationInfo& location, const Compose& compose) noexcept
{
    const CKeepLastError keepLastError;
    try
    {
        log4cxx::helpers::MessageBuffer buffer;
        pLogger->forcedLog(pLevel, compose(buffer), location);
    }
    catch (...) // NOLINT(bugprone-empty-catch): there is nowhere left to report to
    {
    }
}

#define TK_LOG_LOCATION_OF(pszFunction)                                                                      \
    log4cxx::spi::LocationInfo(__FILE__, log4cxx::spi::LocationInfo::calcShortFileName(__FILE__),            \
                               pszFunction, __LINE__)

// The location takes the function's bare name: log4cxx would make one of the compiler's full signature, and
// leaves parts of the result type in it.
#define TK_LOG_AT_LEVEL(LevelName, logger, ...)                                                              \
    do                                                                                                       \
    {                                                                                                        \
        if (log4cxx::Logger::is##LevelName##EnabledFor(logger))                                              \
        {                                                                                                    \
            TKLogMessage(logger, log4cxx::Level::get##LevelName(), TK_LOG_LOCATION_OF(__func__),             \
                         [&](log4cxx::helpers::MessageBuffer& tkLogBuffer) {                                 \
                             return tkLogBuffer.extract_str(tkLogBuffer << __VA_ARGS__);                     \
                         });                                                                                 \
        }                                                                                                    \
    } while (false)

/// Writes the streamed expression when the level is on; the expression isn't evaluated otherwise. It must
/// begin with a text, narrow or wide, which decides the kind of all texts in it: TK_LOG_INFO(g_pLogger, L"x="
/// << x). Any thread; the last error stays.
#define TK_LOG_TRACE(logger, ...) TK_LOG_AT_LEVEL(Trace, logger, __VA_ARGS__)
#define TK_LOG_DEBUG(logger, ...) TK_LOG_AT_LEVEL(Debug, logger, __VA_ARGS__)
#define TK_LOG_INFO(logger, ...) TK_LOG_AT_LEVEL(Info, logger, __VA_ARGS__)
#define TK_LOG_WARN(logger, ...) TK_LOG_AT_LEVEL(Warn, logger, __VA_ARGS__)
#define TK_LOG_ERROR(logger, ...) TK_LOG_AT_LEVEL(Error, logger, __VA_ARGS__)

/// Traces the life of a scope: label + " entering." and label + " exiting.". The level is tested once, at the
/// beginning, so that the two lines come together or not at all; with TRACE off nothing is copied, as window
/// procedures open one for each message. Any thread.
class TKLogBlock
{
  public:
    TKLogBlock(const wchar_t* pszLabel, const log4cxx::LoggerPtr& pLogger) noexcept
        : m_pRecord(log4cxx::Logger::isTraceEnabledFor(pLogger) ? Enter(pszLabel, pLogger) : nullptr)
    {
    }
    TKLogBlock(const char* pszLabel, const log4cxx::LoggerPtr& pLogger) noexcept
        : m_pRecord(log4cxx::Logger::isTraceEnabledFor(pLogger) ? Enter(pszLabel, pLogger) : nullptr)
    {
    }
    ~TKLogBlock()
    {
        if (m_pRecord != nullptr)
        {
            Exit(m_pRecord);
        }
    }
    TKLogBlock(const TKLogBlock&) = delete;
    TKLogBlock& operator=(const TKLogBlock&) = delete;

  private:
    struct Record;

    static Record* Enter(const wchar_t* pszLabel, const log4cxx::LoggerPtr& pLogger) noexcept;
    static Record* Enter(const char* pszLabel, const log4cxx::LoggerPtr& pLogger) noexcept;
    static void Exit(Record* pRecord) noexcept;

    Record* const m_pRecord;
};
