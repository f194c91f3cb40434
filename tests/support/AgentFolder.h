#pragma once

#include "tests/support/RegistryValue.h"

#include <filesystem>
#include <string>
#include <string_view>

#include <winsock2.h>
#include <windows.h>

/// A copy of the staged tree in a temporary folder of its own, with the session module beside the agent and
/// a log configuration that writes everything into the folder. Tests may break it as they like; it goes with
/// the object. The stage is taken from the environment variable TKDAST_STAGE, or from where the build put it.
class AgentFolder
{
  public:
    AgentFolder();
    ~AgentFolder();
    AgentFolder(const AgentFolder&) = delete;
    AgentFolder& operator=(const AgentFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    std::filesystem::path Program() const { return m_path / L"TKDAST.exe"; }
    std::filesystem::path LogConfiguration() const { return m_path / L"TKDAST.Logging.xml"; }

    /// Lets the next agents ask the system's own wtsapi32.dll, which knows little of sessions on the test
    /// system, so that they take a second for each look at the session.
    void UseSystemSessionModule() const;
    /// Makes the next agent log into that file, everything down to the level ("TRACE", "INFO", ...).
    void WriteLogConfiguration(const std::filesystem::path& logFile, const char* pszLevel) const;
    /// All that the agents of this folder have logged so far.
    std::string Log() const;
    size_t CountInLog(std::string_view text) const;
    /// True as soon as the log holds the text that often.
    bool WaitForLog(std::string_view text, DWORD dwTimeoutMs, size_t nTimes = 1) const;

  private:
    RegistryValue m_preferOwnModule;
    std::filesystem::path m_path;
};

/// Where the running test program lies.
std::filesystem::path TestProgramFolder();

/// Where the runnable tree lies that the tests copy or read.
std::filesystem::path StageFolder();

/// Writes a whole file; false when it couldn't be.
bool WriteFileText(const std::filesystem::path& file, std::string_view text);
