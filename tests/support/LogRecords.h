// Every record that the application can log, as tests/data/log-records.txt lists them: source, function (with the line
// where log filters rely on it), priority and printf format.
#pragma once

#include <string>
#include <vector>

#include "simulator/tv/Runs.h"

namespace test {

// Checks each record of a log against the list: it appears twice, as the prefixed line of the system log and as the
// logger's, with the same place and message, and comes from where the list says, with the priority that it says.
void expectListedRecords(const std::vector<sim::LogRecord>& log);

}  // namespace test
