// What the simulator reports to the person who runs it. No other exception leaves one of its rooms on purpose.
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
        Missing,      // it is not there
        Damaged,      // it is there, but not what it should be
        Locked,       // somebody else holds it
        Full,         // the disk, or a limit on it, leaves no room
        Unreachable,  // the cloud store does not answer
        Denied,       // the cloud store refuses
        Duplicate,    // the cloud store has the very same already
        Unusable,     // anything else: a value that does not fit, a permission, a file of another kind
    };

    Error(Kind kind, const std::string& message) : std::runtime_error(message), m_kind(kind) {}
    explicit Error(const std::string& message) : Error(Kind::Unusable, message) {}

    // A failed system call on a path: "PATH: WHAT: the error number in words", of the kind that the number stands for.
    static Error ofSystem(const std::filesystem::path& path, std::string_view what, int number = errno);

    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

// The kind that an error number of the system stands for.
Error::Kind kindOfErrno(int error);

}  // namespace sim
