#include "tests/support/CommandLine.h"

#include <fmt/format.h>
#include <halcyon_tv/Tv.h>

namespace test {

Answer shell(const std::string& command) {
    const halcyon::Answer answer = halcyon::execute({"/bin/sh", "-c", "{ " + command + "; } 2>&1"});
    return {answer.code, answer.text};
}

CommandLine::CommandLine() {
    write(folder / "list.conf",
          ":Group\nEins:11361:HC23:S19.2E:22000:101:102:0:0:1001:1:1:0\nbad line\n"
          "Radio:11361:HC23:S19.2E:22000:0:202:0:0:1002:1:1:0\n");
}

Answer CommandLine::tv(const std::string& words, const std::string& home) const {
    return shell(
        fmt::format("{} --home {} --cloud {} {}", TOOL, (folder / home).string(), (folder / "cloud").string(), words));
}

Answer CommandLine::init(const std::string& home) const {
    return tv("init --channels " + (folder / "list.conf").string(), home);
}

std::string CommandLine::environment(const std::string& home) const {
    return fmt::format("HALCYON_TV_HOME={} HALCYON_CLOUD={} ", (folder / home).string(), (folder / "cloud").string());
}

}  // namespace test
