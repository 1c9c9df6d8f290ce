// Limits on what comes from outside, far above what a TV needs. What exceeds one is refused with both numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sim::limits {

constexpr std::uint64_t CHANNEL_LIST_BYTES = 256U << 20;
constexpr std::uint64_t CHANNEL_LINE_BYTES = 16U << 10;

// Of a channel list in JSON, which may be a single line, and is parsed as a whole.
constexpr std::uint64_t JSON_LIST_BYTES = 16U << 20;

// Of the files that a channel list consists of in a folder.
constexpr std::size_t LIST_FILES = 100'000;

// Of an entry of an archive, whether it is packed or unpacked.
constexpr std::uint64_t ENTRY_BYTES = 1U << 30;
constexpr std::uint64_t ARCHIVE_ENTRIES = 65'535;

// Of all entries of an archive together. Entries can share their packed bytes, so that there are more of these than the
// archive has.
constexpr std::uint64_t ARCHIVE_BYTES = 4 * ENTRY_BYTES;
constexpr std::uint64_t PACKED_BYTES_BY_ARCHIVE = 4;

// Of a bundle's settings file, of its metadata, and of what a store keeps about a backup. Parsed JSON takes some fifty
// times its size in memory.
constexpr std::uint64_t SETTINGS_FILE_BYTES = 4U << 20;
constexpr std::uint64_t METADATA_BYTES = 1U << 20;

// Of a row of a received database: more than a line of a channel list becomes.
constexpr std::uint64_t ROW_BYTES = 64U << 10;

// Of a value of the settings store, and of its key.
constexpr std::uint64_t SETTING_BYTES = 64U << 10;

// Of a text in the journal or the log, which is cut() there.
constexpr std::size_t RECORD_BYTES = 16U << 10;

// Of a line of a run's record.
constexpr std::size_t RECORD_LINE_BYTES = 4U << 20;

// Of a file that holds a scenario.
constexpr std::uint64_t SCENARIO_BYTES = 1U << 20;

// Of the path of a TV home: SQLite takes up to 512 for each file in it.
constexpr std::size_t HOME_PATH_BYTES = 400;

// How many runs' records a TV keeps.
constexpr int RUNS_KEPT = 200;

// Of how many of them it keeps what it was before the run: a channel database that has been replaced since takes room.
constexpr int STATES_KEPT = 10;

// "bytes: 10, and the limit is 9"
std::string excess(std::string_view what, std::uint64_t value, std::uint64_t limit);

// Throws Error (Damaged) if there is more of `what` than the limit.
void require(std::string_view what, std::uint64_t value, std::uint64_t limit);

// Returns the text; of one that is longer than RECORD_BYTES, the start, and its length.
std::string cut(std::string_view text);

}  // namespace sim::limits
