#include "fuzz/FuzzTarget.h"

#include "certificates/CertificateRegistry.h"
#include "fuzz/PlayedRegistry.h"
#include "fuzz/RecordMutator.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace
{
using Bytes = std::vector<BYTE>;

constexpr std::uint32_t MOST_CERTIFICATES = 16; // of one round
constexpr size_t LONGEST_NAME = 600;            // characters
constexpr std::uint32_t MOST_SPOILT = 6;        // bytes

// Tags of DER.
constexpr BYTE DER_INTEGER = 0x02;
constexpr BYTE DER_BITS = 0x03;
constexpr BYTE DER_NULL = 0x05;
constexpr BYTE DER_OBJECT = 0x06;
constexpr BYTE DER_SEQUENCE = 0x30;
constexpr BYTE DER_SET = 0x31;
constexpr BYTE DER_TIME = 0x17;
constexpr BYTE DER_VERSION = 0xA0;
constexpr BYTE STRING_TAGS[] = {0x0C, 0x13, 0x14, 0x16, 0x1C, 0x1E}; // UTF-8 … UTF-16
constexpr BYTE SHORT_LENGTH_END = 0x80;
constexpr BYTE TWO_BYTES_OF_LENGTH = 0x82;
constexpr int BITS_OF_A_BYTE = 8;
constexpr size_t LONGEST_HEAD = 4; // bytes

const Bytes COMMON_NAME = {0x55, 0x04, 0x03};
const Bytes ORGANISATION = {0x55, 0x04, 0x0A};
const Bytes RSA_KEY = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
const Bytes RSA_SIGNATURE = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B};

