#include "simulator/lineup/ChannelExport.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "simulator/lineup/ListFormats.h"
#include "simulator/lineup/Remarks.h"

namespace sim {

namespace {

// Collects what a format leaves out of services.
class Losses {
public:
    explicit Losses(const ListFormat& format) {
        for (const ServiceColumn& column : SERVICE_COLUMNS) {
            const Carried carried = carriedBy(format, column);
            // Of columns that are not in the JSON, the group's name says all that there is to know; each list has ids
            // and identities of its own.
            const std::string_view name = column.json;
            if (carried != Carried::All && !name.empty() && name != "id" && name != "identity") {
                m_columns.push_back({&column, carried == Carried::Part, false});
            }
        }
    }

    void see(const Service& service) {
        for (Column& each : m_columns) {
            each.isLost = each.isLost || loses(each, service);
        }
    }

    std::string words() const {
        std::vector<std::string> words;
        for (const Column& each : m_columns) {
            if (each.isLost) {
                words.push_back(fmt::format("{}{}", each.isPart ? "modes and languages of " : "", each.column->label));
            }
        }
        return fmt::format("{}", fmt::join(words, ", "));
    }

private:
    struct Column {
        const ServiceColumn* column;
        bool isPart;
        bool isLost;
    };

    static bool loses(const Column& each, const Service& service) {
        if (isEmpty(*each.column, service)) {
            return false;
        }
        const std::string text = textOf(*each.column, service);
        return each.isPart ? text.find_first_of("=+@") != std::string::npos : text != "0";
    }

    std::vector<Column> m_columns;
};

}  // namespace

std::vector<std::string> exportFormats() {
    std::vector<std::string> names;
    names.reserve(listFormats().size());
    for (const ListFormat& format : listFormats()) {
        if (format.write != nullptr) {
            names.emplace_back(format.name);
        }
    }
    return names;
}

std::vector<std::string> exportChannels(const Services& services, std::string_view name,
                                        const std::function<void(std::string_view)>& write) {
    const ListFormat& format = listFormat(name);
    Losses losses(format);
    Remarks left;
    format.write(services, {write, [&](const Service& service) { losses.see(service); },
                            [&](const Service& service, const std::string& reason) {
                                left.add(fmt::format("{} {}: left out: {}", service.number, service.name, reason),
                                         reason);
                            }});
    std::vector<std::string> lines = left.lines();
    if (const std::string words = losses.words(); !words.empty()) {
        lines.insert(lines.begin(), fmt::format("not in {}: {}", name, words));
    }
    return lines;
}

}  // namespace sim
