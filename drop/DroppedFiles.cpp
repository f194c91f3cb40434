#include "drop/DroppedFiles.h"

#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "Include/SystemCall.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

#include <shlobj.h>

namespace
{
constexpr UINT ALL_FILES = 0xFFFFFFFF; // asks for their number
constexpr WORD NO_COUNT = 0xFFFF;
constexpr DWORD NETWORK_BUFFER = MAX_DROPPED_TEXT * sizeof(wchar_t); // bytes
constexpr int CLIPBOARD_TRIES = 101;
constexpr DWORD CLIPBOARD_PAUSE = 5; // milliseconds
constexpr wchar_t NETWORK_MODULE[] = L"mpr.dll";
constexpr wchar_t ENTRY_SEPARATOR = L'|';
constexpr UINT DROPPED_BLOCK_FLAGS = GMEM_DDESHARE | GMEM_ZEROINIT;
static_assert(DROPPED_BLOCK_FLAGS == 0x2040);
static_assert(sizeof(DROPFILES) == 20);
// Bytes: another program may have forgotten the end, or have cut its last letter in two.
constexpr SIZE_T LIST_END = 3 * sizeof(wchar_t);
constexpr SIZE_T DROPPED_BLOCK_EXTRA = sizeof(DROPFILES) + sizeof(wchar_t); // bytes: header, end of the list

// What the network answers with: a structure, and the texts that it points to.
struct NETWORK_ANSWER
{
    alignas(void*) std::byte abBuffer[NETWORK_BUFFER] = {};
    DWORD cbBuffer = NETWORK_BUFFER;
};

bool IsOnNetworkDrive(const std::wstring& path)
{
    return path.size() >= 2 && path[1] == L':' &&
           GetDriveTypeW((path.substr(0, 2) + L'\\').c_str()) == DRIVE_REMOTE;
}

std::wstring CutToEntry(std::wstring text)
{
    text.resize(std::min(text.size(), MAX_DROPPED_TEXT - 1));
    return text;
}

std::wstring ComposeMappedEntry(const std::wstring& path)
{
    const CSystemCall<decltype(&WNetGetUniversalNameW)> getName(NETWORK_MODULE, "WNetGetUniversalNameW");
    NETWORK_ANSWER answer;
    if (!getName || getName(path.c_str(), static_cast<DWORD>(REMOTE_NAME_INFO_LEVEL), answer.abBuffer,
                            &answer.cbBuffer) != NO_ERROR)
    {
        return path;
    }
    const auto& info = *reinterpret_cast<const REMOTE_NAME_INFOW*>(answer.abBuffer);
    return info.lpUniversalName != nullptr && info.lpConnectionName != nullptr
               ? std::wstring(info.lpUniversalName) + ENTRY_SEPARATOR + info.lpConnectionName
               : path;
}

std::wstring ComposeUncEntry(const std::wstring& path)
{
    const CSystemCall<decltype(&WNetGetResourceInformationW)> getResource(NETWORK_MODULE,
                                                                          "WNetGetResourceInformationW");
    std::wstring remoteName = path; // the structure takes no constant
    NETRESOURCEW asked = {};
    asked.dwType = RESOURCETYPE_DISK;
    asked.lpRemoteName = remoteName.data();
    NETWORK_ANSWER answer;
    LPWSTR pszBelowResource = nullptr;
    if (!getResource || getResource(&asked, answer.abBuffer, &answer.cbBuffer, &pszBelowResource) != NO_ERROR)
    {
        return path;
    }
    const auto& found = *reinterpret_cast<const NETRESOURCEW*>(answer.abBuffer);
    return found.lpRemoteName != nullptr ? path + ENTRY_SEPARATOR + found.lpRemoteName : path;
}

// False when none could be written.
bool WriteEntries(HDROP hDrop, WORD nFiles, const std::wstring& section, const std::wstring& file)
{
    UINT uNext = GetPrivateProfileIntW(section.c_str(), DROP_COUNTER_KEY, 0, file.c_str());
    const auto write = [&](const std::wstring& key, const std::wstring& value) {
        return WritePrivateProfileStringW(section.c_str(), key.c_str(), value.c_str(), file.c_str()) != FALSE;
    };
    bool bAnyWritten = false;
    for (UINT uFile = 0; uFile < nFiles; ++uFile)
    {
        const std::wstring path = ReadDroppedPath(hDrop, uFile);
        if (path.empty())
        {
            continue;
        }
        const std::wstring key = std::to_wstring(static_cast<int>(uNext++));
        bAnyWritten = write(key, ComposeDroppedEntry(path)) || bAnyWritten;
    }
    write(DROP_COUNTER_KEY, std::to_wstring(static_cast<int>(uNext)));
    return bAnyWritten;
}

// False when the service no longer waits.
bool TellService(const MSG_TRAYICON_SFT_DROP_CLIENT& client, HWND hWnd)
{
    const std::wstring eventName(FixedText(client.szDropEventName));
    CKernelHandle hEvent(OpenEventW(EVENT_MODIFY_STATE, FALSE, eventName.c_str()));
    if (!hEvent)
    {
        return false;
    }
    SetEvent(hEvent.get());
    hEvent.reset();
    PostMessageW(hWnd, WM_CLOSE, 0, 0);
    return true;
}

std::vector<std::wstring> ReadDroppedPaths(HDROP hDrop, WORD nFiles)
{
    std::vector<std::wstring> paths;
    for (UINT uFile = 0; uFile < nFiles; ++uFile)
    {
        std::wstring path = ReadDroppedPath(hDrop, uFile);
        if (!path.empty())
        {
            paths.push_back(std::move(path));
        }
    }
    return paths;
}

// Another program may have it for a moment, and more than one do when something has just been copied.
void OpenPatiently(std::optional<CClipboard>& clipboard)
{
    for (int nTry = 1; !clipboard.emplace(nullptr) && nTry < CLIPBOARD_TRIES; ++nTry)
    {
        Sleep(0);
        Sleep(CLIPBOARD_PAUSE);
    }
}

bool CopyBlock(CGlobalBlock hBlock, UINT uFormat)
{
    std::optional<CClipboard> clipboard;
    OpenPatiently(clipboard);
    return *clipboard && EmptyClipboard() && GiveToClipboard(uFormat, std::move(hBlock));
}
} // namespace

