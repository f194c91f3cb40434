#include "tests/unit/BoxTrace.h"

#include <utility>

BoxTrace* BoxTrace::s_pThis = nullptr;

BoxTrace::BoxTrace()
{
    s_pThis = this;
}

BoxTrace::~BoxTrace()
{
    s_pThis = nullptr;
}

int WINAPI BoxTrace::Record(HWND hWnd, LPCWSTR pszText, LPCWSTR pszTitle, UINT uType)
{
    s_pThis->m_boxes.push_back({hWnd, pszText, pszTitle, uType});
    if (const std::function<void()> whileOpen = std::exchange(s_pThis->m_whileOpen, nullptr); whileOpen)
    {
        whileOpen();
    }
    return s_pThis->m_nAnswer;
}
