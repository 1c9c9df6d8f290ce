// Malicious databases are refused or harmless; the TV's own stay untouched.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "simulator/base/Archive.h"
#include "simulator/base/Error.h"
#include "simulator/lineup/Bundle.h"
#include "simulator/lineup/ReceivedDatabase.h"
#include "tests/support/TestTv.h"

namespace fs = std::filesystem;

namespace {

using sim::Database;
using sim::ReplaceStatus;

struct Hostile {
    const char* name;
    const char* statements;                // what is done to a database that is in order
    std::optional<ReplaceStatus> refusal;  // nothing: only its rows come in
};

// An endless query instead of a table, and beside one.
#define ENDLESS "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n"

class Received : public test::TwoTvs, public ::testing::WithParamInterface<Hostile> {
protected:
    // TV A's own database of the kind with the statements run on it, in an archive.
    fs::path archiveOf(const char* name, const fs::path& original, const char* statements) const {
        const fs::path file = folder / name;
        fs::copy_file(original, file);
        Database(file, Database::Access::Change).run(statements);
        sim::writeArchive(folder / "received.zip", {file});
        return folder / "received.zip";
    }
};

std::string nameOf(const ::testing::TestParamInfo<Hostile>& each) {
    return each.param.name;
}

class ReceivedServices : public Received {};

class ManyServices : public Received {};

TEST_P(ReceivedServices, BringRowsOrNothing) {
    const fs::path archive = archiveOf("services.db", a.home / "service-db/services.db", GetParam().statements);
    const sim::Setup before = b.setup();
    EXPECT_EQ(b.open().serviceDb().replace(archive), GetParam().refusal);
    if (GetParam().refusal) {
        EXPECT_EQ(b.setup(), before);
    } else {
        EXPECT_EQ(b.setup().services, a.setup().services);
    }
    const Database now(b.home / "service-db/services.db", Database::Access::Look);
    EXPECT_EQ(now.integer("SELECT count(*) FROM sqlite_schema WHERE type <> 'index'"), 4) << "its own tables alone";
    EXPECT_EQ(test::tree(b.home / "service-db"), (test::Strings{"ipsrv", "services.db"}));
}

TEST_F(ManyServices, AreBroughtToTheLast) {
    const fs::path archive =
        archiveOf("services.db", a.home / "service-db/services.db",
                  "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300) "
                  "INSERT INTO services SELECT i + 100, i + 100, 'C-1-1-' || i || '-1', 'Name ' || i, '', '', type, "
                  "channel_group, source, frequency_hz, symbol_rate, parameters, video_pid, audio_pids, text_pids, "
                  "conditional_access, sid, nid, tid, rid, 0, 0, 0, 0, 0, 0, 0, 0, '', frequency_unit, list_fields "
                  "FROM n, (SELECT * FROM services LIMIT 1); UPDATE meta SET service_count = service_count + 300");
    EXPECT_EQ(b.open().serviceDb().replace(archive), std::nullopt);
    fs::copy_file(folder / "services.db", a.home / "service-db/services.db", fs::copy_options::overwrite_existing);
    EXPECT_EQ(b.setup().services, a.setup().services);
}

INSTANTIATE_TEST_SUITE_P(
    Hostile, ReceivedServices,
    ::testing::Values(
        Hostile{"ViewInThePlaceOfATable", "DROP TABLE meta; CREATE VIEW meta(service_count) AS " ENDLESS,
                ReplaceStatus::TablesDiffer},
        Hostile{"ViewBesideTheTables", "CREATE VIEW more AS " ENDLESS, std::nullopt},
        Hostile{"Trigger", "CREATE TRIGGER t AFTER INSERT ON services BEGIN DELETE FROM services; END", std::nullopt},
        Hostile{"GeneratedColumn",
                "ALTER TABLE services DROP COLUMN provider; ALTER TABLE services ADD COLUMN provider TEXT AS "
                "(printf('%.*c', "
                "100000000, 'x'))",
                ReplaceStatus::TablesDiffer},
        Hostile{"HugeBlob", "UPDATE services SET name = CAST(zeroblob(50000000) AS TEXT) WHERE id = 1",
                ReplaceStatus::TablesDiffer},
        Hostile{"LargeName", "UPDATE services SET name = printf('%.*c', 70000, 'x') WHERE id = 1",
                ReplaceStatus::TablesDiffer},
        Hostile{"ForeignGroup", "PRAGMA foreign_keys = OFF; UPDATE services SET channel_group = 99",
                ReplaceStatus::TablesDiffer},
        Hostile{
            "LooseTypes",
            "CREATE TABLE loose AS SELECT * FROM services; DROP TABLE services; ALTER TABLE loose RENAME TO services; "
            "UPDATE services SET sid = 'text'",
            ReplaceStatus::TablesDiffer},
        Hostile{
            "Nulls",
            "CREATE TABLE loose AS SELECT * FROM services; DROP TABLE services; ALTER TABLE loose RENAME TO services; "
            "UPDATE services SET name = NULL",
            ReplaceStatus::TablesDiffer},
        Hostile{
            "MoreTablesAndColumns",
            "CREATE TABLE more(x); INSERT INTO more VALUES(zeroblob(1000)); ALTER TABLE services ADD COLUMN more TEXT",
            std::nullopt},
        Hostile{"IndexOnAnExpression", "CREATE INDEX expensive ON services(length(hex(name)))", std::nullopt},
        Hostile{"VirtualTable", "DROP TABLE meta; CREATE VIRTUAL TABLE meta USING fts5(service_count)",
                ReplaceStatus::TablesDiffer},
        Hostile{"DamagedSchema",
                "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = 'CREATE TABLE meta(' WHERE name = 'meta'",
                ReplaceStatus::DatabaseDamaged},
        Hostile{"WrongCount", "DELETE FROM services WHERE id = 1", ReplaceStatus::CountDiffers},
        Hostile{"NoService", "DELETE FROM services; UPDATE meta SET service_count = 0", ReplaceStatus::CountDiffers},
        Hostile{"OlderColumns",
                "ALTER TABLE services DROP COLUMN favourite1; ALTER TABLE services DROP COLUMN locked; "
                "ALTER TABLE services DROP COLUMN broadcast_name",
                std::nullopt},
        Hostile{"OtherColumn", "ALTER TABLE services RENAME COLUMN tid TO other", ReplaceStatus::TablesDiffer},
        Hostile{"HeaderThatIsNone",
                "CREATE TABLE loose AS SELECT * FROM list_headers; DROP TABLE list_headers; "
                "ALTER TABLE loose RENAME TO list_headers; INSERT INTO list_headers VALUES(0, '')",
                ReplaceStatus::TablesDiffer},
        Hostile{"NoGroups", "PRAGMA foreign_keys = OFF; DROP TABLE channel_groups", ReplaceStatus::TablesDiffer},
        Hostile{"WithItsOwnLog", "PRAGMA journal_mode = WAL", std::nullopt}),
    &nameOf);

// Support is asked which channel it is.
TEST_F(Received, NamesTheChannelsAtFault) {
    const std::pair<const char*, const char*> faults[] = {
        {"CREATE TABLE loose AS SELECT * FROM services; DROP TABLE services; ALTER TABLE loose RENAME TO services; "
         "UPDATE services SET number = 7",
         "(status 4): number 7 stands 3 times: 7 'Eins', 7 'Zwei', 7 'Radio Drei'"},
        {"CREATE TABLE loose AS SELECT * FROM services; DROP TABLE services; ALTER TABLE loose RENAME TO services; "
         "UPDATE services SET identity = 'x', type = 'film' WHERE number > 1",
         "(status 4): identity x stands 2 times: 2 'Zwei', 3 'Radio Drei'; "
         "neither tv nor radio: 2 'Zwei', 3 'Radio Drei'"},
        {"PRAGMA foreign_keys = OFF; DELETE FROM channel_groups WHERE number = 2",
         "(status 4): in a group that is not there: 3 'Radio Drei'"},
        {"CREATE TABLE loose AS SELECT * FROM services; DROP TABLE services; ALTER TABLE loose RENAME TO services; "
         "UPDATE services SET source = NULL WHERE number = 2",
         "(status 4): without source: 2 'Zwei'"},
        {"UPDATE services SET favourite2 = 1 WHERE number > 1; UPDATE services SET favourite5 = 2 WHERE number = 1",
         "(status 4): favourite2 1 stands 2 times: 2 'Zwei', 3 'Radio Drei'; "
         "favourite5 with a gap before it: 1 'Eins'"},
        {"CREATE TABLE loose AS SELECT * FROM services; DROP TABLE services; ALTER TABLE loose RENAME TO services; "
         "UPDATE services SET favourite1 = -1, locked = 2 WHERE number = 2",
         "(status 4): favourite1 below 0: 2 'Zwei'; locked neither 0 nor 1: 2 'Zwei'"},
        {"ALTER TABLE services RENAME COLUMN tid TO other", "(status 4): no table services with the columns tid"},
        {"DELETE FROM services WHERE id = 1", "(status 5): it says 3, and holds 2"}};
    for (const auto& [statements, expected] : faults) {
        const fs::path archive = archiveOf("services.db", a.home / "service-db/services.db", statements);
        fs::rename(archive, folder / "ServiceDB.zip");
        sim::writeArchive(folder / "bundle.zip", {folder / "ServiceDB.zip"});
        EXPECT_THAT(sim::Bundle(folder / "bundle.zip", std::nullopt).part(sim::Item::Channels).problem,
                    ::testing::EndsWith(expected));
        fs::remove(folder / "services.db");
    }
}

class ReceivedIss : public Received {};

TEST_P(ReceivedIss, BringsRowsOrNothing) {
    const fs::path archive = archiveOf("iss.db", a.home / "iss.db", GetParam().statements);
    const sim::Entries before = b.setup().of(sim::Item::Iss);
    EXPECT_EQ(b.open().issDb().restore(archive), !GetParam().refusal);
    EXPECT_EQ(b.setup().of(sim::Item::Iss), GetParam().refusal ? before : a.setup().of(sim::Item::Iss));
    const Database now(b.home / "iss.db", Database::Access::Look);
    EXPECT_EQ(now.integer("SELECT count(*) FROM sqlite_schema WHERE type <> 'index'"), 1) << "its own table alone";
}

INSTANTIATE_TEST_SUITE_P(
    Hostile, ReceivedIss,
    ::testing::Values(
        Hostile{"ViewInThePlaceOfTheTable",
                "DROP TABLE iss; CREATE VIEW iss(key, value) AS SELECT i, i FROM (" ENDLESS ")",
                ReplaceStatus::TablesDiffer},
        Hostile{"ViewBesideTheTable", "CREATE VIEW more AS " ENDLESS, std::nullopt},
        Hostile{"Trigger", "CREATE TRIGGER t AFTER INSERT ON iss BEGIN SELECT 1; END", std::nullopt},
        Hostile{"GeneratedColumn",
                "DROP TABLE iss; CREATE TABLE iss(key TEXT, value TEXT AS (printf('%.*c', 100000000, 'x'))); INSERT "
                "INTO iss "
                "VALUES('a')",
                ReplaceStatus::TablesDiffer},
        Hostile{"HugeBlob", "UPDATE iss SET value = CAST(zeroblob(50000000) AS TEXT)", ReplaceStatus::DatabaseDamaged},
        Hostile{"Nulls", "DROP TABLE iss; CREATE TABLE iss(key, value); INSERT INTO iss VALUES('a', NULL)",
                ReplaceStatus::TablesDiffer}),
    &nameOf);

TEST_F(Received, HasAFewTablesOnly) {
    const fs::path file = folder / "many.db";
    std::string tables = "PRAGMA synchronous = OFF; BEGIN;";
    for (int i = 0; i < 3000; ++i) {
        tables += "CREATE TABLE t" + std::to_string(i) + "(x);";
    }
    Database(file, Database::Access::Create).run(tables + "COMMIT");
    Database own(folder / "own.db", Database::Access::Create);
    EXPECT_THAT([&] { sim::ReceivedDatabase(file, own); },
                ::testing::ThrowsMessage<sim::Error>(::testing::HasSubstr("more tables or columns than the limit")));
}

// What only looks like a plain table runs out of steps: the expression of an index can be arbitrarily long.
TEST_F(Received, SpendsABudgetOfSteps) {
    const fs::path file = folder / "slow.db";
    std::string sum = "x";
    for (int i = 0; i < 900; ++i) {
        sum += " + 1";
    }
    Database(file, Database::Access::Create)
        .run("PRAGMA synchronous = OFF; CREATE TABLE t(x); CREATE INDEX i ON t(" + sum +
             "); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 3000) INSERT INTO t SELECT i "
             "FROM n");
    Database own(folder / "own.db", Database::Access::Create);
    EXPECT_THAT([&] { sim::ReceivedDatabase(file, own); },
                ::testing::ThrowsMessage<sim::Error>(::testing::HasSubstr("more steps than a file of its size")));
}

}  // namespace
