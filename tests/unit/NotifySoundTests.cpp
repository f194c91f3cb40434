#include "dialogs/NotifySound.h"

#include "tests/unit/LateBinding.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace
{
std::wstring g_sound;
HMODULE g_hSoundModule = nullptr;
DWORD g_dwSoundFlags = 0;

BOOL WINAPI RecordPlay(LPCWSTR pszSound, HMODULE hModule, DWORD dwFlags)
{
    g_sound = pszSound;
    g_hSoundModule = hModule;
    g_dwSoundFlags = dwFlags;
    return 7;
}
} // namespace

TEST(NotifySound, IsPlayedAsAskedAndItsModuleFreed)
{
    LateBinding binding;
    binding.Set("PlaySoundW", &RecordPlay);
    const LogCapture capture("NotifyDialog");
    const HINSTANCE hModule = GetModuleHandleW(nullptr);
    EXPECT_EQ(KDAPlaySound(L"WindowsLogon", hModule, 73730), 7);
    EXPECT_EQ(g_sound, L"WindowsLogon");
    EXPECT_EQ(g_hSoundModule, hModule);
    EXPECT_EQ(g_dwSoundFlags, 73730U);
    EXPECT_EQ(binding.OpenModules(), 0);
    EXPECT_THAT(capture.Texts(), testing::ElementsAre("INFO KDAPlaySound WindowsLogon"));
}

TEST(NotifySound, ASystemWithoutSoundPlaysNone)
{
    LateBinding binding;
    binding.SetMissing("PlaySoundW");
    EXPECT_EQ(KDAPlaySound(L"WindowsLogon", nullptr, 0), 0);
    EXPECT_EQ(binding.OpenModules(), 0);
    binding.SetMissingModule(L"Winmm.DLL");
    EXPECT_EQ(KDAPlaySound(L"WindowsLogon", nullptr, 0), 0);
}
