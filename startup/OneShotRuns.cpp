#include "startup/OneShotRuns.h"

#include "Include/TKLogging.h"
#include "Include/UtilResource.h"
#include "Include/UtilSettings.h"
#include "certificates/ValidateCertDialog.h"
#include "dialogs/ClientPermissionDialog.h"
#include "startup/CommandLine.h"
#include "startup/TKDAST.h"
#include "tray/DesktopOptions.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("TKDAST");

int RunPermissionPrompt(const ONE_SHOT_CONTEXT& context)
{
    const std::optional<PERMISSION_PARAMETERS> parameters = ParsePermissionLine(context.pszCommandLine);
    if (!parameters)
    {
        return EXIT_NOTHING_SHOWN;
    }
    return CreatePermissionDialog(parameters->nPort, parameters->nAfType) != 0 ? EXIT_SHOWN
                                                                               : EXIT_NOTHING_SHOWN;
}

int RunSettingsAsApplication(const ONE_SHOT_CONTEXT&)
{
    return DisplaySettingsDialog(nullptr, 0) ? EXIT_SHOWN : EXIT_NOTHING_SHOWN;
}

// In the machine's language: whoever started this run may have had the language of a user.
int RunSettings(const ONE_SHOT_CONTEXT&)
{
    ReloadLanguageModule();
    return DisplaySettingsDialog(nullptr, 1) ? EXIT_SHOWN : EXIT_NOTHING_SHOWN;
}

int RunCertificateQuestion(const ONE_SHOT_CONTEXT&)
{
    TK_LOG_INFO(g_pLogger, L"Displaying ValidateCert dialog");
    return ValidateCertDialog() ? EXIT_TRUSTED : EXIT_NOT_TRUSTED;
}

// Without an input desktop a run goes on where it is.
void MoveToInputDesktop(const ONE_SHOT_CONTEXT& context)
{
    if (context.inputDesktop)
    {
        SetThreadDesktop(context.inputDesktop.get());
    }
}

int RunConsoleLock(const ONE_SHOT_CONTEXT& context)
{
    MoveToInputDesktop(context);
    const int nAnswer = CheckDesktopStateCommandLine();
    context.inputDesktop.reset();
    return nAnswer;
}

int RunLogoff(const ONE_SHOT_CONTEXT& context)
{
    MoveToInputDesktop(context);
    return Logoff(0);
}

int RunLogoffForce(const ONE_SHOT_CONTEXT& context)
{
    MoveToInputDesktop(context);
    return Logoff(1);
}

int RunLockWorkstation(const ONE_SHOT_CONTEXT& context)
{
    MoveToInputDesktop(context);
    return LockWorkstation();
}

// The order is part of what callers rely on: of several switches in a line the first one here counts.
constexpr ONE_SHOT_RUN s_aRuns[] = {
    {INVITATION_SWITCH, SWITCH_MATCH::Anywhere, RunPermissionPrompt},
    {PERMISSION_SWITCH, SWITCH_MATCH::Anywhere, RunPermissionPrompt},
    {SETTINGS_AS_APPLICATION_SWITCH, SWITCH_MATCH::WholeLine, RunSettingsAsApplication},
    {SETTINGS_SWITCH, SWITCH_MATCH::WholeLine, RunSettings},
    {VALIDATE_CERT_SWITCH, SWITCH_MATCH::Anywhere, RunCertificateQuestion},
    {CONSOLE_LOCK_SWITCH, SWITCH_MATCH::WholeLine, RunConsoleLock},
    {LOGOFF_SWITCH, SWITCH_MATCH::WholeLine, RunLogoff},
    {LOGOFF_FORCE_SWITCH, SWITCH_MATCH::WholeLine, RunLogoffForce},
    {LOCK_WORKSTATION_SWITCH, SWITCH_MATCH::WholeLine, RunLockWorkstation},
};

bool IsAskedFor(const ONE_SHOT_RUN& run, const wchar_t* pszCommandLine)
{
    return run.match == SWITCH_MATCH::WholeLine ? lstrcmpW(pszCommandLine, run.pszSwitch) == 0
                                                : wcsstr(pszCommandLine, run.pszSwitch) != nullptr;
}
} // namespace

const ONE_SHOT_RUN* FindOneShotRun(const wchar_t* pszCommandLine)
{
    const ONE_SHOT_RUN* const pEnd = std::end(s_aRuns);
    const ONE_SHOT_RUN* const pRun =
        std::find_if(std::begin(s_aRuns), pEnd,
                     [pszCommandLine](const ONE_SHOT_RUN& run) { return IsAskedFor(run, pszCommandLine); });
    return pRun != pEnd ? pRun : nullptr;
}
