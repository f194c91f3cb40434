#include "dialogs/InvitationOutput.h"

#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "resources/resource.h"
#include "tests/unit/InvitationHarness.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <commdlg.h>
#include <shlobj.h>

namespace
{
constexpr wchar_t TEXT[] = L"join me\r\nsoon";
constexpr int MAX_ATTEMPTS = 21;

std::vector<BYTE> UnitsOf(const std::wstring& text)
{
    std::vector<BYTE> bytes(text.size() * sizeof(wchar_t));
    memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

// What the clipboard holds in that format, byte for byte.
std::optional<std::vector<BYTE>> ClipboardBytes(UINT uFormat)
{
    const CClipboard clipboard(nullptr);
    const HANDLE hBlock = clipboard ? GetClipboardData(uFormat) : nullptr;
    if (hBlock == nullptr)
    {
        return std::nullopt;
    }
    const auto* const pBytes = static_cast<const BYTE*>(GlobalLock(hBlock));
    const std::vector<BYTE> bytes(pBytes, pBytes + GlobalSize(hBlock));
    GlobalUnlock(hBlock);
    return bytes;
}

std::string ClipboardText()
{
    const auto bytes = ClipboardBytes(CF_TEXT);
    return bytes ? reinterpret_cast<const char*>(bytes->data()) : "nothing";
}

// The files on the clipboard, as whoever pastes them sees them.
std::vector<std::wstring> ClipboardFiles()
{
    const CClipboard clipboard(nullptr);
    const auto hFiles = clipboard ? static_cast<HDROP>(GetClipboardData(CF_HDROP)) : nullptr;
    std::vector<std::wstring> files;
    const UINT uFiles = hFiles != nullptr ? DragQueryFileW(hFiles, 0xFFFFFFFF, nullptr, 0) : 0;
    for (UINT uFile = 0; uFile < uFiles; ++uFile)
    {
        wchar_t szPath[MAX_PATH] = {};
        DragQueryFileW(hFiles, uFile, szPath, MAX_PATH);
        files.emplace_back(szPath);
    }
    return files;
}

void PutOnClipboard(const std::string& text)
{
    const CClipboard clipboard(nullptr);
    ASSERT_TRUE(clipboard && EmptyClipboard());
    const HGLOBAL hText = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, text.size() + 1);
    memcpy(GlobalLock(hText), text.data(), text.size());
    GlobalUnlock(hText);
    EXPECT_NE(SetClipboardData(CF_TEXT, hText), nullptr);
}

std::vector<HGLOBAL> g_freed;

HGLOBAL WINAPI NoteFreed(HGLOBAL hBlock)
{
    g_freed.push_back(hBlock);
    return nullptr; // and leaked: that it was freed is what matters
}

/// What the save dialog was asked, and what the person chooses in it.
struct SAVE_DIALOG
{
    OPENFILENAMEW asked = {};
    std::wstring suggestion;
    std::wstring folder;
    std::vector<std::wstring> filter;
    std::wstring choice; // empty: cancel
    int nShown = 0;
};
SAVE_DIALOG g_save;

BOOL WINAPI PlaySaveDialog(LPOPENFILENAMEW pChoice)
{
    ++g_save.nShown;
    g_save.asked = *pChoice;
    g_save.suggestion = pChoice->lpstrFile;
    g_save.folder = pChoice->lpstrInitialDir;
    g_save.filter.clear();
    for (const wchar_t* psz = pChoice->lpstrFilter; *psz != L'\0'; psz += g_save.filter.back().size() + 1)
    {
        g_save.filter.emplace_back(psz);
    }
    if (g_save.choice.empty())
    {
        return FALSE;
    }
    CopyText(pChoice->lpstrFile, pChoice->nMaxFile, g_save.choice);
    pChoice->nFilterIndex = 2;
    return TRUE;
}

int g_nCreations = 0;

HANDLE WINAPI RefuseCreation(LPCWSTR, DWORD dwAccess, DWORD dwSharing, LPSECURITY_ATTRIBUTES,
                             DWORD dwDisposition, DWORD, HANDLE)
{
    EXPECT_EQ(dwAccess, GENERIC_READ | GENERIC_WRITE);
    EXPECT_EQ(dwSharing, 0U);
    EXPECT_EQ(dwDisposition, static_cast<DWORD>(CREATE_NEW));
    ++g_nCreations;
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
}

BOOL WINAPI WriteHalf(HANDLE, LPCVOID, DWORD cbBytes, LPDWORD pcbWritten, LPOVERLAPPED)
{
    *pcbWritten = cbBytes / 2;
    return TRUE;
}

std::vector<std::pair<UINT, SIZE_T>> g_allocations;
decltype(&GlobalAlloc) g_pfnGlobalAlloc = nullptr;

HGLOBAL WINAPI RecordAllocation(UINT uFlags, SIZE_T cbBlock)
{
    g_allocations.emplace_back(uFlags, cbBlock);
    return g_pfnGlobalAlloc(uFlags, cbBlock);
}

class InvitationOutputTest : public InvitationHarness
{
  protected:
    void SetUp() override
    {
        InvitationHarness::SetUp();
        g_save = SAVE_DIALOG();
        g_nCreations = 0;
        PutOnClipboard("what was there");
    }

