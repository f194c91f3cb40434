#include "Include/WipeAtEnd.h"

#include <gtest/gtest.h>

#include <string>

TEST(WipeAtEnd, TheWholeBufferIsZeroWhenTheScopeHasEnded)
{
    wchar_t szSecret[] = L"hunter2";
    {
        const CWipeAtEnd wipe(szSecret, sizeof(szSecret));
        EXPECT_STREQ(szSecret, L"hunter2") << "not before";
    }
    EXPECT_EQ(std::wstring(szSecret, std::size(szSecret)), std::wstring(std::size(szSecret), L'\0'));
}
