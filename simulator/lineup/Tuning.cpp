#include "simulator/lineup/Tuning.h"

#include <fmt/format.h>

#include <cctype>
#include <cmath>
#include <optional>

#include "simulator/base/Text.h"

namespace sim {

namespace {

constexpr std::string_view POLARIZATIONS = "HVLR";
constexpr std::uint64_t KHZ = 1'000;
constexpr std::uint64_t MHZ = 1'000'000;
constexpr int CIRCLE = 3600;  // tenths of a degree

// The stand-in for the transport stream in the identity if network and transport stream are both 0.
std::uint64_t transponder(const Service& service) {
    std::uint64_t megahertz = service.frequency / MHZ;
    if (isSatellite(service.source)) {
        const std::size_t at = service.parameters.find_first_of("HVLRhvlr");
        if (at != std::string::npos) {
            // Above all frequencies, so that transponders that differ by polarization alone have different numbers.
            const int letter = std::toupper(static_cast<unsigned char>(service.parameters[at]));
            megahertz += (POLARIZATIONS.find(static_cast<char>(letter)) + 1) * 100'000;
        }
    }
    return megahertz;
}

}  // namespace

Parameters::Parameters(std::string_view text) {
    char letter = 0;
    for (const char c : text) {
        if (std::isdigit(static_cast<unsigned char>(c)) == 0) {
            letter = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            m_values[letter];
        } else if (letter != 0) {
            m_values[letter] += c;
        }
    }
}

std::string Parameters::valueOf(char letter) const {
    const auto found = m_values.find(letter);
    return found == m_values.end() ? "" : found->second;
}

char Parameters::polarization() const {
    for (const char letter : POLARIZATIONS) {
        if (has(letter)) {
            return letter;
        }
    }
    return 0;
}

void Parameters::set(char letter, std::string_view value) {
    if (!value.empty()) {
        m_values[letter] = value;
    }
}

std::string Parameters::text() const {
    std::string text;
    if (const char letter = polarization(); letter != 0) {
        text += letter;
    }
    for (const auto& [letter, value] : m_values) {
        if (POLARIZATIONS.find(letter) == std::string_view::npos) {
            text += letter + value;
        }
    }
    return text;
}

std::string_view wordOf(Words words, std::string_view value, std::string_view unknown) {
    const std::string key = fmt::format(" {}=", value);
    const std::size_t at = words.find(key);
    if (at == std::string_view::npos) {
        return unknown;
    }
    words.remove_prefix(at + key.size());
    return words.substr(0, words.find(' '));
}

std::string_view valueOf(Words words, std::string_view word) {
    const std::size_t end = words.find(fmt::format("={} ", word));
    if (end == std::string_view::npos) {
        return {};
    }
    const std::size_t begin = words.rfind(' ', end) + 1;
    return words.substr(begin, end - begin);
}

std::string satelliteAt(int tenthsEast) {
    const int east = (tenthsEast % CIRCLE + CIRCLE) % CIRCLE;
    const bool isWest = east > CIRCLE / 2;
    const int tenths = isWest ? CIRCLE - east : east;
    return fmt::format("S{}.{}{}", tenths / 10, tenths % 10, isWest ? 'W' : 'E');
}

bool placeOf(std::string_view source, int& tenthsEast) {
    const char side = source.size() > 2 && isSatellite(source) ? source.back() : '\0';
    const std::optional<double> degrees =
        side == 'E' || side == 'W' ? toNumber<double>(source.substr(1, source.size() - 2)) : std::nullopt;
    if (!degrees || !(*degrees >= 0 && *degrees <= 180)) {
        return false;
    }
    const int tenths = static_cast<int>(std::lround(*degrees * 10));
    tenthsEast = side == 'E' ? tenths : -tenths;
    return true;
}

bool isSatellite(std::string_view source) {
    return !source.empty() && source.front() == 'S';
}

// Satellites are given in MHz; the others in MHz, kHz or Hz, told apart by size.
std::uint64_t unitOf(std::uint64_t given, std::string_view source) {
    if (isSatellite(source) || given <= MHZ / KHZ) {
        return MHZ;
    }
    return given <= MHZ ? KHZ : 1;
}

std::uint64_t unitFor(std::uint64_t hertz, std::string_view source) {
    for (const std::uint64_t unit : {MHZ, KHZ}) {
        if (isSatellite(source) || (hertz % unit == 0 && unitOf(hertz / unit, source) == unit)) {
            return unit;
        }
    }
    return 1;
}

std::string identityOf(const Service& service) {
    const bool hasIds = service.nid != 0 || service.tid != 0;
    return fmt::format("{}-{}-{}-{}-{}", service.source, service.nid,
                       hasIds ? static_cast<std::uint64_t>(service.tid) : transponder(service), service.sid,
                       service.rid);
}

std::vector<std::string> pidsOf(std::string_view field) {
    std::vector<std::string> pids;
    for (const std::string& part : split(field, ';')) {
        for (const std::string& pid : split(part, ',')) {
            const std::string digits = pid.substr(0, pid.find_first_of("=+@"));
            // 0 stands for no such stream.
            if (toNumber<int>(digits).value_or(0) > 0) {
                pids.push_back(digits);
            }
        }
    }
    return pids;
}

}  // namespace sim
