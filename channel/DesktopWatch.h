#pragma once

/// Reports the desktop's state to the service at every event on m_hDesktopEvent, and after an unlock brings
/// notice and icon up to date. pParameter is the CTaskBarWindow. Ends with the reader thread or with
/// g_hQuitEvent.
unsigned int __stdcall DesktopHaveChanged(void* pParameter);

/// Turns the system's desktop switches into m_hDesktopEvent, from the handshake on. pParameter and end as
/// above.
unsigned int __stdcall DesktopChange(void* pParameter);