    // The output's result in a dialog with that name and text.
    int Put(int (*pfnOutput)(HWND), const std::wstring& name, const std::wstring& text = TEXT)
    {
        int nResult = -1;
        RunDialog([&](HWND hDlg) {
            Type(hDlg, IDC_INVITE_NAME, name);
            Type(hDlg, IDC_INVITE_TEXT, text);
            nResult = pfnOutput(hDlg);
        });
        EXPECT_TRUE(m_boxes.empty());
        return nResult;
    }

    std::wstring PathOf(const std::wstring& name) const
    {
        return (m_folder / name).make_preferred().wstring();
    }

    void MakeFile(const std::wstring& name) const
    {
        std::ofstream(m_folder / name, std::ios::binary) << "older";
    }

    void ExpectClipboardUntouched() { EXPECT_EQ(ClipboardText(), "what was there"); }
};
} // namespace

TEST_F(InvitationOutputTest, TheTextIsCopiedInTheAnsiCodePage)
{
    EXPECT_EQ(Put(CopyAsBlob, L"Ann"), 1);
    EXPECT_EQ(ClipboardText(), "join me\r\nsoon");
    const char achAnsi[] = "\xE4\xF6\xFC\xDF";
    wchar_t szWide[8] = {};
    MultiByteToWideChar(CP_ACP, 0, achAnsi, -1, szWide, 8);
    EXPECT_EQ(Put(CopyAsBlob, L"Ann", szWide), 1);
    EXPECT_EQ(ClipboardText(), achAnsi);
    EXPECT_EQ(Put(CopyAsBlob, L"Ann", L""), 1);
    EXPECT_EQ(ClipboardText(), "");
}

TEST_F(InvitationOutputTest, NoMoreIsTakenOfATextThanItsRoom)
{
    EXPECT_EQ(Put(CopyAsBlob, L"Ann", std::wstring(20000, L'x')), 1);
    EXPECT_EQ(ClipboardText(), std::string(10239, 'x'));
    EXPECT_EQ(Put(CopyAsFile, L"Ann", std::wstring(20000, L'x')), 1);
    EXPECT_EQ(FileBytes(m_folder / L"Ann.inv"), UnitsOf(std::wstring(10239, L'x')));
}

TEST_F(InvitationOutputTest, AClipboardThatAnotherProgramHasOpenStaysAsItIs)
{
    {
        const ClipboardHolder holder;
        ASSERT_TRUE(holder.Holds());
        EXPECT_EQ(Put(CopyAsBlob, L"Ann"), 0);
        EXPECT_EQ(Put(CopyAsFile, L"Ann"), 0);
    }
    ExpectClipboardUntouched();
    EXPECT_EQ(Documents(), std::vector<std::wstring>{L"Ann.inv"}) << "the file remains";
}

