#include "simulator/client/Connection.h"

#include <cxxabi.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <string_view>

#include "simulator/base/Descriptor.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/ExitCodes.h"
#include "simulator/base/Sandbox.h"
#include "simulator/client/Clock.h"
#include "simulator/client/Events.h"

namespace fs = std::filesystem;

namespace client {

namespace {

using wire::EventId;
using wire::Kind;

constexpr char PROGRAM[] = "halcyon-tv";

// Inside a function: static objects of other files make calls before those of this file are initialised.
std::unique_ptr<Connection>& slot() {
    static std::unique_ptr<Connection> connection;
    return connection;
}

void complain(const std::string& message) {
    std::fprintf(stderr, "halcyon-lineup: %s\n", message.c_str());
}

// Without its services a TV is off, and so is the application.
[[noreturn]] void die() {
    ::kill(::getpid(), SIGKILL);
    std::abort();
}

void replace(int standard, const sim::Descriptor& by) {
    if (::dup2(by.get(), standard) < 0) {
        throw sim::Error::ofSystem(PROGRAM, "cannot print by way of it");
    }
}

// Closes what the process has inherited beside its standard streams: it could be written to by way of /proc/self/fd.
void closeAllBut(int kept) {
    constexpr unsigned int FIRST = STDERR_FILENO + 1;
    const auto number = static_cast<unsigned int>(kept);
    if (number > FIRST) {
        ::close_range(FIRST, number - 1, 0);
    }
    ::close_range(number + 1, ~0U, 0);
}

// Overwrites the values of all variables but those that the C++ library, the loader and the sanitizers read: the others
// may be keys, and what is only forgotten can still be read in /proc.
void clearEnvironment() {
    constexpr std::string_view KEPT[] = {"LANG=", "LANGUAGE=", "LC_", "LD_", "TZ=", "ASAN_", "LSAN_", "UBSAN_"};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const auto isIt = [&](std::string_view begin) { return text.compare(0, begin.size(), begin) == 0; };
        if (std::none_of(std::begin(KEPT), std::end(KEPT), isIt)) {
            std::memset(*entry, 0, text.size());
        }
    }
    char** kept = environ;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (**entry != '\0') {
            *kept++ = *entry;
        }
    }
    *kept = nullptr;
}

std::string typeOfCurrentException() {
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (type == nullptr) {
        return "terminated";
    }
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type->name(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 ? name.get() : type->name();
}

template <EventId id, typename Handler>
std::string handled(std::string_view body, Handler handler) {
    const auto arguments = wire::decode<typename wire::EventCall<id>::Arguments>(body);
    return wire::encode(std::apply(handler, arguments));
}

std::string handle(const wire::Message& message) {
    switch (static_cast<EventId>(message.id)) {
        case EventId::create:
            return handled<EventId::create>(message.body, &onCreate);
        case EventId::control:
            return handled<EventId::control>(message.body, &onControl);
        case EventId::pause:
            return handled<EventId::pause>(message.body, &onPause);
        case EventId::resume:
            return handled<EventId::resume>(message.body, &onResume);
        case EventId::terminate:
            return handled<EventId::terminate>(message.body, &onTerminate);
        case EventId::response:
            return handled<EventId::response>(message.body, &onResponse);
        case EventId::signal:
            return handled<EventId::signal>(message.body, &onSignal);
        case EventId::seal:
            return handled<EventId::seal>(message.body, &onSeal);
    }
    throw wire::ProtocolError{"there is no such event"};
}

}  // namespace

Connection::Connection(bool isApplication, const std::vector<std::string>& words) {
    const char* given = std::getenv(sim::SOCKET_VARIABLE);
    if (given == nullptr) {
        startServices(isApplication);
    } else {
        m_channel = std::make_unique<wire::Channel>(sim::Descriptor(std::atoi(given)));
        ::unsetenv(sim::SOCKET_VARIABLE);  // it is of use once
    }
    greet(isApplication, words);
    std::set_terminate(&recordCrash);
}

Connection::~Connection() {
    // What is still in buffers goes through the services, and so must come before their end.
    std::fflush(nullptr);
    end();
}

Connection& Connection::current() {
    if (!slot()) {
        try {
            slot().reset(new Connection(false, {}));
        } catch (const sim::Error& error) {
            complain(error.what());
            // Without destructors: the application's static objects would make platform calls again.
            std::_Exit(sim::exit_code::UNUSABLE);
        }
    }
    return *slot();
}

void Connection::openForApplication(int argc, char** argv) {
    sim::reserveStandardStreams();
    try {
        slot().reset(new Connection(true, std::vector<std::string>(argv, argv + argc)));
    } catch (const sim::Error& error) {
        complain(error.what());
        std::_Exit(sim::exit_code::UNUSABLE);
    }
}

void Connection::close() {
    slot().reset();
}

