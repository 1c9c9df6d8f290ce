// Care for the backups of a store: whether they are whole, which of them to forget, and copies in another store.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/cloud/CloudStore.h"

namespace sim {

struct DamagedBackup {
    BackupName name;
    std::string why;
    std::optional<BackupName> whole;  // the newest before it that a restore can take instead
};

// Reads each byte of the named backups, and returns those that are damaged. `progress` is called after each.
std::vector<DamagedBackup> verifyBackups(const CloudStore& store, const std::vector<BackupName>& names,
                                         const std::function<void()>& progress);

// The part `part` of `parts` of the backups, from 1. Another listing has the same backups in the same parts.
std::vector<BackupName> partOf(const std::vector<BackupName>& names, std::size_t part, std::size_t parts);

// What is kept; one of the two at least.
struct Retention {
    std::size_t last = 0;                             // so many whole ones of each account, client and category
    std::optional<std::chrono::milliseconds> within;  // those that are no older
};

struct RetentionDecision {
    BackupName name;
    std::string kept;  // why, in words; empty: it is to be forgotten
};

// What to do with the named backups, oldest first within their category. Whatever the retention says, pinned backups
// are kept, and of each category the newest whole one, each byte of which has been read.
std::vector<RetentionDecision> decideRetention(const CloudStore& store, const std::vector<BackupName>& names,
                                               const Retention& retention, std::chrono::milliseconds now);

struct CopyResult {
    std::size_t copied = 0;
    std::size_t there = 0;             // they were in the other store before
    std::vector<std::string> damaged;  // paths of those that cannot be copied
    std::vector<std::string> late;     // of those that would become the newest there, and are not
};

// Copies the named backups that another store lacks, in their order, and reads each copy back. What was copied before
// an interruption is not copied again.
CopyResult copyBackups(const CloudStore& from, const std::vector<BackupName>& names, CloudStore& to,
                       const std::function<void()>& progress);

}  // namespace sim
