#include "Include/Placeholders.h"

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
