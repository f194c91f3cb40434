#include "drop/DroppedFiles.h"

#include "Include/Clipboard.h"
#include "devservice/DroppedNames.h"
#include "tests/unit/DropHarness.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace
{
// ---- A network that answers what a test says.

struct NETWORK
{
    DWORD dwResult = NO_ERROR;
    DWORD dwLevel = 0;
    DWORD dwType = 0;
    std::vector<DWORD> bufferSizes;
};
NETWORK g_network;

wchar_t g_szUniversal[] = L"\\\\server\\share\\b.txt";
wchar_t g_szConnection[] = L"\\\\server\\share";
wchar_t g_szRemote[] = L"\\\\nas\\music";

DWORD WINAPI AnswerUniversalName(LPCWSTR, DWORD dwLevel, LPVOID pvBuffer, LPDWORD pcbBuffer)
{
    g_network.dwLevel = dwLevel;
    g_network.bufferSizes.push_back(*pcbBuffer);
    *pcbBuffer = 1; // as a call does that needed little
    *static_cast<REMOTE_NAME_INFOW*>(pvBuffer) = {g_szUniversal, g_szConnection, nullptr};
    return g_network.dwResult;
}

DWORD WINAPI AnswerResource(LPNETRESOURCEW pAsked, LPVOID pvBuffer, LPDWORD pcbBuffer, LPWSTR*)
{
    g_network.dwType = pAsked->dwType;
    g_network.bufferSizes.push_back(*pcbBuffer);
    *pcbBuffer = 1;
    *static_cast<NETRESOURCEW*>(pvBuffer) = {};
    static_cast<NETRESOURCEW*>(pvBuffer)->lpRemoteName = g_szRemote;
    return g_network.dwResult;
}

UINT WINAPI TypeOfDrive(LPCWSTR pszRoot)
{
    return std::wstring_view(pszRoot) == L"N:\\" ? DRIVE_REMOTE : DRIVE_FIXED;
}

class DroppedFilesTest : public DropHarness
{
  protected:
    void SetUp() override
    {
        DropHarness::SetUp();
        g_network = NETWORK();
        m_binding.Set("WNetGetUniversalNameW", &AnswerUniversalName);
        m_binding.Set("WNetGetResourceInformationW", &AnswerResource);
    }

    static bool ByFile(const Names& paths, const MSG_TRAYICON_SFT_DROP_CLIENT& client = Client())
    {
        return HandOverByFile(DropList(paths).get(), client, nullptr);
    }

    static void ByClipboard(const Names& paths)
    {
        HandOverByClipboard(DropList(paths).get(), Client(), nullptr);
    }

    ImportHook<decltype(GetDriveTypeW)> m_driveType{"kernel32.dll", "GetDriveTypeW", &TypeOfDrive};
};

UINT g_uCountAnswer = 0;
UINT g_uReadable = 0xFFFF; // files of the drop that can be read
decltype(&DragQueryFileW) g_pfnDragQueryFile = nullptr;

UINT WINAPI AnswerCount(HDROP hDrop, UINT uFile, LPWSTR pszFile, UINT cchFile)
{
    if (uFile == 0xFFFFFFFF)
    {
        return g_uCountAnswer;
    }
    return uFile < g_uReadable ? g_pfnDragQueryFile(hDrop, uFile, pszFile, cchFile) : 0;
}

std::wstring Path(size_t cch)
{
    std::wstring path = L"C:\\";
    path.resize(cch, L'x');
    return path;
}

std::vector<BYTE> BlockBytes(const CGlobalBlock& hBlock, size_t cb)
{
    const BYTE* const pBlock = static_cast<const BYTE*>(GlobalLock(hBlock.get()));
    std::vector<BYTE> bytes(pBlock, pBlock + cb);
    GlobalUnlock(hBlock.get());
    return bytes;
}

int g_nOpenings = 0;
int g_nRefusals = 0; // before the clipboard can be had
std::vector<DWORD> g_pauses;
decltype(&OpenClipboard) g_pfnOpenClipboard = nullptr;

BOOL WINAPI RefuseClipboard(HWND hWnd)
{
    EXPECT_EQ(hWnd, nullptr);
    return ++g_nOpenings > g_nRefusals && g_pfnOpenClipboard(hWnd);
}

void WINAPI RecordPause(DWORD dwMilliseconds)
{
    g_pauses.push_back(dwMilliseconds);
}

// What a hand-over asks of the system, in order.
struct HAND_OVER
{
    decltype(&WritePrivateProfileStringW) pfnWrite = nullptr;
    decltype(&OpenEventW) pfnOpenEvent = nullptr;
    decltype(&SetEvent) pfnSetEvent = nullptr;
    decltype(&CloseHandle) pfnCloseHandle = nullptr;
    decltype(&EmptyClipboard) pfnEmpty = nullptr;
    decltype(&SetClipboardData) pfnSetData = nullptr;
    decltype(&CloseClipboard) pfnCloseClipboard = nullptr;
    HANDLE hEvent = nullptr;
    std::vector<std::string> calls;
};
HAND_OVER g_handOver;

std::string Narrow(const wchar_t* pszText)
{
    const std::wstring text = pszText != nullptr ? pszText : L"(null)";
    return {text.begin(), text.end()};
}

BOOL WINAPI RecordWrite(LPCWSTR pszSection, LPCWSTR pszKey, LPCWSTR pszValue, LPCWSTR pszFile)
{
    g_handOver.calls.push_back("write " + Narrow(pszKey) + ' ' + Narrow(pszValue));
    return g_handOver.pfnWrite(pszSection, pszKey, pszValue, pszFile);
}

HANDLE WINAPI RecordOpenEvent(DWORD dwAccess, BOOL bInherit, LPCWSTR pszName)
{
    EXPECT_EQ(dwAccess, static_cast<DWORD>(EVENT_MODIFY_STATE));
    EXPECT_FALSE(bInherit);
    g_handOver.calls.emplace_back("open event");
    g_handOver.hEvent = g_handOver.pfnOpenEvent(dwAccess, bInherit, pszName);
    return g_handOver.hEvent;
}

BOOL WINAPI RecordSetEvent(HANDLE hEvent)
{
    g_handOver.calls.emplace_back("set event");
    return g_handOver.pfnSetEvent(hEvent);
}

BOOL WINAPI RecordCloseHandle(HANDLE h)
{
    if (h != nullptr && h == g_handOver.hEvent)
    {
        g_handOver.calls.emplace_back("close event");
    }
    return g_handOver.pfnCloseHandle(h);
}

BOOL WINAPI RecordPost(HWND, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    g_handOver.calls.push_back("post " + std::to_string(uMessage));
    EXPECT_TRUE(wParam == 0 && lParam == 0);
    return TRUE;
}

BOOL WINAPI RecordEmpty()
{
    g_handOver.calls.emplace_back("empty clipboard");
    return g_handOver.pfnEmpty();
}

HANDLE WINAPI RecordSetData(UINT uFormat, HANDLE hData)
{
    g_handOver.calls.emplace_back("set data");
    return g_handOver.pfnSetData(uFormat, hData);
}

BOOL WINAPI RecordCloseClipboard()
{
    g_handOver.calls.emplace_back("close clipboard");
    return g_handOver.pfnCloseClipboard();
}

/// Records what hand-overs ask, for as long as the object lives.
class HandOverTrace
{
  public:
    HandOverTrace()
    {
        g_handOver = {m_write.Original(),
                      m_openEvent.Original(),
                      m_setEvent.Original(),
                      m_close.Original(),
                      m_empty.Original(),
                      m_setData.Original(),
                      m_closeClipboard.Original(),
                      nullptr,
                      {}};
    }

    const std::vector<std::string>& Calls() const { return g_handOver.calls; }
    void Forget() { g_handOver.calls.clear(); }

  private:
    ImportHook<decltype(WritePrivateProfileStringW)> m_write{"kernel32.dll", "WritePrivateProfileStringW",
                                                             &RecordWrite};
    ImportHook<decltype(OpenEventW)> m_openEvent{"kernel32.dll", "OpenEventW", &RecordOpenEvent};
    ImportHook<decltype(SetEvent)> m_setEvent{"kernel32.dll", "SetEvent", &RecordSetEvent};
    ImportHook<decltype(CloseHandle)> m_close{"kernel32.dll", "CloseHandle", &RecordCloseHandle};
    ImportHook<decltype(PostMessageW)> m_post{"user32.dll", "PostMessageW", &RecordPost};
    ImportHook<decltype(EmptyClipboard)> m_empty{"user32.dll", "EmptyClipboard", &RecordEmpty};
    ImportHook<decltype(SetClipboardData)> m_setData{"user32.dll", "SetClipboardData", &RecordSetData};
    ImportHook<decltype(CloseClipboard)> m_closeClipboard{"user32.dll", "CloseClipboard",
                                                          &RecordCloseClipboard};
};

using Calls = std::vector<std::string>;
} // namespace

