#include "Include/UtilResource.h"

#include "Include/LangUI.h"
#include "Include/Product.h"
#include "startup/TKDAST.h"

std::wstring LoadResourceText(UINT uString, size_t cchText)
{
    std::wstring text(cchText, L'\0');
    text.resize(static_cast<size_t>(
        LoadStringW(g_hResourceModule, uString, text.data(), static_cast<int>(text.size()))));
    return text;
}

void ReloadLanguageModule()
{
    CreateLanguageStorage(&g_ProfileReg);
    // The module in use before stays loaded: other threads may be reading from it.
    const HMODULE hModule = LoadLanguageModule(LANGUAGE_MODULE);
    g_hResourceModule = hModule != nullptr ? hModule : g_hInstance;
}
