#pragma once

#include "Include/Handles.h"

#include <optional>
#include <string>
#include <string_view>

/*
 * Files and standard streams as text. All functions may run on any thread.
 */

/// A whole file's bytes, or empty if it can't be read; the last error then says why.
std::optional<std::string> ReadWholeFile(const std::wstring& path);

/// A new, empty file in place of an older one; others may read it meanwhile. Invalid on failure, with the
/// reason as the last error.
CFileHandle CreateOutputFile(const std::wstring& path);

/// Writes to a file or pipe. What can't be written is lost.
void WriteUtf8(HANDLE hOutput, std::wstring_view text);

/// Writes to a standard handle: wide to a real console, else as UTF-8. What can't be written is lost.
void WriteStandard(HANDLE hOutput, std::wstring_view text);

/// "WHAT: system's reason" for that system error, or its number where the system has no words.
std::wstring SystemErrorText(std::wstring_view what, DWORD dwError);
