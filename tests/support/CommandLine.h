// halcyon-tv as a person and a script use it, in a temporary folder of its own.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestTv.h"

namespace test {

// The programs, as a shell starts them.
constexpr char APPLICATION[] = HALCYON_LINEUP;
constexpr char TOOL[] = HALCYON_TV;

struct Answer {
    int code;
    std::string text;  // both streams
};

Answer shell(const std::string& command);

// Makes TVs in `folder`, which share a cloud there.
class CommandLine : public ::testing::Test {
protected:
    // Writes list.conf: two services in one group, one of them a radio, and a line that is none.
    CommandLine();

    Answer tv(const std::string& words, const std::string& home = "tv") const;
    Answer init(const std::string& home = "tv") const;
    std::filesystem::path home(const std::string& name = "tv") const { return folder / name; }

    // $HALCYON_TV_HOME and $HALCYON_CLOUD, for a command of the shell.
    std::string environment(const std::string& home = "tv") const;

    TempFolder folder;
};

}  // namespace test
