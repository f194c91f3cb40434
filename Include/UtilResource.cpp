#include "Include/UtilResource.h"

#include "startup/TKDAST.h"

std::wstring LoadResourceText(UINT uString, size_t cchText)
{
    std::wstring text(cchText, L'\0');
    text.resize(static_cast<size_t>(
        LoadStringW(g_hResourceModule, uString, text.data(), static_cast<int>(text.size()))));
    return text;
}

std::wstring FillPlaceholders(std::wstring_view format, std::initializer_list<std::wstring_view> values)
{
    std::wstring text;
    auto itValue = values.begin();
    for (size_t nAt = 0; nAt < format.size(); ++nAt)
    {
        if (format[nAt] != L'%' || nAt + 1 == format.size())
        {
            text += format[nAt];
            continue;
        }
        ++nAt;
        if (format[nAt] == L'%')
        {
            text += L'%';
        }
        else if (itValue != values.end())
        {
            text += *itValue++;
        }
    }
    return text;
}
