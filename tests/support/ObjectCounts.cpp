#include "tests/support/ObjectCounts.h"

#include "Include/Handles.h"

#include <tlhelp32.h>

#include <ostream>

namespace
{
// A handle's low word is its place in a table. With nothing above it the system takes it for whatever is
// there now.
constexpr ULONG_PTR PLACES = 0x10000;
constexpr ULONG_PTR KERNEL_STEP = 4;
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

bool IsOpenHandle(HANDLE hObject)
{
    DWORD dwFlags = 0;
    return GetHandleInformation(hObject, &dwFlags) != FALSE;
}

bool IsOwnWindow(HWND hWnd)
{
    DWORD dwProcessId = 0;
    return IsWindow(hWnd) && GetWindowThreadProcessId(hWnd, &dwProcessId) != 0 &&
           dwProcessId == GetCurrentProcessId();
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
    counts.dwHandles = CountPlaces<HANDLE>(KERNEL_STEP, IsOpenHandle);
    counts.dwThreads = CountThreads();
    counts.dwGdiObjects =
        CountPlaces<HGDIOBJ>(GDI_STEP, [](HGDIOBJ hObject) { return GetObjectType(hObject) != 0; });
    counts.dwWindows = CountPlaces<HWND>(USER_STEP, IsOwnWindow);
    counts.dwMenus = CountPlaces<HMENU>(USER_STEP, [](HMENU hMenu) { return IsMenu(hMenu) != FALSE; });
    counts.dwIcons = CountPlaces<HICON>(USER_STEP, IsIcon);
    return counts;
}
