// Internal: the arguments that every factory of the TV service is given.
#pragma once

#include "platform/tv_service.h"

constexpr auto PROFILE = static_cast<EProfile>(1);
constexpr int NO_OPTION = 0;
