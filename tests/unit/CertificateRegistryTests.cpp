#include "certificates/CertificateRegistry.h"

#include "tests/support/ImportHook.h"
#include "tests/support/TestCertificates.h"
#include "tests/unit/CertificateHarness.h"
#include "tests/unit/DialogHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace
{
using BYTES = std::vector<BYTE>;
using LINES = std::vector<std::string>;

const std::string KEY = "Software\\Tessaran Development\\Kestrel Desk Assist\\Crts";
constexpr char GARBAGE_ERROR[] = "-2146881269"; // CRYPT_E_ASN1_BADTAG

BYTES Garbage()
{
    return {'n', 'o', ' ', 'c', 'e', 'r', 't'};
}

std::string SizeOf(const BYTES& bytes)
{
    return std::to_string(bytes.size());
}

class CertificateRegistry : public CertificateHarness
{
  protected:
    /// Reads a value of the user's certificates.
    static BYTES Read(const wchar_t* pszName, unsigned long& size)
    {
        CRegKey hKey;
        EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, CERTIFICATES_KEY, 0, KEY_READ, hKey.put()), ERROR_SUCCESS);
        const boost::shared_array<unsigned char> bytes = GetRegistryBinaryValue(hKey.get(), pszName, size);
        return bytes ? BYTES(bytes.get(), bytes.get() + size) : BYTES();
    }
};

// The calls that a test makes fail, or watches.
struct REGISTRY_CALLS
{
    decltype(&RegOpenKeyExW) pfnOpen = nullptr;
    decltype(&RegQueryValueExW) pfnQuery = nullptr;
    decltype(&RegCreateKeyExW) pfnCreate = nullptr;
    decltype(&CertCreateCertificateContext) pfnCreateContext = nullptr;
    std::vector<HKEY> opened;
    std::vector<REGSAM> accesses;
    std::vector<DWORD> encodings;
    std::function<void()> betweenQueries;
    DWORD dwRefusedHive = 0;
    LSTATUS nSetResult = ERROR_SUCCESS;
};
REGISTRY_CALLS g_calls;

LSTATUS WINAPI RecordOpen(HKEY hKey, LPCWSTR pszKey, DWORD dwOptions, REGSAM access, PHKEY phResult)
{
    g_calls.opened.push_back(hKey);
    g_calls.accesses.push_back(access);
    return g_calls.pfnOpen(hKey, pszKey, dwOptions, access, phResult);
}

LSTATUS WINAPI RefuseUsers(HKEY hKey, LPCWSTR pszKey, DWORD dwOptions, REGSAM access, PHKEY phResult)
{
    return hKey == HKEY_USERS && pszKey[0] == L'\0'
               ? ERROR_ACCESS_DENIED
               : g_calls.pfnOpen(hKey, pszKey, dwOptions, access, phResult);
}

LSTATUS WINAPI RefuseLocked(HKEY hKey, LPCWSTR pszKey, DWORD dwOptions, REGSAM access, PHKEY phResult)
{
    return std::wstring_view(pszKey).starts_with(L"locked")
               ? ERROR_ACCESS_DENIED
               : g_calls.pfnOpen(hKey, pszKey, dwOptions, access, phResult);
}

LSTATUS WINAPI PauseBehindQuery(HKEY hKey, LPCWSTR pszValue, LPDWORD pReserved, LPDWORD pType, LPBYTE pData,
                                LPDWORD pcbData)
{
    const LSTATUS nResult = g_calls.pfnQuery(hKey, pszValue, pReserved, pType, pData, pcbData);
    if (pData == nullptr)
    {
        g_calls.betweenQueries();
    }
    return nResult;
}

