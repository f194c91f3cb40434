#include "devservice/LaidCertificates.h"

#include "tests/support/AgentFolder.h"
#include "tests/unit/CertificateHarness.h"
#include "tests/unit/DevServiceFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace
{
using BYTES = std::vector<BYTE>;

/// The candidates that a person's registry holds.
class LaidCertificates : public CertificateHarness
{
};

BYTES StoredCandidate()
{
    BYTES data(65536);
    DWORD cb = static_cast<DWORD>(data.size());
    const LSTATUS nResult = RegGetValueW(HKEY_CURRENT_USER, CERTIFICATES_KEY, CANDIDATE_VALUE,
                                         RRF_RT_REG_BINARY, nullptr, data.data(), &cb);
    data.resize(nResult == ERROR_SUCCESS ? cb : 0);
    return data;
}

class DevServiceCertificate : public DevServiceRunner
{
  private:
    RegistrySandbox m_user{HKEY_CURRENT_USER};
};
} // namespace

TEST_F(LaidCertificates, AMadeOneIsACertificateOfThatNameEachTimeAnother)
{
    for (const wchar_t* const pszName :
         {L"Example help desk", L"Miller, Alice & \"Sons\"", L"CN=x; O=y + z", L"Pr\u00FCfstelle"})
    {
        const BYTES made = MakeCertificate(pszName);
        Take(made);
        EXPECT_EQ(GetCertificateName(), pszName);
        EXPECT_TRUE(CryptVerifyCertificateSignature(0, X509_ASN_ENCODING, Found().data(),
                                                    static_cast<DWORD>(made.size()),
                                                    &g_CertContext->pCertInfo->SubjectPublicKeyInfo));
        EXPECT_NE(MakeCertificate(pszName), made);
    }
}

TEST_F(LaidCertificates, TheAgentFindsWhatWasLaidLast)
{
    const BYTES second = MakeCertificate(L"second");
    CLaidCertificates laid;
    ASSERT_TRUE(laid.Lay(MakeCertificate(L"first")));
    ASSERT_TRUE(laid.Lay(second));
    EXPECT_TRUE(GetCertFromACRegistry());
    EXPECT_EQ(Found(), second);
}

TEST_F(LaidCertificates, WhatWasLaidGoesTrustedOrNotAndTheRestStays)
{
    const BYTES own = MakeCertificate(L"own");
    Put(L"own", own);
    Put(L"empty", {});
    {
        CLaidCertificates laid;
        for (const wchar_t* const pszName : {L"first", L"second"})
        {
            Forget();
            ASSERT_TRUE(laid.Lay(MakeCertificate(pszName)));
            ASSERT_TRUE(GetCertFromACRegistry());
            ASSERT_TRUE(SaveCertToRegistry(g_CertContext));
        }
        EXPECT_EQ(CountStored(), 5U);
    }
    EXPECT_EQ(CountStored(), 2U);
    EXPECT_EQ(Stored(L"own"), own);
}

TEST_F(LaidCertificates, ACandidateOfSomebodyElseStays)
{
    CLaidCertificates laid;
    ASSERT_TRUE(laid.Lay({1, 2, 3}));
    PutCandidate({4, 5, 6});
    laid.Forget();
    EXPECT_EQ(Stored(CANDIDATE_VALUE), (BYTES{4, 5, 6}));
}

TEST_F(DevServiceCertificate, ACandidateIsMadeOrReadAndTakenBack)
{
    ExpectHeld(L"certificate candidate \"Example help desk & Co\"");
    EXPECT_GT(StoredCandidate().size(), 500U);
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("kda-" + std::to_string(GetCurrentProcessId()) + ".der");
    ASSERT_TRUE(WriteFileText(file, "no certificate"));
    std::wstring script = L"certificate candidate file=\"";
    for (const wchar_t ch : file.wstring())
    {
        script.append(ch == L'\\' ? 2 : 1, ch);
    }
    ExpectHeld(script + L'"');
    std::filesystem::remove(file);
    const std::vector<BYTE> stored = StoredCandidate();
    EXPECT_EQ(std::string(stored.begin(), stored.end()), "no certificate");
    ExpectHeld(L"certificate forget");
    EXPECT_EQ(StoredCandidate(), BYTES());
}

TEST_F(DevServiceCertificate, WhatIsNoCommandOrNoFileFails)
{
    EXPECT_THAT(ErrorOf(L"certificate candidate"), testing::HasSubstr("use: certificate"));
    EXPECT_THAT(ErrorOf(L"certificate forget it"), testing::HasSubstr("use: certificate"));
    EXPECT_THAT(ErrorOf(L"certificate candidate file=nowhere.der"),
                testing::HasSubstr("no candidate file=nowhere.der"));
    EXPECT_EQ(StoredCandidate(), BYTES());
}