TEST_F(InvitationOutputTest, AFailedStepOfCopyingIsTold)
{
    {
        const ImportHook hook(
            "user32.dll", "EmptyClipboard", +[]() -> BOOL { return FALSE; });
        EXPECT_EQ(Put(CopyAsBlob, L"Ann"), 0);
        EXPECT_EQ(Put(CopyAsFile, L"Ann"), 0);
    }
    ExpectClipboardUntouched();
    const ImportHook hook(
        "user32.dll", "SetClipboardData", +[](UINT, HANDLE) -> HANDLE { return nullptr; });
    const ImportHook freed("kernel32.dll", "GlobalFree", &NoteFreed);
    g_freed.clear();
    EXPECT_EQ(Put(CopyAsBlob, L"Ann"), 0);
    EXPECT_EQ(g_freed.size(), 1U) << "what nobody took over";
    EXPECT_EQ(Put(CopyAsFile, L"Ann"), 0);
    EXPECT_EQ(g_freed.size(), 2U);
    EXPECT_EQ(OpenClipboard(nullptr), TRUE) << "closed again";
    CloseClipboard();
}

TEST_F(InvitationOutputTest, WithoutMemoryForTheTextTheClipboardStaysOpenUntilTheNextCopy)
{
    RunDialog([](HWND hDlg) {
        Type(hDlg, IDC_INVITE_TEXT, TEXT);
        {
            const ImportHook hook(
                "kernel32.dll", "GlobalAlloc", +[](UINT, SIZE_T) -> HGLOBAL { return nullptr; });
            EXPECT_EQ(CopyAsBlob(hDlg), 0);
        }
        EXPECT_FALSE(ClipboardHolder().Holds());
        EXPECT_EQ(CopyAsBlob(hDlg), 1);
        EXPECT_TRUE(ClipboardHolder().Holds());
    });
    EXPECT_EQ(ClipboardText(), "join me\r\nsoon");
}

TEST_F(InvitationOutputTest, WithoutMemoryForTheListTheFileRemainsAndTheClipboardToo)
{
    {
        const ImportHook hook(
            "kernel32.dll", "GlobalAlloc", +[](UINT, SIZE_T) -> HGLOBAL { return nullptr; });
        EXPECT_EQ(Put(CopyAsFile, L"Ann"), 0);
    }
    ExpectClipboardUntouched();
    EXPECT_EQ(Documents(), std::vector<std::wstring>{L"Ann.inv"});
}

TEST_F(InvitationOutputTest, AFileHoldsTheTextsUnitsAndNothingElse)
{
    const std::wstring text = L"\u00e4\u20ac\U0001F426\r\nend";
    EXPECT_EQ(Put(CopyAsFile, L"Ann", text), 1);
    EXPECT_EQ(FileBytes(m_folder / L"Ann.inv"), UnitsOf(text));
    EXPECT_EQ(ClipboardFiles(), std::vector<std::wstring>{PathOf(L"Ann.inv")});
}

TEST_F(InvitationOutputTest, TheClipboardsListOfFilesIsLaidOutAsItShould)
{
    EXPECT_EQ(Put(CopyAsFile, L"Ann"), 1);
    const std::vector<BYTE> list = ClipboardBytes(CF_HDROP).value_or(std::vector<BYTE>());
    ASSERT_GE(list.size(), 542U);
    DROPFILES head = {};
    memcpy(&head, list.data(), sizeof(head));
    EXPECT_EQ(head.pFiles, 20U);
    EXPECT_EQ(head.fWide, 1);
    const std::vector<BYTE> path = UnitsOf(PathOf(L"Ann.inv"));
    EXPECT_EQ(memcmp(list.data() + 20, path.data(), path.size()), 0);
    EXPECT_EQ(std::count(list.begin() + static_cast<ptrdiff_t>(20 + path.size()), list.begin() + 542, 0),
              static_cast<ptrdiff_t>(522 - path.size()));
}

TEST_F(InvitationOutputTest, TheClipboardsBlocksAreOfTheirKindAndSize)
{
    const ImportHook hook("kernel32.dll", "GlobalAlloc", &RecordAllocation);
    g_pfnGlobalAlloc = hook.Original();
    g_allocations.clear();
    EXPECT_EQ(Put(CopyAsBlob, L"Ann", L"twelve units"), 1);
    EXPECT_EQ(Put(CopyAsFile, L"Ann"), 1);
    ASSERT_EQ(g_allocations.size(), 2U);
    EXPECT_EQ(g_allocations[0], std::pair(UINT{0x42}, SIZE_T{14})) << "movable and zeroed";
    EXPECT_EQ(g_allocations[1], std::pair(UINT{0x2040}, SIZE_T{542})) << "shared and zeroed";
}

