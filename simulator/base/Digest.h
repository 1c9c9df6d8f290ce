// SHA-256 of a sequence of texts.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace sim {

class Digest {
public:
    Digest();

    // Adds bytes.
    Digest& addBytes(std::string_view bytes);

    // Adds a text with its length, so that ("a", "bc") and ("ab", "c") differ.
    Digest& add(std::string_view text);

    // Adds the bytes of a file. Throws Error if it cannot be read.
    Digest& addFile(const std::filesystem::path& file);

    // The digest of all that was added, in hexadecimal digits. Call it once.
    std::string hex();

private:
    std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> m_context;
};

// SHA-256 of a file's bytes, in hexadecimal digits. Throws Error if it cannot be read.
std::string digestOf(const std::filesystem::path& file);

}  // namespace sim
