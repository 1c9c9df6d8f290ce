#include "simulator/base/Sandbox.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Error.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The first version refuses to rename between folders, which is how files are put in place.
constexpr long OLDEST_VERSION = 2;

// What the oldest headers that this is built with do not have: rights of versions 3 and 5, and the members of the rules
// from versions 4 and 6.
constexpr std::uint64_t TRUNCATE = 1ULL << 14;
constexpr std::uint64_t USE_DEVICE = 1ULL << 15;
struct Rules {
    std::uint64_t files = 0;
    std::uint64_t tcp = 0;     // bind, connect
    std::uint64_t scopes = 0;  // abstract sockets, signals
};
constexpr std::uint64_t ALL_TCP = 3;
constexpr std::uint64_t ALL_SCOPES = 3;

constexpr std::uint64_t READING = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t FILES_AND_FOLDERS = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                                            LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR |
                                            LANDLOCK_ACCESS_FS_MAKE_REG | TRUNCATE;
constexpr std::uint64_t WRITING = FILES_AND_FOLDERS | LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                                  LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
                                  LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_REFER;

[[noreturn]] void fail(const fs::path& path) {
    throw Error::ofSystem(path, "cannot confine the application here (--no-sandbox leaves it free)");
}

// Rules of Landlock, which take effect when they are enforced.
class Landlock {
public:
    // 0: this kernel has none.
    static long version() {
        const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
        return version < OLDEST_VERSION ? 0 : version;
    }

    // What the rules refuse everywhere but where allow() allows it.
    explicit Landlock(Rules rules) {
        const long known = version();
        // A kernel refuses rules with rights or members that it does not know.
        rules.files &= known < 3 ? TRUNCATE - 1 : known < 5 ? USE_DEVICE - 1 : UINT64_MAX;
        m_files = rules.files;
        const std::size_t size = known < 4 ? 8 : known < 6 ? 16 : 24;
        m_rules = Descriptor(static_cast<int>(::syscall(SYS_landlock_create_ruleset, &rules, size, 0)));
        if (!m_rules.isOpen()) {
            fail("Landlock");
        }
    }

    void allow(const fs::path& place, std::uint64_t rights) const {
        const Descriptor opened = openFile(place, O_PATH);
        struct stat status = {};
        constexpr std::uint64_t OF_FILES =
            LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_EXECUTE | TRUNCATE;
        // Rules for a file are refused if they have rights that only folders have.
        const bool isFolder = ::fstat(opened.get(), &status) == 0 && S_ISDIR(status.st_mode);
        landlock_path_beneath_attr below = {};
        below.allowed_access = rights & m_files & (isFolder ? UINT64_MAX : OF_FILES);
        below.parent_fd = opened.get();
        if (::syscall(SYS_landlock_add_rule, m_rules.get(), LANDLOCK_RULE_PATH_BENEATH, &below, 0) != 0) {
            fail(place);
        }
    }

    void enforce() const {
        // Only who can gain no privileges any more, or is root, may restrict itself.
        if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            ::syscall(SYS_landlock_restrict_self, m_rules.get(), 0) != 0) {
            fail("Landlock");
        }
    }

private:
    std::uint64_t m_files = 0;
    Descriptor m_rules;
};

// What the C++ library and the sanitizers read while the application runs.
constexpr const char* SYSTEM_PLACES[] = {"/usr", "/lib", "/lib64", "/etc/localtime", "/etc/timezone", "/proc/self"};

bool writeText(const char* file, const std::string& text) {
    const Descriptor opened(::open(file, O_WRONLY | O_CLOEXEC));
    return ::write(opened.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// As the system's headers have it from glibc 2.36 on.
struct MountAttributes {
    std::uint64_t set = 0;
    std::uint64_t clear = 0;
    std::uint64_t propagation = 0;
    std::uint64_t userNamespace = 0;
};

bool changeMount(const fs::path& place, unsigned int flags, MountAttributes attributes) {
#ifdef SYS_mount_setattr
    return ::syscall(SYS_mount_setattr, AT_FDCWD, place.c_str(), flags, &attributes, sizeof attributes) == 0;
#else
    return false;
#endif
}

// Makes all mounts read-only and without devices for this process, but those of the writable folders.
bool lockMounts(const std::vector<fs::path>& writable) {
    constexpr std::uint64_t READ_ONLY = 1;
    constexpr std::uint64_t NO_DEVICES = 4;
    constexpr unsigned int RECURSIVELY = 0x8000;
    if (::unshare(CLONE_NEWNS) != 0) {
        // An ordinary user needs a user namespace to change mounts. It keeps its own numbers, and may map its group
        // only once setgroups() is denied.
        const std::string user = std::to_string(::geteuid());
        const std::string group = std::to_string(::getegid());
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !writeText("/proc/self/setgroups", "deny") ||
            !writeText("/proc/self/uid_map", user + " " + user + " 1") ||
            !writeText("/proc/self/gid_map", group + " " + group + " 1")) {
            return false;
        }
    }
    // Below /proc, files of other processes could be opened.
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        !changeMount("/", RECURSIVELY, {READ_ONLY | NO_DEVICES, 0, 0, 0}) ||
        ::mount("tmpfs", "/proc", "tmpfs", MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC, "size=4k") != 0) {
        return false;
    }
    // A folder becomes writable by a mount of its own.
    return std::all_of(writable.begin(), writable.end(), [](const fs::path& folder) {
        return ::mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
               changeMount(folder, 0, {0, READ_ONLY, 0, 0});
    });
}