LSTATUS WINAPI RefuseInfo(HKEY, LPWSTR, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD,
                          LPDWORD, LPDWORD, PFILETIME)
{
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI LoseHive(HKEY hKey, DWORD dwIndex, LPWSTR pszName, LPDWORD pcchName, LPDWORD, LPWSTR, LPDWORD,
                        PFILETIME)
{
    return dwIndex == g_calls.dwRefusedHive ? ERROR_NO_MORE_ITEMS
                                            : RegEnumKeyW(hKey, dwIndex, pszName, *pcchName);
}

LSTATUS WINAPI RefuseCreate(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY,
                            LPDWORD)
{
    SetLastError(77);
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI RecordCreate(HKEY hKey, LPCWSTR pszKey, DWORD dwReserved, LPWSTR pszClass, DWORD dwOptions,
                            REGSAM access, LPSECURITY_ATTRIBUTES pAttributes, PHKEY phResult,
                            LPDWORD pdwDisposition)
{
    EXPECT_EQ(hKey, HKEY_CURRENT_USER);
    EXPECT_EQ(dwOptions, 0U);
    g_calls.accesses.push_back(access);
    return g_calls.pfnCreate(hKey, pszKey, dwReserved, pszClass, dwOptions, access, pAttributes, phResult,
                             pdwDisposition);
}

PCCERT_CONTEXT WINAPI RecordContext(DWORD dwEncoding, const BYTE* pbCertificate, DWORD cbCertificate)
{
    g_calls.encodings.push_back(dwEncoding);
    return g_calls.pfnCreateContext(dwEncoding, pbCertificate, cbCertificate);
}

LSTATUS WINAPI RefuseSet(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD)
{
    SetLastError(78);
    return ERROR_DISK_FULL;
}
} // namespace

// ---- Reading a value.

TEST_F(CertificateRegistry, AValueIsReadWhole)
{
    unsigned long size = 99;
    Put(L"name", Garbage());
    EXPECT_EQ(Read(L"name", size), Garbage());
    EXPECT_EQ(size, Garbage().size());
}

TEST_F(CertificateRegistry, AMissingAnEmptyAndAnotherKindOfValueAreNoneAndSaySo)
{
    Put(L"empty", {});
    Put(L"empty text", {}, REG_SZ);
    Put(L"text", Garbage(), REG_SZ);
    Put(L"number", {1, 2, 3, 4}, REG_DWORD);
    const LogCapture log("ValidateCertDialog");
    unsigned long size = 99;
    for (const wchar_t* const pszName : {L"missing", L"empty", L"empty text", L"text", L"number"})
    {
        EXPECT_EQ(Read(pszName, size), BYTES());
    }
    EXPECT_EQ(log.Texts(), (LINES{"TRACE GetRegistryBinaryValue; Unable to find missing",
                                  "TRACE GetRegistryBinaryValue; Registry binary value is empty.",
                                  "TRACE GetRegistryBinaryValue; Registry binary value is empty.",
                                  "ERROR GetRegistryBinaryValue; Requested value is not binary text",
                                  "ERROR GetRegistryBinaryValue; Requested value is not binary number"}));
}

TEST_F(CertificateRegistry, AValueThatGrowsOrGoesWhileItIsReadIsNone)
{
    const ImportHook hook("advapi32.dll", "RegQueryValueExW", &PauseBehindQuery);
    g_calls.pfnQuery = hook.Original();
    const LogCapture log("ValidateCertDialog");
    unsigned long size = 0;
    Put(L"name", Garbage());
    g_calls.betweenQueries = [] { Put(L"name", BYTES(100, 'x')); };
    EXPECT_EQ(Read(L"name", size), BYTES());
    g_calls.betweenQueries = [] { RegDeleteKeyValueW(HKEY_CURRENT_USER, CERTIFICATES_KEY, L"name"); };
    EXPECT_EQ(Read(L"name", size), BYTES());
    EXPECT_EQ(log.Texts(), LINES(2, "ERROR GetRegistryBinaryValue; Unable to find (size is known)name"));
}

// ---- Finding the candidate.

TEST_F(CertificateRegistry, TheUsersOwnCandidateIsTakenAndNoOtherHiveIsLookedAt)
{
    for (const char* const pszName : {"rsa", "ec", "organisation", "nameless", "foreign", "long", "expired"})
    {
        const BYTES certificate = TestCertificate(pszName);
        ASSERT_FALSE(certificate.empty()) << pszName;
        Forget();
        PutCandidate(certificate);
        const ImportHook hook("advapi32.dll", "RegOpenKeyExW", &RecordOpen);
        g_calls.pfnOpen = hook.Original();
        g_calls.opened.clear();
        const LogCapture log("ValidateCertDialog");
        EXPECT_TRUE(GetCertFromACRegistry());
        EXPECT_EQ(Found(), certificate) << pszName;
        EXPECT_EQ(g_calls.opened, std::vector<HKEY>{HKEY_CURRENT_USER});
        EXPECT_EQ(
            log.Texts(),
            (LINES{"TRACE GetCertFromACRegistry entering.", "DEBUG GetCertFromACRegistry started",
                   "TRACE GetCertFromACRegistry; Certificate binary data is read from " + KEY + " size is " +
                       SizeOf(certificate),
                   "DEBUG GetCertFromACRegistry returning true", "TRACE GetCertFromACRegistry exiting."}));
    }
}

TEST_F(CertificateRegistry, WithoutAnyCandidateTheSearchGoesThroughEveryHive)
{
    PutIntoHive(L".DEFAULT", Garbage(), REG_SZ);
    PutIntoHive(L"S-1-5-18", {});
    const LogCapture log("ValidateCertDialog");
    EXPECT_FALSE(GetCertFromACRegistry());
    EXPECT_EQ(g_CertContext, nullptr);
    EXPECT_EQ(log.Texts(),
              (LINES{"TRACE GetCertFromACRegistry entering.", "DEBUG GetCertFromACRegistry started",
                     "DEBUG GetCertFromACRegistry from HKU started", "INFO Registry key HKEY_USERS opened.",
                     "INFO Registry key HKEY_USERS enlisted. Found '2' items.",
                     "INFO Registry key '.DEFAULT\\" + KEY + "' open with result 0",
                     "ERROR GetRegistryBinaryValue; Requested value is not binary a c",
                     "DEBUG Registry subkey 'a c' read  (size 7)",
                     "INFO Registry key 'S-1-5-18\\" + KEY + "' open with result 0",
                     "TRACE GetRegistryBinaryValue; Registry binary value is empty.",
                     "DEBUG Registry subkey 'a c' read  (size 0)",
                     "WARN GetCertFromACRegistry returning false", "TRACE GetCertFromACRegistry exiting."}));
}

TEST_F(CertificateRegistry, BytesThatAreNoCertificateLetTheNextHiveWin)
{
    const BYTES certificate = TestCertificate("rsa");
    PutCandidate(Garbage());
    PutIntoHive(L"A", Garbage());
    PutIntoHive(L"B_Classes", certificate);
    PutIntoHive(L"C", TestCertificate("ec"));
    const LogCapture log("ValidateCertDialog");
    EXPECT_TRUE(GetCertFromACRegistry());
    EXPECT_EQ(Found(), certificate);
    EXPECT_EQ(
        log.Texts(),
        (LINES{"TRACE GetCertFromACRegistry entering.", "DEBUG GetCertFromACRegistry started",
               "TRACE GetCertFromACRegistry; Certificate binary data is read from " + KEY + " size is 7",
               std::string("ERROR Could not recreate certificate (Err ") + GARBAGE_ERROR +
                   ") from a_c registry (0).",
               "DEBUG GetCertFromACRegistry from HKU started", "INFO Registry key HKEY_USERS opened.",
               "INFO Registry key HKEY_USERS enlisted. Found '3' items.",
               "INFO Registry key 'A\\" + KEY + "' open with result 0",
               "DEBUG Registry subkey 'a c' read  (size 7)",
               std::string("ERROR Could not recreate certificate (Err ") + GARBAGE_ERROR +
                   ") from a_c HKU registry (0).",
               "INFO Registry key 'B_Classes\\" + KEY + "' open with result 0",
               "DEBUG Registry subkey 'a c' read  (size " + SizeOf(certificate) + ")",
               "DEBUG GetCertFromACRegistry HKU returning true", "TRACE GetCertFromACRegistry exiting."}));
}

TEST_F(CertificateRegistry, BytesThatAreNoCertificateLeaveNone)
{
    Take(TestCertificate("rsa"));
    const PCCERT_CONTEXT pEarlier = g_CertContext;
    PutCandidate(Garbage());
    EXPECT_FALSE(GetCertFromACRegistry());
    EXPECT_EQ(g_CertContext, nullptr);
    CertFreeCertificateContext(pEarlier);
}

TEST_F(CertificateRegistry, AUserWhoseCandidateIsEmptyOrATextHasNone)
{
    for (const DWORD dwType : {REG_SZ, REG_BINARY})
    {
        Forget();
        Put(CANDIDATE_VALUE, dwType == REG_SZ ? TestCertificate("rsa") : BYTES(), dwType);
        PutIntoHive(L"other", TestCertificate("ec"));
        const LogCapture log("ValidateCertDialog");
        EXPECT_TRUE(GetCertFromACRegistry());
        EXPECT_EQ(Found(), TestCertificate("ec"));
        EXPECT_THAT(log.Texts(), testing::Not(testing::Contains(testing::HasSubstr("recreate"))));
        EXPECT_THAT(log.Texts(),
                    testing::Contains("TRACE GetCertFromACRegistry; Certificate binary data is read from " +
                                      KEY + " size is " + SizeOf(Stored(CANDIDATE_VALUE, dwType))))
            << "said of whatever was there";
    }
}

TEST_F(CertificateRegistry, KeysAreOpenedToBeReadAndBytesAreTakenInBothEncodings)
{
    Put(L"something", Garbage());
    PutIntoHive(L"A", TestCertificate("rsa"));
    const ImportHook open("advapi32.dll", "RegOpenKeyExW", &RecordOpen);
    const ImportHook context("crypt32.dll", "CertCreateCertificateContext", &RecordContext);
    g_calls.pfnOpen = open.Original();
    g_calls.pfnCreateContext = context.Original();
    g_calls.accesses.clear();
    g_calls.encodings.clear();
    EXPECT_TRUE(GetCertFromACRegistry());
    PutCandidate(TestCertificate("ec"));
    Forget();
    EXPECT_TRUE(GetCertFromACRegistry());
    EXPECT_FALSE(IsCertInRegistry(g_CertContext));
    EXPECT_EQ(g_calls.accesses, std::vector<REGSAM>(5, 0x20019)) << "user, users, hive; user; user";
    EXPECT_EQ(g_calls.encodings, std::vector<DWORD>(2, 0x00010001));
}

TEST_F(CertificateRegistry, AHiveThatCannotBeReadIsPassedOver)
{
    PutIntoHive(L"locked", TestCertificate("rsa"));
    PutIntoHive(L"open", TestCertificate("ec"));
    const ImportHook hook("advapi32.dll", "RegOpenKeyExW", &RefuseLocked);
    g_calls.pfnOpen = hook.Original();
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getInfo());
    EXPECT_TRUE(GetCertFromACRegistry());
    EXPECT_EQ(Found(), TestCertificate("ec"));
    EXPECT_EQ(log.Texts(), (LINES{"INFO Registry key HKEY_USERS opened.",
                                  "INFO Registry key HKEY_USERS enlisted. Found '2' items.",
                                  "INFO Registry key 'locked\\" + KEY + "' open with result 5",
                                  "INFO Registry key 'open\\" + KEY + "' open with result 0"}));
}

