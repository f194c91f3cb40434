#include "tests/support/TestCertificates.h"

#include <filesystem>
#include <fstream>
#include <iterator>

std::vector<BYTE> TestCertificate(const std::string& name)
{
    std::ifstream stream(std::filesystem::path(TKDAST_CERTIFICATES_DIR) / (name + ".der"), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}
