#include "tests/support/Archives.h"

#include <gtest/gtest.h>
#include <zip.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace test {

namespace {

void setLeaksReported([[maybe_unused]] bool reported) {
#ifdef __SANITIZE_ADDRESS__
    reported ? __lsan_enable() : __lsan_disable();
#endif
}

}  // namespace

LeavesHandles::LeavesHandles() {
    setLeaksReported(false);
}

LeavesHandles::~LeavesHandles() {
    setLeaksReported(true);
}

std::uint64_t number(const std::string& bytes, std::size_t offset, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes.at(offset + i));
    }
    return value;
}

void setNumber(std::string& bytes, std::size_t offset, std::size_t size, std::uint64_t value) {
    for (std::size_t i = 0; i < size; ++i) {
        bytes.at(offset + i) = static_cast<char>(value >> (8 * i) & 0xFF);
    }
}

void makeArchive(const std::filesystem::path& path, const std::vector<std::pair<std::string, std::string>>& entries) {
    zip_t* zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
    ASSERT_NE(zip, nullptr) << path;
    for (const auto& [name, content] : entries) {
        zip_source_t* source = zip_source_buffer(zip, content.data(), content.size(), 0);
        const zip_int64_t index = zip_file_add(zip, name.c_str(), source, 0);
        ASSERT_GE(index, 0) << name;
        zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
    }
    ASSERT_EQ(zip_close(zip), 0);
}

std::size_t centralRecord(const std::string& bytes, std::size_t n) {
    std::uint64_t at = number(bytes, bytes.size() - 22 + 16, 4);
    for (; n > 0; --n) {
        const auto record = static_cast<std::size_t>(at);
        at += 46 + number(bytes, record + 28, 2) + number(bytes, record + 30, 2) + number(bytes, record + 32, 2);
    }
    return static_cast<std::size_t>(at);
}

}  // namespace test