TEST_F(CertificateRegistry, HivesThatCannotBeOpenedCountedOrNamedAreTold)
{
    PutIntoHive(L"A", TestCertificate("rsa"));
    PutIntoHive(L"B", TestCertificate("ec"));
    {
        const ImportHook hook("advapi32.dll", "RegOpenKeyExW", &RefuseUsers);
        g_calls.pfnOpen = hook.Original();
        const LogCapture log("ValidateCertDialog", log4cxx::Level::getInfo());
        EXPECT_FALSE(GetCertFromACRegistry());
        EXPECT_EQ(log.Texts(), (LINES{"WARN Cannot open registry key HKEY_USERS. Error code: 5",
                                      "WARN GetCertFromACRegistry returning false"}));
    }
    {
        const ImportHook hook("advapi32.dll", "RegQueryInfoKeyW", &RefuseInfo);
        const LogCapture log("ValidateCertDialog", log4cxx::Level::getInfo());
        EXPECT_FALSE(GetCertFromACRegistry());
        EXPECT_EQ(log.Texts(), (LINES{"INFO Registry key HKEY_USERS opened.",
                                      "WARN Cannot enlist any subitem. Error code: 5",
                                      "WARN GetCertFromACRegistry returning false"}));
    }
    const ImportHook hook("advapi32.dll", "RegEnumKeyExW", &LoseHive);
    g_calls.dwRefusedHive = 0;
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getWarn());
    EXPECT_TRUE(GetCertFromACRegistry());
    EXPECT_EQ(Found(), TestCertificate("ec"));
    EXPECT_EQ(log.Texts(), LINES{"WARN Cannot enlist '0' subitem. Error code: 259"});
}