// System calls that the application never makes.
const long REFUSED[] = {
    SYS_socket,
    SYS_connect,
    SYS_bind,
    SYS_listen,
    SYS_accept4,
    SYS_execve,
    SYS_execveat,
    SYS_process_vm_readv,
    SYS_process_vm_writev,
    SYS_tkill,
    SYS_rt_sigqueueinfo,
    SYS_rt_tgsigqueueinfo,
    SYS_pidfd_open,
    SYS_pidfd_send_signal,
    SYS_mknodat,
    SYS_linkat,
    SYS_symlinkat,
    SYS_fchown,
    SYS_fchownat,
    SYS_utimensat,
    SYS_setxattr,
    SYS_lsetxattr,
    SYS_fsetxattr,
    SYS_removexattr,
    SYS_lremovexattr,
    SYS_fremovexattr,
    SYS_mount,
    SYS_umount2,
    SYS_pivot_root,
    SYS_chroot,
    SYS_unshare,
    SYS_setns,
    SYS_bpf,
    SYS_perf_event_open,
    SYS_keyctl,
    SYS_add_key,
    SYS_request_key,
    SYS_kcmp,
    SYS_io_uring_setup,
    SYS_open_tree,
    SYS_move_mount,
    SYS_fsopen,
    SYS_fsconfig,
    SYS_fsmount,
    SYS_fspick,
#ifdef SYS_mount_setattr
    SYS_mount_setattr,
#endif
#ifdef SYS_pidfd_getfd
    SYS_pidfd_getfd,
#endif
#ifdef SYS_accept
    SYS_accept,
#endif
#ifdef SYS_link  // the older forms, which younger processors do not have
    SYS_link,
    SYS_symlink,
    SYS_mknod,
    SYS_chown,
    SYS_lchown,
    SYS_utimes,
    SYS_futimesat,
#endif
#ifdef SYS_utime
    SYS_utime,
#endif
#ifdef SYS_utimensat_time64
    SYS_utimensat_time64,
#endif
};

#if defined(__x86_64__)
constexpr std::uint32_t PROCESSOR = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t PROCESSOR = AUDIT_ARCH_AARCH64;
#elif defined(__arm__)
constexpr std::uint32_t PROCESSOR = AUDIT_ARCH_ARM;
#endif

// A program of the kernel's packet filter language, over the numbers and arguments of system calls.
class Filter {
public:
    Filter() {
        // First: by the interface for 32-bit programs, the same numbers are other calls.
        load(offsetof(seccomp_data, arch));
        m_program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PROCESSOR, 1, 0));
        refuse();
        load(offsetof(seccomp_data, nr));
#if defined(__x86_64__)
        constexpr std::uint32_t SHORT_POINTERS = 0x40000000;  // the same calls, with other numbers
        m_program.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, SHORT_POINTERS, 0, 1));
        refuse();
#endif
    }

    void refuseCall(long number) {
        m_program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1));
        refuse();
    }

    // Of those that name a process first.
    void refuseForOthers(long number, pid_t own) {
        constexpr std::size_t FIRST_ARGUMENT = offsetof(seccomp_data, args);
        m_program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 4));
        // The lower half of the argument, on processors whose lowest byte comes first: a process number has no more.
        load(FIRST_ARGUMENT);
        m_program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(own), 1, 0));
        refuse();
        load(offsetof(seccomp_data, nr));
    }

    // For this process from now on.
    bool enforce() {
        m_program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
        const sock_fprog program = {static_cast<unsigned short>(m_program.size()), m_program.data()};
        return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
               ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    }

private:
    void load(std::size_t offset) {
        m_program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset)));
    }
    void refuse() {
        // An error, and not a kill, which would look like a crash of the application.
        m_program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM));
    }

    std::vector<sock_filter> m_program;
};

}  // namespace

bool confineWritingTo(const std::vector<fs::path>& folders) {
    if (Landlock::version() == 0) {
        return false;
    }
    const Landlock rules({WRITING, 0, 0});
    for (const fs::path& folder : folders) {
        rules.allow(folder, WRITING);
    }
    rules.enforce();
    return true;
}

bool confineApplication(const std::vector<fs::path>& writable, const std::vector<fs::path>& readable) {
    const bool hasLandlock = Landlock::version() > 0;
    if (hasLandlock) {
        const Landlock rules({WRITING | READING | LANDLOCK_ACCESS_FS_EXECUTE | USE_DEVICE, ALL_TCP, ALL_SCOPES});
        for (const fs::path& folder : writable) {
            rules.allow(folder, FILES_AND_FOLDERS | READING);
        }
        std::vector<fs::path> places(std::begin(SYSTEM_PLACES), std::end(SYSTEM_PLACES));
        places.insert(places.end(), readable.begin(), readable.end());
        for (const fs::path& place : places) {
            if (::access(place.c_str(), F_OK) == 0) {
                rules.allow(place, READING);
            }
        }
        rules.enforce();
    } else if (!lockMounts(writable)) {
        return false;
    }
    Filter filter;
    for (const long call : REFUSED) {
        filter.refuseCall(call);
    }
    if (!hasLandlock) {  // which lets a process trace its own children and threads only
        filter.refuseCall(SYS_ptrace);
    }
    // To itself it must be able to send a signal: abort() does.
    filter.refuseForOthers(SYS_kill, ::getpid());
    filter.refuseForOthers(SYS_tgkill, ::getpid());
    // Landlock alone keeps files safe; without it, a process that has all system calls could mount again.
    return filter.enforce() || hasLandlock;
}

}  // namespace sim
