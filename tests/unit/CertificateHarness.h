#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "certificates/CertificateRegistry.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/RegistrySandbox.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

/// A user who trusts nobody, on a machine with no other hives, and no candidate.
class CertificateHarness : public testing::Test
{
  protected:
    void SetUp() override { Forget(); }
    void TearDown() override { Forget(); }

    /// Lets go of the candidate, as the end of a process does.
    static void Forget();

    /// Puts a value among the certificates of the user.
    static void Put(const wchar_t* pszName, const std::vector<BYTE>& data, DWORD dwType = REG_BINARY);
    static void PutCandidate(const std::vector<BYTE>& data) { Put(CANDIDATE_VALUE, data); }
    /// Puts a candidate into another hive.
    static void PutIntoHive(const std::wstring& hive, const std::vector<BYTE>& data,
                            DWORD dwType = REG_BINARY);
    /// Makes it the candidate that is looked at, without the registry.
    static void Take(const std::vector<BYTE>& certificate);

    /// A value among the certificates of the user; empty when there is none.
    static std::vector<BYTE> Stored(const wchar_t* pszName, DWORD dwType = REG_BINARY);
    static size_t CountStored();
    /// The bytes of the candidate that was found; empty when there is none.
    static std::vector<BYTE> Found();

  private:
    RegistrySandbox m_hives{HKEY_USERS};
    RegistrySandbox m_user{HKEY_CURRENT_USER};
};

/// The lines of a log that begin with a level.
std::vector<std::string> LinesOf(const LogCapture& log, const std::string& level);
