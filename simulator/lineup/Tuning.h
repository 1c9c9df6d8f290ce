// How a service is tuned to: sources, units of frequencies, and parameters as a channel list of VDR has them. Services
// of every format are described so.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/lineup/Service.h"

namespace sim {

// The letters of a channel list's parameters, with what follows each: "HC23M5" is H, C 23, M 5.
class Parameters {
public:
    explicit Parameters(std::string_view text = {});

    bool has(char letter) const { return m_values.count(letter) != 0; }
    std::string valueOf(char letter) const;  // empty if there is none
    char polarization() const;               // H, V, L or R; 0 if there is none
    bool isSecondGeneration() const { return valueOf('S') == "1"; }

    void setPolarization(char letter) { m_values[letter]; }
    // Leaves the letter out if there is no value.
    void set(char letter, std::string_view value);

    // The polarization first, then by letter.
    std::string text() const;

private:
    std::map<char, std::string> m_values;
};

// What another format calls the values of a parameter: " 12=1/2 23=2/3 ", with a blank at both ends of each.
using Words = std::string_view;

// The word of a value; `unknown` if there is none.
std::string_view wordOf(Words words, std::string_view value, std::string_view unknown);
// The value of a word; empty if there is none.
std::string_view valueOf(Words words, std::string_view word);

// "S19.2E" of 192, "S0.8W" of -8; 1801 to 3599 count on from there. "S" is a satellite that is not known.
std::string satelliteAt(int tenthsEast);
// Tenths of a degree to the east, from -1799 to 1800, of "S19.2E" or "S5W"; null if the source says none.
bool placeOf(std::string_view source, int& tenthsEast);

bool isSatellite(std::string_view source);

// In which unit a list of VDR gives the frequency.
std::uint64_t unitOf(std::uint64_t given, std::string_view source);
std::uint64_t unitFor(std::uint64_t hertz, std::string_view source);

std::string identityOf(const Service& service);

// The pids of a field such as "104=deu@3,105;106", as decimal numbers.
std::vector<std::string> pidsOf(std::string_view field);

}  // namespace sim
