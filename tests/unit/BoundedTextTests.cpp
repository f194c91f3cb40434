#include "Include/BoundedText.h"

#include <winsock2.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

TEST(BoundedText, ShortTextIsCopiedAndTheRestStaysUntouched)
{
    wchar_t szTo[] = L"0123456789";
    EXPECT_EQ(CopyText(szTo, L"abc"), 3u);
    EXPECT_STREQ(szTo, L"abc");
    EXPECT_EQ(std::wstring(szTo + 4, 6), L"456789");
}

TEST(BoundedText, LongTextIsTruncatedBeforeATerminator)
{
    wchar_t szTo[4] = {L'x', L'x', L'x', L'x'};
    EXPECT_EQ(CopyText(szTo, L"abcdef"), 3u);
    EXPECT_STREQ(szTo, L"abc");
    EXPECT_EQ(CopyText(szTo, 1, L"abc"), 0u);
    EXPECT_STREQ(szTo, L"");
}

TEST(BoundedText, BufferOfNoRoomIsLeftAlone)
{
    wchar_t szTo[] = L"x";
    EXPECT_EQ(CopyText(szTo, 0, L"abc"), 0u);
    EXPECT_STREQ(szTo, L"x");
}

TEST(BoundedText, TextMayLieInTheSameBuffer)
{
    wchar_t szTo[] = L"abcdef";
    CopyText(szTo, std::wstring_view(szTo + 2));
    EXPECT_STREQ(szTo, L"cdef");
}

TEST(BoundedText, FieldEndsAtItsFirstTerminator)
{
    const wchar_t szField[8] = L"ab\0cd";
    EXPECT_EQ(FixedText(szField), L"ab");
}

TEST(BoundedText, FieldWithoutATerminatorIsNeverReadPastItsEnd)
{
    SYSTEM_INFO info = {};
    GetSystemInfo(&info);
    auto* const pPages = static_cast<BYTE*>(
        VirtualAlloc(nullptr, 2 * info.dwPageSize, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    ASSERT_NE(pPages, nullptr);
    DWORD dwOld = 0;
    EXPECT_TRUE(VirtualProtect(pPages + info.dwPageSize, info.dwPageSize, PAGE_NOACCESS, &dwOld));
    auto* const pField = reinterpret_cast<wchar_t*>(pPages + info.dwPageSize) - 4;
    std::fill_n(pField, 4, L'z');
    EXPECT_EQ(FixedText(pField, 4), L"zzzz");
    VirtualFree(pPages, 0, MEM_RELEASE);
}
