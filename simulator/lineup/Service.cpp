#include "simulator/lineup/Service.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "simulator/base/Text.h"

namespace sim {

namespace {

// What a list may leave out of a pid: MPEG-2 video, MPEG-1 audio and, behind the semicolon, Dolby Digital.
constexpr int USUAL_VIDEO = 2;
constexpr int USUAL_AUDIO = 4;
constexpr int USUAL_DOLBY = 106;

// A text up to a character, which is cut off it together with that character.
std::string cutAt(std::string& text, char character) {
    const std::size_t at = std::min(text.find(character), text.size());
    std::string before = text.substr(0, at);
    text.erase(0, at + 1);
    return before;
}

std::string videoInFull(const std::string& given) {
    std::string text = given;
    std::string pids = cutAt(text, '=');
    const std::string pid = cutAt(pids, '+');
    const std::string type = text.empty() ? std::to_string(USUAL_VIDEO) : text;
    return pid == "0" ? pid : fmt::format("{}+{}={}", pid, pids.empty() ? pid : pids, type);
}

std::string audioInFull(const std::string& given) {
    std::string text = given;
    std::vector<std::string> pids;
    for (const int usual : {USUAL_AUDIO, USUAL_DOLBY}) {
        for (std::string pid : split(cutAt(text, ';'), ',')) {
            std::string language = cutAt(pid, '@');
            const std::string type = pid.empty() ? std::to_string(usual) : pid;
            const std::string number = cutAt(language, '=');
            // 0 stands for none.
            pids.push_back(number == "0" || number.empty() ? "" : fmt::format("{}={}@{}", number, language, type));
        }
        pids.emplace_back(";");
    }
    pids.push_back(text);
    return fmt::format("{}", fmt::join(pids, ","));
}

std::string systemsInFull(const std::string& text) {
    std::vector<std::string> systems;
    for (const std::string& system : split(text, ',')) {
        const std::optional<int> number = toNumber<int>(system, 16);
        systems.push_back(number ? fmt::format("{:X}", *number) : system);
    }
    return fmt::format("{}", fmt::join(systems, ","));
}

std::string withoutMargin(const std::string& text) {
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

// Columns that lists write in more than one way, each with its one form to compare: programs write a list that they
// have read in their own.
const std::pair<std::string Service::*, std::string (*)(const std::string&)> FORMS[] = {
    {&Service::groupName, &withoutMargin},
    {&Service::videoPid, &videoInFull},
    {&Service::audioPids, &audioInFull},
    {&Service::conditionalAccess, &systemsInFull},
};

bool differInForm(std::string Service::*member, const Service& left, const Service& right) {
    const auto* form =
        std::find_if(std::begin(FORMS), std::end(FORMS), [&](auto& each) { return each.first == member; });
    return form == std::end(FORMS) || form->second(left.*member) != form->second(right.*member);
}

}  // namespace

std::string serviceKind(const Service& service) {
    // A list gives 0 for a service without conditional access.
    const bool isScrambled = service.conditionalAccess.find_first_not_of("0,") != std::string::npos;
    return service.type == "radio" ? "radio" : (isScrambled ? "scrambled" : "television");
}

std::string favouriteColumn(int list) {
    return fmt::format("favourite{}", list);
}

bool isOptional(const ServiceColumn& column) {
    return std::string_view(column.declaration).find("DEFAULT") != std::string_view::npos;
}

bool isFavouritePlace(const ServiceColumn& column) {
    const auto* place = std::get_if<int Service::*>(&column.member);
    return place != nullptr &&
           std::find(std::begin(FAVOURITE_PLACES), std::end(FAVOURITE_PLACES), *place) != std::end(FAVOURITE_PLACES);
}

bool isEmpty(const ServiceColumn& column, const Service& service) {
    return std::visit([&](auto member) { return service.*member == std::decay_t<decltype(service.*member)>(); },
                      column.member);
}

std::string textOf(const ServiceColumn& column, const Service& service) {
    return std::visit([&](auto member) { return fmt::format("{}", service.*member); }, column.member);
}

bool differ(const ServiceColumn& column, const Service& left, const Service& right) {
    return *column.label != '\0' && std::visit(
                                        [&](auto member) {
                                            if constexpr (std::is_same_v<decltype(member), std::string Service::*>) {
                                                return left.*member != right.*member &&
                                                       differInForm(member, left, right);
                                            } else {
                                                return left.*member != right.*member;
                                            }
                                        },
                                        column.member);
}

}  // namespace sim
