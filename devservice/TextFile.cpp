#include "devservice/TextFile.h"

#include "devservice/ValueText.h"

#include <cwctype>

std::optional<std::string> ReadWholeFile(const std::wstring& path)
{
    const CFileHandle hFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!hFile)
    {
        return std::nullopt;
    }
    std::string contents;
    char achPart[4096];
    DWORD cbRead = 0;
    while (ReadFile(hFile.get(), achPart, sizeof(achPart), &cbRead, nullptr))
    {
        if (cbRead == 0)
        {
            return contents;
        }
        contents.append(achPart, cbRead);
    }
    return std::nullopt;
}

CFileHandle CreateOutputFile(const std::wstring& path)
{
    return CFileHandle(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
}

void WriteUtf8(HANDLE hOutput, std::wstring_view text)
{
    const std::string utf8 = ToUtf8(text);
    DWORD cbWritten = 0;
    WriteFile(hOutput, utf8.data(), static_cast<DWORD>(utf8.size()), &cbWritten, nullptr);
}

void WriteStandard(HANDLE hOutput, std::wstring_view text)
{
    DWORD dwMode = 0;
    if (!GetConsoleMode(hOutput, &dwMode))
    {
        WriteUtf8(hOutput, text);
        return;
    }
    DWORD cchWritten = 0;
    WriteConsoleW(hOutput, text.data(), static_cast<DWORD>(text.size()), &cchWritten, nullptr);
}

std::wstring SystemErrorText(std::wstring_view what, DWORD dwError)
{
    std::wstring text(what);
    text += L": ";
    CLocalText reason;
    constexpr DWORD dwFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    if (FormatMessageW(dwFlags, nullptr, dwError, 0, reinterpret_cast<wchar_t*>(reason.put()), 0, nullptr) ==
        0)
    {
        return text + L"error " + std::to_wstring(dwError);
    }
    text += reason.get();
    while (!text.empty() && iswspace(text.back()))
    {
        text.pop_back();
    }
    return text;
}
