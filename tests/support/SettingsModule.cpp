#include "tests/support/SettingsModule.h"

#include "tests/support/AgentFolder.h"
#include "tests/support/StagedEntry.h"

LoadedSettingsModule::LoadedSettingsModule()
    : m_hModule(LoadLibraryW((StageFolder() / L"TKDASET.DLL").make_preferred().c_str())),
      m_pfnDialog(FindStagedEntry<DIALOG_FUNCTION>(m_hModule.get(), "TKDA_SettingsDialog")),
      m_pfnApplicationMode(
          FindStagedEntry<APPLICATION_MODE_FUNCTION>(m_hModule.get(), "TKDA_SetApplicationMode"))
{
}
