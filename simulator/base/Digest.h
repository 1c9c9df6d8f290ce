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

    // Adds bytes as they are.
    Digest& addBytes(std::string_view bytes);

    // Adds a text with its length, so that ("a", "bc") and ("ab", "c") differ.
    Digest& add(std::string_view text);

    // Adds the bytes of a file. Throws Error where it cannot be read.
    Digest& addFile(const std::filesystem::path& file);

    // Of all that was added, in hexadecimal digits. The digest is used up.
    std::string hex();

private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> m_context;
};

// SHA-256 of a file's bytes, in hexadecimal digits. Throws Error where it cannot be read.
std::string digestOf(const std::filesystem::path& file);

}  // namespace sim