TEST_F(InvitationOutputTest, AFileWithoutANameIsCalledInvitation)
{
    EXPECT_EQ(Put(CopyAsFile, L""), 1);
    EXPECT_EQ(Documents(), std::vector<std::wstring>{L"Invitation.inv"});
}

TEST_F(InvitationOutputTest, ATakenNameGetsTheNextNumberUpToTwenty)
{
    for (int nTaken = 0; nTaken < MAX_ATTEMPTS; ++nTaken)
    {
        const std::wstring name = L"Ann" + (nTaken == 0 ? L"" : std::to_wstring(nTaken)) + L".inv";
        EXPECT_EQ(Put(CopyAsFile, L"Ann"), 1) << nTaken;
        EXPECT_EQ(ClipboardFiles(), std::vector<std::wstring>{PathOf(name)});
        EXPECT_EQ(Documents().size(), static_cast<size_t>(nTaken + 1));
    }
    PutOnClipboard("what was there");
    EXPECT_EQ(Put(CopyAsFile, L"Ann"), 0);
    ExpectClipboardUntouched();
    EXPECT_EQ(Documents().size(), static_cast<size_t>(MAX_ATTEMPTS)) << "nothing is made";
}

TEST_F(InvitationOutputTest, ANameThatIsTakenIsLeftAsItWas)
{
    MakeFile(L"Ann.inv");
    EXPECT_EQ(Put(CopyAsFile, L"Ann"), 1);
    EXPECT_EQ(FileBytes(m_folder / L"Ann.inv"), (std::vector<BYTE>{'o', 'l', 'd', 'e', 'r'}));
    EXPECT_EQ(FileBytes(m_folder / L"Ann1.inv"), UnitsOf(TEXT));
}

TEST_F(InvitationOutputTest, TheNameIsReadAnewForEachAttempt)
{
    static decltype(&CreateFileW) s_pfnCreateFile = nullptr;
    static HWND s_hDlg = nullptr;
    MakeFile(L"Ann.inv");
    RunDialog([](HWND hDlg) {
        const ImportHook hook(
            "kernel32.dll", "CreateFileW",
            +[](LPCWSTR pszPath, DWORD dwAccess, DWORD dwSharing, LPSECURITY_ATTRIBUTES pSecurity,
                DWORD dwDisposition, DWORD dwFlags, HANDLE hTemplate) -> HANDLE {
                SetDlgItemTextW(s_hDlg, IDC_INVITE_NAME, L"Bob");
                return s_pfnCreateFile(pszPath, dwAccess, dwSharing, pSecurity, dwDisposition, dwFlags,
                                       hTemplate);
            });
        s_pfnCreateFile = hook.Original();
        s_hDlg = hDlg;
        Type(hDlg, IDC_INVITE_NAME, L"Ann");
        EXPECT_EQ(CopyAsFile(hDlg), 1);
    });
    EXPECT_EQ(Documents(), (std::vector<std::wstring>{L"Ann.inv", L"Bob1.inv"}));
}

TEST_F(InvitationOutputTest, ANameThatNoFileMayHaveMakesNone)
{
    MakeFile(L"a");
    for (const wchar_t* const pszName :
         {L"..\\out", L"../out", L"a:stream", L"C:\\out", L"a|b", L"a?b", L"a*", L"<a>", L"\"a\"", L"a\tb",
          L"CON.a", L"nul.a", L"com1.a", L"LPT9 .a", L"aux. b"})
    {
        EXPECT_EQ(Put(CopyAsFile, pszName), 0) << pszName;
    }
    EXPECT_EQ(Documents(), std::vector<std::wstring>{L"a"});
    EXPECT_FALSE(std::filesystem::exists(m_folder.parent_path() / L"out.inv"));
    ExpectClipboardUntouched();
}

TEST_F(InvitationOutputTest, ADevicesNameGetsANumberLikeATakenOne)
{
    EXPECT_EQ(Put(CopyAsFile, L"CON"), 1);
    EXPECT_EQ(Put(CopyAsFile, L"com"), 1);
    EXPECT_EQ(Put(CopyAsFile, L"com"), 1);
    EXPECT_EQ(Documents(), (std::vector<std::wstring>{L"CON1.inv", L"com.inv", L"com10.inv"}));
}

