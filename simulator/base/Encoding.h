// Encodings of texts.
#pragma once

#include <string>
#include <string_view>

namespace sim {

// The encoding that a byte order mark at the start of a text tells; empty if there is none.
std::string encodingByMark(std::string_view text);

// Converts a text to UTF-8, piece by piece. A byte order mark at its start is left out.
class Decoder {
public:
    // `name` of an encoding as iconv knows it; `file` is for errors. Throws Error if this machine has no such encoding.
    Decoder(std::string name, std::string file);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    // The next piece of the text. Throws Error (Damaged) if it is not in the encoding.
    std::string convert(std::string_view piece);

    // Throws Error (Damaged) if the text ends within a character.
    void finish() const;

private:
    [[noreturn]] void refuse() const;

    std::string m_name;
    std::string m_file;
    void* m_converter;
    std::string m_rest;  // a part of a character at the end of a piece
    std::size_t m_taken = 0;
    bool m_isStart = true;
};

}  // namespace sim
