// Text files from outside, in any encoding.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

namespace sim {

// Whether the path is that of a regular file, and not of a link to one, which could lead out of its folder.
bool isPlainFile(const std::filesystem::path& path);

// Passes each line of a file of any kind to `take`, in UTF-8, without its end and blanks before that. The text is in
// `encoding`; or if that is empty, in what a byte order mark says, else in UTF-8. Lines that are not are read as ISO
// 8859-1; returns how many they are: lists that were merged have lines in both encodings. Throws Error if the file
// cannot be read, exceeds a limit, or is not in the encoding.
std::size_t forEachTextLine(const std::filesystem::path& file, const std::string& encoding,
                            const std::function<void(const std::string& line)>& take);

}  // namespace sim
