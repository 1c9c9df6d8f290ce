// Platform path resolver: where the platform keeps what.
#pragma once

extern "C" {

// The base folder that the platform path variable `variable` stands for (61: application data, 78:
// temporary data), joined with `relative`. Never null; the text lives as long as the process, and
// nobody releases it. Callable before main(). The folder need not exist.
const char* platform_path_resolve(int variable, const char* relative);

}  // extern "C"
