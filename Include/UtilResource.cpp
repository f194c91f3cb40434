#include "Include/UtilResource.h"

#include "startup/TKDAST.h"

std::wstring LoadResourceText(UINT uString, size_t cchText)
{
    std::wstring text(cchText, L'\0');
    text.resize(static_cast<size_t>(
        LoadStringW(g_hResourceModule, uString, text.data(), static_cast<int>(text.size()))));
    return text;
}
