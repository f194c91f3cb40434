#include "fuzz/RecordMutator.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace
{
constexpr std::uint32_t MOST_CHANGES = 5;
constexpr BYTE ALL_ONES = 0xFF;

enum FILLING : std::uint32_t
{
    FILLING_ZEROS,
    FILLING_PLAIN, // what a good service could send
    FILLING_TEXTS_WITHOUT_END,
    FILLING_ALL_ONES,
    FILLING_NOISE,
    FILLINGS
};

// What a text may hold that somebody could trip over.
constexpr std::wstring_view s_aPieces[] = {
    L"Alice",        L"x",
    L"%s%s%s%n",     L"%d %u %1 %%",
    L"\r\n",         L"\n\n\n",
    L"\t",           L"&",
    L"\\\\?\\",      L"..\\..\\",
    L"C:\\",         L"\"",
    L"Global\\",     L"\xD800",
    L"\xDC00",       L"\xD83D\xDE00",
    L"\x202E",       L"\x2066",
    L"\x05D0\x05D1", L"\xFEFF",
    L"\x0007",       L"\x007F",
    L"\x00AD",       L"\xFFFF",
    L" connected",   L" disconnected",
    L"en",           L"\x00E4\x00F6\x00FC\x00DF",
};

void AppendPieces(CChoices& choices, std::wstring& text, size_t cchMost)
{
    for (std::uint32_t nPieces = choices.Below(6); nPieces > 0 && text.size() < cchMost; --nPieces)
    {
        text += s_aPieces[choices.Below(static_cast<std::uint32_t>(std::size(s_aPieces)))];
    }
    text.resize(std::min(text.size(), cchMost));
}

std::wstring Noise(CChoices& choices, size_t cch)
{
    CRandom random(choices.Below(0x10000));
    std::wstring text(cch, L'\0');
    random.Fill({reinterpret_cast<BYTE*>(text.data()), text.size() * sizeof(wchar_t)});
    return text;
}

void SpoilText(CChoices& choices, const RECORD_FIELD& field, BYTE* pRecord)
{
    const size_t cchField = field.uSize / sizeof(wchar_t);
    std::wstring text = MakeBadText(choices, cchField);
    if (choices.Below(2) == 0 && text.size() < cchField)
    {
        text += L'\0'; // what stood behind it stays
    }
    // A field that is filled to its end has no terminator; that is the point.
    std::copy_n(reinterpret_cast<const BYTE*>(text.data()), text.size() * sizeof(wchar_t),
                pRecord + field.uOffset);
}

void SpoilRecord(CChoices& choices, const RECORD_DESCRIPTION& record, BYTE* pRecord)
{
    for (std::uint32_t nChanges = choices.Below(MOST_CHANGES); nChanges > 0; --nChanges)
    {
        const std::uint32_t nField = choices.Below(static_cast<std::uint32_t>(record.fields.size()));
        SpoilField(choices, record.fields[nField], pRecord);
    }
}

bool IsText(const RECORD_FIELD& field)
{
    return field.kind == FIELD_KIND::Text || field.kind == FIELD_KIND::Secret;
}

void FillPlainly(const RECORD_FIELD& field, BYTE* pRecord)
{
    constexpr DWORD PLAIN_NUMBER = 1;
    constexpr wchar_t PLAIN_TEXT[] = L"x";
    if (IsText(field) && field.uSize >= sizeof(PLAIN_TEXT))
    {
        std::memcpy(pRecord + field.uOffset, PLAIN_TEXT, sizeof(PLAIN_TEXT));
    }
    else if (field.kind == FIELD_KIND::Dword)
    {
        std::memcpy(pRecord + field.uOffset, &PLAIN_NUMBER, sizeof(PLAIN_NUMBER));
    }
}

void FillWithoutEnd(const RECORD_FIELD& field, BYTE* pRecord)
{
    if (IsText(field))
    {
        const std::wstring letters(field.uSize / sizeof(wchar_t), L'x');
        std::memcpy(pRecord + field.uOffset, letters.data(), field.uSize);
    }
}

template <typename Fill>
void FillFields(const RECORD_DESCRIPTION& record, BYTE* pRecord, Fill&& fill)
{
    for (const RECORD_FIELD& field : record.fields)
    {
        if (field.pRecord != nullptr)
        {
            FillFields(*field.pRecord, pRecord + field.uOffset, fill);
        }
        else
        {
            fill(field, pRecord);
        }
    }
}
} // namespace

