#pragma once

#include "fuzz/Choices.h"

#include <cstddef>
#include <span>
#include <string_view>

/*
 * What is played bad input to: the product's own functions, in this process, on a system that is played at
 * the import table, so that nothing is shown, started, stored or sent.
 */

struct FUZZ_TARGET
{
    const char* pszName;

    // One round: makes input from the choices and plays it. Returns how many inputs that was, at least one.
    size_t (*pfnRun)(CChoices& choices);
};

/// All of them. Any thread.
std::span<const FUZZ_TARGET> GetFuzzTargets();

/// The target of that name, or null. Any thread.
const FUZZ_TARGET* FindFuzzTarget(std::string_view name);

/// Ends the program as a crash does, when the product has broken a promise. Any thread.
void Expect(bool bKept, const char* pszPromise);

// One function a target. The main thread, one at a time.
size_t FuzzStream(CChoices& choices);
size_t FuzzPermission(CChoices& choices);
size_t FuzzQuery(CChoices& choices);
size_t FuzzCommandLine(CChoices& choices);
size_t FuzzChat(CChoices& choices);
size_t FuzzRegistry(CChoices& choices);
size_t FuzzCertificate(CChoices& choices);
size_t FuzzResolver(CChoices& choices);
