#include "certificates/CertificateRegistry.h"

#include "tests/support/ImportHook.h"
#include "tests/support/TestCertificates.h"
#include "tests/unit/CertificateHarness.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace
{
using LINES = std::vector<std::string>;

constexpr wchar_t STORE_FILE[] = L"tkcrtst.bin";

// A system that opens no store from a file.
struct STORE_CALLS
{
    decltype(&CertOpenStore) pfnOpenStore = nullptr;
    decltype(&CertCloseStore) pfnCloseStore = nullptr;
    decltype(&CreateFileW) pfnCreateFile = nullptr;
    decltype(&CloseHandle) pfnCloseHandle = nullptr;
    bool bRefuseMemory = false;
    HANDLE hFile = nullptr;
    std::vector<std::string> closed;
};
STORE_CALLS g_calls;

HCERTSTORE WINAPI RefuseFile(LPCSTR pszProvider, DWORD dwEncoding, HCRYPTPROV_LEGACY hProvider, DWORD dwFlags,
                             const void* pvParameter)
{
    if (pszProvider == CERT_STORE_PROV_FILENAME_W)
    {
        EXPECT_EQ(dwEncoding, 0x00010001U);
        EXPECT_EQ(dwFlags, 0U);
        EXPECT_STREQ(static_cast<const wchar_t*>(pvParameter), STORE_FILE);
        return nullptr;
    }
    EXPECT_EQ(pszProvider, CERT_STORE_PROV_MEMORY);
    EXPECT_TRUE(dwEncoding == 0 && hProvider == 0 && dwFlags == 0 && pvParameter == nullptr);
    return g_calls.bRefuseMemory
               ? nullptr
               : g_calls.pfnOpenStore(pszProvider, dwEncoding, hProvider, dwFlags, pvParameter);
}

HANDLE WINAPI AnswerFile(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)
{
    return g_calls.hFile;
}

HANDLE WINAPI RecordFile(LPCWSTR pszFile, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pAttributes,
                         DWORD dwDisposition, DWORD dwFlags, HANDLE hTemplate)
{
    EXPECT_STREQ(pszFile, STORE_FILE);
    EXPECT_EQ(dwAccess, GENERIC_WRITE);
    EXPECT_EQ(dwShare, 0U);
    EXPECT_EQ(pAttributes->nLength, 24U);
    EXPECT_EQ(pAttributes->lpSecurityDescriptor, nullptr);
    EXPECT_EQ(dwDisposition, static_cast<DWORD>(CREATE_ALWAYS));
    EXPECT_EQ(dwFlags, static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
    g_calls.hFile =
        g_calls.pfnCreateFile(pszFile, dwAccess, dwShare, pAttributes, dwDisposition, dwFlags, hTemplate);
    return g_calls.hFile;
}

BOOL WINAPI RecordCloseStore(HCERTSTORE hStore, DWORD dwFlags)
{
    EXPECT_EQ(dwFlags, 2U);
    g_calls.closed.emplace_back("store");
    return g_calls.pfnCloseStore(hStore, dwFlags);
}

BOOL WINAPI RecordClose(HANDLE h)
{
    if (h == g_calls.hFile)
    {
        g_calls.closed.emplace_back("file");
    }
    return g_calls.pfnCloseHandle(h);
}

/// The current directory is an empty folder of the test's own.
class CertificateStore : public CertificateHarness
{
  protected:
    void SetUp() override
    {
        CertificateHarness::SetUp();
        g_calls = STORE_CALLS();
        g_calls.pfnOpenStore = m_openStore.Original();
        m_folder =
            std::filesystem::temp_directory_path() / (L"kda-store-" + std::to_wstring(GetCurrentProcessId()));
        std::filesystem::create_directories(m_folder);
        m_before = std::filesystem::current_path();
        std::filesystem::current_path(m_folder);
        Take(TestCertificate("rsa"));
    }
    void TearDown() override
    {
        std::filesystem::current_path(m_before);
        std::error_code error;
        std::filesystem::remove_all(m_folder, error);
        CertificateHarness::TearDown();
    }

    /// The certificates of the file as the system reads it.
    std::vector<std::vector<BYTE>> ReadStore() const
    {
        const HCERTSTORE hStore =
            m_openStore.Original()(CERT_STORE_PROV_FILENAME_W, CERTIFICATE_ENCODING, 0,
                                   CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_READONLY_FLAG, STORE_FILE);
        EXPECT_NE(hStore, nullptr) << GetLastError();
        std::vector<std::vector<BYTE>> certificates;
        for (PCCERT_CONTEXT pOne = CertEnumCertificatesInStore(hStore, nullptr); pOne != nullptr;
             pOne = CertEnumCertificatesInStore(hStore, pOne))
        {
            certificates.emplace_back(pOne->pbCertEncoded, pOne->pbCertEncoded + pOne->cbCertEncoded);
        }
        CertCloseStore(hStore, 0);
        return certificates;
    }

    ImportHook<decltype(CertOpenStore)> m_openStore{"crypt32.dll", "CertOpenStore", &RefuseFile};
    LogCapture m_log{"ValidateCertDialog"};

  private:
    std::filesystem::path m_folder;
    std::filesystem::path m_before;
};
} // namespace

TEST_F(CertificateStore, TheCertificateIsReadBackFromItsFile)
{
    EXPECT_TRUE(SaveCertToLocalStore(g_CertContext));
    EXPECT_EQ(ReadStore(), std::vector<std::vector<BYTE>>{TestCertificate("rsa")});
    EXPECT_EQ(m_log.Texts(), LINES());
    EXPECT_TRUE(std::filesystem::remove(STORE_FILE)) << "nobody holds it any more";
}

TEST_F(CertificateStore, TheFileIsAskedForAloneAndClosedBehindItsStore)
{
    const ImportHook file("kernel32.dll", "CreateFileW", &RecordFile);
    const ImportHook closeStore("crypt32.dll", "CertCloseStore", &RecordCloseStore);
    const ImportHook close("kernel32.dll", "CloseHandle", &RecordClose);
    g_calls.pfnCreateFile = file.Original();
    g_calls.pfnCloseStore = closeStore.Original();
    g_calls.pfnCloseHandle = close.Original();
    EXPECT_TRUE(SaveCertToLocalStore(g_CertContext));
    EXPECT_EQ(g_calls.closed, (LINES{"store", "file"}));
}

TEST_F(CertificateStore, AStoreThatIsThereAlreadyHasNoFileToBeSavedIn)
{
    const ImportHook direct("crypt32.dll", "CertOpenStore", m_openStore.Original());
    EXPECT_FALSE(SaveCertToLocalStore(g_CertContext));
    EXPECT_EQ(m_log.Texts(), LINES{"ERROR Could not save the memory store to disk."});
}

TEST_F(CertificateStore, WithoutMemoryForAStoreNoFileIsMade)
{
    g_calls.bRefuseMemory = true;
    EXPECT_FALSE(SaveCertToLocalStore(g_CertContext));
    EXPECT_EQ(m_log.Texts(), LINES{"ERROR Error opening new memory store."});
    EXPECT_FALSE(std::filesystem::exists(STORE_FILE));
}

TEST_F(CertificateStore, AFileThatCannotBeMadeIsTold)
{
    const ImportHook hook("kernel32.dll", "CreateFileW", &AnswerFile);
    EXPECT_FALSE(SaveCertToLocalStore(g_CertContext));
    g_calls.hFile = INVALID_HANDLE_VALUE;
    EXPECT_FALSE(SaveCertToLocalStore(g_CertContext));
    EXPECT_EQ(m_log.Texts(), (LINES{"ERROR Could not create certificate store on disk.",
                                    "ERROR Could not save the memory store to disk."}));
}

TEST_F(CertificateStore, ACertificateThatCannotBeAddedLeavesAnEmptyStore)
{
    {
        const ImportHook hook(
            "crypt32.dll", "CertAddCertificateContextToStore",
            +[](HCERTSTORE, PCCERT_CONTEXT pCertificate, DWORD dwDisposition, PCCERT_CONTEXT*) -> BOOL {
                EXPECT_EQ(pCertificate, g_CertContext);
                EXPECT_EQ(dwDisposition, 2U);
                return FALSE;
            });
        EXPECT_FALSE(SaveCertToLocalStore(g_CertContext));
    }
    EXPECT_EQ(m_log.Texts(), LINES{"ERROR Could not add the certificate to the memory store."});
    EXPECT_TRUE(ReadStore().empty());
}
