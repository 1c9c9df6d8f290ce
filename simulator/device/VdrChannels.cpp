#include "simulator/device/VdrChannels.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <set>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/ChannelExport.h"
#include "simulator/lineup/VdrList.h"

namespace sim {

namespace {

// Reads lines as VDR has them into a list.
class Lines {
public:
    Lines(const char* name, ChannelList& list) : m_intake(name, "", list), m_reader(m_intake) {}

    void take(const std::string& line) { m_reader.take(toUtf8(line)); }

private:
    ListIntake m_intake;
    VdrReader m_reader;
};

// The service that a line stands for; nothing if it is not understood, or a group.
std::optional<Service> serviceOf(const std::string& line) {
    ChannelList list;
    Lines("", list).take(line);
    return list.services.empty() ? std::nullopt : std::optional(list.services.front());
}

bool isIpTelevision(const Service& service) {
    return service.source.front() == 'I';
}

std::set<std::string> idsWithTimer(Svdrp& vdr) {
    std::set<std::string> ids;
    // Each is "NUMBER FLAGS:ID:DAY:..."
    for (const std::string& timer : vdr.ask("LSTT id").lines) {
        const std::vector<std::string> fields = split(timer, ':');
        ids.insert(fields.size() > 1 ? fields[1] : "");
    }
    return ids;
}

class Merge {
public:
    Merge(std::vector<StayingChannel> staying, Say say) : m_staying(std::move(staying)), m_say(std::move(say)) {
        std::stable_sort(
            m_staying.begin(), m_staying.end(),
            [](const StayingChannel& left, const StayingChannel& right) { return left.number < right.number; });
    }

    void take(const std::string& line) {
        if (line.front() == ':') {
            takeHeader(line);
            return;
        }
        const std::optional<Service> service = serviceOf(line);
        const std::string why = refusal(service);
        if (why.empty()) {
            write(m_next, line);
        } else {
            m_say(fmt::format("left out of VDR's list: {}: {}", why, shown(line)));
        }
        ++m_next;
    }

    std::string finish() {
        keepTo(m_next, &m_group);
        std::stable_partition(m_staying.begin(), m_staying.end(),
                              [&](const StayingChannel& each) { return each.number >= m_next; });
        for (const StayingChannel& each : m_staying) {
            if (!each.group.empty() && each.group != m_group) {
                m_text += fmt::format(":{}\n", each.group);
                m_group = each.group;
            }
            m_next = std::max(m_next, each.number);
            write(m_next++, each.line);
        }
        return m_text;
    }

private:
    // Why VDR must not get a line: one that it cannot read costs the whole list.
    static std::string refusal(const std::optional<Service>& service) {
        if (!service) {
            return "it is no service that a list can express";
        }
        if (isIpTelevision(*service)) {
            return "IP television is each set's own";
        }
        if (service->sid == 0 || service->parameters.empty() ||
            service->frequency / service->frequencyUnit > std::numeric_limits<int>::max()) {
            return "VDR needs a service id, parameters and a frequency that it can count";
        }
        return "";
    }

    void takeHeader(const std::string& line) {
        const std::size_t end = line.find_first_not_of("0123456789", 2);
        const int number = line.compare(0, 2, ":@") == 0 ? toNumber<int>(line.substr(2, end - 2)).value_or(0) : 0;
        std::string name = number == 0 ? line.substr(1) : line.substr(std::min(end, line.size()));
        name.erase(0, std::min(name.find_first_not_of(' '), name.size()));
        keepTo(number, &m_group);
        keepTo(number);
        m_next = std::max(m_next, number);
        if (!name.empty()) {
            m_group = name;
        }
        if (!name.empty() || number > m_counted) {
            m_text += line + "\n";
            m_counted = std::max(m_counted, number);
        }
    }

    // Those whose numbers are free below `end`; with a group, those of it that come next.
    void keepTo(int end, const std::string* group = nullptr) {
        for (auto each = m_staying.begin(); each != m_staying.end();) {
            const bool isHere = group != nullptr ? each->number == m_next && each->group == *group
                                                 : each->number >= m_next && each->number < end;
            if (isHere) {
                m_next = each->number;
                write(m_next++, each->line);
                each = m_staying.erase(each);
            } else {
                ++each;
            }
        }
    }

