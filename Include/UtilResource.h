#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Placeholders.h"

#include <cstddef>
#include <string>

/// A text of the language module, of at most cchText characters, terminator included; empty when there is
/// none. Any thread.
std::wstring LoadResourceText(UINT uString, size_t cchText);