TEST_F(CertificateRegistry, APathThatDoesNotFitIsCutAndNamesNoKey)
{
    constexpr size_t MAX_PATH_TEXT = 259; // characters
    const std::wstring longest(255, L'h');
    PutIntoHive(longest, TestCertificate("rsa"));
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getInfo());
    EXPECT_FALSE(GetCertFromACRegistry());
    const std::string path = std::string(longest.begin(), longest.end()) + "\\" + KEY;
    EXPECT_THAT(log.Texts(), testing::Contains("INFO Registry key '" + path.substr(0, MAX_PATH_TEXT) +
                                               "' open with result 2"));
}

TEST_F(CertificateRegistry, NothingIsLeftOpenOfAThousandSearches)
{
    PutCandidate(Garbage());
    PutIntoHive(L"A", Garbage());
    ExpectNothingLeftBy(1000, [](int) {
        GetCertFromACRegistry();
        IsCertInRegistry(g_CertContext);
    });
}

// ---- The certificate's name.

TEST_F(CertificateRegistry, ACertificateIsCalledByItsDisplayName)
{
    for (const auto& [pszFile, name] :
         {std::pair<const char*, std::wstring>{"rsa", L"Example help desk & Co"},
          {"organisation", L"Example Support Ltd"},
          {"foreign", L"Pr\u00FCfstelle \u017B\u00F3\u0142\u0107 \u8A3C\u660E\u66F8"},
          {"candidate", L"a c"},
          {"short", L"A"},
          {"expired", L"Expired"}})
    {
        Take(TestCertificate(pszFile));
        EXPECT_EQ(GetCertificateName(), name);
    }
    Take(TestCertificate("long"));
    EXPECT_EQ(GetCertificateName().size(), 250U);
}

