#include "simulator/lineup/ListText.h"

#include <fmt/format.h>

#include <optional>
#include <string_view>

#include "simulator/base/Encoding.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/base/Limits.h"
#include "simulator/base/LineSplitter.h"
#include "simulator/base/Text.h"

namespace sim {

namespace {

class TextLines {
public:
    TextLines(const std::filesystem::path& file, const std::string& encoding,
              const std::function<void(const std::string&)>& take)
        : m_name(file.string()),
          m_take(take),
          m_lines(m_name, limits::CHANNEL_LINE_BYTES, [&](auto line) { takeLine(line); }) {
        if (!encoding.empty()) {
            m_decoder.emplace(encoding, m_name);
        }
    }

    void add(std::string_view piece) {
        m_total += piece.size();
        if (m_total > limits::CHANNEL_LIST_BYTES) {
            limits::require(m_name + ": bytes", m_total, limits::CHANNEL_LIST_BYTES);
        }
        if (m_isBegun) {
            decode(piece);
            return;
        }
        // A pipe may hand out few bytes at a time.
        m_start += piece;
        if (m_start.size() >= START_BYTES) {
            begin();
        }
    }

    std::size_t finish() {
        if (!m_isBegun) {
            begin();
        }
        if (m_decoder) {
            m_decoder->finish();
        }
        m_lines.finish();
        return m_latin1Lines;
    }

private:
    static constexpr std::size_t START_BYTES = 512;

    void begin() {
        m_isBegun = true;
        const std::string marked = encodingByMark(m_start);
        std::string_view start = m_start;
        if (!m_decoder && marked == "UTF-8") {
            start.remove_prefix(3);
        } else if (!m_decoder && !marked.empty()) {
            m_decoder.emplace(marked, m_name);
        }
        const std::string text = m_decoder ? m_decoder->convert(start) : std::string(start);
        // JSON may be a single line.
        const std::size_t first = text.find_first_not_of(" \t\r\n");
        if (first != std::string::npos && (text[first] == '{' || text[first] == '[')) {
            m_lines.setMaxBytes(limits::JSON_LIST_BYTES);
        }
        m_lines.add(text);
    }

    void decode(std::string_view piece) {
        if (m_decoder) {
            m_lines.add(m_decoder->convert(piece));
        } else {
            m_lines.add(piece);
        }
    }

    void takeLine(std::string_view line) {
        line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
        const std::string text = toUtf8(line);
        m_latin1Lines += text == line ? 0U : 1U;
        m_take(text);
    }

    std::string m_name;
    const std::function<void(const std::string&)>& m_take;
    LineSplitter m_lines;
    std::optional<Decoder> m_decoder;
    std::string m_start;
    bool m_isBegun = false;
    std::uint64_t m_total = 0;
    std::size_t m_latin1Lines = 0;
};

}  // namespace

bool isPlainFile(const std::filesystem::path& path) {
    std::error_code ignored;
    return std::filesystem::symlink_status(path, ignored).type() == std::filesystem::file_type::regular;
}

std::size_t forEachTextLine(const std::filesystem::path& file, const std::string& encoding,
                            const std::function<void(const std::string&)>& take) {
    TextLines lines(file, encoding, take);
    forEachPiece(file, [&](std::string_view piece) { lines.add(piece); });
    return lines.finish();
}

}  // namespace sim
