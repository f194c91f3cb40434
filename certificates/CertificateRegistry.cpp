#include "certificates/CertificateRegistry.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/TKLogging.h"

#include <algorithm>

PCCERT_CONTEXT g_CertContext = nullptr;

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ValidateCertDialog");

constexpr size_t MAX_HIVE_PATH = 260; // characters, terminator included
constexpr wchar_t STORE_FILE[] = L"tkcrtst.bin";

struct CertStore : HandleTraits::NullInvalid<HCERTSTORE>
{
    static void Close(Handle h) noexcept { CertCloseStore(h, CERT_CLOSE_STORE_CHECK_FLAG); }
};
using CCertStore = CUniqueAny<CertStore>;

// Whether the bytes are a certificate; g_CertContext is that certificate, or null.
bool TakeCandidate(const boost::shared_array<unsigned char>& bytes, unsigned long size,
                   const wchar_t* pszRegistry)
{
    g_CertContext = CertCreateCertificateContext(CERTIFICATE_ENCODING, bytes.get(), size);
    if (g_CertContext != nullptr)
    {
        return true;
    }
    const int nError = static_cast<int>(GetLastError());
    TK_LOG_ERROR(g_pLogger, L"Could not recreate certificate (Err " << nError << L") from " << pszRegistry
                                                                    << L" registry (0).");
    return false;
}

bool FindCandidateOfUser()
{
    CRegKey hKey;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, CERTIFICATES_KEY, 0, KEY_READ, hKey.put()) != ERROR_SUCCESS)
    {
        return false;
    }
    unsigned long size = 0;
    const boost::shared_array<unsigned char> bytes =
        GetRegistryBinaryValue(hKey.get(), CANDIDATE_VALUE, size);
    TK_LOG_TRACE(g_pLogger, L"GetCertFromACRegistry; Certificate binary data is read from "
                                << CERTIFICATES_KEY << L" size is " << size);
    return bytes && TakeCandidate(bytes, size, L"a_c");
}

// A path that doesn't fit is cut, and names no key.
bool FindCandidateOfHive(HKEY hUsers, const std::wstring& hive)
{
    wchar_t szPath[MAX_HIVE_PATH] = {};
    CopyText(szPath, hive + L"\\" + CERTIFICATES_KEY);
    CRegKey hKey;
    const LSTATUS nResult = RegOpenKeyExW(hUsers, szPath, 0, KEY_READ, hKey.put());
    TK_LOG_INFO(g_pLogger, L"Registry key '" << szPath << L"' open with result " << nResult);
    if (nResult != ERROR_SUCCESS)
    {
        return false;
    }
    unsigned long size = 0;
    const boost::shared_array<unsigned char> bytes =
        GetRegistryBinaryValue(hKey.get(), CANDIDATE_VALUE, size);
    TK_LOG_DEBUG(g_pLogger, L"Registry subkey 'a c' read " << L" (size " << size << L")");
    return bytes && TakeCandidate(bytes, size, L"a_c HKU");
}

bool FindCandidateAmong(HKEY hUsers, DWORD dwHives)
{
    for (DWORD dwHive = 0; dwHive < dwHives; ++dwHive)
    {
        wchar_t szHive[MAX_HIVE_PATH] = {};
        DWORD cchHive = MAX_HIVE_PATH;
        const LSTATUS nResult =
            RegEnumKeyExW(hUsers, dwHive, szHive, &cchHive, nullptr, nullptr, nullptr, nullptr);
        if (nResult != ERROR_SUCCESS)
        {
            TK_LOG_WARN(g_pLogger, L"Cannot enlist '" << dwHive << L"' subitem. Error code: " << nResult);
        }
        else if (FindCandidateOfHive(hUsers, szHive))
        {
            return true;
        }
    }
    return false;
}

