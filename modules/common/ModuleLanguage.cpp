#include "modules/common/ModuleLanguage.h"

#include "Include/LangUI.h"

#include <iterator>

namespace
{
constexpr UINT STRINGS_PER_BLOCK = 16;

struct MODULE_LANGUAGE
{
    std::wstring_view code;
    LANGID language;
};
constexpr MODULE_LANGUAGE MODULE_LANGUAGES[] = {
    {DEFAULT_LANGUAGE, MODULE_ENGLISH}, {L"fr", MODULE_FRENCH}, {L"de", MODULE_GERMAN}};

// The bytes of one resource in one language, and nothing in their place.
std::string_view FindBytes(HMODULE hModule, const wchar_t* pszType, UINT uName, LANGID language)
{
    const HRSRC hResource = FindResourceExW(hModule, pszType, MAKEINTRESOURCEW(uName), language);
    const HGLOBAL hLoaded = hResource != nullptr ? LoadResource(hModule, hResource) : nullptr;
    if (hLoaded == nullptr)
    {
        return std::string_view();
    }
    return {static_cast<const char*>(LockResource(hLoaded)), SizeofResource(hModule, hResource)};
}

// A block holds sixteen texts, each a count and as many characters; one that ends early has no more texts.
std::wstring_view TextOfBlock(std::wstring_view block, UINT uIndex)
{
    for (; !block.empty(); --uIndex)
    {
        const std::wstring_view text = block.substr(1, block.front());
        if (uIndex == 0)
        {
            return text;
        }
        block.remove_prefix(1 + text.size());
    }
    return std::wstring_view();
}

std::wstring_view FindText(HMODULE hModule, UINT uString, LANGID language)
{
    const std::string_view bytes = FindBytes(hModule, RT_STRING, uString / STRINGS_PER_BLOCK + 1, language);
    return TextOfBlock({reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t)},
                       uString % STRINGS_PER_BLOCK);
}
} // namespace

bool IsSameLanguage(std::wstring_view left, std::wstring_view right)
{
    return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

LANGID ModuleLanguageOf(std::wstring_view code)
{
    for (const MODULE_LANGUAGE& row : MODULE_LANGUAGES)
    {
        if (IsSameLanguage(row.code, code))
        {
            return row.language;
        }
    }
    return MODULE_ENGLISH;
}

LANGID CurrentModuleLanguage()
{
    wchar_t szLanguage[MAX_LANGUAGE] = {};
    const DWORD cchLanguage = GetEnvironmentVariableW(LANGUAGE_VALUE, szLanguage, MAX_LANGUAGE);
    return ModuleLanguageOf({szLanguage, cchLanguage < MAX_LANGUAGE ? cchLanguage : 0});
}

std::wstring LoadModuleText(HMODULE hModule, UINT uString, LANGID language)
{
    const std::wstring_view text = FindText(hModule, uString, language);
    return std::wstring(!text.empty() ? text : FindText(hModule, uString, MODULE_ENGLISH));
}

const DLGTEMPLATE* FindModuleDialog(HMODULE hModule, UINT uDialog, LANGID language)
{
    std::string_view bytes = FindBytes(hModule, RT_DIALOG, uDialog, language);
    if (bytes.empty())
    {
        bytes = FindBytes(hModule, RT_DIALOG, uDialog, MODULE_ENGLISH);
    }
    return reinterpret_cast<const DLGTEMPLATE*>(bytes.data());
}
