// Packing and unpacking with nothing but what it takes: minizip, the C library's files, and the same calls of them as
// the application's. False: it failed.
#pragma once

#include <string>

// Packs what is below a folder, and removes it.
bool packBare(const std::string& folder, const std::string& archive);

// Unpacks an archive into a folder, which is made.
bool unpackBare(const std::string& archive, const std::string& folder);
