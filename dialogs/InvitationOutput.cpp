#include "dialogs/InvitationOutput.h"

#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "Include/Handles.h"
#include "Include/SystemCall.h"
#include "Include/TKLogging.h"
#include "dialogs/DialogControls.h"
#include "resources/resource.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include <commdlg.h>
#include <knownfolders.h>
#include <shlobj.h>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("CreateInvitationDialog");

constexpr size_t MAX_INVITATION = 10240; // characters, terminator included
constexpr size_t MAX_NAME = 260;         // characters, terminator included
constexpr int MOST_NUMBERS = 20;
constexpr wchar_t DEFAULT_NAME[] = L"Invitation";
constexpr wchar_t FILE_EXTENSION[] = L".inv";
constexpr wchar_t FILE_FILTER[] = L"Invitation Files (*.inv)\0*.inv\0All Files (*.*)\0*.*\0";
constexpr wchar_t SAVE_TITLE[] = L"Save Invitation As";
constexpr wchar_t DEFAULT_EXTENSION[] = L"*.inv"; // as it has always been, though the shell wants it bare

// A list of one file for the clipboard: its end is an empty name.
struct DROPPED_FILE
{
    DROPFILES head;
    wchar_t szPath[MAX_PATH];
    wchar_t chEnd;
};
static_assert(sizeof(DROPFILES) == 20);
constexpr SIZE_T DROPPED_FILE_SIZE = 542; // bytes
static_assert(offsetof(DROPPED_FILE, chEnd) + sizeof(wchar_t) == DROPPED_FILE_SIZE);

std::wstring InvitationName(HWND hDlg)
{
    const std::wstring name = ReadControl(hDlg, IDC_INVITE_NAME, MAX_NAME);
    return name.empty() ? DEFAULT_NAME : name;
}

// Ends in a backslash; empty when there is none.
std::wstring TargetFolder()
{
    wchar_t szFolder[MAX_PATH] = {};
    if (GetFolderPath(szFolder, std::size(szFolder)) == 0 && GetTempPathW(MAX_PATH, szFolder) == 0)
    {
        return std::wstring();
    }
    std::wstring folder = szFolder;
    if (!folder.ends_with(L'\\'))
    {
        folder += L'\\';
    }
    return folder;
}

bool IsDeviceName(std::wstring_view fileName)
{
    static constexpr const wchar_t* s_apszDevices[] = {
        L"CON",  L"PRN",  L"AUX",  L"NUL",  L"COM1", L"COM2", L"COM3", L"COM4", L"COM5", L"COM6", L"COM7",
        L"COM8", L"COM9", L"LPT1", L"LPT2", L"LPT3", L"LPT4", L"LPT5", L"LPT6", L"LPT7", L"LPT8", L"LPT9"};
    std::wstring stem(fileName.substr(0, fileName.find(L'.')));
    stem.erase(stem.find_last_not_of(L' ') + 1);
    return std::any_of(std::begin(s_apszDevices), std::end(s_apszDevices),
                       [&stem](const wchar_t* pszDevice) { return lstrcmpiW(stem.c_str(), pszDevice) == 0; });
}

// A name that would lead out of its folder, into a stream of another file or to a device names no file.
bool IsFileName(std::wstring_view fileName)
{
    constexpr std::wstring_view NOT_IN_NAMES = L"<>:\"/\\|?*";
    return !IsDeviceName(fileName) && std::none_of(fileName.begin(), fileName.end(), [&](wchar_t ch) {
        return ch < L' ' || NOT_IN_NAMES.find(ch) != std::wstring_view::npos;
    });
}

CFileHandle CreateNewFile(const std::wstring& path)
{
    return CFileHandle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
}

// The first of the names that isn't taken; no file without one.
CFileHandle CreateNumberedFile(HWND hDlg, const std::wstring& folder, std::wstring& path)
{
    for (int nNumber = 0; nNumber <= MOST_NUMBERS; ++nNumber)
    {
        const std::wstring fileName = InvitationName(hDlg) +
                                      (nNumber == 0 ? std::wstring() : std::to_wstring(nNumber)) +
                                      FILE_EXTENSION;
        path = folder + fileName;
        if (!IsFileName(fileName) || path.size() >= MAX_PATH)
        {
            continue;
        }
        CFileHandle hFile = CreateNewFile(path);
        if (hFile)
        {
            return hFile;
        }
    }
    return CFileHandle();
}

// The text's units and nothing else. A file that can't hold them all goes away again, so that its name isn't
// taken by a piece of an invitation.
bool WriteInvitation(HWND hDlg, CFileHandle hFile, const std::wstring& path)
{
    const std::wstring text = ReadControl(hDlg, IDC_INVITE_TEXT, MAX_INVITATION);
    const DWORD cbText = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    DWORD cbWritten = 0;
    const bool bWritten =
        WriteFile(hFile.get(), text.data(), cbText, &cbWritten, nullptr) != FALSE && cbWritten == cbText;
    hFile.reset();
    if (!bWritten)
    {
        DeleteFileW(path.c_str());
    }
    return bWritten;
}

