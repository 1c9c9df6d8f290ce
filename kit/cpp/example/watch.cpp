// With --wrap=bnr_report_failure, the application's calls come here, and go on to the simulator's.
#include <cstdio>

#include "platform/cloud_backup.h"

extern "C" {

int __real_bnr_report_failure(const char* id);

int __wrap_bnr_report_failure(const char* id) {
    std::printf("%s could not be restored\n", id);
    return __real_bnr_report_failure(id);
}
}
