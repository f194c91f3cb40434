#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Placeholders.h"

#include <cstddef>
#include <string>

/// A text of the language module, cut to cchText characters, terminator included, which is at least 1; empty
/// when there is none. Any thread.
std::wstring LoadResourceText(UINT uString, size_t cchText);

/// Takes the language that is stored in g_ProfileReg: g_hResourceModule is then its module, or the program
/// itself when none can be loaded. One thread at a time, while any may read texts.
void ReloadLanguageModule();
