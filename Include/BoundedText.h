#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

/// Copies as much of the text as fits before a terminator into cchTo characters; what lies behind the
/// terminator stays as it was. The text may lie in the same buffer. Result: the characters copied, without
/// the terminator. Any thread.
inline size_t CopyText(wchar_t* pszTo, size_t cchTo, std::wstring_view text) noexcept
{
    if (cchTo == 0)
    {
        return 0;
    }
    const size_t cchCopied = std::min(text.size(), cchTo - 1);
    std::char_traits<wchar_t>::move(pszTo, text.data(), cchCopied);
    pszTo[cchCopied] = L'\0';
    return cchCopied;
}

/// CopyText into a whole field.
template <size_t N>
size_t CopyText(wchar_t (&szTo)[N], std::wstring_view text) noexcept
{
    return CopyText(szTo, N, text);
}

/// As CopyText, and clears the rest of the field: nothing of an earlier text goes over the wire. Any thread.
template <size_t N>
void ReplaceText(wchar_t (&szTo)[N], std::wstring_view text) noexcept
{
    std::fill(szTo + CopyText(szTo, text), szTo + N, L'\0');
}

/// The text of a fixed field: up to the first terminator or the field's end, whichever comes first. The view
/// lives as long as the field. Any thread.
inline std::wstring_view FixedText(const wchar_t* pField, size_t cchField) noexcept
{
    const std::wstring_view field(pField, cchField);
    return field.substr(0, field.find(L'\0'));
}

/// FixedText of a whole field.
template <size_t N>
std::wstring_view FixedText(const wchar_t (&szField)[N]) noexcept
{
    return FixedText(szField, N);
}
