#pragma once

#include "Include/LangUI.h"
#include "tray/TrayIcon.h"

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/*
 * What the settings dialog decides, as plain functions of plain values. Any thread.
 */

constexpr DWORD LARGEST_PORT = 65535;

/// The settings as a person sees them.
struct SETTINGS
{
    DWORD dwPort = 0;
    TRAY_ICON_MODE trayIcon = TRAY_ICON_SHOWN;
    bool bPermissionRequired = false;
    std::wstring language; // a code: "de"
};

/// One of them, in the order of the dialog.
enum class SETTING
{
    PORT,
    TRAY_ICON,
    LANGUAGE,
    PERMISSION
};

enum class PORT_FAULT
{
    NONE,
    EMPTY,
    NO_NUMBER,
    OUT_OF_RANGE
};

/// What a person has typed for the port; what is wrong with it lies between two positions in the text.
struct PORT_INPUT
{
    PORT_FAULT fault = PORT_FAULT::NONE;
    DWORD dwPort = 0; // where there is no fault
    size_t nFaultBegin = 0;
    size_t nFaultEnd = 0;
};

/// Reads a port: the digits 0 to 9, at most with blanks around them.
PORT_INPUT ParsePortInput(std::wstring_view text);

/// What the stored numbers and the stored language mean to the agent: the product's port for none, "always"
/// for an icon mode that nobody knows, English for no language.
SETTINGS ShownSettings(DWORD dwPort, DWORD dwTrayIcon, DWORD dwPermissionRequired,
                       std::wstring_view language);

/// What a person has changed, in the order of the dialog. The case of a language's code doesn't count.
std::vector<SETTING> ChangedSettings(const SETTINGS& shown, const SETTINGS& wanted);

/// Takes one setting over from others.
void TakeSetting(SETTINGS& to, const SETTINGS& from, SETTING setting);

/// Where a setting is stored. A run without elevation has the language in the user's own part of the
/// registry, where the agent looks for it; for the others there is one place only.
HKEY RootOfSetting(SETTING setting, bool bApplicationMode);

/// A language to choose.
struct LANGUAGE_CHOICE
{
    std::wstring code;
    std::wstring text;
};

/// The words of choices that are more than a language's name.
struct LANGUAGE_WORDS
{
    std::wstring asWindows;    // with a place-holder for a name
    std::wstring notInstalled; // with a place-holder for a code
};

/// The code of the language that comes nearest to Windows's own ("de" for "de-AT"); English where none does.
std::wstring NearestLanguage(std::wstring_view windowsLocale, const std::vector<std::wstring>& installed);

/// A language's name in itself ("Français"); its code where the system doesn't know it.
std::wstring LanguageName(const std::wstring& code);

/// All choices: Windows's language, the installed ones, and the stored one where it isn't among them, so that
/// it can stay.
std::vector<LANGUAGE_CHOICE> ListLanguages(const std::vector<std::wstring>& installed,
                                           std::wstring_view windowsLocale, const std::wstring& stored,
                                           const LANGUAGE_WORDS& words);

/// The position of the choice that stands for a language by itself; the last one when there is none.
size_t FindLanguage(const std::vector<LANGUAGE_CHOICE>& choices, std::wstring_view code);