// ---- Entries.

TEST_F(DroppedFilesTest, AFileOfThisComputerIsEnteredAsItIs)
{
    for (const wchar_t* const pszPath : {L"C:\\a.txt", L"relative.txt", L"C", L":"})
    {
        EXPECT_EQ(ComposeDroppedEntry(pszPath), pszPath);
    }
    EXPECT_TRUE(g_network.bufferSizes.empty()) << "the network isn't asked";
}

TEST_F(DroppedFilesTest, AFileOnAMappedDriveIsEnteredWithItsUniversalNameAndItsConnection)
{
    EXPECT_EQ(ComposeDroppedEntry(L"N:\\b.txt"), L"\\\\server\\share\\b.txt|\\\\server\\share");
    EXPECT_EQ(g_network.dwLevel, 2U);
}

TEST_F(DroppedFilesTest, APathThatBeginsWithABackslashIsEnteredWithItsResource)
{
    EXPECT_EQ(ComposeDroppedEntry(L"\\\\nas\\music\\a.mp3"), L"\\\\nas\\music\\a.mp3|\\\\nas\\music");
    EXPECT_EQ(g_network.dwType, static_cast<DWORD>(RESOURCETYPE_DISK));
}

TEST_F(DroppedFilesTest, ANetworkThatCannotTellLeavesThePath)
{
    g_network.dwResult = ERROR_NO_NETWORK;
    EXPECT_EQ(ComposeDroppedEntry(L"N:\\b.txt"), L"N:\\b.txt");
    EXPECT_EQ(ComposeDroppedEntry(L"\\\\nas\\a.mp3"), L"\\\\nas\\a.mp3");
    m_binding.SetMissing("WNetGetUniversalNameW");
    m_binding.SetMissingModule(L"mpr.dll");
    EXPECT_EQ(ComposeDroppedEntry(L"N:\\b.txt"), L"N:\\b.txt");
    EXPECT_EQ(ComposeDroppedEntry(L"\\\\nas\\a.mp3"), L"\\\\nas\\a.mp3");
    EXPECT_EQ(m_binding.OpenModules(), 0);
}

