#pragma once

#include "modules/settings/SettingsChoice.h"

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

/*
 * What the settings dialog says, in a language of the module hModule. Any thread.
 */

/// One setting that could not be stored, with the Windows error code.
struct STORE_FAILURE
{
    SETTING setting;
    LSTATUS nError;
};

/// What a person should know before changing anything: whom the settings are for, and whether rights are
/// missing.
UINT ChooseNote(bool bApplicationMode, bool bCanStore);

/// What to say of a port that can't be taken; 0 for one without a fault.
UINT ChoosePortComplaint(PORT_FAULT fault);

/// The system's words for an error, in that language if it has them and in its own if not; the number where
/// it has no words at all.
std::wstring ComposeSystemError(HMODULE hModule, LANGID language, LSTATUS nError);

/// Which changes could not be stored and why, whether others were, and who could help where rights on the
/// machine are missing. There must be a failure.
std::wstring ComposeStoreReport(HMODULE hModule, LANGID language, bool bApplicationMode,
                                const std::vector<STORE_FAILURE>& failures, bool bOthersStored);
