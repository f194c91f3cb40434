#pragma once

#include <winsock2.h>
#include <windows.h>

/// Whether the local service is installed. Rights that don't suffice to look at it don't count as its
/// absence. The last error is 0 afterwards. Any thread.
bool IsServiceInstalled();

/// Whether the local service runs. When it can't be told the last error says why; 1060 means that there is no
/// such service. Any thread.
bool IsServiceRunning();

/// Starts the local service and doesn't wait for it. Result: 0, or the error that kept it from starting,
/// which is also the last error. Any thread.
DWORD StartLocalTkkdaService();

/// Tells the administrator, in the user's language, why the service can't be reached: it isn't installed, it
/// doesn't run, or it refused with dwConnectError. Reader thread.
void ReportConnectFailure(DWORD dwConnectError);