TEST_F(DroppedFilesTest, AnEntryIsCutWhereItsBufferEnds)
{
    EXPECT_EQ(ComposeDroppedEntry(L"\\\\" + std::wstring(510, L'x')),
              L"\\\\" + std::wstring(510, L'x') + L"|\\\\nas\\");
    EXPECT_EQ(ComposeDroppedEntry(L"\\\\" + std::wstring(517, L'x')), L"\\\\" + std::wstring(517, L'x'));
}

// ---- The data file.

TEST_F(DroppedFilesTest, TheDataFileIsInTheFolderThatIsSharedWithTheService)
{
    wchar_t szProgramData[MAX_PATH] = {};
    GetEnvironmentVariableW(L"PROGRAMDATA", szProgramData, MAX_PATH);
    ASSERT_NE(szProgramData[0], L'\0');
    EXPECT_EQ(DropDataFile(), std::wstring(szProgramData) + L"\\Tessaran Development\\sft\\TKDASSFTF.data");
}

TEST_F(DroppedFilesTest, TheServiceIsToldWhenAllIsWrittenAndTheWindowCloses)
{
    PrepareService();
    HandOverTrace trace;
    EXPECT_TRUE(ByFile({L"C:\\a", L"C:\\b"}));
    EXPECT_EQ(trace.Calls(), (Calls{"write 0 C:\\a", "write 1 C:\\b", "write Counter 2", "open event",
                                    "set event", "close event", "post 16"}));
    m_hEvent.reset();
    trace.Forget();
    EXPECT_TRUE(ByFile({L"C:\\c"}));
    EXPECT_EQ(trace.Calls(),
              (Calls{"write 2 C:\\c", "write Counter 3", "open event", "write (null) (null)"}));
}

