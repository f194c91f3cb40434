#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

/// A text of the language module, of at most cchText characters, terminator included; empty when there is
/// none. Any thread.
std::wstring LoadResourceText(UINT uString, size_t cchText);

/// A text whose place-holders are filled in order, whatever letter they carry ("%s", "%u"); "%%" is a percent
/// sign. A place-holder without a value comes out empty. The values are never read as formats. Any thread.
std::wstring FillPlaceholders(std::wstring_view format, std::initializer_list<std::wstring_view> values);
