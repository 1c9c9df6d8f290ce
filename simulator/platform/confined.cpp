// Linked into the application alone, and not into programs that use its classes: it confines itself when it opens its
// TV, which is before main() and before anything of an archive is looked at.
#include "simulator/platform/Device.h"

namespace {

__attribute__((constructor(101))) void confine() {
    sim::Device::confineWhenOpened();
}

}  // namespace