TEST_F(DroppedFilesTest, KeysGoOnFromTheStoredCounterAndOnlyTheMappedOneNamesItsConnection)
{
    PrepareService();
    WritePrivateProfileStringW(L"5", L"Counter", L"7", DropDataFile().c_str());
    EXPECT_TRUE(ByFile({L"C:\\a.txt", L"N:\\b.txt", L"C:\\c.txt"}));
    EXPECT_EQ(FileValue(L"5", L"7"), L"C:\\a.txt");
    EXPECT_EQ(FileValue(L"5", L"8"), L"\\\\server\\share\\b.txt|\\\\server\\share");
    EXPECT_EQ(FileValue(L"5", L"9"), L"C:\\c.txt");
    EXPECT_EQ(FileValue(L"5", L"Counter"), L"10");
    EXPECT_TRUE(WasTold());
}

TEST_F(DroppedFilesTest, TheNetworkGetsItsWholeBufferForEachFile)
{
    PrepareService();
    EXPECT_TRUE(ByFile({L"N:\\a", L"\\\\nas\\b", L"N:\\c"}));
    EXPECT_EQ(g_network.bufferSizes, std::vector<DWORD>(3, 1040));
}

TEST_F(DroppedFilesTest, ASecondDropContinuesTheNumbering)
{
    PrepareService();
    EXPECT_TRUE(ByFile({L"C:\\a"}));
    EXPECT_TRUE(ByFile({L"C:\\b", L"C:\\c"}));
    EXPECT_EQ(ReadDroppedEntries(5), (Names{L"C:\\a", L"C:\\b", L"C:\\c"}));
}

TEST_F(DroppedFilesTest, ASectionIsNamedByTheClientAsASignedNumber)
{
    PrepareService();
    EXPECT_TRUE(ByFile({L"C:\\a"}, Client(0xFFFFFFFE)));
    EXPECT_EQ(FileValue(L"-2", L"0"), L"C:\\a");
}

TEST_F(DroppedFilesTest, FiveHundredFilesArriveInTheirOrder)
{
    PrepareService();
    Names paths;
    for (int nFile = 0; nFile < 500; ++nFile)
    {
        paths.push_back(L"C:\\folder\\file " + std::to_wstring(nFile) + L".txt");
    }
    EXPECT_TRUE(ByFile(paths));
    EXPECT_EQ(ReadDroppedEntries(5), paths);
}

