#include "fuzz/FuzzTarget.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace
{
constexpr FUZZ_TARGET s_aTargets[] = {
    {"stream", FuzzStream},
    {"permission", FuzzPermission},
    {"query", FuzzQuery},
    {"commandline", FuzzCommandLine},
    {"chat", FuzzChat},
    {"registry", FuzzRegistry},
    {"certificate", FuzzCertificate},
    {"resolver", FuzzResolver},
};
} // namespace

std::span<const FUZZ_TARGET> GetFuzzTargets()
{
    return s_aTargets;
}

const FUZZ_TARGET* FindFuzzTarget(std::string_view name)
{
    const FUZZ_TARGET* const pTarget =
        std::find_if(std::begin(s_aTargets), std::end(s_aTargets),
                     [name](const FUZZ_TARGET& target) { return target.pszName == name; });
    return pTarget != std::end(s_aTargets) ? pTarget : nullptr;
}

void Expect(bool bKept, const char* pszPromise)
{
    if (!bKept)
    {
        std::fprintf(stderr, "Broken promise: %s\n", pszPromise);
        std::fflush(stderr);
        std::abort();
    }
}