    void write(int number, const std::string& line) {
        if (number != m_counted) {
            m_text += fmt::format(":@{}\n", number);
        }
        m_text += line + "\n";
        m_counted = number + 1;
    }

    std::vector<StayingChannel> m_staying;
    Say m_say;
    std::string m_text;
    std::string m_group;
    int m_next = 1;     // the number of the next channel
    int m_counted = 1;  // what VDR takes for it
};

}  // namespace

VdrList readVdrList(Svdrp& vdr) {
    const Svdrp::Answer answer = vdr.ask("LSTC :ids :groups");
    if (answer.code != 250) {
        throw Error(
            fmt::format("VDR lists no channels: {}; it reads its channels.conf whole or not at all: see its log",
                        inQuotes(answer.lines.front())));
    }
    const std::set<std::string> timers = idsWithTimer(vdr);
    const std::vector<std::string> on = split(vdr.ask("CHAN").lines.front(), ' ');
    VdrList list;
    Lines all("", list.all);
    Lines shared("VDR's list", list.shared);
    std::string group;
    bool isGap = false;
    for (const std::string& text : answer.lines) {
        // "0 :GROUP", or "NUMBER ID LINE".
        const std::size_t blank = std::min(text.find(' '), text.size() - 1);
        const std::string number = text.substr(0, blank);
        std::string line = text.substr(blank + 1);
        if (number == "0") {
            all.take(line);
            shared.take(line);
            group = line.substr(line.compare(0, 2, ":@") == 0 ? std::min(line.find(' '), line.size() - 1) + 1 : 1);
            continue;
        }
        const std::size_t idEnd = std::min(line.find(' '), line.size() - 1);
        const std::string id = line.substr(0, idEnd);
        line.erase(0, idEnd + 1);
        all.take(line);
        const StayingChannel staying{toNumber<int>(number).value_or(0), line, group};
        const std::optional<Service> service = serviceOf(line);
        if (!service || isIpTelevision(*service)) {
            if (!service) {
                list.notUnderstood.push_back(line);
            }
            list.own.push_back(staying);
            isGap = true;
            continue;
        }
        if (isGap) {
            shared.take(fmt::format(":@{}", staying.number));
            isGap = false;
        }
        shared.take(line);
        if (timers.count(id) != 0) {
            list.scheduled.emplace_back(*service, staying);
        }
        if (number == on.front()) {
            list.current = service->identity;
        }
    }
    return list;
}

std::string firstDifference(const ChannelList& left, const ChannelList& right) {
    const std::size_t common = std::min(left.services.size(), right.services.size());
    for (std::size_t i = 0; i < common; ++i) {
        for (const ServiceColumn& column : SERVICE_COLUMNS) {
            if (differ(column, left.services[i], right.services[i])) {
                return fmt::format("channel {}, {} {} and {}", left.services[i].number, column.label,
                                   inQuotes(textOf(column, left.services[i])),
                                   inQuotes(textOf(column, right.services[i])));
            }
        }
    }
    if (left.services.size() != right.services.size()) {
        return fmt::format("{} and {}", plural(left.services.size(), "channel"), right.services.size());
    }
    return left.groups.size() == right.groups.size()
               ? ""
               : fmt::format("{} and {}", plural(left.groups.size(), "group"), right.groups.size());
}

ChannelList parseVdrLines(const std::string& text) {
    ChannelList list;
    Lines lines("", list);
    for (const std::string& line : split(text, '\n')) {
        lines.take(line);
    }
    return list;
}

std::string mergedVdrList(const Services& restored, std::vector<StayingChannel> staying, const Say& say) {
    Merge merge(std::move(staying), say);
    const auto take = [&](std::string_view line) { merge.take(std::string(line.substr(0, line.size() - 1))); };
    for (const std::string& remark : exportChannels(restored, "vdr", take)) {
        say(remark);
    }
    return merge.finish();
}

}  // namespace sim