TEST_F(DroppedFilesTest, NamesOfAllKindsComeBackAsTheyWere)
{
    PrepareService();
    const Names paths = {L"C:\\a=b.txt",
                         L"C:\\;no comment",
                         L"C:\\[section]",
                         L"C:\\in the  middle",
                         L"C:\\100% & #1.txt",
                         L"C:\\a|b",
                         L"C:\\Grüße \u4F60\u597D \u0416.txt",
                         L"C:\\\"quoted\""};
    EXPECT_TRUE(ByFile(paths));
    EXPECT_EQ(ReadDroppedEntries(5), paths);
}

TEST_F(DroppedFilesTest, BlanksAtAnEntrysEndAreLostToTheRulesOfProfileFiles)
{
    PrepareService();
    EXPECT_TRUE(ByFile({L"C:\\trailing  "}));
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"C:\\trailing"});
}

TEST_F(DroppedFilesTest, WithoutTheServicesFileTheSystemsCodePageDecidesWhatLettersStay)
{
    MakeFolder();
    MakeEvent();
    EXPECT_TRUE(ByFile({L"C:\\plain.txt"}));
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"C:\\plain.txt"});
    std::ifstream file(std::filesystem::path(DropDataFile()), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_NE(bytes.find("0=C:\\plain.txt"), std::string::npos) << "one byte a character";
}

TEST_F(DroppedFilesTest, APathIsCutToTheBufferAndThenNamesNoResource)
{
    PrepareService();
    for (const size_t cch : {518U, 519U, 520U, 521U})
    {
        ASSERT_TRUE(ByFile({Path(cch)}));
    }
    EXPECT_EQ(ReadDroppedEntries(5), (Names{Path(518), Path(519), Path(519), Path(519)}));
    const std::wstring unc = L"\\\\" + std::wstring(518, L'x');
    ASSERT_TRUE(ByFile({unc}));
    EXPECT_EQ(ReadDroppedEntries(5).back(), unc.substr(0, 519));
}

TEST_F(DroppedFilesTest, AMissingFolderIsNotMadeAndNothingIsTold)
{
    MakeEvent();
    EXPECT_FALSE(ByFile({L"C:\\a"}));
    EXPECT_FALSE(WasTold());
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(DropDataFile()).parent_path()));
}

TEST_F(DroppedFilesTest, NamesThatNobodyWaitsForAreWithdrawnWithTheirCounterAndNoOthers)
{
    PrepareService();
    ASSERT_TRUE(ByFile({L"C:\\other"}, Client(6)));
    m_hEvent.reset();
    EXPECT_TRUE(ByFile({L"C:\\a", L"C:\\b"}));
    EXPECT_EQ(FileValue(L"5", L"0"), L"(none)");
    EXPECT_EQ(FileValue(L"5", L"Counter"), L"(none)");
    EXPECT_EQ(ReadDroppedEntries(6), Names{L"C:\\other"});
}

TEST_F(DroppedFilesTest, NoFilesAndAsManyAsCannotBeCountedAreNoDrop)
{
    PrepareService();
    const ImportHook<decltype(DragQueryFileW)> hook("shell32.dll", "DragQueryFileW", &AnswerCount);
    g_pfnDragQueryFile = hook.Original();
    for (const UINT uCount : {0U, 0xFFFFU, 0x10000U})
    {
        g_uCountAnswer = uCount;
        EXPECT_FALSE(ByFile({L"C:\\a"})) << uCount;
        ByClipboard({L"C:\\a"});
        EXPECT_TRUE(ReadDroppedClipboard().empty()) << uCount;
    }
    EXPECT_FALSE(WasTold());
    EXPECT_EQ(FileValue(L"5", L"Counter"), L"(none)");
    g_uCountAnswer = 0x10001;
    EXPECT_TRUE(ByFile({L"C:\\a", L"C:\\b"})) << "the count has 16 bits";
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"C:\\a"});
}

