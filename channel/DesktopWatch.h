#pragma once

/// Reports the desktop's state to the service at every event on m_hDesktopEvent, and after an unlock brings
/// notice and icon up to date. A thread of its own; pParameter is the CTaskBarWindow. Ends with the reader
/// thread or with g_hQuitEvent; the result means nothing.
unsigned int __stdcall DesktopHaveChanged(void* pParameter);

/// Turns the system's desktop switches into m_hDesktopEvent, from the handshake on. Thread, pParameter, end
/// and result as above.
unsigned int __stdcall DesktopChange(void* pParameter);