TEST_F(CertificateRegistry, WithoutACertificateThereIsNoNameAndNoWordAboutIt)
{
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getDebug());
    EXPECT_EQ(GetCertificateName(), L"");
    EXPECT_EQ(log.Texts(), LINES());
}

TEST_F(CertificateRegistry, ACertificateWithoutANameIsToldOf)
{
    Take(TestCertificate("nameless"));
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getDebug());
    EXPECT_EQ(GetCertificateName(), L"");
    {
        const ImportHook hook(
            "crypt32.dll", "CertGetNameStringW",
            +[](PCCERT_CONTEXT, DWORD dwType, DWORD dwFlags, void* pParameter, LPWSTR pszName,
                DWORD) -> DWORD {
                EXPECT_TRUE(dwType == CERT_NAME_SIMPLE_DISPLAY_TYPE && dwFlags == 0 && pParameter == nullptr);
                return pszName == nullptr ? 5 : 1;
            });
        EXPECT_EQ(GetCertificateName(), L"");
    }
    EXPECT_EQ(log.Texts(),
              (LINES{"ERROR GetCertificateName; Unable to extract certificate simple display name.",
                     "ERROR GetCertificateName; Unable to extract certificate simple display name (size of "
                     "name string is known)."}));
}

// ---- The trust list.

TEST_F(CertificateRegistry, WhatIsSavedIsTrustedFromThenOnByAllOfItsBytes)
{
    for (const char* const pszFile : {"rsa", "ec", "organisation", "foreign", "expired", "long", "short"})
    {
        const BYTES certificate = TestCertificate(pszFile);
        Take(certificate);
        EXPECT_FALSE(IsCertInRegistry(g_CertContext)) << pszFile;
        EXPECT_TRUE(SaveCertToRegistry(g_CertContext)) << pszFile;
        EXPECT_TRUE(IsCertInRegistry(g_CertContext)) << pszFile;
        EXPECT_EQ(Stored(GetCertificateName().c_str()), certificate) << pszFile;
    }
    EXPECT_EQ(CountStored(), 7U);
}

