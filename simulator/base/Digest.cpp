#include "simulator/base/Digest.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <openssl/evp.h>

#include <array>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"

namespace sim {

namespace {

void require(int succeeded) {
    if (succeeded != 1) {
        throw Error("the cryptographic library fails to compute SHA-256");
    }
}

}  // namespace

Digest::Digest() : m_context(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
    require(EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr));
}

Digest& Digest::addBytes(std::string_view bytes) {
    require(EVP_DigestUpdate(m_context.get(), bytes.data(), bytes.size()));
    return *this;
}

Digest& Digest::add(std::string_view text) {
    const std::uint64_t size = text.size();
    require(EVP_DigestUpdate(m_context.get(), &size, sizeof size));
    return addBytes(text);
}

std::string Digest::hex() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes;
    unsigned int size = 0;
    require(EVP_DigestFinal_ex(m_context.get(), bytes.data(), &size));
    return fmt::format("{:02x}", fmt::join(bytes.begin(), bytes.begin() + size, ""));
}

Digest& Digest::addFile(const std::filesystem::path& file) {
    forEachBlock(file, [&](std::string_view block) { addBytes(block); });
    return *this;
}

std::string digestOf(const std::filesystem::path& file) {
    return Digest().addFile(file).hex();
}

}  // namespace sim
