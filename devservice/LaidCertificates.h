#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

/// A new certificate for that name, signed by a key that is gone afterwards. Empty on failure, with the last
/// error. Any thread.
std::vector<BYTE> MakeCertificate(const std::wstring& commonName);

/// Plays the program that lays a candidate certificate before the agent. What it has laid, and what the
/// agent has come to trust of it, goes with the object. One thread.
class CLaidCertificates
{
  public:
    CLaidCertificates() = default;
    ~CLaidCertificates() { Forget(); }
    CLaidCertificates(const CLaidCertificates&) = delete;
    CLaidCertificates& operator=(const CLaidCertificates&) = delete;

    /// Makes it this user's candidate, in the place of any other; the bytes needn't be a certificate. False
    /// on failure, with the last error.
    bool Lay(const std::vector<BYTE>& certificate);

    /// Takes all that were laid out of the registry, trusted or not.
    void Forget();

  private:
    bool WasLaid(const std::vector<BYTE>& data) const;

    std::vector<std::vector<BYTE>> m_laid;
};