TEST_F(InvitationOutputTest, APathThatIsTooLongMakesNoFile)
{
    EXPECT_EQ(Put(CopyAsFile, std::wstring(259, L'x')), 0);
    EXPECT_TRUE(Documents().empty());
    ExpectClipboardUntouched();
}

TEST_F(InvitationOutputTest, AFolderThatCannotBeWrittenIsTriedForEachNameInVain)
{
    {
        const ImportHook hook("kernel32.dll", "CreateFileW", &RefuseCreation);
        EXPECT_EQ(Put(CopyAsFile, L"Ann"), 0);
        EXPECT_EQ(g_nCreations, MAX_ATTEMPTS);
    }
    ExpectClipboardUntouched();
    std::filesystem::remove_all(m_folder);
    EXPECT_EQ(Put(CopyAsFile, L"Ann"), 0) << "and a folder that isn't there";
    std::filesystem::create_directory(m_folder);
}

TEST_F(InvitationOutputTest, APieceOfAnInvitationIsNotLeftBehind)
{
    g_save.choice = PathOf(L"saved.inv");
    const ImportHook save("comdlg32.dll", "GetSaveFileNameW", &PlaySaveDialog);
    const ImportHook hook("kernel32.dll", "WriteFile", &WriteHalf);
    EXPECT_EQ(Put(CopyAsFile, L"Ann"), 0);
    EXPECT_EQ(Put(SaveAsFile, L"Ann"), 0);
    EXPECT_TRUE(Documents().empty());
    ExpectClipboardUntouched();
}

TEST_F(InvitationOutputTest, WithoutADocumentsFolderTheTemporaryOneIsTaken)
{
    m_binding.Set(
        "SHGetKnownFolderPath", +[](REFGUID, DWORD, HANDLE, PWSTR* ppszPath) -> HRESULT {
            *ppszPath = nullptr;
            return E_FAIL;
        });
    static std::wstring s_temp;
    s_temp = m_folder.wstring() + L"\\";
    {
        const ImportHook hook(
            "kernel32.dll", "GetTempPathW", +[](DWORD cch, LPWSTR pszPath) -> DWORD {
                return static_cast<DWORD>(CopyText(pszPath, cch, s_temp));
            });
        EXPECT_EQ(Put(CopyAsFile, L"Ann"), 1);
        EXPECT_EQ(Documents(), std::vector<std::wstring>{L"Ann.inv"});
    }
    const ImportHook hook(
        "kernel32.dll", "GetTempPathW", +[](DWORD, LPWSTR) -> DWORD { return 0; });
    const ImportHook save("comdlg32.dll", "GetSaveFileNameW", &PlaySaveDialog);
    EXPECT_EQ(Put(CopyAsFile, L"Bob"), 0);
    EXPECT_EQ(Put(SaveAsFile, L"Bob"), 0);
    EXPECT_EQ(g_save.nShown, 0);
}

TEST_F(InvitationOutputTest, AnOlderSystemIsAskedForTheDocumentsFolderInItsOwnWay)
{
    m_binding.SetMissing("SHGetKnownFolderPath");
    static HRESULT s_hResult = S_OK;
    s_hResult = S_OK;
    const ImportHook hook(
        "shell32.dll", "SHGetFolderPathW", +[](HWND, int nFolder, HANDLE, DWORD, LPWSTR pszPath) -> HRESULT {
            EXPECT_EQ(nFolder, 32773);
            CopyText(pszPath, MAX_PATH, L"C:\\old documents");
            return s_hResult;
        });
    wchar_t szPath[MAX_PATH] = {};
    EXPECT_EQ(GetFolderPath(szPath, MAX_PATH), 1);
    EXPECT_STREQ(szPath, L"C:\\old documents");
    s_hResult = E_FAIL;
    EXPECT_EQ(GetFolderPath(szPath, MAX_PATH), 0);
    EXPECT_EQ(m_binding.OpenModules(), 0);
}