bool FindCandidateOfAnyHive()
{
    CRegKey hUsers;
    LSTATUS nResult = RegOpenKeyExW(HKEY_USERS, L"", 0, KEY_READ, hUsers.put());
    if (nResult != ERROR_SUCCESS)
    {
        TK_LOG_WARN(g_pLogger, L"Cannot open registry key HKEY_USERS. Error code: " << nResult);
        return false;
    }
    TK_LOG_INFO(g_pLogger, L"Registry key HKEY_USERS opened.");
    DWORD dwHives = 0;
    nResult = RegQueryInfoKeyW(hUsers.get(), nullptr, nullptr, nullptr, &dwHives, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr, nullptr);
    if (nResult != ERROR_SUCCESS)
    {
        TK_LOG_WARN(g_pLogger, L"Cannot enlist any subitem. Error code: " << nResult);
        return false;
    }
    TK_LOG_INFO(g_pLogger, L"Registry key HKEY_USERS enlisted. Found '" << dwHives << L"' items.");
    return FindCandidateAmong(hUsers.get(), dwHives);
}

bool HasTheBytesOfCandidate(const boost::shared_array<unsigned char>& bytes, unsigned long size)
{
    return bytes && size == g_CertContext->cbCertEncoded &&
           std::equal(bytes.get(), bytes.get() + size, g_CertContext->pbCertEncoded);
}

bool IsCandidateTrusted()
{
    CRegKey hKey;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, CERTIFICATES_KEY, 0, KEY_READ, hKey.put()) != ERROR_SUCCESS)
    {
        return false;
    }
    const std::wstring name = GetCertificateName();
    TK_LOG_TRACE(g_pLogger, L"IsCertInRegistry; Certificate name is " << name);
    if (g_CertContext == nullptr || name.empty())
    {
        return false;
    }
    unsigned long size = 0;
    const boost::shared_array<unsigned char> bytes = GetRegistryBinaryValue(hKey.get(), name.c_str(), size);
    return HasTheBytesOfCandidate(bytes, size);
}

// A store in memory, and the file that it is to be saved in. Null with the reason logged.
CCertStore OpenNewStore(CFileHandle& hFile)
{
    CCertStore hStore(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    if (!hStore)
    {
        TK_LOG_ERROR(g_pLogger, L"Error opening new memory store.");
        return hStore;
    }
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
    hFile.reset(CreateFileW(STORE_FILE, GENERIC_WRITE, 0, &attributes, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                            nullptr));
    // A file that can't be made isn't null: that shows when the store is saved.
    if (hFile.get() == nullptr)
    {
        TK_LOG_ERROR(g_pLogger, L"Could not create certificate store on disk.");
        hStore.reset();
    }
    return hStore;
}

bool AddCandidate(HCERTSTORE hStore)
{
    if (CertAddCertificateContextToStore(hStore, g_CertContext, CERT_STORE_ADD_USE_EXISTING, nullptr))
    {
        return true;
    }
    TK_LOG_ERROR(g_pLogger, L"Could not add the certificate to the memory store.");
    return false;
}
} // namespace

bool GetCertFromACRegistry()
{
    const TKLogBlock block("GetCertFromACRegistry", g_pLogger);
    TK_LOG_DEBUG(g_pLogger, L"GetCertFromACRegistry started");
    if (FindCandidateOfUser())
    {
        TK_LOG_DEBUG(g_pLogger, L"GetCertFromACRegistry returning true");
        return true;
    }
    TK_LOG_DEBUG(g_pLogger, L"GetCertFromACRegistry from HKU started");
    if (FindCandidateOfAnyHive())
    {
        TK_LOG_DEBUG(g_pLogger, L"GetCertFromACRegistry HKU returning true");
        return true;
    }
    TK_LOG_WARN(g_pLogger, L"GetCertFromACRegistry returning false");
    return false;
}

std::wstring GetCertificateName()
{
    const TKLogBlock block("GetCertificateName", g_pLogger);
    if (g_CertContext == nullptr)
    {
        return std::wstring();
    }
    // The terminator is counted: a length of one is no name.
    const DWORD cchName =
        CertGetNameStringW(g_CertContext, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, nullptr, 0);
    if (cchName <= 1)
    {
        TK_LOG_ERROR(g_pLogger, L"GetCertificateName; Unable to extract certificate simple display name.");
        return std::wstring();
    }
    std::wstring name(cchName, L'\0');
    if (CertGetNameStringW(g_CertContext, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name.data(), cchName) <=
        1)
    {
        TK_LOG_ERROR(g_pLogger, L"GetCertificateName; Unable to extract certificate simple display name "
                                L"(size of name string is known).");
        return std::wstring();
    }
    return std::wstring(FixedText(name.data(), name.size()));
}

