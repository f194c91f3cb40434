#include "TKDAS/SimultanousSessionMutex.h"

#include "tests/support/ImportHook.h"
#include "tests/unit/LogCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
constexpr wchar_t OTI_NAME[] = L"Global\\TessaranOtiSessionIsInProgress";

HANDLE WINAPI RefusedMutex(DWORD dwAccess, BOOL, LPCWSTR)
{
    EXPECT_EQ(dwAccess, static_cast<DWORD>(SYNCHRONIZE));
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

HANDLE WINAPI NoMutex(LPSECURITY_ATTRIBUTES pAttributes, BOOL bOwned, LPCWSTR)
{
    EXPECT_EQ(pAttributes->nLength, 24U);
    EXPECT_FALSE(pAttributes->bInheritHandle);
    EXPECT_FALSE(bOwned);
    BOOL bPresent = FALSE;
    BOOL bDefaulted = FALSE;
    PACL pAcl = nullptr;
    EXPECT_TRUE(GetSecurityDescriptorDacl(pAttributes->lpSecurityDescriptor, &bPresent, &pAcl, &bDefaulted));
    EXPECT_TRUE(bPresent && pAcl == nullptr) << "everyone may do everything";
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}
} // namespace

TEST(SimultanousSessionMutex, TheMarkerOfEachKindIsThereAsLongAsItsHolder)
{
    EXPECT_FALSE(CSimultanousSessionMutex::IsOtiSession());
    EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
    {
        const CSimultanousSessionMutex oti(true);
        EXPECT_TRUE(CSimultanousSessionMutex::IsOtiSession());
        EXPECT_TRUE(CSimultanousSessionMutex::IsSession(OTI_NAME));
        EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
        const CSimultanousSessionMutex local(false);
        EXPECT_TRUE(CSimultanousSessionMutex::IsLocalSession());
    }
    EXPECT_FALSE(CSimultanousSessionMutex::IsOtiSession());
    EXPECT_FALSE(CSimultanousSessionMutex::IsLocalSession());
}

TEST(SimultanousSessionMutex, TheMarkerLastsUntilTheLastHolderGoes)
{
    auto pFirst = std::make_unique<CSimultanousSessionMutex>(true);
    const auto pSecond = std::make_unique<CSimultanousSessionMutex>(true);
    pFirst.reset();
    EXPECT_TRUE(CSimultanousSessionMutex::IsOtiSession());
}

TEST(SimultanousSessionMutex, RefusedAccessMeansThatThereIsASession)
{
    const ImportHook hook("kernel32.dll", "OpenMutexW", &RefusedMutex);
    EXPECT_TRUE(CSimultanousSessionMutex::IsLocalSession());
}

TEST(SimultanousSessionMutex, AMarkerThatCannotBeSetIsAWarningAndEndsWithoutAWord)
{
    const ImportHook hook("kernel32.dll", "CreateMutexW", &NoMutex);
    LogCapture log("SimultanousSessionMutex");
    {
        const CSimultanousSessionMutex marker(true);
    }
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"DEBUG Session starting...",
                                                     "WARN Failed to create session mutex. Error = 6"}));
}