WORD CountDroppedFiles(HDROP hDrop)
{
    return static_cast<WORD>(DragQueryFileW(hDrop, ALL_FILES, nullptr, 0));
}

bool IsUsableCount(WORD nFiles)
{
    return nFiles != 0 && nFiles != NO_COUNT;
}

std::wstring ReadDroppedPath(HDROP hDrop, UINT uFile)
{
    wchar_t szPath[MAX_DROPPED_TEXT] = {};
    return DragQueryFileW(hDrop, uFile, szPath, static_cast<UINT>(std::size(szPath))) != 0
               ? std::wstring(FixedText(szPath))
               : std::wstring();
}

std::wstring ComposeDroppedEntry(const std::wstring& path)
{
    if (path.starts_with(L'\\'))
    {
        return CutToEntry(ComposeUncEntry(path));
    }
    return CutToEntry(IsOnNetworkDrive(path) ? ComposeMappedEntry(path) : path);
}

std::wstring DropDataSection(DWORD dwClientId)
{
    return std::to_wstring(static_cast<int>(dwClientId));
}

std::wstring DropDataFile()
{
    wchar_t szProgramData[MAX_PATH] = {};
    if (GetEnvironmentVariableW(L"PROGRAMDATA", szProgramData, MAX_PATH) >= MAX_PATH)
    {
        szProgramData[0] = L'\0';
    }
    return std::wstring(szProgramData) + L'\\' + DROP_DATA_FOLDER + L'\\' + DROP_DATA_FILE;
}

