// The application's start, before main(): its static objects make platform calls. Only the application asks the linker
// for this symbol, not the other programs that use its classes.
#include "simulator/client/Connection.h"

namespace {

// The first priority that programs may use: ahead of all static objects.
__attribute__((constructor(101))) void beforeMain(int argc, char** argv) {
    client::Connection::openForApplication(argc, argv);
}

}  // namespace

extern "C" const char halcyon_application_start;
const char halcyon_application_start = 0;
