#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <string_view>

/*
 * The language of a module that holds its words itself, in one resource script with a LANGUAGE block each.
 * The agent keeps the language in the environment of its process, so a module speaks what the agent speaks.
 * What a language lacks comes in English. Any thread.
 */

constexpr LANGID MODULE_ENGLISH = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
constexpr LANGID MODULE_FRENCH = MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH);
constexpr LANGID MODULE_GERMAN = MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN);

/// Whether two codes name one language: their case doesn't count.
bool IsSameLanguage(std::wstring_view left, std::wstring_view right);

/// The language of a code ("en", "fr", "de", in any case); English for every other.
LANGID ModuleLanguageOf(std::wstring_view code);

/// The language that the agent has chosen. It can change while a module is loaded: ask anew for every window.
LANGID CurrentModuleLanguage();

/// A text of the module, whole; empty when not even English has it.
std::wstring LoadModuleText(HMODULE hModule, UINT uString, LANGID language);

/// A dialog for CreateDialogIndirectParamW and its kin, or null with the last error. The module owns it.
const DLGTEMPLATE* FindModuleDialog(HMODULE hModule, UINT uDialog, LANGID language);
