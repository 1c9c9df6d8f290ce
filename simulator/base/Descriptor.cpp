#include "simulator/base/Descriptor.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "simulator/base/Error.h"

namespace sim {

void Descriptor::reset() {
    if (isOpen()) {
        ::close(m_descriptor);
        m_descriptor = -1;
    }
}

void reserveStandardStreams() {
    int descriptor = 0;
    do {
        descriptor = ::open("/dev/null", O_RDONLY);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    ::close(descriptor);
}

Descriptor openFile(const std::filesystem::path& path, int flags, mode_t mode) {
    Descriptor descriptor(::open(path.c_str(), flags | O_CLOEXEC, mode));
    if (!descriptor.isOpen()) {
        throw Error::ofSystem(path, (flags & O_ACCMODE) == O_RDONLY ? "cannot read" : "cannot write");
    }
    return descriptor;
}

DescriptorPair socketPair(std::string_view what) {
    std::array<int, 2> ends = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw Error::ofSystem(what, "cannot be connected");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

DescriptorPair pipePair(std::string_view what) {
    std::array<int, 2> ends = {-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw Error::ofSystem(what, "cannot be connected");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Descriptor openRegularFile(const std::filesystem::path& path) {
    Descriptor descriptor = openFile(path, O_RDONLY | O_NONBLOCK);  // opening a pipe would wait for its writer
    struct stat status = {};
    if (::fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw Error(Error::Kind::Damaged, path.string() + ": not a regular file");
    }
    return descriptor;
}

Descriptor openAgain(const Descriptor& descriptor) {
    Descriptor again(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0));
    if (!again.isOpen() || ::lseek(again.get(), 0, SEEK_SET) != 0) {
        throw Error::ofSystem("a file that is open", "cannot read it again");
    }
    return again;
}

std::uint64_t sizeOf(const Descriptor& descriptor) {
    struct stat status = {};
    if (::fstat(descriptor.get(), &status) != 0) {
        throw Error::ofSystem("a file that is open", "cannot read its size");
    }
    return static_cast<std::uint64_t>(status.st_size);
}

void writeAll(const Descriptor& descriptor, std::string_view bytes, const std::filesystem::path& path) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor.get(), bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            throw Error::ofSystem(path, "cannot write");
        }
        bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

}  // namespace sim