BYTE* CGuardedMemory::Put(std::span<const BYTE> bytes) const
{
    BYTE* const pTail = Tail(bytes.size());
    std::copy(bytes.begin(), bytes.end(), pTail);
    return pTail;
}

std::wstring MakeBadText(CChoices& choices, size_t cchMost)
{
    std::wstring text;
    switch (choices.Below(8))
    {
    case 0:
        break;
    case 1:
        text.assign(cchMost, L'x');
        break;
    case 2:
        text.assign(cchMost != 0 ? cchMost - 1 : 0, L'y');
        break;
    case 3:
        text = Noise(choices, std::min<size_t>(choices.Number(), cchMost));
        break;
    case 4:
        text.assign(cchMost, s_aPieces[choices.Below(static_cast<std::uint32_t>(std::size(s_aPieces)))][0]);
        break;
    case 5:
        text.assign(std::min<size_t>(choices.Number(), cchMost), L'z');
        AppendPieces(choices, text, cchMost);
        break;
    default:
        AppendPieces(choices, text, cchMost);
        break;
    }
    return text;
}

std::vector<BYTE> MakeBadBytes(CChoices& choices, size_t nMost)
{
    std::vector<BYTE> bytes(std::min<size_t>(choices.Number(), nMost));
    switch (choices.Below(3))
    {
    case 0:
        break;
    case 1:
        std::fill(bytes.begin(), bytes.end(), ALL_ONES);
        break;
    default:
        CRandom(choices.Below(0x10000)).Fill(bytes);
        break;
    }
    return bytes;
}

void SpoilField(CChoices& choices, const RECORD_FIELD& field, BYTE* pRecord)
{
    switch (field.kind)
    {
    case FIELD_KIND::Text:
    case FIELD_KIND::Secret:
        SpoilText(choices, field, pRecord);
        break;
    case FIELD_KIND::Record:
        SpoilRecord(choices, *field.pRecord, pRecord + field.uOffset);
        break;
    case FIELD_KIND::Bytes:
        CRandom(choices.Below(0x10000)).Fill({pRecord + field.uOffset, field.uSize});
        break;
    case FIELD_KIND::Dword:
    case FIELD_KIND::Qword:
    case FIELD_KIND::Double:
        for (unsigned int uPart = 0; uPart < field.uSize; uPart += sizeof(std::uint32_t))
        {
            const std::uint32_t nNumber = choices.Number();
            std::memcpy(pRecord + field.uOffset + uPart, &nNumber, sizeof(nNumber));
        }
        break;
    }
}

std::vector<BYTE> MakeBadRecord(CChoices& choices, const RECORD_DESCRIPTION& record)
{
    std::vector<BYTE> bytes(record.uSize);
    switch (choices.Below(FILLINGS))
    {
    case FILLING_PLAIN:
        FillFields(record, bytes.data(), FillPlainly);
        break;
    case FILLING_TEXTS_WITHOUT_END:
        FillFields(record, bytes.data(), FillWithoutEnd);
        break;
    case FILLING_ALL_ONES:
        std::fill(bytes.begin(), bytes.end(), ALL_ONES);
        break;
    case FILLING_NOISE:
        CRandom(choices.Below(0x10000)).Fill(bytes);
        break;
    default:
        break;
    }
    SpoilRecord(choices, record, bytes.data());
    return bytes;
}