TEST_F(CertificateRegistry, TheLookSaysWhatItLooksFor)
{
    Take(TestCertificate("rsa"));
    const LogCapture log("ValidateCertDialog");
    EXPECT_FALSE(IsCertInRegistry(g_CertContext));
    EXPECT_EQ(log.Texts(), (LINES{"TRACE IsCertInRegistry entering.",
                                  "TRACE IsCertInRegistry; IsCertInRegistry returned false.",
                                  "TRACE IsCertInRegistry exiting."}))
        << "without the key nobody asks for the name";
    ASSERT_TRUE(SaveCertToRegistry(g_CertContext));
    const LogCapture second("ValidateCertDialog");
    EXPECT_TRUE(IsCertInRegistry(g_CertContext));
    EXPECT_EQ(second.Texts(), (LINES{"TRACE IsCertInRegistry entering.", "TRACE GetCertificateName entering.",
                                     "TRACE GetCertificateName exiting.",
                                     "TRACE IsCertInRegistry; Certificate name is Example help desk & Co",
                                     "TRACE IsCertInRegistry; IsCertInRegistry returned true.",
                                     "TRACE IsCertInRegistry exiting."}));
}

TEST_F(CertificateRegistry, TheKeyIsMadeWithAllRightsAndTheSavingSaysNothing)
{
    Take(TestCertificate("rsa"));
    const ImportHook create("advapi32.dll", "RegCreateKeyExW", &RecordCreate);
    g_calls.pfnCreate = create.Original();
    g_calls.accesses.clear();
    const LogCapture log("ValidateCertDialog");
    EXPECT_TRUE(SaveCertToRegistry(g_CertContext));
    EXPECT_EQ(g_calls.accesses, std::vector<REGSAM>{0xF003F});
    EXPECT_EQ(log.Texts(), (LINES{"TRACE SaveCertToRegistry entering.", "TRACE GetCertificateName entering.",
                                  "TRACE GetCertificateName exiting.", "TRACE SaveCertToRegistry exiting."}));
}

TEST_F(CertificateRegistry, TheCandidateCountsWhateverIsHandedOver)
{
    const BYTES other = TestCertificate("ec");
    const PCCERT_CONTEXT pOther =
        CertCreateCertificateContext(CERTIFICATE_ENCODING, other.data(), static_cast<DWORD>(other.size()));
    Take(TestCertificate("rsa"));
    EXPECT_TRUE(SaveCertToRegistry(nullptr));
    EXPECT_TRUE(IsCertInRegistry(nullptr));
    EXPECT_TRUE(SaveCertToRegistry(pOther));
    EXPECT_TRUE(IsCertInRegistry(pOther));
    EXPECT_EQ(CountStored(), 1U);
    CertFreeCertificateContext(pOther);
}

TEST_F(CertificateRegistry, AnotherCertificateOfTheSameNameIsNotTrustedAndTakesThePlace)
{
    Take(TestCertificate("twin-1"));
    ASSERT_TRUE(SaveCertToRegistry(g_CertContext));
    Take(TestCertificate("twin-2"));
    EXPECT_FALSE(IsCertInRegistry(g_CertContext));
    ASSERT_TRUE(SaveCertToRegistry(g_CertContext));
    EXPECT_TRUE(IsCertInRegistry(g_CertContext));
    EXPECT_EQ(CountStored(), 1U);
    Take(TestCertificate("twin-1"));
    EXPECT_FALSE(IsCertInRegistry(g_CertContext)) << "the later one counts";
}

TEST_F(CertificateRegistry, OneByteMoreLessOrOtherIsAnotherCertificate)
{
    const BYTES certificate = TestCertificate("rsa");
    Take(certificate);
    BYTES other = certificate;
    other.back() ^= 1;
    BYTES longer = certificate;
    longer.push_back(0);
    const BYTES shorter(certificate.begin(), certificate.end() - 1);
    for (const BYTES& stored : {other, longer, shorter, BYTES{certificate.front()}})
    {
        Put(L"Example help desk & Co", stored);
        EXPECT_FALSE(IsCertInRegistry(g_CertContext));
    }
    Put(L"Example help desk & Co", certificate, REG_SZ);
    EXPECT_FALSE(IsCertInRegistry(g_CertContext)) << "of another type";
    Put(L"Example help desk & Co", certificate);
    EXPECT_TRUE(IsCertInRegistry(g_CertContext));
}