Bytes Join(const std::vector<Bytes>& parts)
{
    Bytes all;
    for (const Bytes& part : parts)
    {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// Sometimes with a length that isn't the content's.
Bytes Item(CChoices& choices, BYTE bTag, const Bytes& content)
{
    const size_t cbTold = choices.OneIn(100) ? choices.Number() % 0x10000 : content.size();
    Bytes item;
    item.reserve(LONGEST_HEAD + content.size());
    item.push_back(bTag);
    if (cbTold >= SHORT_LENGTH_END)
    {
        item.push_back(TWO_BYTES_OF_LENGTH);
        item.push_back(static_cast<BYTE>(cbTold >> BITS_OF_A_BYTE));
    }
    item.push_back(static_cast<BYTE>(cbTold));
    item.insert(item.end(), content.begin(), content.end());
    return item;
}

Bytes Text(const char* psz)
{
    return {psz, psz + std::strlen(psz)};
}

Bytes MakeNameText(CChoices& choices)
{
    if (choices.Below(4) == 0)
    {
        return MakeBadBytes(choices, LONGEST_NAME);
    }
    const std::wstring text = MakeBadText(choices, LONGEST_NAME);
    const auto* const pBytes = reinterpret_cast<const BYTE*>(text.data());
    return {pBytes, pBytes + text.size() * sizeof(wchar_t)};
}

Bytes MakeName(CChoices& choices)
{
    Bytes parts;
    for (std::uint32_t nParts = choices.Below(3); nParts > 0; --nParts)
    {
        const BYTE bTag = STRING_TAGS[choices.Below(static_cast<std::uint32_t>(std::size(STRING_TAGS)))];
        const Bytes& attribute = choices.Below(4) != 0 ? COMMON_NAME : ORGANISATION;
        const Bytes pair =
            Join({Item(choices, DER_OBJECT, attribute), Item(choices, bTag, MakeNameText(choices))});
        const Bytes part = Item(choices, DER_SET, Item(choices, DER_SEQUENCE, pair));
        parts.insert(parts.end(), part.begin(), part.end());
    }
    return Item(choices, DER_SEQUENCE, parts);
}

Bytes Algorithm(CChoices& choices, const Bytes& object)
{
    return Item(choices, DER_SEQUENCE,
                Join({Item(choices, DER_OBJECT, object), Item(choices, DER_NULL, {})}));
}

// Nobody checks a signature: whoever looks at the certificate decides.
Bytes MakeDer(CChoices& choices)
{
    const Bytes validity = Item(choices, DER_SEQUENCE,
                                Join({Item(choices, DER_TIME, Text("200101000000Z")),
                                      Item(choices, DER_TIME, Text("491231235959Z"))}));
    const Bytes key =
        Item(choices, DER_SEQUENCE,
             Join({Item(choices, DER_INTEGER, Bytes(65, 0x55)), Item(choices, DER_INTEGER, Bytes(3, 1))}));
    const Bytes keyInfo =
        Item(choices, DER_SEQUENCE,
             Join({Algorithm(choices, RSA_KEY), Item(choices, DER_BITS, Join({Bytes(1, 0), key}))}));
    const Bytes body = Item(choices, DER_SEQUENCE,
                            Join({Item(choices, DER_VERSION, Item(choices, DER_INTEGER, Bytes(1, 2))),
                                  Item(choices, DER_INTEGER, Bytes(1, 1)), Algorithm(choices, RSA_SIGNATURE),
                                  MakeName(choices), validity, MakeName(choices), keyInfo}));
    return Item(choices, DER_SEQUENCE,
                Join({body, Algorithm(choices, RSA_SIGNATURE), Item(choices, DER_BITS, Bytes(65, 0))}));
}

Bytes MakeCertificate(CChoices& choices)
{
    if (choices.OneIn(16))
    {
        return MakeBadBytes(choices, LONGEST_NAME);
    }
    Bytes der = MakeDer(choices);
    if (choices.OneIn(4))
    {
        for (std::uint32_t nSpoilt = choices.Below(MOST_SPOILT); nSpoilt > 0; --nSpoilt)
        {
            der[choices.Below(static_cast<std::uint32_t>(der.size()))] = static_cast<BYTE>(choices.Number());
        }
    }
    if (choices.OneIn(16))
    {
        der.resize(choices.Below(static_cast<std::uint32_t>(der.size() + 1)));
    }
    return der;
}

void Forget()
{
    if (const PCCERT_CONTEXT pCertificate = std::exchange(g_CertContext, nullptr); pCertificate != nullptr)
    {
        CertFreeCertificateContext(pCertificate);
    }
}

// The list of trusted ones mostly holds the candidate itself, and sometimes another.
void PlayCandidate(CChoices& choices)
{
    const Bytes certificate = MakeCertificate(choices);
    const std::uint32_t nOther = choices.Below(8);
    const CPlayedRegistry registry([&](const wchar_t*) {
        PLAYED_VALUE value = {REG_BINARY, certificate};
        if (nOther == 1)
        {
            value.dwType = choices.Below(12);
        }
        else if (nOther == 2)
        {
            value.data.resize(choices.Below(static_cast<std::uint32_t>(certificate.size() + 2)));
        }
        return nOther == 3 ? std::nullopt : std::optional(value);
    });
    const bool bFound = GetCertFromACRegistry();
    Expect(bFound == (g_CertContext != nullptr), "a candidate is a certificate");
    const std::wstring name = GetCertificateName();
    Expect(name.find(L'\0') == std::wstring::npos, "a name has no zeros");
    const bool bTrusted = IsCertInRegistry(g_CertContext);
    Expect(!bTrusted || (bFound && !name.empty()), "only what has a name is trusted");
    SaveCertToRegistry(g_CertContext);
    Forget();
}
} // namespace

size_t FuzzCertificate(CChoices& choices)
{
    Forget();
    const std::uint32_t nCertificates = 1 + choices.Below(MOST_CERTIFICATES);
    for (std::uint32_t nCertificate = 0; nCertificate < nCertificates; ++nCertificate)
    {
        choices.Step("certificate");
        PlayCandidate(choices);
    }
    return nCertificates;
}