TEST_F(InvitationOutputTest, TheDocumentsFolderIsTheUsersOwn)
{
    static int s_nFreed = 0;
    static decltype(&CoTaskMemFree) s_pfnFree = nullptr;
    const ImportHook hook(
        "ole32.dll", "CoTaskMemFree", +[](void* pBlock) {
            ++s_nFreed;
            s_pfnFree(pBlock);
        });
    s_pfnFree = hook.Original();
    s_nFreed = 0;
    wchar_t szPath[MAX_PATH] = {};
    EXPECT_EQ(GetFolderPath(szPath, MAX_PATH), 1);
    EXPECT_EQ(s_nFreed, 1);
    EXPECT_EQ(std::wstring(szPath), std::filesystem::path(m_folder).make_preferred().wstring());
    EXPECT_EQ(m_binding.OpenModules(), 0);
}

TEST_F(InvitationOutputTest, SavingSuggestsTheNameInTheDocumentsFolder)
{
    const ImportHook hook("comdlg32.dll", "GetSaveFileNameW", &PlaySaveDialog);
    EXPECT_EQ(Put(SaveAsFile, L""), 0) << "cancelled";
    EXPECT_EQ(g_save.suggestion, L"Invitation.inv");
    EXPECT_EQ(Put(SaveAsFile, L"Ann"), 0);
    EXPECT_EQ(g_save.suggestion, L"Ann.inv");
    EXPECT_EQ(g_save.folder, PathOf(L""));
    EXPECT_EQ(g_save.filter,
              (std::vector<std::wstring>{L"Invitation Files (*.inv)", L"*.inv", L"All Files (*.*)", L"*.*"}));
    EXPECT_EQ(g_save.asked.nFilterIndex, 0U);
    EXPECT_EQ(g_save.asked.Flags, 0x80004U);
    EXPECT_EQ(g_save.asked.nMaxFile, 260U);
    EXPECT_STREQ(g_save.asked.lpstrTitle, L"Save Invitation As");
    EXPECT_STREQ(g_save.asked.lpstrDefExt, L"*.inv");
    EXPECT_TRUE(Documents().empty());
}

TEST_F(InvitationOutputTest, SavingWritesTheTextToTheFileThatWasChosen)
{
    const ImportHook hook("comdlg32.dll", "GetSaveFileNameW", &PlaySaveDialog);
    g_save.choice = PathOf(L"for Ann.inv");
    EXPECT_EQ(Put(SaveAsFile, L"Ann", L"\u00e4\u20ac"), 1);
    EXPECT_EQ(FileBytes(m_folder / L"for Ann.inv"), UnitsOf(L"\u00e4\u20ac"));
    ExpectClipboardUntouched();
}

TEST_F(InvitationOutputTest, SavingNeverReplacesAFile)
{
    const ImportHook hook("comdlg32.dll", "GetSaveFileNameW", &PlaySaveDialog);
    MakeFile(L"Ann.inv");
    g_save.choice = PathOf(L"Ann.inv");
    EXPECT_EQ(Put(SaveAsFile, L"Ann"), 0);
    EXPECT_EQ(FileBytes(m_folder / L"Ann.inv"), (std::vector<BYTE>{'o', 'l', 'd', 'e', 'r'}));
}

TEST_F(InvitationOutputTest, TheChoiceOfFileTypeIsGivenBack)
{
    const ImportHook hook("comdlg32.dll", "GetSaveFileNameW", &PlaySaveDialog);
    wchar_t szPath[MAX_PATH] = L"C:\\folder\\";
    DWORD dwFilterIndex = 1;
    EXPECT_EQ(FileSaveAs(nullptr, L"Ann.inv", szPath, MAX_PATH, &dwFilterIndex), 0);
    EXPECT_EQ(dwFilterIndex, 1U);
    g_save.choice = L"D:\\chosen.inv";
    CopyText(szPath, L"C:\\folder\\");
    EXPECT_EQ(FileSaveAs(nullptr, L"Ann.inv", szPath, MAX_PATH, &dwFilterIndex), 1);
    EXPECT_EQ(g_save.folder, L"C:\\folder\\");
    EXPECT_EQ(g_save.asked.nFilterIndex, 1U);
    EXPECT_EQ(dwFilterIndex, 2U);
    EXPECT_STREQ(szPath, L"D:\\chosen.inv");
}
