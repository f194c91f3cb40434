#pragma once

#include <winsock2.h>
#include <windows.h>

/// How long a test waits for something that is sure to come, in milliseconds, also on a machine that is busy
/// with much else. A wait ends as soon as it has come.
constexpr DWORD PATIENCE_MS = 30000;
