#include "Include/Handles.h"
#include "Include/TKLogging.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <log4cxx/logmanager.h>
#include <log4cxx/mdc.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace
{
constexpr char LOGGER_NAME[] = "TKLoggingTests";
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger(LOGGER_NAME);

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

void WriteLine()
{
    TK_LOG_INFO(g_pLogger, "x");
}

std::string ThrowingText()
{
    throw std::runtime_error("no text");
}

int g_nRefusedWrites;

BOOL WINAPI RefuseWrite(HANDLE, const void*, DWORD, DWORD* pcbWritten, OVERLAPPED*)
{
    ++g_nRefusedWrites;
    if (pcbWritten != nullptr)
    {
        *pcbWritten = 0;
    }
    SetLastError(ERROR_DISK_FULL);
    return FALSE;
}

// A folder of the test's own, gone afterwards.
class TemporaryFolder
{
  public:
    TemporaryFolder()
    {
        wchar_t szTemp[MAX_PATH] = {};
        wchar_t szName[MAX_PATH] = {};
        GetTempPathW(MAX_PATH, szTemp);
        GetTempFileNameW(szTemp, L"log", 0, szName);
        DeleteFileW(szName);
        m_path = std::filesystem::path(szName);
        std::filesystem::create_directories(m_path);
    }
    ~TemporaryFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    std::filesystem::path Write(const wchar_t* pszName, const std::string& text) const
    {
        std::filesystem::path path = m_path / pszName;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

  private:
    std::filesystem::path m_path;
};

// Configurations are in force for the whole process, so each test leaves none behind.
class LogConfiguration : public testing::Test
{
  public:
    LogConfiguration()
    {
        GetEnvironmentVariableW(L"LOCALAPPDATA", m_szLocalAppData, MAX_PATH);
        SetEnvironmentVariableW(L"LOCALAPPDATA", m_folder.Path().c_str());
    }
    ~LogConfiguration() override
    {
        log4cxx::LogManager::resetConfiguration();
        log4cxx::MDC::clear();
        SetEnvironmentVariableW(L"LOCALAPPDATA", m_szLocalAppData);
    }

  protected:
    std::filesystem::path DefaultLogFile() const
    {
        return m_folder.Path() / "Tessaran Development" / "Kestrel Desk Assist" / "TKDAST.log";
    }

    static std::filesystem::path DefaultConfiguration()
    {
        return std::filesystem::path(TKDAST_STAGE_DIR) / "TKDAST.Logging.xml";
    }

    static std::string ReadAll(const std::filesystem::path& path)
    {
        std::stringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    TemporaryFolder m_folder;

  private:
    wchar_t m_szLocalAppData[MAX_PATH] = {};
};
} // namespace

TEST(TKLogBlock, TracesTheBeginningAndTheEndOfItsScope)
{
    const LogCapture capture(LOGGER_NAME);
    {
        const TKLogBlock block(L"Wide", g_pLogger);
        TK_LOG_INFO(g_pLogger, "between");
    }
    EXPECT_THAT(capture.Texts(), ElementsAre("TRACE Wide entering.", "INFO between", "TRACE Wide exiting."));
}

TEST(TKLogBlock, TakesANarrowLabel)
{
    const LogCapture capture(LOGGER_NAME);
    {
        const TKLogBlock block("Narrow", g_pLogger);
    }
    EXPECT_THAT(capture.Texts(), ElementsAre("TRACE Narrow entering.", "TRACE Narrow exiting."));
}

TEST(TKLogBlock, WritesUnderItsOwnLocationAndNotItsUsers)
{
    const LogCapture capture(LOGGER_NAME);
    {
        const TKLogBlock block(L"Label", g_pLogger);
    }
    ASSERT_EQ(capture.Lines().size(), 2u);
    for (const LogLine& line : capture.Lines())
    {
        EXPECT_EQ(line.function, "TKLogBlock");
        EXPECT_EQ(line.file, "TKLogging.cpp");
    }
}

TEST(TKLogBlock, WithTraceOffNeitherWritesNorReadsItsLabel)
{
    const LogCapture capture(LOGGER_NAME, log4cxx::Level::getDebug());
    {
        const TKLogBlock block(reinterpret_cast<const wchar_t*>(static_cast<ULONG_PTR>(1)), g_pLogger);
    }
    EXPECT_THAT(capture.Lines(), IsEmpty());
}

TEST(TKLogBlock, ExitLineComesOnlyAfterAnEntryLine)
{
    const LogCapture capture(LOGGER_NAME, log4cxx::Level::getInfo());
    {
        const TKLogBlock block(L"Silent", g_pLogger);
        g_pLogger->setLevel(log4cxx::Level::getTrace());
    }
    EXPECT_THAT(capture.Lines(), IsEmpty());
    {
        const TKLogBlock block(L"Loud", g_pLogger);
        g_pLogger->setLevel(log4cxx::Level::getInfo());
    }
    EXPECT_THAT(capture.Texts(), ElementsAre("TRACE Loud entering.", "TRACE Loud exiting."));
}

TEST(TKLogBlock, LabelMayChangeDuringTheScope)
{
    const LogCapture capture(LOGGER_NAME);
    wchar_t szLabel[] = L"First";
    {
        const TKLogBlock block(szLabel, g_pLogger);
        szLabel[0] = L'X';
    }
    EXPECT_THAT(capture.Texts(), ElementsAre("TRACE First entering.", "TRACE First exiting."));
}

TEST(TKLogBlock, KeepsTheLastError)
{
    const LogCapture capture(LOGGER_NAME);
    SetLastError(4711);
    {
        const TKLogBlock block(L"Label", g_pLogger);
        EXPECT_EQ(GetLastError(), 4711u);
        SetLastError(4712);
    }
    EXPECT_EQ(GetLastError(), 4712u);
}

TEST(TKLogging, EachMacroWritesAtItsLevelWithTheCallersName)
{
    const LogCapture capture(LOGGER_NAME);
    TK_LOG_TRACE(g_pLogger, L"a" << 1);
    TK_LOG_DEBUG(g_pLogger, L"b" << 2u << L"\u00E4\u6F22");
    TK_LOG_INFO(g_pLogger, "c" << 3.5);
    TK_LOG_WARN(g_pLogger, "d" << true);
    TK_LOG_ERROR(g_pLogger, L"e" << std::wstring(L"text"));
    EXPECT_THAT(capture.Texts(), ElementsAre("TRACE a1", "DEBUG b2\xC3\xA4\xE6\xBC\xA2", "INFO c3.5",
                                             "WARN d1", "ERROR etext"));
    EXPECT_EQ(capture.Lines().front().function, "TestBody");
    EXPECT_EQ(capture.Lines().front().file, "TKLoggingTests.cpp");
}

TEST(TKLogging, MessageOfADisabledLevelIsNotComposed)
{
    const LogCapture capture(LOGGER_NAME, log4cxx::Level::getWarn());
    int nEvaluated = 0;
    TK_LOG_INFO(g_pLogger, "x" << ++nEvaluated);
    EXPECT_EQ(nEvaluated, 0);
    TK_LOG_WARN(g_pLogger, "x" << ++nEvaluated);
    EXPECT_EQ(nEvaluated, 1);
}

TEST(TKLogging, FailingMessageCostsTheLineAndNotTheCaller)
{
    const LogCapture capture(LOGGER_NAME);
    EXPECT_NO_THROW(TK_LOG_INFO(g_pLogger, "x" << ThrowingText()));
    EXPECT_THAT(capture.Lines(), IsEmpty());
}

TEST(TKLogging, NullTextAndHalfACharacterAreWrittenAsSomething)
{
    const LogCapture capture(LOGGER_NAME);
    const wchar_t* const pszNone = nullptr;
    const wchar_t szHalf[] = {0xD800, L'y', 0};
    TK_LOG_INFO(g_pLogger, L"x" << pszNone << szHalf << L"z");
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_THAT(capture.Lines().front().message, testing::MatchesRegex("xnull.*yz"));
}

TEST(TKLogging, MessageKeepsTheLastError)
{
    const LogCapture capture(LOGGER_NAME);
    SetLastError(4711);
    TK_LOG_INFO(g_pLogger, "x" << 1);
    EXPECT_EQ(GetLastError(), 4711u);
}

TEST(TKLogging, ThreadsCarryTheirNameAndIdInTheirLines)
{
    const LogCapture capture(LOGGER_NAME);
    DWORD dwThreadId = 0;
    std::thread([&dwThreadId] {
        dwThreadId = GetCurrentThreadId();
        SetThreadLogName(L"ConnectionInfo");
        WriteLine();
    }).join();
    std::thread([] {
        SetMainThreadLogName();
        WriteLine();
    }).join();
    ASSERT_EQ(capture.Lines().size(), 2u);
    EXPECT_EQ(capture.Lines()[0].threadName, "ConnectionInfo@" + std::to_string(dwThreadId));
    EXPECT_EQ(capture.Lines()[1].threadName, "main");
}

TEST_F(LogConfiguration, DefaultOneWritesWholeLinesIntoTheUsersFolder)
{
    ASSERT_TRUE(ConfigureLogging(DefaultConfiguration().c_str()));
    SetMainThreadLogName();
    TK_LOG_DEBUG(g_pLogger, "too much");
    TK_LOG_INFO(g_pLogger, L"hello \u00E4\u6F22");
    log4cxx::LogManager::resetConfiguration();
    EXPECT_THAT(ReadAll(DefaultLogFile()),
                testing::MatchesRegex(
                    "\\d+-\\d+-\\d+ \\d+:\\d+:\\d+,\\d+ INFO  .main. TKLoggingTests TestBody - hello "
                    "\xC3\xA4\xE6\xBC\xA2\r?\n"));
}

TEST_F(LogConfiguration, DefaultOneKeepsTheLogFromGrowingForEver)
{
    ASSERT_TRUE(ConfigureLogging(DefaultConfiguration().c_str()));
    const std::string filling(64 * 1024, 'x');
    for (int nLine = 0; nLine < 200; ++nLine)
    {
        TK_LOG_INFO(g_pLogger, filling);
    }
    log4cxx::LogManager::resetConfiguration();
    uintmax_t cbAll = 0;
    for (const auto& file : std::filesystem::directory_iterator(DefaultLogFile().parent_path()))
    {
        cbAll += file.file_size();
    }
    EXPECT_GT(cbAll, 1024u * 1024u);
    EXPECT_LT(cbAll, 9u * 1024u * 1024u);
}

TEST_F(LogConfiguration, DefaultOneWorksUnderAFolderNameInAnyScript)
{
    const std::filesystem::path folder = m_folder.Path() / L"J\u00FCrgen \u6F22";
    SetEnvironmentVariableW(L"LOCALAPPDATA", folder.c_str());
    ASSERT_TRUE(ConfigureLogging(DefaultConfiguration().c_str()));
    TK_LOG_INFO(g_pLogger, "hello");
    log4cxx::LogManager::resetConfiguration();
    EXPECT_TRUE(
        std::filesystem::exists(folder / "Tessaran Development" / "Kestrel Desk Assist" / "TKDAST.log"));
}

TEST_F(LogConfiguration, MissingOneTurnsLoggingOff)
{
    SetLastError(4711);
    EXPECT_FALSE(ConfigureLogging((m_folder.Path() / "none.xml").c_str()));
    EXPECT_EQ(GetLastError(), 4711u);
    EXPECT_FALSE(g_pLogger->isErrorEnabled());
}

TEST_F(LogConfiguration, BrokenOneTurnsLoggingOff)
{
    for (const char* pszText :
         {"", "<log4j:configuration xmlns:log4j=\"x\"><appender", "\xFF\xFE\x00garbage"})
    {
        EXPECT_FALSE(ConfigureLogging(m_folder.Write(L"broken.xml", pszText).c_str())) << pszText;
        EXPECT_FALSE(g_pLogger->isErrorEnabled());
    }
}

TEST_F(LogConfiguration, AFailureOfTheReadingItselfTurnsLoggingOff)
{
    EXPECT_FALSE(ConfigureLogging(nullptr));
    EXPECT_FALSE(g_pLogger->isErrorEnabled());
}

TEST_F(LogConfiguration, WellFormedNonsenseDoesNoHarm)
{
    for (const char* pszText :
         {"<other/>",
          "<log4j:configuration xmlns:log4j=\"x\"><appender name=\"A\" class=\"NoSuch\"/><root><level "
          "value=\"loud\"/><appender-ref ref=\"A\"/><appender-ref ref=\"B\"/></root>"
          "</log4j:configuration>"})
    {
        ConfigureLogging(m_folder.Write(L"nonsense.xml", pszText).c_str());
        EXPECT_NO_THROW(TK_LOG_ERROR(g_pLogger, "x"));
    }
}

TEST_F(LogConfiguration, UnwritableFolderStopsNothing)
{
    const std::filesystem::path file = m_folder.Write(L"a file and no folder", "x");
    SetEnvironmentVariableW(L"LOCALAPPDATA", file.c_str());
    ConfigureLogging(DefaultConfiguration().c_str());
    EXPECT_NO_THROW(TK_LOG_ERROR(g_pLogger, "x"));
}

TEST_F(LogConfiguration, FullDiskStopsNothing)
{
    ASSERT_TRUE(ConfigureLogging(DefaultConfiguration().c_str()));
    TK_LOG_INFO(g_pLogger, "before");
    {
        const ImportHook hook("kernel32.dll", "WriteFile", &RefuseWrite);
        g_nRefusedWrites = 0;
        EXPECT_NO_THROW(TK_LOG_ERROR(g_pLogger, "lost"));
        EXPECT_GT(g_nRefusedWrites, 0);
    }
    TK_LOG_INFO(g_pLogger, "after");
    log4cxx::LogManager::resetConfiguration();
    const std::string text = ReadAll(DefaultLogFile());
    EXPECT_THAT(text, HasSubstr("before"));
    EXPECT_THAT(text, HasSubstr("after"));
}

TEST_F(LogConfiguration, StrayOneInTheCurrentDirectoryIsIgnored)
{
    m_folder.Write(L"log4cxx.xml",
                   "<log4j:configuration xmlns:log4j=\"x\"><appender name=\"A\" class=\"FileAppender\">"
                   "<param name=\"File\" value=\"stray.log\"/><layout class=\"SimpleLayout\"/>"
                   "</appender><root><appender-ref ref=\"A\"/></root></log4j:configuration>");
    wchar_t szProgram[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szProgram, MAX_PATH);
    wchar_t szCommandLine[] = L"unit_tests --gtest_list_tests --gtest_filter=none";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    ASSERT_TRUE(CreateProcessW(szProgram, szCommandLine, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                               m_folder.Path().c_str(), &startup, &process));
    const CKernelHandle hThread(process.hThread);
    const CKernelHandle hProcess(process.hProcess);
    EXPECT_EQ(WaitForSingleObject(hProcess.get(), 30000), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path() / "stray.log"));
}
