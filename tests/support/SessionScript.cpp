#include "tests/support/SessionScript.h"

#include <wtsapi32.h>

#include <cstdlib>

SessionScript::SessionScript()
    : m_hMapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(SESSION_SCRIPT),
                                    SESSION_SCRIPT_NAME)),
      m_pScript(static_cast<SESSION_SCRIPT*>(
          MapViewOfFile(m_hMapping, FILE_MAP_WRITE, 0, 0, sizeof(SESSION_SCRIPT))))
{
    if (m_pScript == nullptr)
    {
        std::abort();
    }
    constexpr LONG EXTENDED_LEVEL = 1;
    constexpr LONG SESSION_UNLOCKED = 1;
    *m_pScript = SESSION_SCRIPT{0, WTSActive, SESSION_UNLOCKED, EXTENDED_LEVEL, 0, 0, 0};
}

SessionScript::~SessionScript()
{
    UnmapViewOfFile(m_pScript);
    CloseHandle(m_hMapping);
}
