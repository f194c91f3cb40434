#include "tests/soak/InProcessAgent.h"

#include "Include/TKLogging.h"
#include "tests/soak/HeapCount.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ObjectCounts.h"

namespace
{
// The program that plays the service is in the same process.
constexpr double MOST_MEMORY = 1.02;
constexpr double MOST_HANDLES = 1.05;
constexpr double BYTES_A_KIB = 1024;
constexpr DWORD SETTLING_MS = 200;

decltype(&Sleep) g_pfnSleep = nullptr;
} // namespace

InProcessAgent::InProcessAgent(DWORD dwLoadFlags)
    : m_bLogging(ConfigureLogging((StageFolder() / L"TKDAST.Logging.xml").c_str())),
      m_hResources(LoadLibraryExW((StageFolder() / L"TKDASTRES.dll").c_str(), nullptr, dwLoadFlags)),
      m_pModuleFolder(AddDllDirectory(StageFolder().c_str())),
      // Its manifest names the controls that the agent's own does.
      m_hChat(LoadLibraryW((StageFolder() / L"TKDAChat.dll").c_str())), m_controls(m_hChat.get())
{
    g_pfnSleep = m_sleep.Original();
}

InProcessAgent::~InProcessAgent()
{
    RemoveDllDirectory(m_pModuleFolder);
}

void WINAPI InProcessAgent::ShortSleep(DWORD dwMilliseconds)
{
    g_pfnSleep(dwMilliseconds != 0 ? 1 : 0);
}

ProcessSeries::ProcessSeries(const std::string& name, Bound memoryBound)
    : m_process(UnixProcess::FindByName("soak.exe")),
      m_heaps(name + ": blocks on the heaps", "KiB", memoryBound, MOST_MEMORY),
      m_leftovers(name + ": left by Wine's controls", "KiB", Bound::None, 0),
      m_memory(name + ": private memory without these", "KiB", memoryBound, MOST_MEMORY),
      m_handles(name + ": handles", "handles", Bound::RatioAtMost, MOST_HANDLES),
      m_threads(name + ": threads", "threads", Bound::NoMoreThanReference, 0),
      m_gdiObjects(name + ": GDI objects", "objects", Bound::NoMoreThanReference, 0),
      m_windows(name + ": windows", "windows", Bound::NoMoreThanReference, 0),
      m_menus(name + ": menus", "menus", Bound::NoMoreThanReference, 0),
      m_icons(name + ": icons and cursors", "icons", Bound::NoMoreThanReference, 0)
{
}

void ProcessSeries::Sample()
{
    // Not Sleep, which is cut short here.
    SleepEx(SETTLING_MS, FALSE);
    const HEAP_COUNT heaps = CountHeaps();
    const double dLeftovers = static_cast<double>(heaps.nLeftovers) / BYTES_A_KIB;
    m_heaps.Add(static_cast<double>(heaps.nBytes) / BYTES_A_KIB);
    m_leftovers.Add(dLeftovers);
    const ObjectCounts counts = CountObjects();
    m_handles.Add(counts.dwHandles);
    m_threads.Add(counts.dwThreads);
    m_gdiObjects.Add(counts.dwGdiObjects);
    m_windows.Add(counts.dwWindows);
    m_menus.Add(counts.dwMenus);
    m_icons.Add(counts.dwIcons);
    if (m_process)
    {
        m_memory.Add(static_cast<double>(m_process->PrivateKiB()) - dLeftovers);
    }
}

void ProcessSeries::Tell(Report& report)
{
    FlatSeries* const apSeries[] = {&m_heaps,      &m_leftovers, &m_memory, &m_handles, &m_threads,
                                    &m_gdiObjects, &m_windows,   &m_menus,  &m_icons};
    for (FlatSeries* const pSeries : apSeries)
    {
        pSeries->Tell(report);
    }
}
