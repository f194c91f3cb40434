#include "devservice/ValueText.h"

#include <locale>
#include <limits>
#include <sstream>

namespace
{
constexpr unsigned int DECIMAL = 10;
constexpr unsigned int HEXADECIMAL = 16;

std::optional<unsigned int> DigitValue(wchar_t chDigit, unsigned int uBase)
{
    unsigned int uValue = uBase;
    if (chDigit >= L'0' && chDigit <= L'9')
    {
        uValue = chDigit - L'0';
    }
    else if (chDigit >= L'a' && chDigit <= L'f')
    {
        uValue = chDigit - L'a' + DECIMAL;
    }
    else if (chDigit >= L'A' && chDigit <= L'F')
    {
        uValue = chDigit - L'A' + DECIMAL;
    }
    if (uValue >= uBase)
    {
        return std::nullopt;
    }
    return uValue;
}

std::optional<ULONGLONG> ParseDigits(std::wstring_view text)
{
    unsigned int uBase = DECIMAL;
    if (text.starts_with(L"0x") || text.starts_with(L"0X"))
    {
        uBase = HEXADECIMAL;
        text.remove_prefix(2);
    }
    if (text.empty())
    {
        return std::nullopt;
    }
    ULONGLONG ullValue = 0;
    for (const wchar_t chDigit : text)
    {
        const std::optional<unsigned int> digit = DigitValue(chDigit, uBase);
        if (!digit || ullValue > (std::numeric_limits<ULONGLONG>::max() - *digit) / uBase)
        {
            return std::nullopt;
        }
        ullValue = ullValue * uBase + *digit;
    }
    return ullValue;
}

std::wstring EscapedCharacter(wchar_t ch)
{
    switch (ch)
    {
    case L'\n':
        return L"\\n";
    case L'\r':
        return L"\\r";
    case L'\t':
        return L"\\t";
    case L'"':
        return L"\\\"";
    case L'\\':
        return L"\\\\";
    default:
        break;
    }
    if (ch >= L' ')
    {
        return std::wstring(1, ch);
    }
    const BYTE abCode[] = {0, static_cast<BYTE>(ch)};
    return L"\\u" + HexText(abCode, L"");
}
} // namespace

std::optional<ULONGLONG> ParseQword(std::wstring_view text)
{
    const bool bNegative = text.starts_with(L'-');
    if (bNegative)
    {
        text.remove_prefix(1);
    }
    const std::optional<ULONGLONG> value = ParseDigits(text);
    if (!value || !bNegative)
    {
        return value;
    }
    return 0 - *value;
}

std::optional<DWORD> ParseDword(std::wstring_view text)
{
    const bool bNegative = text.starts_with(L'-');
    const std::optional<ULONGLONG> value = ParseDigits(bNegative ? text.substr(1) : text);
    constexpr ULONGLONG ullLowest = 0x80000000;
    if (!value || *value > (bNegative ? ullLowest : std::numeric_limits<DWORD>::max()))
    {
        return std::nullopt;
    }
    const DWORD dwValue = static_cast<DWORD>(*value);
    return bNegative ? 0 - dwValue : dwValue;
}

std::optional<unsigned short> ParsePort(std::wstring_view text)
{
    const std::optional<DWORD> value = ParseDword(text);
    if (!value || *value > std::numeric_limits<unsigned short>::max())
    {
        return std::nullopt;
    }
    return static_cast<unsigned short>(*value);
}

std::optional<double> ParseDouble(std::wstring_view text)
{
    std::wistringstream stream{std::wstring(text)};
    stream.imbue(std::locale::classic());
    double dblValue = 0;
    if (!(stream >> dblValue) || stream.peek() != std::wistringstream::traits_type::eof())
    {
        return std::nullopt;
    }
    return dblValue;
}

std::optional<std::vector<BYTE>> ParseHexBytes(std::wstring_view text)
{
    std::vector<BYTE> bytes;
    for (size_t n = 0; n < text.size(); ++n)
    {
        if (text[n] == L' ')
        {
            continue;
        }
        const std::optional<unsigned int> high = DigitValue(text[n], HEXADECIMAL);
        ++n;
        if (!high || n == text.size())
        {
            return std::nullopt;
        }
        const std::optional<unsigned int> low = DigitValue(text[n], HEXADECIMAL);
        if (!low)
        {
            return std::nullopt;
        }
        bytes.push_back(static_cast<BYTE>(*high * HEXADECIMAL + *low));
    }
    return bytes;
}

std::wstring HexText(std::span<const BYTE> bytes, std::wstring_view separator)
{
    constexpr std::wstring_view digits = L"0123456789ABCDEF";
    std::wstring text;
    text.reserve(bytes.size() * (2 + separator.size()));
    for (const BYTE bValue : bytes)
    {
        if (!text.empty())
        {
            text += separator;
        }
        text += digits[bValue / HEXADECIMAL];
        text += digits[bValue % HEXADECIMAL];
    }
    return text;
}

std::wstring HexDword(DWORD dwValue)
{
    const BYTE abValue[] = {static_cast<BYTE>(dwValue >> 24), static_cast<BYTE>(dwValue >> 16),
                            static_cast<BYTE>(dwValue >> 8), static_cast<BYTE>(dwValue)};
    return L"0x" + HexText(abValue, L"");
}

std::wstring QuotedText(std::wstring_view text, size_t cchMost)
{
    std::wstring quoted = L"\"";
    for (const wchar_t ch : text.substr(0, cchMost))
    {
        quoted += EscapedCharacter(ch);
    }
    quoted += L'"';
    if (text.size() > cchMost)
    {
        quoted += L"...(" + std::to_wstring(text.size()) + L" characters)";
    }
    return quoted;
}

bool EqualsNoCase(std::wstring_view left, std::wstring_view right)
{
    return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

std::string ToUtf8(std::wstring_view text)
{
    const int cch = static_cast<int>(text.size());
    const int cb = WideCharToMultiByte(CP_UTF8, 0, text.data(), cch, nullptr, 0, nullptr, nullptr);
    std::string utf8(cb, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), cch, utf8.data(), cb, nullptr, nullptr);
    return utf8;
}

std::wstring FromUtf8(std::string_view text)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(byteOrderMark))
    {
        text.remove_prefix(byteOrderMark.size());
    }
    const int cb = static_cast<int>(text.size());
    const int cch = MultiByteToWideChar(CP_UTF8, 0, text.data(), cb, nullptr, 0);
    std::wstring wide(cch, L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), cb, wide.data(), cch);
    return wide;
}
