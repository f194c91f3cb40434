#pragma once

#include <winsock2.h>
#include <windows.h>

/// Plays a sound and returns when it has ended, unless the flags (SND_*) say otherwise. Returns what
/// PlaySoundW answered, or 0 when the system can't play sounds. Any thread.
int KDAPlaySound(const wchar_t* pszSound, HINSTANCE hModule, DWORD dwFlags);
