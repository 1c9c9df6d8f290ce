// The files of the page, compiled into the program.
#pragma once

#include <string_view>
#include <vector>

namespace sim {

struct PageFile {
    std::string_view name;
    std::string_view type;  // of its content
    std::string_view content;
};

const std::vector<PageFile>& pageFiles();

}  // namespace sim