CGlobalBlock MakeDroppedFile(const std::wstring& path)
{
    CGlobalBlock hBlock(GlobalAlloc(GMEM_SHARE | GMEM_ZEROINIT, DROPPED_FILE_SIZE));
    auto* const pFile = hBlock ? static_cast<DROPPED_FILE*>(GlobalLock(hBlock.get())) : nullptr;
    if (pFile == nullptr)
    {
        return CGlobalBlock();
    }
    pFile->head.pFiles = offsetof(DROPPED_FILE, szPath);
    pFile->head.fWide = TRUE;
    CopyText(pFile->szPath, path);
    GlobalUnlock(hBlock.get());
    return hBlock;
}

// One byte for each character, as the service's text had; half a text is none.
bool FillWithAnsi(HGLOBAL hBlock, const std::wstring& text)
{
    char* const pAnsi = static_cast<char*>(GlobalLock(hBlock));
    if (pAnsi == nullptr)
    {
        return false;
    }
    const int cchText = static_cast<int>(text.size());
    const int cbAnsi = WideCharToMultiByte(CP_ACP, 0, text.data(), cchText, pAnsi, cchText, nullptr, nullptr);
    GlobalUnlock(hBlock);
    return cbAnsi > 0 || text.empty();
}
} // namespace

int CopyAsBlob(HWND hDlg)
{
    const TKLogBlock block(L"CopyAsBlob", g_pLogger);
    const std::wstring text = ReadControl(hDlg, IDC_INVITE_TEXT, MAX_INVITATION);
    CClipboard clipboard(hDlg);
    if (!clipboard || !EmptyClipboard())
    {
        return 0;
    }
    CGlobalBlock hText(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, text.size() + 2));
    if (!hText)
    {
        clipboard.LeaveOpen(); // ours until the next copy, so that nobody takes the emptied one for a copy
        return 0;
    }
    return FillWithAnsi(hText.get(), text) && GiveToClipboard(CF_TEXT, std::move(hText)) ? 1 : 0;
}

int CopyAsFile(HWND hDlg)
{
    const TKLogBlock block(L"CopyAsFile", g_pLogger);
    const std::wstring folder = TargetFolder();
    std::wstring path;
    CFileHandle hFile = folder.empty() ? CFileHandle() : CreateNumberedFile(hDlg, folder, path);
    if (!hFile || !WriteInvitation(hDlg, std::move(hFile), path))
    {
        return 0;
    }
    CGlobalBlock hList = MakeDroppedFile(path);
    if (!hList)
    {
        return 0;
    }
    const CClipboard clipboard(hDlg);
    return clipboard && EmptyClipboard() && GiveToClipboard(CF_HDROP, std::move(hList)) ? 1 : 0;
}

int SaveAsFile(HWND hDlg)
{
    const TKLogBlock block(L"SaveAsFile", g_pLogger);
    const std::wstring fileName = InvitationName(hDlg) + FILE_EXTENSION;
    wchar_t szPath[MAX_PATH] = {};
    const std::wstring folder = TargetFolder();
    CopyText(szPath, folder);
    DWORD dwFilterIndex = 0;
    if (folder.empty() || FileSaveAs(hDlg, fileName.c_str(), szPath, std::size(szPath), &dwFilterIndex) == 0)
    {
        return 0;
    }
    CFileHandle hFile = CreateNewFile(szPath);
    return hFile && WriteInvitation(hDlg, std::move(hFile), szPath) ? 1 : 0;
}

int FileSaveAs(HWND hDlg, const wchar_t* pszName, wchar_t* pszPath, size_t cchPath, DWORD* pFilterIndex)
{
    const TKLogBlock block(L"FileSaveAs", g_pLogger);
    const std::wstring folder = pszPath;
    CopyText(pszPath, cchPath, pszName);
    OPENFILENAMEW choice = {};
    choice.lStructSize = sizeof(choice);
    choice.hwndOwner = hDlg;
    choice.lpstrFilter = FILE_FILTER;
    choice.nFilterIndex = *pFilterIndex;
    choice.lpstrFile = pszPath;
    choice.nMaxFile = static_cast<DWORD>(cchPath);
    choice.lpstrInitialDir = folder.c_str();
    choice.lpstrTitle = SAVE_TITLE;
    choice.Flags = OFN_EXPLORER | OFN_HIDEREADONLY;
    choice.lpstrDefExt = DEFAULT_EXTENSION;
    if (!GetSaveFileNameW(&choice))
    {
        return 0;
    }
    *pFilterIndex = choice.nFilterIndex;
    return 1;
}

int GetFolderPath(wchar_t* pszPath, size_t cchPath)
{
    const TKLogBlock block(L"GetFolderPath", g_pLogger);
    const CSystemCall<decltype(&SHGetKnownFolderPath)> getKnownFolder(L"shell32.dll", "SHGetKnownFolderPath");
    if (getKnownFolder)
    {
        PWSTR pszFolder = nullptr;
        const HRESULT hResult =
            getKnownFolder(FOLDERID_Documents, static_cast<DWORD>(KF_FLAG_CREATE), nullptr, &pszFolder);
        if (SUCCEEDED(hResult))
        {
            CopyText(pszPath, cchPath, pszFolder);
        }
        CoTaskMemFree(pszFolder);
        return SUCCEEDED(hResult) ? 1 : 0;
    }
    wchar_t szFolder[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_PERSONAL | CSIDL_FLAG_CREATE, nullptr, 0, szFolder)))
    {
        return 0;
    }
    CopyText(pszPath, cchPath, szFolder);
    return 1;
}
