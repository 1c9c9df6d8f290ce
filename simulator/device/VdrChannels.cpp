#include "simulator/device/VdrChannels.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <set>
#include <string_view>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"
#include "simulator/lineup/VdrList.h"

namespace sim {

namespace {

// Reads lines into a list. What is not understood is left out.
class Reading {
public:
    explicit Reading(ChannelList& list) : m_intake("", "", list) {}

    void take(std::string_view line) { m_reader.take(toUtf8(line.substr(0, line.find_last_not_of(" \t\r") + 1))); }

private:
    ListIntake m_intake;
    VdrReader m_reader{m_intake};
};

// The service that a line stands for; nothing if it is not understood, or a group.
std::optional<Service> serviceOf(const std::string& line) {
    ChannelList list;
    Reading(list).take(line);
    return list.services.empty() ? std::nullopt : std::optional(list.services.front());
}

bool isIpTelevision(const Service& service) {
    return service.source.front() == 'I';
}

// A text up to its first blank, which is cut off it together with that blank.
std::string cutWord(std::string& text) {
    const std::size_t blank = std::min(text.find(' '), text.size());
    std::string word = text.substr(0, blank);
    text.erase(0, blank + 1);
    return word;
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

// Sorts the lines of VDR's list.
class Sorting {
public:
    // `on` is the number of the channel that is on.
    Sorting(VdrChannels& list, std::set<std::string> idsWithTimer, std::string on)
        : m_list(list), m_idsWithTimer(std::move(idsWithTimer)), m_on(std::move(on)) {}

    // "0 :GROUP", or "NUMBER ID CHANNEL".
    void take(std::string text) {
        const std::string number = cutWord(text);
        if (number == "0") {
            m_all.take(text);
            m_shared.take(text);
            return;
        }
        const std::string id = cutWord(text);
        m_all.take(text);
        const StayingChannel staying{toNumber<int>(number).value_or(0), text,
                                     m_list.all.groups.empty() ? "" : m_list.all.groups.back()};
        const std::optional<Service> service = serviceOf(text);
        if (!service || isIpTelevision(*service)) {
            takeOwn(staying, service.has_value());
            return;
        }
        takeShared(staying);
        if (m_idsWithTimer.count(id) != 0) {
            m_list.scheduled.emplace_back(*service, staying);
        }
        if (number == m_on) {
            m_list.current = service->identity;
        }
    }

private:
    void takeOwn(const StayingChannel& channel, bool isUnderstood) {
        if (!isUnderstood) {
            m_list.notUnderstood.push_back(channel.line);
        }
        m_list.own.push_back(channel);
        m_isGap = true;
    }

    // Without those between, it keeps its number by a header.
    void takeShared(const StayingChannel& channel) {
        if (m_isGap) {
            m_shared.take(fmt::format(":@{}", channel.number));
            m_isGap = false;
        }
        m_shared.take(channel.line);
    }

    VdrChannels& m_list;
    const std::set<std::string> m_idsWithTimer;
    const std::string m_on;
    Reading m_all{m_list.all};
    Reading m_shared{m_list.shared};
    bool m_isGap = false;  // the channel before was an own one
};

}  // namespace

VdrChannels readVdrChannels(Svdrp& vdr) {
    const Svdrp::Answer answer = vdr.ask("LSTC :ids :groups");
    if (answer.code != 250) {
        throw Error(
            fmt::format("VDR lists no channels: {}; it reads its channels.conf whole or not at all: see its log",
                        inQuotes(answer.lines.front())));
    }
    VdrChannels list;
    std::string on = vdr.ask("CHAN").lines.front();
    Sorting sorting(list, idsWithTimer(vdr), cutWord(on));
    for (const std::string& line : answer.lines) {
        sorting.take(line);
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

std::string firstMisplaced(const ChannelList& wanted, const ChannelList& list) {
    const auto lacking =
        std::mismatch(wanted.services.begin(), wanted.services.end(), list.services.begin(), list.services.end(),
                      [](const Service& left, const Service& right) {
                          return left.identity == right.identity && left.number == right.number;
                      })
            .first;
    return lacking == wanted.services.end() ? ""
                                            : fmt::format("channel {}, {}", lacking->number, inQuotes(lacking->name));
}

ChannelList parseVdrLines(const std::string& text) {
    ChannelList list;
    Reading reading(list);
    for (const std::string& line : split(text, '\n')) {
        reading.take(line);
    }
    return list;
}

std::string mergedVdrChannels(const Services& restored, std::vector<StayingChannel> staying, const Say& say) {
    Merge merge(std::move(staying), say);
    ListOutput output;
    output.write = [&](std::string_view line) { merge.take(std::string(line.substr(0, line.size() - 1))); };
    output.see = [](const Service& /*service*/) {};
    output.leaveOut = [&](const Service& service, const std::string& reason) {
        say(fmt::format("left out of VDR's list: {}: {}", inQuotes(service.name), reason));
    };
    writeVdr(restored, output);
    return merge.finish();
}

}  // namespace sim
