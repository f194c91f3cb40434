#include "Include/TKLogging.h"

#include <log4cxx/logmanager.h>
#include <log4cxx/mdc.h>
#include <log4cxx/spi/loggerrepository.h>
#include <log4cxx/xml/domconfigurator.h>

#include <memory>
#include <string>
#include <variant>

namespace
{
constexpr wchar_t c_szThreadNameKey[] = L"threadName";

void PutThreadName(const std::wstring& name)
{
    log4cxx::MDC::put(c_szThreadNameKey, name);
}

bool ReadConfiguration(const wchar_t* pszConfigurationPath) noexcept
{
    try
    {
        return log4cxx::xml::DOMConfigurator::configure(std::wstring(pszConfigurationPath)) ==
               log4cxx::spi::ConfigurationStatus::Configured;
    }
    catch (...)
    {
        return false;
    }
}

void TurnLoggingOff() noexcept
{
    try
    {
        log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
    }
    catch (...) // NOLINT(bugprone-empty-catch): a program without a log is still the program
    {
    }
}
} // namespace

struct TKLogBlock::Record
{
    log4cxx::LoggerPtr pLogger;
    std::variant<std::string, std::wstring> label;

    void Write(const char* pszWhat) const noexcept
    {
        if (const std::wstring* const pWide = std::get_if<std::wstring>(&label))
        {
            WriteLabel(*pWide, pszWhat);
        }
        else if (const std::string* const pNarrow = std::get_if<std::string>(&label))
        {
            WriteLabel(*pNarrow, pszWhat);
        }
    }

    template <typename Text>
    void WriteLabel(const Text& text, const char* pszWhat) const noexcept
    {
        TKLogMessage(pLogger, log4cxx::Level::getTrace(), TK_LOG_LOCATION_OF("TKLogBlock"),
                     [&](log4cxx::helpers::MessageBuffer& buffer) {
                         return buffer.extract_str(buffer << text << pszWhat);
                     });
    }

    template <typename Text>
    static Record* Open(Text pszLabel, const log4cxx::LoggerPtr& pLogger) noexcept
    {
        const CKeepLastError keepLastError;
        try
        {
            auto pRecord = std::make_unique<Record>(Record{pLogger, pszLabel});
            pRecord->Write(" entering.");
            return pRecord.release();
        }
        catch (...)
        {
            return nullptr;
        }
    }
};

TKLogBlock::Record* TKLogBlock::Enter(const wchar_t* pszLabel, const log4cxx::LoggerPtr& pLogger) noexcept
{
    return Record::Open(pszLabel, pLogger);
}

TKLogBlock::Record* TKLogBlock::Enter(const char* pszLabel, const log4cxx::LoggerPtr& pLogger) noexcept
{
    return Record::Open(pszLabel, pLogger);
}

void TKLogBlock::Exit(Record* pRecord) noexcept
{
    const CKeepLastError keepLastError;
    const std::unique_ptr<Record> pOwned(pRecord);
    pOwned->Write(" exiting.");
}

const log4cxx::LoggerPtr& TKGetLogger(const char* pszName)
{
    // An unconfigured log4cxx looks for files of its default names as soon as the first logger is asked for.
    static const bool s_bConfiguredByUsAlone = [] {
        log4cxx::LogManager::getLoggerRepository()->setConfigured(true);
        return true;
    }();
    static_cast<void>(s_bConfiguredByUsAlone);
    return *new log4cxx::LoggerPtr(log4cxx::Logger::getLogger(pszName));
}

bool ConfigureLogging(const wchar_t* pszConfigurationPath) noexcept
{
    const CKeepLastError keepLastError;
    if (ReadConfiguration(pszConfigurationPath))
    {
        return true;
    }
    TurnLoggingOff();
    return false;
}

void SetThreadLogName(const wchar_t* pszName) noexcept
{
    try
    {
        PutThreadName(std::wstring(pszName) + L"@" + std::to_wstring(GetCurrentThreadId()));
    }
    catch (...) // NOLINT(bugprone-empty-catch): the lines go without the name
    {
    }
}

void SetMainThreadLogName() noexcept
{
    try
    {
        PutThreadName(L"main");
    }
    catch (...) // NOLINT(bugprone-empty-catch): the lines go without the name
    {
    }
}
