#pragma once

#include "tests/support/SharedRecord.h"
#include "tests/support/settingsmodule/SettingsTrace.h"

#include <string>

/// Steers the test's settings module and watches it, in whichever process loads it while this object lives.
/// Its dialog succeeds unless told otherwise. One object at a time in one logon session.
class SettingsTrace : public SharedRecord<SETTINGS_TRACE>
{
  public:
    SettingsTrace() : SharedRecord(SETTINGS_TRACE_NAME, SETTINGS_TRACE{1, 0, 0, 0, 0, 0, nullptr, {}}) {}
};

/// The file name by which the agent knows its settings module.
constexpr wchar_t TEST_SETTINGS_MODULE[] = L"TKDASET.DLL";

/// The folder, under the test programs, of the test's settings module that lacks "nothing", "mode" or
/// "dialog".
inline std::wstring TestSettingsFolder(const std::wstring& missing)
{
    return L"testmodules\\settings-" + missing;
}
