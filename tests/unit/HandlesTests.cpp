#include "Include/Handles.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace
{
HANDLE MakeEvent()
{
    return CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

bool IsOpen(HANDLE h)
{
    DWORD dwFlags = 0;
    return GetHandleInformation(h, &dwFlags) != FALSE;
}
} // namespace

TEST(Handles, OwnerEndsItsHandleAtTheEndOfTheScope)
{
    HANDLE hEvent = nullptr;
    {
        const CKernelHandle owner(MakeEvent());
        hEvent = owner.get();
        ASSERT_TRUE(IsOpen(hEvent));
    }
    EXPECT_FALSE(IsOpen(hEvent));
}

TEST(Handles, DestructorAndResetKeepTheLastError)
{
    CKernelHandle owner(MakeEvent());
    SetLastError(4711);
    owner.reset();
    EXPECT_EQ(GetLastError(), 4711u);
    {
        const CUniqueAny<HandleTraits::RegKey> badKey(reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x7770)));
        const CKernelHandle badHandle(reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x7770)));
        SetLastError(4712);
    }
    EXPECT_EQ(GetLastError(), 4712u);
}

TEST(Handles, PutEndsWhatWasOwnedBefore)
{
    CKernelHandle owner(MakeEvent());
    const HANDLE hOld = owner.get();
    *owner.put() = MakeEvent();
    EXPECT_FALSE(IsOpen(hOld) && owner.get() != hOld);
    EXPECT_TRUE(IsOpen(owner.get()));
}

TEST(Handles, ReleasedHandleStaysOpen)
{
    HANDLE hEvent = nullptr;
    {
        CKernelHandle owner(MakeEvent());
        hEvent = owner.release();
        EXPECT_FALSE(owner);
    }
    EXPECT_TRUE(IsOpen(hEvent));
    CloseHandle(hEvent);
}

TEST(Handles, MoveLeavesOneOwner)
{
    CKernelHandle first(MakeEvent());
    const HANDLE hEvent = first.get();
    CKernelHandle second(std::move(first));
    CKernelHandle third;
    third = std::move(second);
    EXPECT_EQ(third.get(), hEvent);
    EXPECT_TRUE(IsOpen(hEvent));
    static_assert(!std::is_copy_constructible_v<CKernelHandle>);
}

TEST(Handles, EachKindKnowsItsOwnNone)
{
    EXPECT_FALSE(CKernelHandle(nullptr));
    EXPECT_FALSE(CFileHandle(INVALID_HANDLE_VALUE));
    EXPECT_EQ(CFileHandle().get(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(CKernelHandle().get(), nullptr);
    static_assert(!std::is_same_v<CKernelHandle, CFileHandle>);
}
