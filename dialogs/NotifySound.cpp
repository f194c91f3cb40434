#include "dialogs/NotifySound.h"

#include "Include/SystemCall.h"
#include "Include/TKLogging.h"

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("NotifyDialog");

using PlaySoundFunction = BOOL(WINAPI*)(LPCWSTR, HMODULE, DWORD);
} // namespace

int KDAPlaySound(const wchar_t* pszSound, HINSTANCE hModule, DWORD dwFlags)
{
    TK_LOG_INFO(g_pLogger, L"KDAPlaySound " << (pszSound != nullptr ? pszSound : L""));
    const CSystemCall<PlaySoundFunction> playSound(L"Winmm.DLL", "PlaySoundW");
    return playSound ? playSound(pszSound, hModule, dwFlags) : 0;
}