CGlobalBlock MakeDroppedBlock(const std::vector<std::wstring>& paths, WORD nFiles)
{
    CGlobalBlock hBlock(GlobalAlloc(DROPPED_BLOCK_FLAGS, nFiles * DROPPED_FILE_BYTES + DROPPED_BLOCK_EXTRA));
    BYTE* const pBlock = hBlock ? static_cast<BYTE*>(GlobalLock(hBlock.get())) : nullptr;
    if (pBlock == nullptr)
    {
        return CGlobalBlock();
    }
    // Not marked as wide, though the paths are: whoever reads this format knows it so.
    reinterpret_cast<DROPFILES*>(pBlock)->pFiles = sizeof(DROPFILES);
    wchar_t* pNext = reinterpret_cast<wchar_t*>(pBlock + sizeof(DROPFILES));
    SIZE_T cchLeft = nFiles * DROPPED_FILE_BYTES / sizeof(wchar_t); // without the end of the list
    bool bAny = false;
    for (const std::wstring& path : paths)
    {
        const SIZE_T cchPath = path.size() + 1;
        if (cchPath > cchLeft)
        {
            continue;
        }
        CopyText(pNext, cchPath, path);
        pNext += cchPath;
        cchLeft -= cchPath;
        bAny = true;
    }
    GlobalUnlock(hBlock.get());
    return bAny ? std::move(hBlock) : CGlobalBlock();
}

bool HandOverByFile(HDROP hDrop, const MSG_TRAYICON_SFT_DROP_CLIENT& client, HWND hWnd)
{
    const WORD nFiles = CountDroppedFiles(hDrop);
    const std::wstring section = DropDataSection(client.dwClientId);
    const std::wstring file = DropDataFile();
    if (!IsUsableCount(nFiles) || !WriteEntries(hDrop, nFiles, section, file))
    {
        return false;
    }
    if (!TellService(client, hWnd))
    {
        WritePrivateProfileStringW(section.c_str(), nullptr, nullptr, file.c_str());
    }
    return true;
}

void HandOverByClipboard(HDROP hDrop, const MSG_TRAYICON_SFT_DROP_CLIENT& client, HWND hWnd)
{
    const WORD nFiles = CountDroppedFiles(hDrop);
    if (!IsUsableCount(nFiles))
    {
        return;
    }
    const std::vector<std::wstring> paths = ReadDroppedPaths(hDrop, nFiles);
    if (paths.empty())
    {
        return;
    }
    const UINT uFormat = RegisterClipboardFormatW(DROP_CLIPBOARD_FORMAT);
    CGlobalBlock hBlock = uFormat != 0 ? MakeDroppedBlock(paths, nFiles) : CGlobalBlock();
    if (hBlock && CopyBlock(std::move(hBlock), uFormat))
    {
        TellService(client, hWnd);
    }
}

void HandOver(HDROP hDrop, const MSG_TRAYICON_SFT_DROP_CLIENT& client, HWND hWnd)
{
    if (!HandOverByFile(hDrop, client, hWnd))
    {
        HandOverByClipboard(hDrop, client, hWnd);
    }
}

// A copy: the clipboard must be free for the names.
CGlobalBlock ReadCopiedFiles(HWND hWnd)
{
    const CClipboard clipboard(hWnd);
    const HANDLE hFiles = clipboard ? GetClipboardData(CF_HDROP) : nullptr;
    const void* const pFiles = hFiles != nullptr ? GlobalLock(hFiles) : nullptr;
    if (pFiles == nullptr)
    {
        return CGlobalBlock();
    }
    const SIZE_T cbFiles = GlobalSize(hFiles);
    // Another program has made it: its names must begin within the block.
    const bool bWhole =
        cbFiles >= sizeof(DROPFILES) && static_cast<const DROPFILES*>(pFiles)->pFiles <= cbFiles;
    CGlobalBlock hCopy(bWhole ? GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, cbFiles + LIST_END) : nullptr);
    if (void* const pCopy = hCopy ? GlobalLock(hCopy.get()) : nullptr; pCopy != nullptr)
    {
        memcpy(pCopy, pFiles, cbFiles);
        GlobalUnlock(hCopy.get());
    }
    GlobalUnlock(hFiles);
    return hCopy;
}