TEST_F(DroppedFilesTest, WhatCannotBeReadIsPassedOver)
{
    PrepareService();
    const ImportHook<decltype(DragQueryFileW)> hook("shell32.dll", "DragQueryFileW", &AnswerCount);
    g_pfnDragQueryFile = hook.Original();
    g_uCountAnswer = 3;
    g_uReadable = 0;
    EXPECT_FALSE(ByFile({L"C:\\a", L"C:\\b", L"C:\\c"}));
    EXPECT_EQ(FileValue(L"5", L"Counter"), L"0") << "written all the same";
    g_uReadable = 1;
    EXPECT_TRUE(ByFile({L"C:\\a", L"C:\\b", L"C:\\c"}));
    EXPECT_EQ(FileValue(L"5", L"Counter"), L"1");
    g_uReadable = 0;
    EXPECT_FALSE(ByFile({L"C:\\a", L"C:\\b", L"C:\\c"})) << "nothing was written";
    EXPECT_EQ(FileValue(L"5", L"Counter"), L"1");
    ByClipboard({L"C:\\a"});
    EXPECT_TRUE(ReadDroppedClipboard().empty());
    g_uReadable = 0xFFFF;
}

// ---- The clipboard.

TEST_F(DroppedFilesTest, TheBlockHoldsTheHeaderAndThePathsOneBehindTheOther)
{
    const CGlobalBlock hBlock = MakeDroppedBlock({L"C:\\a", L"C:\\bc"}, 2);
    ASSERT_TRUE(hBlock);
    constexpr size_t SIZE = 2 * 520 + 22;
    ASSERT_GE(GlobalSize(hBlock.get()), SIZE);
    std::vector<BYTE> expected(SIZE);
    expected[0] = 20; // and fWide, among the rest, zero
    constexpr wchar_t TEXT[] = L"C:\\a\0C:\\bc\0";
    memcpy(expected.data() + 20, TEXT, sizeof(TEXT));
    EXPECT_EQ(BlockBytes(hBlock, SIZE), expected);
}

TEST_F(DroppedFilesTest, APathThatTheBlockHasNoRoomForIsLeftOutWhole)
{
    EXPECT_TRUE(MakeDroppedBlock({Path(259)}, 1)) << "fills the block";
    EXPECT_FALSE(MakeDroppedBlock({Path(260)}, 1));
    const CGlobalBlock hBlock = MakeDroppedBlock({Path(519), Path(300), L"C:\\short"}, 3);
    ASSERT_TRUE(hBlock);
    EXPECT_EQ(ParseDroppedBlock(BlockBytes(hBlock, 3 * 520 + 22)), (Names{Path(519), L"C:\\short"}));
}

TEST_F(DroppedFilesTest, TheClipboardCarriesThePathsAsTheyAreAndTheServiceIsTold)
{
    MakeEvent();
    const Names paths = {L"N:\\b.txt", L"\\\\nas\\a", L"C:\\Grüße \u4F60"};
    ByClipboard(paths);
    EXPECT_EQ(ReadDroppedClipboard(), paths);
    EXPECT_TRUE(WasTold());
    EXPECT_TRUE(g_network.bufferSizes.empty()) << "the network isn't asked";
}

TEST_F(DroppedFilesTest, WhatIsOnTheClipboardStaysThereThoughNobodyWaits)
{
    ByClipboard({L"C:\\a"});
    EXPECT_EQ(ReadDroppedClipboard(), Names{L"C:\\a"});
}

TEST_F(DroppedFilesTest, AClipboardThatStaysTakenIsGivenUpAfterAHundredAndOneTries)
{
    MakeEvent();
    g_nOpenings = 0;
    g_nRefusals = 1000;
    g_pauses.clear();
    const ImportHook<decltype(OpenClipboard)> clipboard("user32.dll", "OpenClipboard", &RefuseClipboard);
    const ImportHook<decltype(Sleep)> sleep("kernel32.dll", "Sleep", &RecordPause);
    ByClipboard({L"C:\\a"});
    EXPECT_EQ(g_nOpenings, 101);
    EXPECT_EQ(g_pauses.size(), 200U) << "two between each and the next";
    EXPECT_FALSE(WasTold());
}

