#pragma once

#include <winsock2.h>
#include <windows.h>

/// Gives up the rest of the time slice, sleeps, and gives up the slice once more, so that threads that became
/// ready meanwhile run first. Unit: milliseconds. Any thread; the windows of one that owns some stand still.
inline void PauseThread(DWORD dwMilliseconds) noexcept
{
    Sleep(0);
    Sleep(dwMilliseconds);
    Sleep(0);
}
