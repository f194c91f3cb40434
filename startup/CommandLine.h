#pragma once

#include <optional>
#include <string_view>

/*
 * How the command line is read. The line is what follows the program's name, taken as it stands: only blanks
 * part its words, quotes mean nothing, and every switch is case-sensitive. All functions may run on any
 * thread.
 */

constexpr wchar_t PERMISSION_SWITCH[] = L"-Permission";
constexpr wchar_t INVITATION_SWITCH[] = L"-Invitation"; // the same prompt by another name
constexpr wchar_t SETTINGS_AS_APPLICATION_SWITCH[] = L"-SettingsAsApplication";
constexpr wchar_t SETTINGS_SWITCH[] = L"-Settings";
constexpr wchar_t VALIDATE_CERT_SWITCH[] = L"-ValidateCert";
constexpr wchar_t CONSOLE_LOCK_SWITCH[] = L"-ConsoleLock";
constexpr wchar_t LOGOFF_SWITCH[] = L"-Logoff";
constexpr wchar_t LOGOFF_FORCE_SWITCH[] = L"-LogoffForce";
constexpr wchar_t LOCK_WORKSTATION_SWITCH[] = L"-LockWorkstation";

/// The text between the line's first blank and the next one. Empty when the line holds no blank.
std::optional<std::wstring_view> FindFirstParameter(std::wstring_view line);

/// The port that a one-time agent is given; 0 for text that is no number, and for text longer than any port.
unsigned int ParseOneTimePort(std::wstring_view parameter);

/// What a permission prompt is told.
struct PERMISSION_PARAMETERS
{
    int nPort;   // of the exchange; 0 for text that is no number, and for text longer than any port
    int nAfType; // its address family; 0 when the line ends before it
};

/// The first word behind a blank is the port, unless that is the prompt's own switch: then it is the word
/// behind the switch. What follows the port is the address family. Empty when the line holds no blank.
std::optional<PERMISSION_PARAMETERS> ParsePermissionLine(std::wstring_view line);
