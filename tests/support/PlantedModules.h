#pragma once

#include "tests/support/AgentProcess.h"
#include "tests/support/RegistryValue.h"
#include "tests/support/SharedRecord.h"
#include "tests/support/plantedmodule/PlantedTrace.h"

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

using ModuleNames = std::set<std::wstring>; // in small letters, with their extensions

/// Every module that a program or module names in whatever way: its imports, the names that it loads by, and
/// names without an extension behind the backslash of a folder. There may be names among them that nobody
/// loads.
ModuleNames ModulesNamedIn(const std::filesystem::path& image);

/// The modules of the system's folder.
ModuleNames ModulesOfSystem();

/// A current folder and a folder on the path, for agents to be started with, where somebody else has put
/// modules of names that agents may look for. Tells which of them have run while the object lives, in
/// whatever process; one that stays loaded stands for all that the same process loads after it. One object at
/// a time in one logon session.
class PlantedModules
{
  public:
    explicit PlantedModules(const AgentFolder& folder);

    const std::filesystem::path& CurrentFolder() const { return m_currentFolder; }
    const std::filesystem::path& PathFolder() const { return m_pathFolder; }
    /// An agent on that command line that stands in the one folder and has the other one on its path.
    AgentStart Start(const std::wstring& commandLine) const;
    /// Puts a module of each name into both folders.
    void Plant(const ModuleNames& names);
    /// The names of those that have been loaded, however often.
    ModuleNames Loaded() const;
    /// Their paths.
    std::vector<std::wstring> LoadedPaths() const;

  private:
    void PlantIn(const std::filesystem::path& folder, const std::wstring& name) const;

    std::filesystem::path m_module;
    std::filesystem::path m_currentFolder;
    std::filesystem::path m_pathFolder;
    std::vector<std::unique_ptr<RegistryValue>> m_preferences;
    SharedRecord<PLANTED_TRACE> m_trace;
};
