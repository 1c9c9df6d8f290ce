// A simulated TV: one folder, the TV home.
//
//   tv.db         the TV's state, settings store and fault rules
//   runs/         the record of each run, and what the TV was before the newest ones
//   service-db/   the TV service's channel database
//   on-air/       what the last scan found, if there was one: a channel database
//   iss.db        the iss database
//   ci/           the CI module's own files
//   apps/, tmp/   what the path variables for application and temporary data stand for
//   spool/        bundles on their way to a cloud on another machine
//   down-addresses  which addresses of that cloud were down lately
//   snapshots/    what it was before, by name
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "simulator/base/Database.h"
#include "simulator/base/Environment.h"
#include "simulator/base/FolderLock.h"
#include "simulator/lineup/CiFiles.h"
#include "simulator/lineup/IssDb.h"
#include "simulator/lineup/Scan.h"
#include "simulator/lineup/ServiceDb.h"
#include "simulator/lineup/Setup.h"
#include "simulator/lineup/Viewing.h"
#include "simulator/tv/Faults.h"
#include "simulator/tv/Runs.h"
#include "simulator/tv/Settings.h"

namespace sim {

// Takes the run lock of a TV, which only one run at a time holds. Throws Error (Locked), with the other run's number
// and process, if another one still holds it after `patience`. Reading a TV needs no lock.
FolderLock lockTv(const std::filesystem::path& home, std::chrono::milliseconds patience);

// A TV's clock. The application gets its time from the system, and its records and bundles bear it.
struct TvClock {
    std::optional<std::chrono::milliseconds> time;  // since 1970; nothing: it is the machine's clock
    bool isStill = false;                           // else a run moves it on by what it takes
    std::string zone;                               // as $TZ has it; empty: the machine's
};

// The program that keeps the channel list of a TV, if that is another than this one.
struct Keeper {
    std::string kind;                            // such as "vdr"; empty: there is none
    std::map<std::string, std::string> options;  // by name
};

class Tv {
public:
    // Makes a factory-fresh TV with a channel list: whole or not at all. Its favourite lists are empty, or have the
    // names and channels of the list's first groups. With a keeper, it has neither IP services nor CI files of its own.
    // Throws Error, also if there is something at `home` already, and what the list throws.
    static void create(const std::filesystem::path& home, const ChannelSource& list, const std::string& serial,
                       const TvClock& clock = {}, const std::string& account = DEFAULT_ACCOUNT,
                       bool favouritesFromGroups = false, const Keeper& keeper = {});

    // Opens a TV; Access::Look needs no right to write. Throws Error if there is none.
    explicit Tv(const std::filesystem::path& home, Database::Access access = Database::Access::Change);
    Tv(const Tv&) = delete;
    Tv& operator=(const Tv&) = delete;

    Viewing viewing() const;
    // Reads, changes and writes in one transaction. What `change` throws leaves the state as it was.
    void changeViewing(const std::function<void(Viewing&)>& change);

    // What its list no longer has is no longer on: the service with the lowest number is, and all services.
    void watchWhatIsThere();

    // Whether these can be set on this TV.
    bool has(const TvMode& mode) const;
    bool has(Source source) const;
    bool has(const Category& category) const;

    // Connection status codes of the antenna inputs.
    std::set<int> antenna() const;
    void setAntenna(const std::set<int>& statuses);

    std::string serial() const;
    Keeper keeper() const;

    // The account in the cloud. Both throw Error if the text cannot name one.
    std::string account() const;
    void setAccount(const std::string& account);

    TvClock clock() const;
    void setClock(const TvClock& clock);
    std::chrono::milliseconds now() const;  // since 1970
    // A run has taken so long. The machine's clock has gone on by itself, and one that stands does not.
    void passTime(std::chrono::milliseconds duration);

    bool isScanning() const;
    void setScanning(bool scanning);

    Settings& settings() { return m_settings; }
    const Settings& settings() const { return m_settings; }
    Faults& faults() { return m_faults; }
    const Faults& faults() const { return m_faults; }
    Runs& runs() { return m_runs; }
    const Runs& runs() const { return m_runs; }
    const ServiceDb& serviceDb() const { return m_serviceDb; }
    const IssDb& issDb() const { return m_issDb; }
    const CiFiles& ciFiles() const { return m_ciFiles; }

    Services services() const { return m_serviceDb.services(); }

    // Throws Error if another program keeps the channels; `what` is what is to be done with that instead.
    void requireOwnChannels(const char* what) const;

    // Scans the channels: a list is what is on the air now. What was watched stays, if it is there, else the service
    // with the lowest number is. Throws Error, also what the list throws.
    ScanResult rescan(const ChannelSource& list);

    // What the last scan found; nothing if there was none.
    std::optional<Services> onAir() const;

    // All that a backup carries; what cannot be read is lacking.
    Setup setup() const;

    // The fingerprints of that, and of the IP services.
    Fingerprints fingerprints() const;

    // The bytes of tv.db as it is now, even if others write to it.
    std::string database() const { return m_database.image(); }

    const std::filesystem::path& home() const { return m_home; }

private:
    std::filesystem::path m_home;
    Database m_database;
    Settings m_settings;
    Faults m_faults;
    Runs m_runs;
    ServiceDb m_serviceDb;
    IssDb m_issDb;
    CiFiles m_ciFiles;
};

}  // namespace sim
