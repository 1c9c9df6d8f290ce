// The values that cross the socket between the application and the TV's services. Both run on one machine: numbers are
// written as they are in memory.
#pragma once

#include <cstdint>
#include <cstring>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

namespace wire {

// What the other side sent is not of this protocol, or exceeds a limit. Not a std::exception: whoever takes those for a
// failure of the TV must let it pass.
struct ProtocolError {
    const char* what;
};

// A text that may be null.
using Text = std::optional<std::string>;

// A value that the journal does not show.
template <typename Value>
struct Hidden {
    Value value{};
    auto fields() { return std::tie(value); }
};

// The number of an object that the other side keeps; 0 is none.
using Handle = Hidden<std::uint32_t>;

// An object that the caller gets, or null.
struct Object {
    bool isThere = false;
    auto fields() { return std::tie(isThere); }
};

struct TvMode {
    std::int32_t antenna = 0;
    std::int32_t service = 0;
    auto fields() { return std::tie(antenna, service); }
};

struct Category {
    std::int32_t kind = 0;
    std::uint64_t param = 0;
    std::int32_t sort = 0;
    auto fields() { return std::tie(kind, param, sort); }
};

// No result, or no out-parameter.
struct None {
    auto fields() { return std::tuple(); }
};

// What a call returns, and what it gives out, unless it leaves that as it was.
template <typename Result, typename Out = None>
struct Answer {
    Result result{};
    std::optional<Out> out{};
    auto fields() { return std::tie(result, out); }
};

// Texts longer than this are cut when they are written. No argument of a call may be that long, and of the log nobody
// reads so much.
constexpr std::size_t MAX_TEXT_BYTES = 16U << 20;

namespace detail {

template <typename Value>
struct IsOptional : std::false_type {};
template <typename Value>
struct IsOptional<std::optional<Value>> : std::true_type {};

template <typename Value, typename = void>
struct HasFields : std::false_type {};
template <typename Value>
struct HasFields<Value, std::void_t<decltype(std::declval<Value&>().fields())>> : std::true_type {};

}  // namespace detail

// Appends a value to a message.
template <typename Value>
void write(std::string& bytes, const Value& value) {
    if constexpr (std::is_arithmetic_v<Value>) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    } else if constexpr (std::is_convertible_v<const Value&, std::string_view>) {
        const std::string_view text = std::string_view(value).substr(0, MAX_TEXT_BYTES);
        write(bytes, static_cast<std::uint32_t>(text.size()));
        bytes.append(text);
    } else if constexpr (detail::IsOptional<Value>::value) {
        write(bytes, value.has_value());
        if (value) {
            write(bytes, *value);
        }
    } else if constexpr (detail::HasFields<Value>::value) {
        // fields() is for reading, too, and so not const; nothing is changed here.
        std::apply([&](const auto&... field) { (write(bytes, field), ...); }, const_cast<Value&>(value).fields());
    } else {
        write(bytes, static_cast<std::uint32_t>(value.size()));
        for (const auto& each : value) {
            write(bytes, each);
        }
    }
}

// Takes values off the front of a message. Each throws ProtocolError if the message ends before the value does, or has
// no such value.
class Decoder {
public:
    explicit Decoder(std::string_view bytes) : m_bytes(bytes) {}

    template <typename Value>
    void read(Value& value) {
        if constexpr (std::is_same_v<Value, bool>) {
            const char byte = *take(1).data();
            require(byte == 0 || byte == 1);
            value = byte == 1;
        } else if constexpr (std::is_arithmetic_v<Value>) {
            std::memcpy(&value, take(sizeof value).data(), sizeof value);
        } else if constexpr (std::is_same_v<Value, std::string>) {
            const std::uint32_t size = readSize();
            require(size <= MAX_TEXT_BYTES);
            value = take(size);
        } else if constexpr (detail::IsOptional<Value>::value) {
            bool isThere = false;
            read(isThere);
            value.reset();
            if (isThere) {
                read(value.emplace());
            }
        } else if constexpr (detail::HasFields<Value>::value) {
            std::apply([&](auto&... field) { (read(field), ...); }, value.fields());
        } else {
            // Each element takes at least a byte, so that a wrong count runs out of them instead of memory.
            value.clear();
            for (std::uint32_t left = readSize(); left > 0; --left) {
                typename Value::value_type each{};
                read(each);
                value.insert(value.end(), std::move(each));
            }
        }
    }

    // Throws ProtocolError if anything is left.
    void expectEnd() const { require(m_bytes.empty()); }

private:
    static void require(bool condition) {
        if (!condition) {
            throw ProtocolError{"a message is not as it should be"};
        }
    }

    std::string_view take(std::size_t size) {
        require(size <= m_bytes.size());
        const std::string_view taken = m_bytes.substr(0, size);
        m_bytes.remove_prefix(size);
        return taken;
    }

    std::uint32_t readSize() {
        std::uint32_t size = 0;
        read(size);
        return size;
    }

    std::string_view m_bytes;
};

template <typename... Values>
std::string encode(const Values&... values) {
    std::string bytes;
    (write(bytes, values), ...);
    return bytes;
}

// All values of a message. Throws ProtocolError if it has others, fewer or more.
template <typename Values>
Values decode(std::string_view bytes) {
    Values values{};
    Decoder decoder(bytes);
    std::apply([&](auto&... each) { (decoder.read(each), ...); }, values);
    decoder.expectEnd();
    return values;
}

}  // namespace wire