TEST_F(CertificateRegistry, OnlyTheUsersOwnListCounts)
{
    const BYTES certificate = TestCertificate("rsa");
    Take(certificate);
    ASSERT_EQ(RegSetKeyValueW(HKEY_USERS, (std::wstring(L"other\\") + CERTIFICATES_KEY).c_str(),
                              GetCertificateName().c_str(), REG_BINARY, certificate.data(),
                              static_cast<DWORD>(certificate.size())),
              ERROR_SUCCESS);
    Put(L"something", Garbage());
    EXPECT_FALSE(IsCertInRegistry(g_CertContext));
}

TEST_F(CertificateRegistry, ACertificateCalledLikeTheCandidateTakesItsPlaceAndIsTrustedAtOnce)
{
    const BYTES certificate = TestCertificate("candidate");
    PutCandidate(certificate);
    ASSERT_TRUE(GetCertFromACRegistry());
    EXPECT_TRUE(IsCertInRegistry(g_CertContext)) << "it finds itself";
    PutCandidate(Garbage());
    EXPECT_FALSE(IsCertInRegistry(g_CertContext));
    EXPECT_TRUE(SaveCertToRegistry(g_CertContext));
    EXPECT_EQ(Stored(CANDIDATE_VALUE), certificate);
}

TEST_F(CertificateRegistry, WithoutANameNothingIsTrustedAndNothingSaved)
{
    Take(TestCertificate("nameless"));
    Put(L"something", Garbage());
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getDebug());
    EXPECT_FALSE(IsCertInRegistry(g_CertContext));
    SetLastError(42);
    EXPECT_FALSE(SaveCertToRegistry(g_CertContext));
    const std::string noName = "ERROR GetCertificateName; Unable to extract certificate simple display name.";
    ASSERT_EQ(log.Texts().size(), 3U);
    EXPECT_EQ(log.Texts()[0], noName);
    EXPECT_EQ(log.Texts()[1], noName);
    EXPECT_THAT(
        log.Texts()[2],
        testing::StartsWith("ERROR SaveCertToRegistry; Unable to store certificate (unable to create " + KEY +
                            " registry key), result = 0 last error = "));
    EXPECT_EQ(CountStored(), 1U);
}

TEST_F(CertificateRegistry, WithoutACertificateNothingIsTrustedAndNothingSaved)
{
    Put(L"something", Garbage());
    const LogCapture log("ValidateCertDialog");
    EXPECT_FALSE(IsCertInRegistry(nullptr));
    EXPECT_THAT(log.Texts(), testing::Contains("TRACE IsCertInRegistry; Certificate name is "));
    SetLastError(42);
    EXPECT_FALSE(SaveCertToRegistry(nullptr));
    EXPECT_EQ(LinesOf(log, "ERROR"),
              LINES{"ERROR SaveCertToRegistry; Unable to store certificate (unable to create " + KEY +
                    " registry key), result = 0 last error = 42"});
    EXPECT_EQ(CountStored(), 1U);
}

TEST_F(CertificateRegistry, AKeyOrAValueThatCannotBeWrittenIsToldWithBothErrors)
{
    Take(TestCertificate("rsa"));
    const LogCapture log("ValidateCertDialog", log4cxx::Level::getDebug());
    {
        const ImportHook hook("advapi32.dll", "RegCreateKeyExW", &RefuseCreate);
        EXPECT_FALSE(SaveCertToRegistry(g_CertContext));
    }
    {
        const ImportHook hook("advapi32.dll", "RegSetValueExW", &RefuseSet);
        EXPECT_FALSE(SaveCertToRegistry(g_CertContext));
    }
    EXPECT_EQ(log.Texts(),
              (LINES{"ERROR SaveCertToRegistry; Unable to store certificate (unable to create " + KEY +
                         " registry key), result = 5 last error = 77",
                     "ERROR SaveCertToRegistry; Unable to store certificate, result = 112 last error = 78"}));
    EXPECT_EQ(CountStored(), 0U);
}
