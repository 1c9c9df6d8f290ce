#include "tests/support/Tracer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>

#include "simulator/base/Descriptor.h"

namespace fs = std::filesystem;

namespace test {

namespace {

using namespace std::chrono_literals;

constexpr auto HUNG_AFTER = 30s;
constexpr int MAX_CALLS = 1'000'000;

[[noreturn]] void fail(const char* what, int error) {
    throw std::system_error(error, std::generic_category(), what);
}

int check(const char* what, int result) {
    if (result < 0) {
        fail(what, errno);
    }
    return result;
}

// Which argument of a call names what it changes: an open file, or a path, perhaps relative to an open folder.
struct Place {
    int descriptor = -1;  // number of the argument
    int path = -1;
    int flags = -1;  // of those that only count when they open for writing
};

struct Watched {
    int call;
    Place place;
};

const Watched WATCHED[] = {
    {SCMP_SYS(write), {0}},           {SCMP_SYS(pwrite64), {0}},    {SCMP_SYS(writev), {0}},
    {SCMP_SYS(pwritev), {0}},         {SCMP_SYS(pwritev2), {0}},    {SCMP_SYS(sendfile), {0}},
    {SCMP_SYS(copy_file_range), {2}}, {SCMP_SYS(splice), {2}},      {SCMP_SYS(ftruncate), {0}},
    {SCMP_SYS(truncate), {-1, 0}},    {SCMP_SYS(fallocate), {0}},   {SCMP_SYS(fsync), {0}},
    {SCMP_SYS(fdatasync), {0}},       {SCMP_SYS(open), {-1, 0, 1}}, {SCMP_SYS(openat), {0, 1, 2}},
    {SCMP_SYS(creat), {-1, 0}},       {SCMP_SYS(mkdir), {-1, 0}},   {SCMP_SYS(mkdirat), {0, 1}},
    {SCMP_SYS(rmdir), {-1, 0}},       {SCMP_SYS(unlink), {-1, 0}},  {SCMP_SYS(unlinkat), {0, 1}},
    {SCMP_SYS(rename), {-1, 0}},      {SCMP_SYS(renameat), {0, 1}}, {SCMP_SYS(renameat2), {0, 1}},
    {SCMP_SYS(link), {-1, 0}},        {SCMP_SYS(linkat), {0, 1}},   {SCMP_SYS(symlink), {-1, 1}},
    {SCMP_SYS(symlinkat), {1, 2}},
};

using Filter = std::unique_ptr<void, decltype(&seccomp_release)>;

// Reports the watched calls; all others run at full speed.
Filter makeFilter() {
    Filter filter(seccomp_init(SCMP_ACT_ALLOW), &seccomp_release);
    const auto watch = [&](int call, const std::vector<scmp_arg_cmp>& condition) {
        const int result = seccomp_rule_add_array(filter.get(), SCMP_ACT_NOTIFY, call,
                                                  static_cast<unsigned int>(condition.size()), condition.data());
        if (result != 0) {
            fail("cannot watch a system call", -result);
        }
    };
    for (const auto& [call, place] : WATCHED) {
        if (place.flags >= 0) {
            for (const int flag : {O_WRONLY, O_RDWR, O_CREAT, O_TRUNC}) {
                const auto bits = static_cast<scmp_datum_t>(flag);
                watch(call, {{static_cast<unsigned int>(place.flags), SCMP_CMP_MASKED_EQ, bits, bits}});
            }
        } else if (place.path < 0) {
            watch(call, {{static_cast<unsigned int>(place.descriptor), SCMP_CMP_GT, STDERR_FILENO, 0}});
        } else {
            watch(call, {});
        }
    }
    return filter;
}

union Passed {
    cmsghdr header;
    std::array<char, CMSG_SPACE(sizeof(int))> space;
};

msghdr messageWith(Passed& passed, iovec& content) {
    msghdr message = {};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = passed.space.data();
    message.msg_controllen = passed.space.size();
    return message;
}

void sendDescriptor(int channel, int descriptor) {
    char byte = 0;
    iovec content = {&byte, 1};
    Passed passed = {};
    const msghdr message = messageWith(passed, content);
    passed.header.cmsg_level = SOL_SOCKET;
    passed.header.cmsg_type = SCM_RIGHTS;
    passed.header.cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(&passed.header), &descriptor, sizeof descriptor);
    ::sendmsg(channel, &message, 0);
}

int receiveDescriptor(int channel) {
    char byte = 0;
    iovec content = {&byte, 1};
    Passed passed = {};
    msghdr message = messageWith(passed, content);
    if (::recvmsg(channel, &message, MSG_CMSG_CLOEXEC) != 1) {
        fail("cannot watch system calls here", EPERM);
    }
    int descriptor = -1;
    std::memcpy(&descriptor, CMSG_DATA(&passed.header), sizeof descriptor);
    return descriptor;
}

// In the new process.
[[noreturn]] void become(const sim::ProcessOptions& options, void* filter, int channel) {
    for (const auto& [name, value] : options.environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    ::dup2(options.errors, STDERR_FILENO);
    std::vector<char*> words;
    for (const std::string& word : options.words) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    if (seccomp_load(filter) == 0) {
        sendDescriptor(channel, seccomp_notify_fd(filter));
        ::execv(words.front(), words.data());
    }
    ::_exit(127);
}

// What a call is about, read from the process that waits in it.
std::string textAt(int process, std::uint64_t address) {
    std::ifstream memory(fmt::format("/proc/{}/mem", process), std::ios::binary);
    memory.seekg(static_cast<std::streamoff>(address));
    std::string text;
    std::getline(memory, text, '\0');
    return text;
}

std::string pathOf(const seccomp_notif& event, const Place& place) {
    fs::path path;
    const fs::path process = fmt::format("/proc/{}", event.pid);
    std::error_code ignored;
    const auto argument = [&](int number) { return event.data.args[number]; };
    if (place.path >= 0) {
        path = textAt(static_cast<int>(event.pid), argument(place.path));
        // Folders that are open are named so.
        if (const std::string own = "/proc/self/"; path.string().rfind(own, 0) == 0) {
            const fs::path opened = process / path.parent_path().string().substr(own.size());
            path = fs::read_symlink(opened, ignored) / path.filename();
        }
    }
    if (place.descriptor >= 0 && path.is_relative()) {
        const int descriptor = static_cast<int>(argument(place.descriptor));
        const fs::path link = descriptor == AT_FDCWD ? process / "cwd" : process / "fd" / std::to_string(descriptor);
        path = place.path >= 0 ? fs::read_symlink(link, ignored) / path : fs::read_symlink(link, ignored);
    }
    return path;
}

std::string nameOf(const seccomp_notif& event) {
    const std::unique_ptr<char, decltype(&std::free)> name(
        seccomp_syscall_resolve_num_arch(event.data.arch, event.data.nr), &std::free);
    return name.get();
}

// Returns nothing if the call changes no file below the folder.
std::optional<DiskCall> diskCall(const seccomp_notif& event, const fs::path& folder) {
    const auto watched = std::find_if(std::begin(WATCHED), std::end(WATCHED),
                                      [&](const Watched& each) { return each.call == event.data.nr; });
    const std::string path = pathOf(event, watched->place);
    for (const std::string& root : {folder.string(), fs::canonical(folder).string()}) {
        if (path.rfind(root + "/", 0) == 0) {
            return DiskCall{nameOf(event), path.substr(root.size() + 1), static_cast<int>(event.pid)};
        }
    }
    return std::nullopt;
}

void answer(int listener, const seccomp_notif& event, int error) {
    seccomp_notif_resp response = {};
    response.id = event.id;
    response.error = -error;
    response.flags = error == 0 ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
    seccomp_notify_respond(listener, &response);
}

bool isAsleep(int process) {
    std::string status;
    std::getline(std::ifstream(fmt::format("/proc/{}/stat", process)), status);
    const std::size_t name = status.rfind(") ");
    return name == std::string::npos || std::string_view("SZX").find(status[name + 2]) != std::string_view::npos;
}

// Waits until the other processes have done what they were allowed to, and wait for an answer or for one another. What
// is on disk then stays so while a call is decided about.
void settle(const std::set<int>& processes, int caller) {
    const auto end = std::chrono::steady_clock::now() + HUNG_AFTER;
    for (const int process : processes) {
        while (process != caller && !isAsleep(process) && std::chrono::steady_clock::now() < end) {
            ::sched_yield();
        }
    }
}

// Answers the calls of processes until they have ended, hang, or make more of them than any run needs.
void follow(int listener, const fs::path& folder, const Fate& fate) {
    std::set<int> processes;
    for (int calls = 0; calls < MAX_CALLS; ++calls) {
        pollfd state = {listener, POLLIN, 0};
        const int ready = ::poll(&state, 1, static_cast<int>(std::chrono::milliseconds(HUNG_AFTER).count()));
        seccomp_notif event = {};
        if (ready <= 0 || (state.revents & POLLIN) == 0 || seccomp_notify_receive(listener, &event) != 0) {
            return;
        }
        const std::optional<DiskCall> call = diskCall(event, folder);
        if (call) {
            processes.insert(call->process);
            settle(processes, call->process);
        }
        answer(listener, event, call ? fate(*call) : 0);
    }
}

}  // namespace

int runTraced(const sim::ProcessOptions& options, const fs::path& folder, const Fate& fate) {
    const Filter filter = makeFilter();
    std::array<int, 2> ends;
    check("cannot make a socket", ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()));
    const sim::Descriptor ours(ends[0]);
    int id = 0;
    {
        const sim::Descriptor theirs(ends[1]);
        id = check("cannot fork", ::fork());
        if (id == 0) {
            become(options, filter.get(), theirs.get());
        }
    }
    const sim::Descriptor listener(receiveDescriptor(ours.get()));
    follow(listener.get(), folder, fate);
    ::kill(id, SIGKILL);  // no harm where it has ended
    int status = 0;
    check("cannot wait", ::waitpid(id, &status, 0));
    return status;
}

}  // namespace test
