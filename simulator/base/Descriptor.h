// The owner of a file descriptor.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <utility>

namespace sim {

// Closes its descriptor at the end of the scope; -1 is none.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const { return m_descriptor; }
    bool isOpen() const { return m_descriptor >= 0; }

    // Closes it now.
    void reset();

    // Leaves it to someone else to close.
    int release() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor;
};

// Keeps the numbers of the standard streams from being given to anything else if the process was started without them.
// What is printed there fails as before.
void reserveStandardStreams();

// Opens a file with `flags` and O_CLOEXEC. Throws Error.
Descriptor openFile(const std::filesystem::path& path, int flags, mode_t mode = 0);

// Opens a regular file for reading. Throws Error, Damaged if it is of another kind: reading a pipe might never end.
Descriptor openRegularFile(const std::filesystem::path& path);

// The two ends of a pair of stream sockets; or of a pipe, the first to read from and the second to write to. Both throw
// Error; `what` is for its message.
using DescriptorPair = std::array<Descriptor, 2>;
DescriptorPair socketPair(std::string_view what);
DescriptorPair pipePair(std::string_view what);

// Another descriptor of the same open file, set to its start; the two share their position. Throws Error.
Descriptor openAgain(const Descriptor& descriptor);

// Throws Error.
std::uint64_t sizeOf(const Descriptor& descriptor);

// Writes all bytes at the file's current position. Throws Error; `path` is for its message.
void writeAll(const Descriptor& descriptor, std::string_view bytes, const std::filesystem::path& path);

}  // namespace sim
