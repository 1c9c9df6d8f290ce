// What the TV calls the application for, while that waits for an answer: each stands beside the platform calls that it
// belongs to.
#pragma once

#include <cstdint>
#include <string>

#include "simulator/wire/Values.h"

namespace client {

bool onCreate();
wire::None onControl(wire::Handle request);
wire::None onPause();
wire::None onResume();
wire::None onTerminate();
wire::None onResponse(std::int32_t handler, std::int32_t code, bool hasUserData, const wire::Text& metadata,
                      const wire::Text& file);
wire::None onSignal(wire::Handle subscriber, std::int32_t code, std::int32_t profile, bool hasUserData);

// Copies a file to memory, where nobody, not even root, can change it. Returns a path to that for this process only, or
// null if it fails.
wire::Text onSeal(const std::string& file);

}  // namespace client
