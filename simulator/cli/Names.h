// How the TV's codes are called.
#pragma once

#include <string>

#include "simulator/tv/Tv.h"

namespace cli {

std::string nameOfResponse(int code);

// "satellite, all services (2/0)" and the like.
std::string nameOfMode(const sim::Viewing& viewing);
std::string nameOfSource(const sim::Viewing& viewing);
std::string nameOfCategory(const sim::Viewing& viewing);

}  // namespace cli
