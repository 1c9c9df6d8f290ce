#include "simulator/web/Guard.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

bool isLoopback(const std::string& address) {
    if (address.find('\0') != std::string::npos) {  // inet_pton() would look no further
        return false;
    }
    // Parsed, not compared by its beginning: 127.0.0.1.evil.example is a name that anybody can register.
    in_addr four = {};
    in6_addr six = {};
    if (::inet_pton(AF_INET, address.c_str(), &four) == 1) {
        return ntohl(four.s_addr) >> 24 == 127;
    }
    return ::inet_pton(AF_INET6, address.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

constexpr std::size_t TOKEN_DIGITS = 32;
constexpr std::uint64_t MAX_FILE_BYTES = 4096;

bool isToken(const std::string& text) {
    return text.size() == TOKEN_DIGITS && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::string makeToken() {
    std::random_device random;
    std::string token;
    while (token.size() < TOKEN_DIGITS) {
        token += fmt::format("{:08x}", random());
    }
    return token;
}

}  // namespace

bool isLocalHost(const std::string& host, int port) {
    const bool isBracketed = !host.empty() && host.front() == '[';
    const std::size_t end = isBracketed ? host.find(']') + 1 : host.find(':');
    if (isBracketed && end == 0) {
        return false;
    }
    const std::string rest = end < host.size() ? host.substr(end) : "";
    const std::string name = isBracketed ? host.substr(1, end - 2) : host.substr(0, end);
    const bool isOwnPort = rest.empty() || rest == fmt::format(":{}", port);
    // An IPv6 address stands in brackets, and nothing else does.
    const bool isAddress = (name.find(':') != std::string::npos) == isBracketed && isLoopback(name);
    return isOwnPort && (name == "localhost" || isAddress);
}

bool isOwnOrigin(const std::string& origin, int port) {
    constexpr std::string_view SCHEME = "http://";
    // A page in a file or in a sandboxed frame sends "null", which is refused like any other text.
    return origin.empty() ||
           (origin.compare(0, SCHEME.size(), SCHEME) == 0 && isLocalHost(origin.substr(SCHEME.size()), port));
}

bool isSameSecret(const std::string& left, const std::string& right) {
    return !left.empty() && left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

std::string tokenIn(const std::string& file) {
    struct stat status = {};
    // A token that others can read, or may have chosen, is none. A link is refused: its target can be exchanged.
    if (::lstat(file.c_str(), &status) == 0) {
        constexpr mode_t OTHERS = 077;
        if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid() || (status.st_mode & OTHERS) != 0) {
            throw Error(fmt::format("{}: not a file of your own that nobody else can read; remove it", file));
        }
        std::string token = readFile(file, MAX_FILE_BYTES);
        if (!isToken(token)) {
            throw Error(Error::Kind::Damaged,
                        fmt::format("{}: not the 32 hexadecimal digits of a token; remove it", file));
        }
        return token;
    }
    // Beside its place: what is there is whole.
    std::string token = makeToken();
    const ScratchFolder scratch(std::filesystem::path(file).parent_path());
    const std::filesystem::path built = scratch / "token";
    writeAll(openFile(built, O_WRONLY | O_CREAT | O_EXCL, 0600), token, built);
    putInPlace(built, file);
    return token;
}

}  // namespace sim
