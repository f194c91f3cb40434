#pragma once

#include <filesystem>
#include <string>

/// A folder of the test's own in the place of %PROGRAMDATA%, for this program and those that it starts. It
/// goes with the object, and all in it.
class ProgramDataFolder
{
  public:
    ProgramDataFolder();
    ~ProgramDataFolder();
    ProgramDataFolder(const ProgramDataFolder&) = delete;
    ProgramDataFolder& operator=(const ProgramDataFolder&) = delete;

  private:
    const std::filesystem::path m_folder;
    std::wstring m_previous;
};
