// The exception of the simulator, for the person who runs it.
#pragma once

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace sim {

// The message says what was wrong, with which file or value, and what to do.
class Error : public std::runtime_error {
public:
    enum class Kind {
        Missing,      // it does not exist
        Damaged,      // it exists, but is not what it should be, or exceeds a limit
        Locked,       // another process holds it
        Full,         // the disk, or a quota, leaves no room
        Unreachable,  // the cloud store does not answer
        Denied,       // the cloud store refuses
        Duplicate,    // the newest backup in the cloud store has the same bundle
        Unusable,     // anything else: a wrong value, a lack of permission, a file of another kind
    };

    Error(Kind kind, const std::string& message) : std::runtime_error(message), m_kind(kind) {}
    explicit Error(const std::string& message) : Error(Kind::Unusable, message) {}

    // A failed system call on a path: "PATH: WHAT: the error number in words", and the number's kind.
    static Error ofSystem(const std::filesystem::path& path, std::string_view what, int number = errno);

    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

// The kind of an error number of the system.
Error::Kind kindOfErrno(int error);

}  // namespace sim