TEST_F(DroppedFilesTest, AClipboardThatIsTakenForAMomentIsWaitedFor)
{
    MakeEvent();
    {
        const ImportHook<decltype(OpenClipboard)> clipboard("user32.dll", "OpenClipboard", &RefuseClipboard);
        const ImportHook<decltype(Sleep)> sleep("kernel32.dll", "Sleep", &RecordPause);
        g_pfnOpenClipboard = clipboard.Original();
        for (const int nRefusals : {2, 100})
        {
            g_nOpenings = 0;
            g_nRefusals = nRefusals;
            g_pauses.clear();
            ByClipboard({L"C:\\a"});
            EXPECT_EQ(g_nOpenings, nRefusals + 1);
            EXPECT_TRUE(WasTold());
            std::vector<DWORD> pauses;
            for (int nRefusal = 0; nRefusal < nRefusals; ++nRefusal)
            {
                pauses.insert(pauses.end(), {0, 5});
            }
            EXPECT_EQ(g_pauses, pauses);
        }
    }
    EXPECT_EQ(ReadDroppedClipboard(), Names{L"C:\\a"});
}

TEST_F(DroppedFilesTest, TheServiceIsToldWhenTheClipboardIsFreeAgain)
{
    MakeEvent();
    HandOverTrace trace;
    ByClipboard({L"C:\\a"});
    EXPECT_EQ(trace.Calls(), (Calls{"empty clipboard", "set data", "close clipboard", "open event",
                                    "set event", "close event", "post 16"}));
    m_hEvent.reset();
    trace.Forget();
    ByClipboard({L"C:\\b"});
    EXPECT_EQ(trace.Calls(), (Calls{"empty clipboard", "set data", "close clipboard", "open event"}));
}

TEST_F(DroppedFilesTest, AClipboardThatAnotherThreadHoldsKeepsWhatItHas)
{
    MakeEvent();
    ByClipboard({L"C:\\first"});
    ASSERT_TRUE(WasTold());
    const CKernelHandle hHeld(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const CKernelHandle hDone(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread holder([&] {
        const CWindow owner(
            CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
        const CClipboard clipboard(owner.get());
        EXPECT_TRUE(clipboard);
        SetEvent(hHeld.get());
        WaitForSingleObject(hDone.get(), 60000);
    });
    EXPECT_EQ(WaitForSingleObject(hHeld.get(), 10000), WAIT_OBJECT_0);
    ByClipboard({L"C:\\second"});
    SetEvent(hDone.get());
    holder.join();
    EXPECT_FALSE(WasTold());
    EXPECT_EQ(ReadDroppedClipboard(), Names{L"C:\\first"});
}

// ---- How the stand-in reads a block that nobody should trust.

TEST_F(DroppedFilesTest, ABrokenBlockIsNoList)
{
    const CGlobalBlock hBlock = MakeDroppedBlock({L"C:\\a"}, 1);
    std::vector<BYTE> bytes = BlockBytes(hBlock, 542);
    EXPECT_EQ(ParseDroppedBlock(bytes), Names{L"C:\\a"});
    for (size_t cb = 0; cb < 32; ++cb)
    {
        EXPECT_FALSE(ParseDroppedBlock(std::span<const BYTE>(bytes).first(cb))) << cb;
    }
    for (const DWORD dwOffset : {0UL, 19UL, 542UL, 543UL, 0x7FFFFFFFUL, 0xFFFFFFFFUL})
    {
        memcpy(bytes.data(), &dwOffset, sizeof(dwOffset));
        EXPECT_FALSE(ParseDroppedBlock(bytes)) << dwOffset;
    }
    std::vector<BYTE> unended(542, 'x');
    const DWORD dwOffset = 20;
    memcpy(unended.data(), &dwOffset, sizeof(dwOffset));
    EXPECT_FALSE(ParseDroppedBlock(unended));
}