void Connection::startServices(bool isApplication) {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error).parent_path() / PROGRAM;
    sim::DescriptorPair sockets = sim::socketPair(PROGRAM);
    sim::ProcessOptions options;
    options.words = {program, "service", "--socket", std::to_string(sockets[1].get())};
    options.handedDown = {sockets[1].get()};
    sim::DescriptorPair output;
    sim::DescriptorPair errors;
    if (isApplication) {
        output = sim::pipePair(PROGRAM);
        errors = sim::pipePair(PROGRAM);
        options.words.insert(options.words.end(), {"--output", std::to_string(output[0].get()), "--errors",
                                                   std::to_string(errors[0].get())});
        options.handedDown.insert(options.handedDown.end(), {output[0].get(), errors[0].get()});
    }
    m_services = std::make_unique<const sim::Process>(options);
    m_channel = std::make_unique<wire::Channel>(std::move(sockets[0]));
    if (isApplication) {
        // Only now: the services have got the streams that the person sees.
        replace(STDOUT_FILENO, output[1]);
        replace(STDERR_FILENO, errors[1]);
    }
}

void Connection::greet(bool isApplication, const std::vector<std::string>& words) {
    try {
        m_channel->send(Kind::Hello, 0, wire::encode(wire::Hello{wire::VERSION, ::getpid(), words}));
        const wire::Message message = receive();
        if (message.kind == Kind::Dismissal) {
            const auto [code] = wire::decode<std::tuple<int>>(message.body);
            end();
            std::_Exit(code);
        }
        const auto [welcome] = wire::decode<std::tuple<wire::Welcome>>(message.body);
        if (!isApplication) {
            return;
        }
        // Neither a closed pipe behind its output nor a limit on file sizes may end the application.
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGXFSZ, SIG_IGN);
        replace(STDIN_FILENO, sim::openFile("/dev/null", O_RDONLY));
        closeAllBut(m_channel->descriptor());
        clearEnvironment();
        if (!welcome.zone.empty()) {
            setTimeZone(welcome.zone);  // its rules are read now: a confined process might not find them
        }
        // Last, as the steps before it open files.
        if (welcome.isConfined && !sim::confineApplication({welcome.writable.begin(), welcome.writable.end()},
                                                           {welcome.readable.begin(), welcome.readable.end()})) {
            std::fputs("This kernel cannot confine a process: names in a bundle may lead out of the TV.\n", stderr);
        }
    } catch (const wire::Closed&) {  // the services have said why
        end();
        std::_Exit(sim::exit_code::UNUSABLE);
    }
}

// Returns the exit code of services that this process has started.
int Connection::end() {
    m_channel->close();
    const std::unique_ptr<const sim::Process> services = std::move(m_services);
    return services ? services->wait() : 0;
}

void Connection::send(Kind kind, std::uint16_t id, const std::string& body) {
    try {
        m_channel->send(kind, id, body);
    } catch (const wire::Closed&) {
        die();
    } catch (const wire::ProtocolError& error) {
        complain(error.what);
        die();
    }
}

// Until the answer comes, the TV may call the application back, and that may make further calls.
std::string Connection::request(std::uint16_t id, const std::string& body) {
    try {
        m_channel->send(Kind::Call, id, body);
        for (;;) {
            wire::Message message = receive();
            if (message.kind == Kind::Answer && message.id == id) {
                return std::move(message.body);
            }
            if (message.kind == Kind::Exception) {
                throw std::runtime_error(std::get<0>(wire::decode<std::tuple<std::string>>(message.body)));
            }
            if (message.kind != Kind::Event) {
                throw wire::ProtocolError{"there is no such answer"};
            }
            m_channel->send(Kind::Returned, message.id, handle(message));
        }
    } catch (const wire::Closed&) {
        die();
    } catch (const wire::ProtocolError& error) {
        complain(error.what);
        die();
    }
}

wire::Message Connection::receive() {
    for (;;) {
        std::optional<wire::Message> message = m_channel->next();
        if (!message) {
            m_channel->receive();
        } else if (message->kind == Kind::Time) {
            setTime(std::get<0>(wire::decode<std::tuple<std::int64_t>>(message->body)));
        } else {
            return std::move(*message);
        }
    }
}

// The terminate handler: records the exception that has left the application.
void Connection::recordCrash() {
    std::string detail = typeOfCurrentException();
    try {
        if (std::current_exception()) {
            std::rethrow_exception(std::current_exception());
        }
    } catch (const std::exception& exception) {
        detail += std::string(": ") + exception.what();
    } catch (...) {
    }
    try {
        if (slot()) {
            slot()->m_channel->send(Kind::Crash, 0, wire::encode(detail));
            // The services answer when the end is on record; abort() would cut that off.
            slot()->receive();
            slot()->end();
        }
    } catch (const wire::Closed&) {
    } catch (const wire::ProtocolError&) {
    }
    std::abort();
}

wire::Text onSeal(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    const int copy = ::memfd_create("sealed", MFD_ALLOW_SEALING);  // lives as long as the process
    const bool isSealed = copy >= 0 &&
                          ::write(copy, content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
                          ::fcntl(copy, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) == 0;
    return isSealed ? wire::Text("/proc/self/fd/" + std::to_string(copy)) : std::nullopt;
}

}  // namespace client
