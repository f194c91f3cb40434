#include "tests/unit/CertificateHarness.h"

#include <utility>

void CertificateHarness::Forget()
{
    if (const PCCERT_CONTEXT pCertificate = std::exchange(g_CertContext, nullptr); pCertificate != nullptr)
    {
        CertFreeCertificateContext(pCertificate);
    }
}

void CertificateHarness::Put(const wchar_t* pszName, const std::vector<BYTE>& data, DWORD dwType)
{
    ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, CERTIFICATES_KEY, pszName, dwType, data.data(),
                              static_cast<DWORD>(data.size())),
              ERROR_SUCCESS);
}

void CertificateHarness::PutIntoHive(const std::wstring& hive, const std::vector<BYTE>& data, DWORD dwType)
{
    ASSERT_EQ(RegSetKeyValueW(HKEY_USERS, (hive + L'\\' + CERTIFICATES_KEY).c_str(), CANDIDATE_VALUE, dwType,
                              data.data(), static_cast<DWORD>(data.size())),
              ERROR_SUCCESS);
}

void CertificateHarness::Take(const std::vector<BYTE>& certificate)
{
    Forget();
    g_CertContext = CertCreateCertificateContext(CERTIFICATE_ENCODING, certificate.data(),
                                                 static_cast<DWORD>(certificate.size()));
    ASSERT_NE(g_CertContext, nullptr);
}

std::vector<BYTE> CertificateHarness::Stored(const wchar_t* pszName, DWORD dwType)
{
    CRegKey hKey;
    DWORD dwStoredType = REG_NONE;
    DWORD cb = 0;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, CERTIFICATES_KEY, 0, KEY_READ, hKey.put()) != ERROR_SUCCESS ||
        RegQueryValueExW(hKey.get(), pszName, nullptr, &dwStoredType, nullptr, &cb) != ERROR_SUCCESS ||
        dwStoredType != dwType)
    {
        return {};
    }
    std::vector<BYTE> data(cb);
    EXPECT_EQ(RegQueryValueExW(hKey.get(), pszName, nullptr, nullptr, data.data(), &cb), ERROR_SUCCESS);
    return data;
}

size_t CertificateHarness::CountStored()
{
    CRegKey hKey;
    DWORD dwValues = 0;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, CERTIFICATES_KEY, 0, KEY_READ, hKey.put()) == ERROR_SUCCESS)
    {
        EXPECT_EQ(RegQueryInfoKeyW(hKey.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                   &dwValues, nullptr, nullptr, nullptr, nullptr),
                  ERROR_SUCCESS);
    }
    return dwValues;
}

std::vector<BYTE> CertificateHarness::Found()
{
    return g_CertContext != nullptr
               ? std::vector<BYTE>(g_CertContext->pbCertEncoded,
                                   g_CertContext->pbCertEncoded + g_CertContext->cbCertEncoded)
               : std::vector<BYTE>();
}

std::vector<std::string> LinesOf(const LogCapture& log, const std::string& level)
{
    std::vector<std::string> lines = log.Texts();
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(level + ' '); });
    return lines;
}
