#include "simulator/lineup/Service.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <type_traits>

namespace sim {

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
    return *column.label != '\0' &&
           std::visit([&](auto member) { return left.*member != right.*member; }, column.member);
}

}  // namespace sim
