#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * What the settings module exports: a dialog for the settings of the service that the agent reads, in the
 * language that the environment variable LangUI names. The module keeps nothing once its dialog is closed and
 * may be freed then. One thread. When memory runs out in here the program ends here: the agent may come from
 * another compiler, which knows nothing of our exceptions.
 */
extern "C"
{
    /// Shows the dialog and returns when it is closed; the owner, which may be null, is disabled meanwhile.
    /// Non-zero: closed by OK, with all changes stored. Zero: cancelled, can't be shown, or open already. A
    /// cancelled dialog has stored nothing but what an OK before could store while other changes failed.
    int TKDA_SettingsDialog(HWND hOwner) noexcept;

    /// To be called before the dialog in a process that isn't elevated: the language is then read from and
    /// stored in the user's own part of the registry, where the agent looks for it as long as its settings
    /// aren't locked. The other settings have no such place, which the dialog tells. Holds until the module
    /// is freed.
    void TKDA_SetApplicationMode() noexcept;
}
