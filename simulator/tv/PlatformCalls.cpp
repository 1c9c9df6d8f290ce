#include "simulator/tv/PlatformCalls.h"

#include <algorithm>

#include "simulator/base/Text.h"

namespace sim {

std::vector<std::string> PlatformCall::failureList() const {
    return failures.empty() ? std::vector<std::string>() : split(failures, ' ');
}

const std::vector<const PlatformCall*>& platformCalls() {
#define PLATFORM_CALL(identifier, name, item, failures, ...) &calls::identifier,
    static const std::vector<const PlatformCall*> all = {
#include "simulator/wire/PlatformCalls.inc"
    };
#undef PLATFORM_CALL
    return all;
}

std::vector<PlatformCall> callsThatCanFail() {
    std::vector<PlatformCall> calls;
    for (const PlatformCall* call : platformCalls()) {
        if (!call->failures.empty()) {
            calls.push_back(*call);
        }
    }
    return calls;
}

std::string nearCall(std::string_view name) {
    std::vector<std::string> names;
    for (const PlatformCall* call : platformCalls()) {
        names.emplace_back(call->name);
        names.emplace_back(call->name.substr(call->name.rfind(':') + 1));
    }
    return didYouMean(name, names);
}

const PlatformCall* findPlatformCall(std::string_view name) {
    const std::vector<const PlatformCall*>& all = platformCalls();
    const auto isIt = [&](const PlatformCall* each) {
        return each->name == name || each->name.substr(each->name.rfind(':') + 1) == name;
    };
    const auto found = std::find_if(all.begin(), all.end(), isIt);
    return found != all.end() ? *found : nullptr;
}

}  // namespace sim
