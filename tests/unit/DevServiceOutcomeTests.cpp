#include "Include/Clipboard.h"
#include "Include/Handles.h"
#include "devservice/Person.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/DevServiceFixture.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{
constexpr wchar_t COPIED_PATH[] = L"C:\\some folder\\Grüße.inv";

void GiveToClipboard(UINT uFormat, const void* pData, size_t cbData)
{
    CGlobalBlock hBlock(GlobalAlloc(GMEM_MOVEABLE, cbData));
    ASSERT_TRUE(hBlock);
    memcpy(GlobalLock(hBlock.get()), pData, cbData);
    GlobalUnlock(hBlock.get());
    const CClipboard clipboard(nullptr);
    ASSERT_TRUE(clipboard && EmptyClipboard() && SetClipboardData(uFormat, hBlock.get()) != nullptr);
    (void)hBlock.release(); // the clipboard owns it now
}

void CopyPath()
{
    struct
    {
        DROPFILES head;
        wchar_t szPath[std::size(COPIED_PATH)];
        wchar_t chEnd;
    } files = {};
    files.head.pFiles = sizeof(files.head);
    files.head.fWide = TRUE;
    memcpy(files.szPath, COPIED_PATH, sizeof(COPIED_PATH));
    GiveToClipboard(CF_HDROP, &files, sizeof(files));
}

class DevServiceOutcome : public DevServiceRunner
{
  protected:
    void SetUp() override
    {
        DevServiceRunner::SetUp();
        const CClipboard clipboard(nullptr);
        ASSERT_TRUE(clipboard && EmptyClipboard());
    }
};
} // namespace

TEST_F(DevServiceOutcome, ACopiedTextIsFoundAndAnotherOneIsNamed)
{
    constexpr char TEXT[] = "join me\r\nsoon";
    GiveToClipboard(CF_TEXT, TEXT, sizeof(TEXT));
    EXPECT_EQ(ClipboardText(), L"join me\r\nsoon");
    ExpectHeld(L"clipboard text \"join me\\r\\nsoon\"");
    EXPECT_EQ(ErrorOf(L"clipboard text \"join me\" within=0"),
              "line 1: the text on the clipboard is \"join me\\r\\nsoon\", not \"join me\"");
}

TEST_F(DevServiceOutcome, ACopiedFileIsFoundByItsName)
{
    CopyPath();
    EXPECT_EQ(ClipboardFile(), COPIED_PATH);
    ExpectHeld(L"clipboard file \"Grüße.inv\"");
    EXPECT_EQ(ErrorOf(L"clipboard text Gruss within=0"),
              "line 1: the text on the clipboard is \"\", not \"Gruss\"");
}

TEST_F(DevServiceOutcome, NobodyIsKeptFromCopyingByTheLookForIt)
{
    const ImportHook<decltype(OpenClipboard)> hook(
        "user32.dll", "OpenClipboard", +[](HWND) -> BOOL {
            ADD_FAILURE() << "opened";
            return FALSE;
        });
    EXPECT_EQ(ClipboardText(), L"");
    EXPECT_EQ(ClipboardFile(), L"");
}

TEST_F(DevServiceOutcome, AClipboardHoldsATextOrAFileAndNothingElse)
{
    EXPECT_EQ(ErrorOf(L"clipboard picture x"), "line 1: use: clipboard text | file TEXT");
    EXPECT_EQ(ErrorOf(L"clipboard text x within=soon"), "line 1: not a number: \"soon\"");
}

TEST_F(DevServiceOutcome, AFileIsComparedFromItsFirstToItsLastCharacter)
{
    const std::filesystem::path path = std::filesystem::temp_directory_path() / L"outcome.inv";
    constexpr wchar_t TEXT[] = L"join me";
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(TEXT), sizeof(TEXT) - 2);
    std::wstring command = L"file \"" + path.wstring();
    for (size_t n = command.find(L'\\'); n != std::wstring::npos; n = command.find(L'\\', n + 2))
    {
        command.insert(n, 1, L'\\');
    }
    ExpectHeld(command + L"\" \"join me\"");
    EXPECT_EQ(Run(command + L"\" \"join\" within=0"), SCRIPT_RESULT::Failed);
    std::filesystem::remove(path);
    EXPECT_EQ(Run(command + L"\" \"join me\" within=0"), SCRIPT_RESULT::Failed);
}
