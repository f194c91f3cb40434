#pragma once

#include <compare>
#include <iosfwd>

#include <winsock2.h>
#include <windows.h>

/// What this process holds of the system's objects.
struct ObjectCounts
{
    DWORD dwHandles = 0;
    DWORD dwThreads = 0;
    DWORD dwGdiObjects = 0;
    DWORD dwWindows = 0; // of this desktop, message-only windows included
    DWORD dwMenus = 0;
    DWORD dwIcons = 0; // and cursors, shared ones included

    auto operator<=>(const ObjectCounts&) const = default;
};

/// How many handles more than before are no leak of many rounds: a lock makes its handle when two threads
/// first meet at it, which may be in any round, but once only.
constexpr DWORD HANDLES_OF_LOCKS = 4;

std::ostream& operator<<(std::ostream& stream, const ObjectCounts& counts);

/// Counts by asking for all handles and windows there are, and by looking at every GDI object, menu and icon
/// that could be, since the test system's own counts of them are always zero. Other threads should rest
/// meanwhile.
ObjectCounts CountObjects();

/// The windows of all processes, message-only ones included.
DWORD CountAllWindows();
