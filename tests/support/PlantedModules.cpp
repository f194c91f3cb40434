#include "tests/support/PlantedModules.h"

#include <algorithm>
#include <cwctype>
#include <fstream>
#include <iterator>
#include <string_view>

namespace
{
// A module of the system's that is found elsewhere counts for nothing to the test system's loader, which then
// takes its own of that name all the same. Only a module that is preferred to it is loaded at all.
constexpr wchar_t OVERRIDES_KEY[] = L"Software\\Wine\\AppDefaults\\TKDAST.exe\\DllOverrides";
constexpr wchar_t NATIVE_FIRST[] = L"native,builtin";
constexpr std::wstring_view MODULE_EXTENSION = L".dll";
constexpr std::wstring_view DRIVER_EXTENSION = L".drv";
constexpr size_t MIN_BARE_NAME = 5;

bool IsNameCharacter(wchar_t ch)
{
    return ch < 0x80 && (std::iswalnum(ch) || ch == L'.' || ch == L'_' || ch == L'-' || ch == L'\\');
}

/// The last part of a path, where it can be a module's.
void AddModuleName(std::wstring_view text, ModuleNames& names)
{
    const size_t nBackslash = text.rfind(L'\\');
    std::wstring name(nBackslash == std::wstring_view::npos ? text : text.substr(nBackslash + 1));
    std::transform(name.begin(), name.end(), name.begin(), std::towlower);
    const bool bExtension = name.find(L'.') != std::wstring::npos;
    if (name.size() > MODULE_EXTENSION.size() &&
        (name.ends_with(MODULE_EXTENSION) || name.ends_with(DRIVER_EXTENSION)))
    {
        names.insert(name);
    }
    else if (nBackslash == 0 && !bExtension && name.size() >= MIN_BARE_NAME)
    {
        names.insert(name.append(MODULE_EXTENSION)); // as the loader does
    }
}

template <typename Character>
void AddModuleNames(const std::string& image, ModuleNames& names)
{
    std::wstring text;
    for (size_t nAt = 0; nAt + sizeof(Character) <= image.size(); nAt += sizeof(Character))
    {
        Character ch = 0;
        image.copy(reinterpret_cast<char*>(&ch), sizeof(ch), nAt);
        if (IsNameCharacter(static_cast<wchar_t>(ch)))
        {
            text += static_cast<wchar_t>(ch);
        }
        else if (!text.empty())
        {
            AddModuleName(text, names);
            text.clear();
        }
    }
}

PLANTED_TRACE NothingLoaded()
{
    return {};
}
} // namespace

ModuleNames ModulesNamedIn(const std::filesystem::path& image)
{
    std::ifstream stream(image, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    ModuleNames names;
    AddModuleNames<unsigned char>(bytes, names);
    AddModuleNames<wchar_t>(bytes, names);
    return names;
}

ModuleNames ModulesOfSystem()
{
    wchar_t szSystem[MAX_PATH] = {};
    GetSystemDirectoryW(szSystem, MAX_PATH);
    ModuleNames names;
    for (const auto& entry : std::filesystem::directory_iterator(szSystem))
    {
        AddModuleName(entry.path().filename().wstring(), names);
    }
    return names;
}

PlantedModules::PlantedModules(const AgentFolder& folder)
    : m_module(TestProgramFolder() / L"testmodules" / L"planted.dll"),
      m_currentFolder(folder.Path() / L"current"), m_pathFolder(folder.Path() / L"on path"),
      m_trace(PLANTED_TRACE_NAME, NothingLoaded())
{
    std::filesystem::create_directory(m_currentFolder);
    std::filesystem::create_directory(m_pathFolder);
}

AgentStart PlantedModules::Start(const std::wstring& commandLine) const
{
    wchar_t szPath[4096] = {};
    GetEnvironmentVariableW(L"PATH", szPath, static_cast<DWORD>(std::size(szPath)));
    AgentStart start;
    start.commandLine = commandLine;
    start.environment = {{L"PATH", m_pathFolder.wstring() + L";" + szPath}};
    start.currentFolder = m_currentFolder;
    return start;
}

void PlantedModules::Plant(const ModuleNames& names)
{
    for (const std::wstring& name : names)
    {
        const size_t nSuffix = name.ends_with(MODULE_EXTENSION) ? MODULE_EXTENSION.size() : 0;
        m_preferences.push_back(std::make_unique<RegistryValue>(HKEY_CURRENT_USER, OVERRIDES_KEY,
                                                                name.substr(0, name.size() - nSuffix).c_str(),
                                                                std::wstring(NATIVE_FIRST)));
        PlantIn(m_currentFolder, name);
        PlantIn(m_pathFolder, name);
    }
}

ModuleNames PlantedModules::Loaded() const
{
    ModuleNames names;
    for (const std::wstring& path : LoadedPaths())
    {
        AddModuleName(path, names);
    }
    return names;
}

std::vector<std::wstring> PlantedModules::LoadedPaths() const
{
    const size_t nLoads = std::min<size_t>(static_cast<size_t>(m_trace->nLoads), MAX_PLANTED_LOADS);
    return std::vector<std::wstring>(std::begin(m_trace->aszPaths), std::begin(m_trace->aszPaths) + nLoads);
}

void PlantedModules::PlantIn(const std::filesystem::path& folder, const std::wstring& name) const
{
    // Names of one file, as there are hundreds of them. The loader takes them for one module.
    const std::filesystem::path first = folder.parent_path() / L"planted";
    std::filesystem::copy_file(m_module, first, std::filesystem::copy_options::skip_existing);
    std::filesystem::create_hard_link(first, folder / name);
}
