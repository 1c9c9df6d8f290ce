// A format of channel lists.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/lineup/ListIntake.h"
#include "simulator/lineup/ServiceDb.h"

namespace sim {

// Reads a channel list of one format, line by line.
class ListReader {
public:
    virtual ~ListReader() = default;

    // A line in UTF-8, without its end and blanks before that. Throws Error if the list makes no sense from here on.
    virtual void take(const std::string& line) = 0;

    // After the last line.
    virtual void finish() {}
};

// The file that is read.
struct ListFile {
    std::filesystem::path path;
    std::string encoding;  // that the user has set
};

// Where a list is written to, piece by piece.
struct ListOutput {
    std::function<void(std::string_view text)> write;

    // Called once with each service, in or out of the list: notes what the format has no place for.
    std::function<void(const Service& service)> see;

    // Tells that a service is not in the list. The reason is the same text for each of its kind.
    std::function<void(const Service& service, const std::string& reason)> leaveOut;
};

struct ListFormat {
    std::string_view name;
    std::string_view words;  // what `name` stands for
    std::string_view unit;   // what is skipped of it: "line", "row", "entry"

    // Whether a list that begins so is of this format: the lines are its first ones that are not empty.
    bool (*fits)(const std::vector<std::string>& head);
    std::unique_ptr<ListReader> (*reader)(const ListFile& file, ListIntake& intake);

    // Null if the format is only read.
    void (*write)(const Services& services, const ListOutput& output);

    // What it carries in and out: the JSON names of service columns, a blank at both ends of each; all if it is empty.
    // A '*' behind the name of pids says: without modes and languages. The identity follows from its parts.
    std::string_view carries;
};

}  // namespace sim
