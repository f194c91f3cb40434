#include "tests/support/ObjectCounts.h"

#include "Include/Handles.h"
#include "tests/support/HandleCount.h"

#include <tlhelp32.h>

#include <ostream>

namespace
{
void CountIfOwn(HWND hWnd, DWORD& dwCount)
{
    DWORD dwProcessId = 0;
    GetWindowThreadProcessId(hWnd, &dwProcessId);
    dwCount += dwProcessId == GetCurrentProcessId() ? 1 : 0;
}

BOOL CALLBACK CountChild(HWND hWnd, LPARAM lCount)
{
    CountIfOwn(hWnd, *reinterpret_cast<DWORD*>(lCount));
    return TRUE;
}

BOOL CALLBACK CountWithChildren(HWND hWnd, LPARAM lCount)
{
    CountIfOwn(hWnd, *reinterpret_cast<DWORD*>(lCount));
    EnumChildWindows(hWnd, &CountChild, lCount);
    return TRUE;
}

DWORD CountWindows()
{
    DWORD dwCount = 0;
    const auto lCount = reinterpret_cast<LPARAM>(&dwCount);
    EnumWindows(&CountWithChildren, lCount);
    for (HWND hWnd = FindWindowExW(HWND_MESSAGE, nullptr, nullptr, nullptr); hWnd != nullptr;
         hWnd = FindWindowExW(HWND_MESSAGE, hWnd, nullptr, nullptr))
    {
        CountWithChildren(hWnd, lCount);
    }
    return dwCount;
}

// A handle's low word is its place in a table. With nothing above it the system takes it for whatever is
// there now.
constexpr ULONG_PTR PLACES = 0x10000;
constexpr ULONG_PTR USER_STEP = 2;
constexpr ULONG_PTR GDI_STEP = 1;

template <typename Handle, typename IsThere>
DWORD CountPlaces(ULONG_PTR uStep, IsThere isThere)
{
    DWORD dwCount = 0;
    for (ULONG_PTR uPlace = uStep; uPlace < PLACES; uPlace += uStep)
    {
        dwCount += isThere(reinterpret_cast<Handle>(uPlace)) ? 1 : 0;
    }
    return dwCount;
}

bool IsIcon(HICON hIcon)
{
    ICONINFO info = {};
    if (!GetIconInfo(hIcon, &info))
    {
        return false;
    }
    const CGdiObject hMask(info.hbmMask);
    const CGdiObject hColors(info.hbmColor);
    return true;
}

DWORD CountThreads()
{
    const CFileHandle hSnapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 thread = {};
    thread.dwSize = sizeof(thread);
    DWORD dwCount = 0;
    for (BOOL bThere = Thread32First(hSnapshot.get(), &thread); bThere;
         bThere = Thread32Next(hSnapshot.get(), &thread))
    {
        dwCount += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    return dwCount;
}
} // namespace

std::ostream& operator<<(std::ostream& stream, const ObjectCounts& counts)
{
    return stream << counts.dwHandles << " handles, " << counts.dwThreads << " threads, "
                  << counts.dwGdiObjects << " GDI objects, " << counts.dwWindows << " windows, "
                  << counts.dwMenus << " menus, " << counts.dwIcons << " icons";
}

ObjectCounts CountObjects()
{
    ObjectCounts counts;
    counts.dwHandles = static_cast<DWORD>(CountHandles(GetCurrentProcessId()));
    counts.dwThreads = CountThreads();
    counts.dwGdiObjects =
        CountPlaces<HGDIOBJ>(GDI_STEP, [](HGDIOBJ hObject) { return GetObjectType(hObject) != 0; });
    counts.dwWindows = CountWindows();
    counts.dwMenus = CountPlaces<HMENU>(USER_STEP, [](HMENU hMenu) { return IsMenu(hMenu) != FALSE; });
    counts.dwIcons = CountPlaces<HICON>(USER_STEP, IsIcon);
    return counts;
}

DWORD CountAllWindows()
{
    return CountPlaces<HWND>(USER_STEP, [](HWND hWnd) { return IsWindow(hWnd) != FALSE; });
}
