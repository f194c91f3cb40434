#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "bench/UnixProcess.h"
#include "tests/soak/FlatSeries.h"
#include "tests/support/ImportHook.h"
#include "tests/support/ShellTrayCatcher.h"

#include <optional>
#include <string>

/// The manifest of the staged agent, which gives the windows of this thread the controls that the agent's
/// have.
class StagedManifest
{
  public:
    StagedManifest();
    ~StagedManifest();
    StagedManifest(const StagedManifest&) = delete;
    StagedManifest& operator=(const StagedManifest&) = delete;

    bool IsActive() const { return m_bActive; }

  private:
    HANDLE m_hContext;
    ULONG_PTR m_uCookie = 0;
    bool m_bActive;
};

/// What the agent's window needs in this process: its manifest, its log as shipped, its language module and
/// its chat module, and a shell. Its pauses, which give threads time to end, are cut short.
class InProcessAgent
{
  public:
    /// dwLoadFlags: of LoadLibraryExW, for the language module.
    explicit InProcessAgent(DWORD dwLoadFlags);
    ~InProcessAgent();
    InProcessAgent(const InProcessAgent&) = delete;
    InProcessAgent& operator=(const InProcessAgent&) = delete;

    bool IsReady() const { return m_manifest.IsActive() && m_bLogging && m_hResources; }
    HMODULE Resources() const { return m_hResources.get(); }
    /// The shell forgets what it was told.
    void ForgetIcons() { m_catcher.Forget(); }

  private:
    static void WINAPI ShortSleep(DWORD dwMilliseconds);

    ImportHook<decltype(ShortSleep)> m_sleep{"kernel32.dll", "Sleep", &ShortSleep};
    ShellTrayCatcher m_catcher;
    StagedManifest m_manifest;
    bool m_bLogging;
    CModule m_hResources;
    DLL_DIRECTORY_COOKIE m_pModuleFolder;
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
    FlatSeries m_memory;
    FlatSeries m_heaps;
    FlatSeries m_leftovers;
    FlatSeries m_handles;
    FlatSeries m_threads;
    FlatSeries m_gdiObjects;
    FlatSeries m_windows;
    FlatSeries m_menus;
    FlatSeries m_icons;
};
