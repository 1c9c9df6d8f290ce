#include "platform/path_resolver.h"

#include <set>
#include <string>

#include "simulator/client/Connection.h"

const char* platform_path_resolve(int variable, const char* relative) {
    static std::set<std::string> resolved;  // never shrinks: the texts live as long as the process
    const wire::Text path =
        client::call<wire::CallId::platform_path_resolve>({variable, client::text(relative)}).result.value;
    return path ? resolved.insert(*path).first->c_str() : nullptr;
}
