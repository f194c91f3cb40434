#pragma once

#include <cstddef>
#include <vector>

/// Replaces one imported function of the running executable for as long as the object lives.
///
/// Only calls that the executable itself makes are redirected: the system's own modules and functions that
/// were fetched with GetProcAddress are untouched (hook GetProcAddress for those). A function that the
/// executable doesn't import ends the program with a message, as a hook that silently does nothing would let
/// every test behind it pass.
class ImportTablePatch
{
  public:
    ImportTablePatch(const char* pszModule, const char* pszFunction, void* pReplacement);
    ~ImportTablePatch();
    ImportTablePatch(const ImportTablePatch&) = delete;
    ImportTablePatch& operator=(const ImportTablePatch&) = delete;

  protected:
    /// What the first patched slot held before.
    void* Previous() const { return m_slots.front().pPrevious; }

  private:
    struct Slot
    {
        void** ppTarget;
        void* pPrevious;
    };

    std::vector<Slot> m_slots;
    void* m_pReplacement;
    const char* m_pszFunction;
};

/// Typed form: `ImportHook hook("user32.dll", "MessageBoxW", &FakeMessageBox);`
///
/// The module's name is compared without regard to case; a function that the linker took from another module
/// (an "api-ms-..." name, for one) is found by its own name. An import by number is named with
/// MAKEINTRESOURCEA(number).
///
/// Hooks on one function nest, and must end in the reverse order of their making; any other order ends the
/// program with a message. Threads: each slot is changed with one pointer-sized store, so other threads may
/// call the function meanwhile, but nobody waits for a call that is still inside the replacement when the
/// hook ends: join such threads first. Making and ending hooks belongs to one thread at a time.
///
/// The compiler takes an import for constant and may fetch it once for a whole function: a function that was
/// entered before the hook was made may go on with the old address. Make the hook first, then call the code
/// under test; don't call the hooked function from the body that makes the hook.
///
/// A replacement that has to reach the original can go through Original(), which is the function that was
/// imported before this hook.
template <typename Function>
class ImportHook : private ImportTablePatch
{
  public:
    ImportHook(const char* pszModule, const char* pszFunction, Function* pfnReplacement)
        : ImportTablePatch(pszModule, pszFunction, reinterpret_cast<void*>(pfnReplacement))
    {
    }

    Function* Original() const { return reinterpret_cast<Function*>(Previous()); }
};

template <typename Function>
ImportHook(const char*, const char*, Function*) -> ImportHook<Function>;
