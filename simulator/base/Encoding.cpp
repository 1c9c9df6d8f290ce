#include "simulator/base/Encoding.h"

#include <fmt/format.h>
#include <iconv.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

constexpr std::string_view UTF8_MARK = "\xef\xbb\xbf";

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

}  // namespace

std::string encodingByMark(std::string_view text) {
    if (startsWith(text, UTF8_MARK)) {
        return "UTF-8";
    }
    if (startsWith(text, "\xff\xfe")) {
        return "UTF-16LE";
    }
    return startsWith(text, "\xfe\xff") ? "UTF-16BE" : "";
}

Decoder::Decoder(std::string name, std::string file)
    : m_name(std::move(name)), m_file(std::move(file)), m_converter(::iconv_open("UTF-8", m_name.c_str())) {
    if (reinterpret_cast<std::intptr_t>(m_converter) == -1) {
        throw Error(fmt::format("{} is no encoding that this machine knows; see: iconv --list", inQuotes(m_name)));
    }
}

Decoder::~Decoder() {
    ::iconv_close(m_converter);
}

std::string Decoder::convert(std::string_view piece) {
    m_rest += piece;
    std::string text;
    char* from = m_rest.data();
    std::size_t left = m_rest.size();
    while (left > 0) {
        char buffer[4096];
        char* to = buffer;
        std::size_t room = sizeof(buffer);
        const std::size_t result = ::iconv(m_converter, &from, &left, &to, &room);
        const int error = errno;
        text.append(buffer, to);
        if (result == static_cast<std::size_t>(-1) && error == EINVAL) {
            break;
        }
        if (result == static_cast<std::size_t>(-1) && error != E2BIG) {
            m_taken += m_rest.size() - left;
            refuse();
        }
    }
    m_taken += m_rest.size() - left;
    m_rest.erase(0, m_rest.size() - left);
    if (m_isStart && !text.empty()) {
        m_isStart = false;
        text.erase(0, startsWith(text, UTF8_MARK) ? UTF8_MARK.size() : 0);
    }
    return text;
}

void Decoder::finish() const {
    if (!m_rest.empty()) {
        refuse();
    }
}

void Decoder::refuse() const {
    throw Error(Error::Kind::Damaged, fmt::format("{}: byte {} is not {}", m_file, m_taken + 1, m_name));
}

}  // namespace sim
