// Shows the application's system log to the person who runs it.
#pragma once

#include "simulator/device/Device.h"
#include "simulator/wire/Calls.h"

namespace sim {

// On standard error, with the TV's time.
void printLog(const Device& device, const wire::SystemLog& log);

}  // namespace sim
