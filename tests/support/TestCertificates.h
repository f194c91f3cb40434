#pragma once

#include <string>
#include <vector>

#include <winsock2.h>
#include <windows.h>

/// The bytes of a certificate that the build has made, by the name of its file; empty when there is none.
std::vector<BYTE> TestCertificate(const std::string& name);
