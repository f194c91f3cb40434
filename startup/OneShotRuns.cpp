#include "startup/OneShotRuns.h"

#include "Include/TKLogging.h"
#include "certificates/ValidateCertDialog.h"
#include "dialogs/ClientPermissionDialog.h"
#include "startup/CommandLine.h"
#include "startup/TKDAST.h"

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

int RunCertificateQuestion(const ONE_SHOT_CONTEXT&)
{
    TK_LOG_INFO(g_pLogger, L"Displaying ValidateCert dialog");
    return ValidateCertDialog() ? EXIT_TRUSTED : EXIT_NOT_TRUSTED;
}

// The order is part of what callers rely on: of several switches in a line the first one here counts.
constexpr ONE_SHOT_RUN s_aRuns[] = {
    {INVITATION_SWITCH, SWITCH_MATCH::Anywhere, RunPermissionPrompt},
    {PERMISSION_SWITCH, SWITCH_MATCH::Anywhere, RunPermissionPrompt},
    {VALIDATE_CERT_SWITCH, SWITCH_MATCH::Anywhere, RunCertificateQuestion},
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
