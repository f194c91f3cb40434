#include "tests/support/ProgramDataFolder.h"

#include <winsock2.h>
#include <windows.h>

#include <system_error>

namespace
{
constexpr wchar_t VARIABLE[] = L"PROGRAMDATA";
} // namespace

ProgramDataFolder::ProgramDataFolder()
    : m_folder(std::filesystem::temp_directory_path() /
               (L"tkdast-data-" + std::to_wstring(GetCurrentProcessId())))
{
    wchar_t szPrevious[MAX_PATH] = {};
    GetEnvironmentVariableW(VARIABLE, szPrevious, MAX_PATH);
    m_previous = szPrevious;
    std::filesystem::create_directories(m_folder);
    SetEnvironmentVariableW(VARIABLE, std::filesystem::path(m_folder).make_preferred().c_str());
}

ProgramDataFolder::~ProgramDataFolder()
{
    SetEnvironmentVariableW(VARIABLE, m_previous.empty() ? nullptr : m_previous.c_str());
    std::error_code error;
    std::filesystem::remove_all(m_folder, error);
}
