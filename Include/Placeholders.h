#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

/// A text whose place-holders are filled in order, whatever letter they carry ("%s", "%u"); "%%" is a percent
/// sign. A place-holder without a value comes out empty. The values are never read as formats. Any thread.
std::wstring FillPlaceholders(std::wstring_view format, std::initializer_list<std::wstring_view> values);
