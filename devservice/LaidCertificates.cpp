#include "devservice/LaidCertificates.h"

#include "Include/Handles.h"
#include "certificates/CertificateRegistry.h"

#include <algorithm>

namespace
{
constexpr DWORD KEY_LENGTH = 2048;            // bits
constexpr DWORD KEY_FLAGS = KEY_LENGTH << 16; // where the call takes the length from
constexpr size_t MAX_VALUE_NAME = 16384;      // characters, terminator included

struct CryptProvider
{
    using Handle = HCRYPTPROV;
    static Handle Invalid() noexcept { return 0; }
    static void Close(Handle h) noexcept { CryptReleaseContext(h, 0); }
};
struct CryptKey
{
    using Handle = HCRYPTKEY;
    static Handle Invalid() noexcept { return 0; }
    static void Close(Handle h) noexcept { CryptDestroyKey(h); }
};
struct Certificate : HandleTraits::NullInvalid<PCCERT_CONTEXT>
{
    static void Close(Handle p) noexcept { CertFreeCertificateContext(p); }
};

// Quoted, so that no sign in it means anything.
std::wstring DistinguishedName(const std::wstring& commonName)
{
    std::wstring name = L"CN=\"";
    for (const wchar_t ch : commonName)
    {
        name.append(ch == L'"' ? 2 : 1, ch);
    }
    return name + L'"';
}

std::vector<BYTE> EncodeName(const std::wstring& commonName)
{
    const std::wstring name = DistinguishedName(commonName);
    DWORD cb = 0;
    if (!CertStrToNameW(X509_ASN_ENCODING, name.c_str(), CERT_X500_NAME_STR, nullptr, nullptr, &cb, nullptr))
    {
        return {};
    }
    std::vector<BYTE> encoded(cb);
    if (!CertStrToNameW(X509_ASN_ENCODING, name.c_str(), CERT_X500_NAME_STR, nullptr, encoded.data(), &cb,
                        nullptr))
    {
        return {};
    }
    return encoded;
}

// The value of that number; its name stays empty behind the last one.
std::vector<BYTE> ReadValue(HKEY hKey, DWORD dwIndex, std::wstring& name)
{
    name.assign(MAX_VALUE_NAME, L'\0');
    DWORD cchName = MAX_VALUE_NAME;
    DWORD cbData = 0;
    if (RegEnumValueW(hKey, dwIndex, name.data(), &cchName, nullptr, nullptr, nullptr, &cbData) !=
        ERROR_SUCCESS)
    {
        name.clear();
        return {};
    }
    name.resize(cchName);
    std::vector<BYTE> data(cbData);
    if (RegQueryValueExW(hKey, name.c_str(), nullptr, nullptr, data.data(), &cbData) != ERROR_SUCCESS)
    {
        data.clear();
    }
    return data;
}
} // namespace

std::vector<BYTE> MakeCertificate(const std::wstring& commonName)
{
    std::vector<BYTE> name = EncodeName(commonName);
    CUniqueAny<CryptProvider> hProvider;
    CUniqueAny<CryptKey> hKey;
    if (name.empty() ||
        !CryptAcquireContextW(hProvider.put(), nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT) ||
        !CryptGenKey(hProvider.get(), AT_SIGNATURE, KEY_FLAGS, hKey.put()))
    {
        return {};
    }
    CERT_NAME_BLOB subject = {static_cast<DWORD>(name.size()), name.data()};
    std::string algorithmId = szOID_RSA_SHA256RSA;
    CRYPT_ALGORITHM_IDENTIFIER algorithm = {algorithmId.data(), {0, nullptr}};
    const CUniqueAny<Certificate> pCertificate(
        CertCreateSelfSignCertificate(hProvider.get(), &subject, CERT_CREATE_SELFSIGN_NO_KEY_INFO, nullptr,
                                      &algorithm, nullptr, nullptr, nullptr));
    if (!pCertificate)
    {
        return {};
    }
    const CERT_CONTEXT& made = *pCertificate.get();
    return {made.pbCertEncoded, made.pbCertEncoded + made.cbCertEncoded};
}

bool CLaidCertificates::Lay(const std::vector<BYTE>& certificate)
{
    const LSTATUS nResult = RegSetKeyValueW(HKEY_CURRENT_USER, CERTIFICATES_KEY, CANDIDATE_VALUE, REG_BINARY,
                                            certificate.data(), static_cast<DWORD>(certificate.size()));
    if (nResult != ERROR_SUCCESS)
    {
        SetLastError(static_cast<DWORD>(nResult));
        return false;
    }
    m_laid.push_back(certificate);
    return true;
}

void CLaidCertificates::Forget()
{
    CRegKey hKey;
    if (m_laid.empty() || RegOpenKeyExW(HKEY_CURRENT_USER, CERTIFICATES_KEY, 0,
                                        KEY_QUERY_VALUE | KEY_SET_VALUE, hKey.put()) != ERROR_SUCCESS)
    {
        return;
    }
    std::wstring name;
    for (DWORD dwIndex = 0;;)
    {
        const std::vector<BYTE> data = ReadValue(hKey.get(), dwIndex, name);
        if (name.empty())
        {
            break;
        }
        // What follows moves up to the place of a value that goes.
        if (!WasLaid(data) || RegDeleteValueW(hKey.get(), name.c_str()) != ERROR_SUCCESS)
        {
            ++dwIndex;
        }
    }
    m_laid.clear();
}

bool CLaidCertificates::WasLaid(const std::vector<BYTE>& data) const
{
    return std::find(m_laid.begin(), m_laid.end(), data) != m_laid.end();
}
