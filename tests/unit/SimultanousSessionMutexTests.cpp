#include "TKDAS/SimultanousSessionMutex.h"

#include "tests/support/ImportHook.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LogCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
using LINES = std::vector<std::string>;

constexpr wchar_t OTI_NAME[] = L"Global\\TessaranOtiSessionIsInProgress";
constexpr wchar_t LOCAL_NAME[] = L"Global\\TessaranLocalSessionIsInProgress";

HLOCAL WINAPI NoMemory(UINT uFlags, SIZE_T cb)
{
    EXPECT_EQ(uFlags, static_cast<UINT>(LPTR));
    EXPECT_EQ(cb, 40U);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

BOOL WINAPI RefuseDescriptor(PSECURITY_DESCRIPTOR, DWORD dwRevision)
{
    EXPECT_EQ(dwRevision, 1U);
    SetLastError(ERROR_UNKNOWN_REVISION);
    return FALSE;
}

BOOL WINAPI RefuseDacl(PSECURITY_DESCRIPTOR, BOOL bPresent, PACL pAcl, BOOL bDefaulted)
{
    EXPECT_TRUE(bPresent && pAcl == nullptr && !bDefaulted);
    SetLastError(ERROR_INVALID_SECURITY_DESCR);
    return FALSE;
}

HANDLE WINAPI ExpectNoMutex(LPSECURITY_ATTRIBUTES, BOOL, LPCWSTR)
{
    ADD_FAILURE() << "a marker that not everyone could see";
    return nullptr;
}

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
        EXPECT_TRUE(CSimultanousSessionMutex::IsSession(LOCAL_NAME));
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
    EXPECT_EQ(log.Texts(),
              (LINES{"DEBUG Session starting...", "WARN Failed to create session mutex. Error = 6"}));
}

TEST(SimultanousSessionMutex, AMarkersLifeAndEachQuestionAreLogged)
{
    LogCapture log("SimultanousSessionMutex");
    {
        const CSimultanousSessionMutex marker(false);
        CSimultanousSessionMutex::IsLocalSession();
    }
    CSimultanousSessionMutex::IsLocalSession();
    EXPECT_EQ(log.Texts(),
              (LINES{"DEBUG Session starting...", "DEBUG Session existence checked, exist = 1",
                     "DEBUG Session terminated...", "DEBUG Session existence checked, exist = 0"}));
}

TEST(SimultanousSessionMutex, WithoutADescriptorForEveryoneThereIsNoMarker)
{
    const ImportHook mutex("kernel32.dll", "CreateMutexW", &ExpectNoMutex);
    LogCapture log("SimultanousSessionMutex", log4cxx::Level::getInfo());
    {
        const ImportHook hook("kernel32.dll", "LocalAlloc", &NoMemory);
        const CSimultanousSessionMutex marker(true);
    }
    {
        const ImportHook hook("advapi32.dll", "InitializeSecurityDescriptor", &RefuseDescriptor);
        const CSimultanousSessionMutex marker(true);
    }
    {
        const ImportHook hook("advapi32.dll", "SetSecurityDescriptorDacl", &RefuseDacl);
        const CSimultanousSessionMutex marker(true);
    }
    EXPECT_EQ(log.Texts(), (LINES{"WARN LocalAlloc failed. Error = 8",
                                  "WARN InitializeSecurityDescriptor failed. Error = 1305",
                                  "WARN SetSecurityDescriptorDacl failed. Error = 1338"}));
}

TEST(SimultanousSessionMutex, AThousandMarkersAndQuestionsLeaveNothingOpen)
{
    ExpectNothingLeftBy(1000, [](int) {
        const CSimultanousSessionMutex marker(true);
        EXPECT_TRUE(CSimultanousSessionMutex::IsOtiSession());
    });
}
