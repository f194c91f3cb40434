#pragma once

#include <winsock2.h>
#include <windows.h>
#include <wincrypt.h>

#include <boost/shared_array.hpp>

#include <string>

/*
 * The candidate certificate, which somebody outside has put into the registry, and the user's list of
 * trusted ones. Both live under one key and are told apart by the names of their values alone: a trusted
 * certificate is kept whole under its display name and known again by all of its bytes. Nothing here
 * removes or ages an entry. Main thread; failures are logged and never reach the user.
 */

constexpr wchar_t CERTIFICATES_KEY[] = L"Software\\Tessaran Development\\Kestrel Desk Assist\\Crts";
constexpr wchar_t CANDIDATE_VALUE[] = L"a c";

/// In what the bytes of certificates are encoded.
constexpr DWORD CERTIFICATE_ENCODING = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// The candidate, null until one is found. Lives to the end of the process.
extern PCCERT_CONTEXT g_CertContext;

/// Looks for the candidate, in the user's own hive first and then in each one that is loaded; the first that
/// holds a certificate wins. Sets g_CertContext, to null where bytes are no certificate. Whether there is a
/// candidate.
bool GetCertFromACRegistry();

/// What g_CertContext is called; empty when there is none, or it has no name.
std::wstring GetCertificateName();

/// A binary value, and its size in bytes. Empty for a value that is missing, empty, of another type, or that
/// changes while it is read; size then means nothing.
boost::shared_array<unsigned char> GetRegistryBinaryValue(HKEY hKey, const wchar_t* pszName,
                                                          unsigned long& size);

// These are given the candidate, and look at g_CertContext themselves.

/// Whether the user trusts exactly this certificate: another one of the same name doesn't count.
bool IsCertInRegistry(const CERT_CONTEXT* pCertificate);

/// Adds the certificate to the user's list, in the place of any other of its name. A certificate without a
/// name can't be kept. Whether it is kept.
bool SaveCertToRegistry(const CERT_CONTEXT* pCertificate);

/// Writes the certificate into a store of its own, the file tkcrtst.bin in the current directory. Whether
/// the certificate is in it.
bool SaveCertToLocalStore(const CERT_CONTEXT* pCertificate);
