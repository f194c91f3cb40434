#pragma once

/// The reader thread: connects to the service, reads messages for the rest of its life and runs each one's
/// handler on its own stack. As it ends it posts WM_SERVICE_CHANNEL_LOST, unless the window is going already.
/// pParameter is the CTaskBarWindow. There is exactly one such thread per agent, and it is the only reader of
/// the main channel.
unsigned int __cdecl ConnectionInfo(void* pParameter);

/// Asks the service's query port for the port of the main channel. Returns 1 and sets *puiPort, or returns 0
/// and leaves it alone. Waits for an answer without a limit. Reader thread.
int GetPortNumberViaUDP(unsigned int* puiPort);
