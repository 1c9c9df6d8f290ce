#include "simulator/lineup/Words.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>
#include <vector>

#include "simulator/base/Text.h"

namespace sim {

std::string words(const TvMode& mode) {
    return fmt::format("{}, {} services ({}/{})", nameOf(mode.antenna), nameOf(mode.service), codeOf(mode.antenna),
                       codeOf(mode.service));
}

std::string words(Source source) {
    return fmt::format("{} ({})", nameOf(source), codeOf(source));
}

std::string words(const Category& category) {
    const std::string param = category.kind == CategoryKind::All ? "" : fmt::format(" {}", category.param);
    return fmt::format("{}{}, by {} ({}/{}/{})", nameOf(category.kind), param, nameOf(category.sort),
                       codeOf(category.kind), category.param, codeOf(category.sort));
}

std::string words(ReplaceStatus status) {
    switch (status) {
        case ReplaceStatus::ArchiveUnreadable:
            return "its archive cannot be read (status 1)";
        case ReplaceStatus::NoDatabase:
            return "its archive holds no services.db (status 2)";
        case ReplaceStatus::DatabaseDamaged:
            return "services.db is no database, or fails its integrity check (status 3)";
        case ReplaceStatus::TablesDiffer:
            return "services.db has not the tables of a channel database, or rows that do not fit them (status 4)";
        case ReplaceStatus::CountDiffers:
            return "services.db holds other services than it says, or none (status 5)";
        default:
            return fmt::format("the database could not be put in its place (status {})", codeOf(status));
    }
}

std::string words(const std::optional<Service>& service, std::uint64_t id) {
    return service ? fmt::format("{} {} ({})", service->number, service->name, service->id)
                   : fmt::format("none: the channel list has no service {}", id);
}

std::string words(const Viewing& viewing, const std::optional<Service>& service) {
    if (viewing.mode.antenna == AntennaMode{-1} || viewing.mode.service == ServiceMode{-1}) {
        return "none saved: a restore leaves the TV's as it is";
    }
    return fmt::format("{}; {}; {}; {}",
                       viewing.serviceId == UINT64_MAX ? "no service" : words(service, viewing.serviceId),
                       words(viewing.mode), viewing.source == Source{-1} ? "no source" : words(viewing.source),
                       viewing.category.kind == CategoryKind{-1} ? "no category" : words(viewing.category));
}

std::string choiceWords(const Service& service) {
    std::vector<std::string> places;
    int list = 0;
    for (const auto place : FAVOURITE_PLACES) {
        ++list;
        if (service.*place > 0) {
            places.push_back(fmt::format("{}:{}", list, service.*place));
        }
    }
    std::vector<std::string> texts;
    if (!places.empty()) {
        texts.push_back(fmt::format("favourite {}", fmt::join(places, " ")));
    }
    for (const auto& [flag, word] : {std::pair(&Service::locked, "locked"), std::pair(&Service::hidden, "hidden")}) {
        if (service.*flag) {
            texts.emplace_back(word);
        }
    }
    if (service.renamed) {
        texts.push_back("renamed" + (service.broadcastName.empty() ? "" : " from " + inQuotes(service.broadcastName)));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

std::string words(const Reception& reception) {
    const auto counted = [](std::size_t count, const char* one, const char* many) {
        return fmt::format("{} {}", count, count == 1 ? one : many);
    };
    return fmt::format("{} of {}; {}, {}, and {}", reception.onAir,
                       plural(reception.onAir + reception.moved + reception.gone, "service"),
                       counted(reception.moved, "has moved", "have moved"),
                       counted(reception.gone, "is off the air", "are off the air"),
                       counted(reception.missing, "new one is dropped", "new ones are dropped"));
}

std::string words(const ScanResult& result) {
    std::vector<std::string> texts;
    const auto add = [&](std::size_t count, std::string_view what) {
        if (count > 0) {
            texts.push_back(fmt::format("{} {}", count, what));
        }
    };
    add(result.gone, "gone");
    add(result.added, "new");
    add(result.renamed, result.renamed == 1 ? "renamed by its broadcaster" : "renamed by their broadcasters");
    if (result.ownNames > 0) {
        texts.back() += fmt::format(" ({} keeping the owner's name)", result.ownNames);
    }
    add(result.moved, "moved to another transport stream");
    add(result.retuned, "moved to another frequency");
    add(result.changed, "changed otherwise");
    return texts.empty() ? "nothing has changed" : fmt::format("{}", fmt::join(texts, ", "));
}

std::string antennaWords(const std::set<int>& inputs) {
    std::vector<std::string> texts;
    texts.reserve(inputs.size());
    for (const int input : inputs) {
        texts.push_back(fmt::format("{} ({})", nameOf(static_cast<AntennaInput>(input)), input));
    }
    return texts.empty() ? "none" : fmt::format("{}", fmt::join(texts, ", "));
}

std::string words(Response response) {
    return fmt::format("{} ({})", codeOf(response), isKnown(response) ? nameOf(response) : "invalid");
}

}  // namespace sim
