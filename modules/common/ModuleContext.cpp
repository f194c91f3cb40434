#include "modules/common/ModuleContext.h"

#include "Include/LastError.h"

namespace
{
HANDLE MakeContext(HMODULE hModule)
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(hModule, szPath, MAX_PATH);
    ACTCTXW context = {};
    context.cbSize = sizeof(context);
    context.dwFlags = ACTCTX_FLAG_HMODULE_VALID | ACTCTX_FLAG_RESOURCE_NAME_VALID;
    context.lpSource = szPath;
    context.lpResourceName = ISOLATIONAWARE_MANIFEST_RESOURCE_ID;
    context.hModule = hModule;
    return CreateActCtxW(&context);
}
} // namespace

CModuleContext::CModuleContext(HMODULE hModule)
    : m_hContext(MakeContext(hModule)),
      m_bActive(m_hContext != INVALID_HANDLE_VALUE && ActivateActCtx(m_hContext, &m_uCookie) != FALSE)
{
}

CModuleContext::~CModuleContext()
{
    const CKeepLastError keepLastError;
    if (m_bActive)
    {
        DeactivateActCtx(0, m_uCookie);
    }
    if (m_hContext != INVALID_HANDLE_VALUE)
    {
        ReleaseActCtx(m_hContext);
    }
}
