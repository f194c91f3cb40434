#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * The settings of the service: their dialog, which lives in a module of its own, the run of this program that
 * shows it, and the service's new start that changed settings may need.
 */

/// Ends a service that runs as a plain application, by closing its windows. Result: whether none is left;
/// takes half a second without one, six and a half at most. Any thread that owns no windows.
bool KillApplication();

/// Ends the service where it is an application, and starts it as a service. Result: whether the first ended
/// and the second started. Any thread that owns no windows.
bool RestartService();

/// Starts the service's program so that it runs as a service, and doesn't wait for it. Result: whether it
/// started. Any thread.
bool StartAsService();

/// Tells the settings module, which stays the caller's, that the machine's settings are not at stake. Does
/// nothing when the module has no such entry. Main thread.
void SetApplicationMode(HINSTANCE hModule);

/// Runs the settings dialog of the settings module. checkRights non-zero: a user who can't change the
/// machine's settings is asked first whether the dialog shall open all the same. zero: the dialog is told to
/// keep to the application. Result: whether the dialog succeeded; false when there is no dialog. Main thread.
bool DisplaySettingsDialog(HWND owner, int checkRights);

/// Starts this program for the settings dialog and doesn't wait for it; elevate non-zero: with an
/// administrator's rights, for which Windows asks for consent. Result: whether it started. Main thread.
bool ExecuteSettingsDialog(HWND owner, int elevate);

/// Whether this process runs with the reduced half of an administrator's rights: *limited is then 1, else 0.
/// False, with the last error, when it can't be told. Any thread.
bool GetElevationLimited(unsigned int* limited);
