#include "tests/support/SessionScript.h"

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
    *m_pScript = MakeActiveSession();
}

SessionScript::~SessionScript()
{
    UnmapViewOfFile(m_pScript);
    CloseHandle(m_hMapping);
}