boost::shared_array<unsigned char> GetRegistryBinaryValue(HKEY hKey, const wchar_t* pszName,
                                                          unsigned long& size)
{
    size = 0;
    DWORD dwType = REG_BINARY;
    if (RegQueryValueExW(hKey, pszName, nullptr, &dwType, nullptr, &size) != ERROR_SUCCESS)
    {
        TK_LOG_TRACE(g_pLogger, L"GetRegistryBinaryValue; Unable to find " << pszName);
        return {};
    }
    if (size == 0)
    {
        TK_LOG_TRACE(g_pLogger, L"GetRegistryBinaryValue; Registry binary value is empty.");
        return {};
    }
    if (dwType != REG_BINARY)
    {
        TK_LOG_ERROR(g_pLogger, L"GetRegistryBinaryValue; Requested value is not binary " << pszName);
        return {};
    }
    boost::shared_array<unsigned char> bytes(new unsigned char[size]);
    if (RegQueryValueExW(hKey, pszName, nullptr, &dwType, bytes.get(), &size) != ERROR_SUCCESS)
    {
        TK_LOG_ERROR(g_pLogger, L"GetRegistryBinaryValue; Unable to find (size is known)" << pszName);
        return {};
    }
    return bytes;
}

bool IsCertInRegistry(const CERT_CONTEXT* /*pCertificate*/)
{
    const TKLogBlock block("IsCertInRegistry", g_pLogger);
    if (!IsCandidateTrusted())
    {
        TK_LOG_TRACE(g_pLogger, L"IsCertInRegistry; IsCertInRegistry returned false.");
        return false;
    }
    TK_LOG_TRACE(g_pLogger, L"IsCertInRegistry; IsCertInRegistry returned true.");
    return true;
}

bool SaveCertToRegistry(const CERT_CONTEXT* /*pCertificate*/)
{
    const TKLogBlock block("SaveCertToRegistry", g_pLogger);
    CRegKey hKey;
    LSTATUS nResult = RegCreateKeyExW(HKEY_CURRENT_USER, CERTIFICATES_KEY, 0, nullptr, 0, KEY_ALL_ACCESS,
                                      nullptr, hKey.put(), nullptr);
    const std::wstring name = nResult == ERROR_SUCCESS ? GetCertificateName() : std::wstring();
    if (g_CertContext == nullptr || name.empty())
    {
        const DWORD dwError = GetLastError();
        TK_LOG_ERROR(g_pLogger, L"SaveCertToRegistry; Unable to store certificate (unable to create "
                                    << CERTIFICATES_KEY << L" registry key), result = " << nResult
                                    << L" last error = " << dwError);
        return false;
    }
    nResult = RegSetValueExW(hKey.get(), name.c_str(), 0, REG_BINARY, g_CertContext->pbCertEncoded,
                             g_CertContext->cbCertEncoded);
    if (nResult != ERROR_SUCCESS)
    {
        const DWORD dwError = GetLastError();
        TK_LOG_ERROR(g_pLogger, L"SaveCertToRegistry; Unable to store certificate, result = "
                                    << nResult << L" last error = " << dwError);
        return false;
    }
    return true;
}

bool SaveCertToLocalStore(const CERT_CONTEXT* /*pCertificate*/)
{
    // In this order: the store is closed before its file.
    CFileHandle hFile;
    CCertStore hStore(CertOpenStore(CERT_STORE_PROV_FILENAME_W, CERTIFICATE_ENCODING, 0, 0, STORE_FILE));
    if (!hStore)
    {
        hStore = OpenNewStore(hFile);
    }
    if (!hStore)
    {
        return false;
    }
    const bool bAdded = AddCandidate(hStore.get());
    // A store that was there already has no file of ours to be saved in.
    const HANDLE hTarget = hFile ? hFile.get() : nullptr;
    if (!CertSaveStore(hStore.get(), 0, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_FILE, hTarget, 0))
    {
        TK_LOG_ERROR(g_pLogger, L"Could not save the memory store to disk.");
        return false;
    }
    return bAdded;
}
