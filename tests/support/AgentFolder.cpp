#include "tests/support/AgentFolder.h"

#include "Include/Handles.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace
{
constexpr wchar_t SESSION_MODULE[] = L"wtsapi32.dll";
// Makes the test system's loader take the module beside the agent before its own.
constexpr wchar_t OVERRIDES_KEY[] = L"Software\\Wine\\AppDefaults\\TKDAST.exe\\DllOverrides";
constexpr wchar_t OVERRIDDEN_MODULE[] = L"wtsapi32";
constexpr wchar_t NATIVE_FIRST[] = L"native,builtin";
constexpr DWORD LOOK_AGAIN_MS = 200;
constexpr size_t MAX_VALUE_CHARACTERS = 1024;

[[noreturn]] void Fail(const char* pszReason, const std::filesystem::path& path)
{
    std::fprintf(stderr, "AgentFolder: %s: %ls\n", pszReason, path.c_str());
    std::fflush(stderr);
    std::abort();
}

std::filesystem::path NewTemporaryFolder()
{
    static LONG s_nFolders = 0;
    wchar_t szTemporary[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, szTemporary);
    std::filesystem::path folder =
        std::filesystem::path(szTemporary) / (L"tkdast-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                                              std::to_wstring(InterlockedIncrement(&s_nFolders)));
    std::error_code error;
    std::filesystem::remove_all(folder, error);
    if (!std::filesystem::create_directories(folder, error))
    {
        Fail("no temporary folder", folder);
    }
    return folder;
}

void CopyTree(const std::filesystem::path& from, const std::filesystem::path& to)
{
    std::error_code error;
    std::filesystem::copy(from, to, std::filesystem::copy_options::recursive, error);
    if (error)
    {
        Fail("can't copy", from);
    }
}

std::string ReadFileText(const std::filesystem::path& file)
{
    // Shared for everything: the agent may be writing it.
    const CFileHandle hFile(CreateFileW(file.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string text;
    if (!hFile)
    {
        return text;
    }
    char achPart[4096];
    DWORD dwRead = 0;
    while (ReadFile(hFile.get(), achPart, sizeof(achPart), &dwRead, nullptr) && dwRead > 0)
    {
        text.append(achPart, dwRead);
    }
    return text;
}
} // namespace

std::filesystem::path TestProgramFolder()
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    return std::filesystem::path(szPath).parent_path();
}

std::filesystem::path StageFolder()
{
    wchar_t szStage[MAX_VALUE_CHARACTERS] = {};
    const DWORD cch = GetEnvironmentVariableW(L"TKDAST_STAGE", szStage, MAX_VALUE_CHARACTERS);
    return std::filesystem::absolute(cch > 0 && cch < MAX_VALUE_CHARACTERS
                                         ? std::filesystem::path(szStage)
                                         : std::filesystem::path(TKDAST_STAGE_DIR));
}

bool WriteFileText(const std::filesystem::path& file, std::string_view text)
{
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    stream.close();
    return !stream.fail();
}

AgentFolder::AgentFolder()
    : m_preferOwnModule(HKEY_CURRENT_USER, OVERRIDES_KEY, OVERRIDDEN_MODULE, std::wstring(NATIVE_FIRST)),
      m_path(NewTemporaryFolder())
{
    CopyTree(StageFolder(), m_path);
    CopyTree(TestProgramFolder() / L"testmodules" / SESSION_MODULE, m_path / SESSION_MODULE);
    WriteLogConfiguration(m_path / L"agent.log", "TRACE");
}

AgentFolder::~AgentFolder()
{
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
}

void AgentFolder::UseSystemSessionModule() const
{
    std::filesystem::remove(m_path / SESSION_MODULE);
}

void AgentFolder::WriteLogConfiguration(const std::filesystem::path& logFile, const char* pszLevel) const
{
    const std::string text = R"(<?xml version="1.0" encoding="UTF-8" ?>
<configuration>
  <appender name="file" class="org.apache.log4j.FileAppender">
    <param name="File" value=")" +
                             logFile.generic_string() + R"("/>
    <param name="Append" value="true"/>
    <layout class="org.apache.log4j.PatternLayout">
      <param name="ConversionPattern" value="%p [%X{threadName}] %c %m%n"/>
    </layout>
  </appender>
  <root>
    <priority value=")" + pszLevel +
                             R"("/>
    <appender-ref ref="file"/>
  </root>
</configuration>
)";
    if (!WriteFileText(LogConfiguration(), text))
    {
        Fail("can't write", LogConfiguration());
    }
}

std::string AgentFolder::Log() const
{
    return ReadFileText(m_path / L"agent.log");
}

size_t AgentFolder::CountInLog(std::string_view text) const
{
    const std::string log = Log();
    size_t nTimes = 0;
    for (size_t nAt = log.find(text); nAt != std::string::npos; nAt = log.find(text, nAt + text.size()))
    {
        ++nTimes;
    }
    return nTimes;
}

bool AgentFolder::WaitForLog(std::string_view text, DWORD dwTimeoutMs, size_t nTimes) const
{
    const ULONGLONG qwEnd = GetTickCount64() + dwTimeoutMs;
    const HANDLE hChange = FindFirstChangeNotificationW(
        m_path.c_str(), FALSE, FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_SIZE);
    bool bFound = CountInLog(text) >= nTimes;
    while (!bFound && GetTickCount64() < qwEnd)
    {
        // A lost notification costs a moment, not the test.
        WaitForSingleObject(hChange, LOOK_AGAIN_MS);
        FindNextChangeNotification(hChange);
        bFound = CountInLog(text) >= nTimes;
    }
    FindCloseChangeNotification(hChange);
    return bFound;
}
