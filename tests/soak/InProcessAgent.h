#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "bench/UnixProcess.h"
#include "modules/common/ModuleContext.h"
#include "tests/soak/FlatSeries.h"
#include "tests/support/ImportHook.h"
#include "tests/support/ShellTrayCatcher.h"

#include <optional>
#include <string>

/// What the agent's window needs in this process: its controls, its log as shipped, its language module and
/// its chat module, and a shell. Its pauses, which give threads time to end, are cut short.
class InProcessAgent
{
  public:
    /// dwLoadFlags: of LoadLibraryExW, for the language module.
    explicit InProcessAgent(DWORD dwLoadFlags);
    ~InProcessAgent();
    InProcessAgent(const InProcessAgent&) = delete;
    InProcessAgent& operator=(const InProcessAgent&) = delete;

    bool IsReady() const { return m_bLogging && m_hResources && m_controls.IsActive(); }
    HMODULE Resources() const { return m_hResources.get(); }
    /// The shell forgets what it was told.
    void ForgetIcons() { m_catcher.Forget(); }

  private:
    static void WINAPI ShortSleep(DWORD dwMilliseconds);

    ImportHook<decltype(ShortSleep)> m_sleep{"kernel32.dll", "Sleep", &ShortSleep};
    ShellTrayCatcher m_catcher;
    bool m_bLogging;
    CModule m_hResources;
    DLL_DIRECTORY_COOKIE m_pModuleFolder;
    CModule m_hChat;
    CModuleContext m_controls;
};

/// What this process holds.
class ProcessSeries
{
  public:
    /// The name stands in front of what is counted.
    ProcessSeries(const std::string& name, Bound memoryBound);

    void Sample();
    void Tell(Report& report);

  private:
    std::optional<UnixProcess> m_process;
    FlatSeries m_heaps;
    FlatSeries m_leftovers;
    FlatSeries m_memory;
    FlatSeries m_handles;
    FlatSeries m_threads;
    FlatSeries m_gdiObjects;
    FlatSeries m_windows;
    FlatSeries m_menus;
    FlatSeries m_icons;
};
