#include "simulator/lineup/Application.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "simulator/base/Text.h"
#include "simulator/lineup/Codes.h"

namespace sim::application {

bool isRestore(std::string_view operation) {
    return operation == "restore" || operation == "RESTORE";
}

std::string checkExtra(const std::string& extra) {
    const std::size_t equals = extra.find('=');
    return equals == std::string::npos || equals == 0
               ? inQuotes(extra) + " is not of the form key=value, such as operation=restore"
               : std::string();
}

std::string favouriteKey(int list) {
    return fmt::format("db/menu/broadcasting/channel_manager/favname{}", list);
}

std::string withoutTimes(std::string text) {
    constexpr std::string_view FORM = "dddddddd_dddddd";
    const auto fits = [](char form, char c) { return form == 'd' ? c >= '0' && c <= '9' : c == form; };
    for (auto at = text.begin();;) {
        at = std::search(at, text.end(), FORM.begin(), FORM.end(), [&](char c, char form) { return fits(form, c); });
        if (at == text.end()) {
            return text;
        }
        const auto place = at - text.begin();
        text.replace(static_cast<std::size_t>(place), FORM.size(), "TIME");
        at = text.begin() + place;
    }
}

int antennaMask(const std::set<int>& inputs) {
    // The application's own values. The last one overlaps with others, deliberately: stored backups hold such masks,
    // which are compared whole.
    constexpr std::array<int, 5> BITS = {0x01, 0x02, 0x04, 0x08, 0x99};
    int mask = 0;
    for (const int input : inputs) {
        mask |= input >= 0 && input < static_cast<int>(BITS.size()) ? BITS[static_cast<std::size_t>(input)] : 0;
    }
    return mask;
}

std::optional<std::set<int>> antennaInputsOf(int mask) {
    constexpr int KNOWN = static_cast<int>(NAMES<AntennaInput>.size());
    // Several sets of inputs can have one mask, as bits overlap: the smallest one is named.
    std::optional<std::set<int>> fewest;
    for (int choice = 0; choice < 1 << KNOWN; ++choice) {
        std::set<int> inputs;
        for (int input = 0; input < KNOWN; ++input) {
            if ((choice >> input & 1) != 0) {
                inputs.insert(input);
            }
        }
        if (antennaMask(inputs) == mask && (!fewest || inputs.size() < fewest->size())) {
            fewest = inputs;
        }
    }
    return fewest;
}

}  // namespace sim::application
