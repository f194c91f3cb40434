#include "devservice/DroppedNames.h"

#include "Include/Clipboard.h"
#include "devservice/TextFile.h"
#include "drop/DroppedFiles.h"

#include <shlobj.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{
constexpr UINT MOST_ENTRIES = 0x10000; // of one section: as many as drops can count
constexpr wchar_t BYTE_ORDER_MARK = 0xFEFF;

bool CreateUtf16File(const std::wstring& path)
{
    const CFileHandle hFile(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD cbWritten = 0;
    return hFile ? WriteFile(hFile.get(), &BYTE_ORDER_MARK, sizeof(BYTE_ORDER_MARK), &cbWritten, nullptr) !=
                       FALSE
                 : GetLastError() == ERROR_FILE_EXISTS;
}
} // namespace

bool PrepareDropDataFile()
{
    const std::wstring path = DropDataFile();
    const int nResult =
        SHCreateDirectoryExW(nullptr, path.substr(0, path.find_last_of(L'\\')).c_str(), nullptr);
    if (nResult != ERROR_SUCCESS && nResult != ERROR_ALREADY_EXISTS && nResult != ERROR_FILE_EXISTS)
    {
        SetLastError(static_cast<DWORD>(nResult));
        return false;
    }
    return CreateUtf16File(path);
}

std::vector<std::wstring> ReadDroppedEntries(DWORD dwClientId)
{
    const std::wstring path = DropDataFile();
    const std::wstring section = DropDataSection(dwClientId);
    const UINT uNext =
        std::min(GetPrivateProfileIntW(section.c_str(), DROP_COUNTER_KEY, 0, path.c_str()), MOST_ENTRIES);
    std::vector<std::wstring> entries;
    for (UINT uEntry = 0; uEntry < uNext; ++uEntry)
    {
        wchar_t szEntry[MAX_DROPPED_TEXT + 1] = {};
        GetPrivateProfileStringW(section.c_str(), std::to_wstring(uEntry).c_str(), L"", szEntry,
                                 static_cast<DWORD>(std::size(szEntry)), path.c_str());
        if (szEntry[0] != L'\0')
        {
            entries.emplace_back(szEntry);
        }
    }
    return entries;
}

void RemoveDroppedEntries(DWORD dwClientId)
{
    WritePrivateProfileStringW(DropDataSection(dwClientId).c_str(), nullptr, nullptr, DropDataFile().c_str());
}

std::optional<std::vector<std::wstring>> ParseDroppedBlock(std::span<const BYTE> block)
{
    DROPFILES head = {};
    if (block.size() < sizeof(head))
    {
        return std::nullopt;
    }
    memcpy(&head, block.data(), sizeof(head));
    if (head.pFiles < sizeof(head) || head.pFiles > block.size())
    {
        return std::nullopt;
    }
    const std::span<const BYTE> bytes = block.subspan(head.pFiles);
    std::wstring list(bytes.size() / sizeof(wchar_t), L'\0');
    memcpy(list.data(), bytes.data(), list.size() * sizeof(wchar_t));
    std::vector<std::wstring> paths;
    for (size_t nAt = 0; nAt < list.size();)
    {
        const size_t nEnd = list.find(L'\0', nAt);
        if (nEnd == std::wstring::npos)
        {
            return std::nullopt;
        }
        if (nEnd == nAt)
        {
            return paths;
        }
        paths.push_back(list.substr(nAt, nEnd - nAt));
        nAt = nEnd + 1;
    }
    return std::nullopt;
}

std::vector<std::wstring> ReadDroppedClipboard()
{
    const CClipboard clipboard(nullptr);
    const HANDLE hBlock =
        clipboard ? GetClipboardData(RegisterClipboardFormatW(DROP_CLIPBOARD_FORMAT)) : nullptr;
    const BYTE* const pBlock = hBlock != nullptr ? static_cast<const BYTE*>(GlobalLock(hBlock)) : nullptr;
    if (pBlock == nullptr)
    {
        return {};
    }
    const auto paths = ParseDroppedBlock({pBlock, GlobalSize(hBlock)});
    GlobalUnlock(hBlock);
    return paths.value_or(std::vector<std::wstring>());
}
