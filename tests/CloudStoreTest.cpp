// The contract of every cloud store, tested on a folder or on $HALCYON_TEST_CLOUD.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "simulator/base/Digest.h"
#include "simulator/base/Environment.h"
#include "simulator/base/Error.h"
#include "simulator/base/Files.h"
#include "simulator/cloud/ObjectClient.h"
#include "simulator/cloud/OpenCloud.h"

namespace fs = std::filesystem;

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

const sim::Address HOME{"default", "client", "lists"};

class Contract : public ::testing::Test {
protected:
    Contract() : scratch(fs::temp_directory_path()) {
        const std::string given = sim::environment("HALCYON_TEST_CLOUD");
        std::random_device random;
        place = given.empty() ? (scratch / "cloud").string() : given + "/" + std::to_string(random());
        store = sim::openCloud(place);
        store->create();
    }

    fs::path bundle(const std::string& name, const std::string& content) const {
        sim::writeFile(scratch / name, content);
        return scratch / name;
    }

    std::string put(const sim::Address& address, const std::string& content) const {
        return put(*store, address, content);
    }
    std::string put(sim::CloudStore& to, const sim::Address& address, const std::string& content) const {
        return to.put({address, "{\"about\":\"" + content + "\"}", "SET", 7, false}, bundle("bundle.zip", content));
    }

    // The kind of error that an act ends with; nothing if it succeeds.
    static std::optional<sim::Error::Kind> failure(const std::function<void()>& act) {
        try {
            act();
            return std::nullopt;
        } catch (const sim::Error& error) {
            return error.kind();
        }
    }

    std::string fetched(const sim::BackupName& name) const {
        const sim::ScratchFolder folder(scratch.path());
        const sim::StoredBackup backup = store->fetch(name, folder.path());
        return backup.damage.empty() ? sim::readFile(folder / backup.name) : "damaged: " + backup.damage;
    }

    std::vector<std::string> paths() const {
        std::vector<std::string> paths;
        for (const sim::BackupName& name : store->content().backups) {
            paths.push_back(name.account + " " + fetched(name));
        }
        return paths;
    }

    sim::ScratchFolder scratch;
    std::string place;
    std::unique_ptr<sim::CloudStore> store;
};

TEST_F(Contract, WhatIsPutComesBackAsItWas) {
    EXPECT_EQ(store->newest(HOME), std::nullopt);
    EXPECT_THAT(store->content().backups, IsEmpty());
    std::string large(5U << 20, 'x');
    for (std::size_t i = 0; i < large.size(); i += 1000) {
        large[i] = static_cast<char>(i / 1000);
    }
    const fs::path file = bundle("12 of\n\xff.zip", large);
    const std::string id = store->put({HOME, "{\"m\":\"\xc3\xa4\"}\n", "SET <1>", 50'000, false}, file);
    const std::optional<sim::BackupName> name = store->newest(HOME);
    ASSERT_TRUE(name);
    EXPECT_EQ(name->id, id);
    const sim::StoredBackup backup = store->look(*name);
    EXPECT_EQ(backup.damage, "");
    EXPECT_EQ(backup.metadata, "{\"m\":\"\xc3\xa4\"}\n");
    EXPECT_EQ(backup.size, large.size());
    EXPECT_EQ(backup.device, "SET <1>");
    EXPECT_EQ(backup.services, 50'000U);
    EXPECT_EQ(backup.path(), "default/client/lists/" + id);
    EXPECT_TRUE(fetched(*name) == large);
    EXPECT_THAT(sim::lookAt(*store, store->content().backups), SizeIs(1));
}

TEST_F(Contract, TheNewestIsTheLastOfItsAccountAndCategory) {
    const sim::Address other{"other", HOME.clientId, HOME.category};
    for (const char* content : {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"}) {
        put(HOME, content);
    }
    put(other, "of another");
    put({"default", HOME.clientId, "other"}, "of another category");
    EXPECT_EQ(fetched(*store->newest(HOME)), "11");
    EXPECT_EQ(fetched(*store->newest(other)), "of another");
    EXPECT_EQ(store->newest({"default", "client", "none"}), std::nullopt);
    EXPECT_THAT(paths(), ElementsAre("default 1", "default 2", "default 3", "default 4", "default 5", "default 6",
                                     "default 7", "default 8", "default 9", "default 10", "default 11",
                                     "default of another category", "other of another"));
}

TEST_F(Contract, AnyNumberIsLookedAtInOrder) {
    for (const char* content : {"1", "2", "3"}) {
        put(HOME, content);
    }
    const std::vector<sim::BackupName> there = store->content().backups;
    constexpr std::size_t MANY = 150;  // more than are asked for at a time
    std::vector<sim::BackupName> names;
    std::vector<std::string> wanted;
    names.reserve(MANY);
    wanted.reserve(MANY);
    for (std::size_t i = 0; i < MANY; ++i) {
        names.push_back(there[i % there.size()]);
        wanted.push_back(names.back().id);
    }
    std::vector<std::string> visited;
    sim::visitBackups([&] { return sim::openCloud(place); }, names,
                      [&](const sim::StoredBackup& backup) { visited.push_back(backup.id); });
    EXPECT_EQ(visited, wanted);
}

TEST_F(Contract, WhatIsRemovedIsGoneAndItsIdToo) {
    put(HOME, "1");
    const std::string second = put(HOME, "2");
    store->remove(*store->newest(HOME));
    EXPECT_EQ(fetched(*store->newest(HOME)), "1");
    const sim::BackupName gone{HOME, second, ""};
    EXPECT_EQ(failure([&] { store->look(gone); }), sim::Error::Kind::Missing);
    EXPECT_EQ(failure([&] { store->remove(gone); }), sim::Error::Kind::Missing);
    EXPECT_NE(put(HOME, "3"), second);
    EXPECT_THAT(paths(), ElementsAre("default 1", "default 3"));
    const sim::Address nowhere{"nobody", "client", "lists"};
    EXPECT_EQ(failure([&] { store->remove({nowhere, second, ""}); }), sim::Error::Kind::Missing);
    EXPECT_THAT(put(nowhere, "1"), StartsWith(store->isRemote() ? "00000001-" : "000001")) << "no mark was left";
}

TEST_F(Contract, TheSameBundleIsRefusedIfThatIsAskedFor) {
    put(HOME, "same");
    sim::NewBackup backup{HOME, "{}", "SET", std::nullopt, true};
    EXPECT_EQ(failure([&] { store->put(backup, bundle("again.zip", "same")); }), sim::Error::Kind::Duplicate);
    store->put(backup, bundle("again.zip", "another"));
    store->put(backup, bundle("again.zip", "same"));  // of what is no longer the newest
    EXPECT_THAT(store->content().backups, SizeIs(3));
}

// Another store below the category, so that what it holds is foreign there, and comes first in a listing.
TEST_F(Contract, WhatIsForeignHidesNoBackup) {
    const sim::Address inside{"0", "client", "lists"};
    const std::unique_ptr<sim::CloudStore> foreign = sim::openCloud(place + "/default/client/lists");
    constexpr std::size_t MORE_THAN_A_PAGE = 101;
    const std::size_t count = store->isRemote() ? MORE_THAN_A_PAGE : 3;
    for (std::size_t i = 0; i < count; ++i) {
        put(*foreign, inside, "foreign");
    }
    EXPECT_EQ(store->newest(HOME), std::nullopt);
    put(HOME, "1");
    put(HOME, "2");
    EXPECT_EQ(fetched(*store->newest(HOME)), "2");
    EXPECT_THAT(paths(), ElementsAre("default 1", "default 2"));
    EXPECT_THAT(store->content().foreign, SizeIs(store->isRemote() ? count : 1));
}

class Objects : public Contract {
protected:
    void SetUp() override {
        if (!store->isRemote()) {
            GTEST_SKIP() << "a folder";
        }
        const std::string rest = place.substr(std::string("s3://").size());
        const std::size_t slash = rest.find('/');
        client = std::make_unique<sim::ObjectClient>(rest.substr(0, slash), [this](auto&, auto&) { ++requests; });
        folder = rest.substr(slash + 1) + "/default/client/lists/";
    }

    void write(const std::string& name) const {
        sim::ObjectClient::Body body{"x", bundle("empty", ""), 1, sim::Digest().addBytes("x").hex()};
        client->put(folder + name, body);
    }

    std::vector<std::string> names() const {
        std::vector<std::string> names;
        client->list(folder, 1000, [&](const sim::ObjectClient::Object& object) {
            names.push_back(object.key.substr(folder.size()));
            return true;
        });
        return names;
    }

    std::unique_ptr<sim::ObjectClient> client;
    std::string folder;
    int requests = 0;
};

TEST_F(Objects, IdsCountUpAndKeysCountDown) {
    const std::string first = put(HOME, "1");
    const std::string second = put(HOME, "2");
    EXPECT_EQ(first.substr(0, 9), "00000001-");
    EXPECT_EQ(second.substr(0, 9), "00000002-");
    EXPECT_THAT(names(), ElementsAre("v2-99999997-" + second.substr(9), "v2-99999998-" + first.substr(9)));
    EXPECT_EQ(fetched({HOME, first, ""}), "1");
}

TEST_F(Objects, OnlyTheExactFormOfAKeyIsABackups) {
    const std::vector<std::string> others{
        "00000001-1a2b3c4d",        // of version 1.1.0
        "99999998-1a2b3c4d",        // and the one that is most like a key of today
        "v1-99999998-1a2b3c4d",     //
        "v2-9999998-1a2b3c4d",      //
        "v2-99999998-1A2B3C4D",     //
        "v2-99999998-1a2b3c4d0",    //
        "v2-99999998",              //
        "v2-99999998-1a2b3c4d/x",   //
        "v2-v2-99999998-1a2b3c4d",  //
    };
    for (const std::string& name : others) {
        write(name);
    }
    EXPECT_THAT(store->content().foreign, SizeIs(others.size()));
    EXPECT_EQ(store->newest(HOME), std::nullopt);
    EXPECT_EQ(put(HOME, "1").substr(0, 9), "00000001-");
    for (const std::string id : {"000001", "99999998-1a2b3c4d", "00000001-../../x", ""}) {
        EXPECT_EQ(failure([&] { store->look({HOME, id, ""}); }), sim::Error::Kind::Missing) << id;
    }
}

TEST_F(Objects, TheHighestNumberIsOneRequestAwayAndTheLast) {
    for (const char* number : {"00000000", "00000007", "99999999"}) {
        write(fmt::format("v2-{}-00000000", number));
    }
    const std::unique_ptr<sim::CloudStore> counting =
        sim::openCloud(place, [&](const std::string&, const std::string&) { ++requests; });
    requests = 0;
    EXPECT_EQ(counting->newest(HOME)->id, "99999999-00000000");
    EXPECT_EQ(requests, 1);
    EXPECT_EQ(failure([&] { put(HOME, "1"); }), sim::Error::Kind::Denied) << "no number is left";
}

TEST_F(Objects, MetadataIsAsLongAsCanBeReadBack) {
    const std::string large(100'000, 'x');
    const auto putWith = [&](std::size_t size) {
        store->put({HOME, std::string(size, ' '), "", 0, false}, bundle("bundle.zip", large));
    };
    putWith(261'000);
    EXPECT_TRUE(fetched(*store->newest(HOME)) == large);
    EXPECT_EQ(store->look(*store->newest(HOME)).metadata.size(), 261'000U);
    EXPECT_EQ(failure([&] { putWith(262'144); }), sim::Error::Kind::Unusable);
}

struct Written {
    std::string id;
    std::int64_t begun;
    std::int64_t done;
};

std::int64_t now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

constexpr int WRITERS = 16;
constexpr int EACH = 8;

class Race : public Contract {
protected:
    fs::path logOf(int writer) const { return scratch / ("writer" + std::to_string(writer)); }

    // In a process of its own.
    int write(int writer) const {
        try {
            const std::unique_ptr<sim::CloudStore> own = sim::openCloud(place);
            std::ofstream log(logOf(writer));
            const fs::path file = scratch / ("bundle" + std::to_string(writer));
            for (int i = 0; i < EACH; ++i) {
                sim::writeFile(file, std::to_string(writer) + "/" + std::to_string(i));
                const std::int64_t begun = now();
                const std::string id = own->put({HOME, "{}", "", std::nullopt, false}, file);
                log << id << ' ' << begun << ' ' << now() << '\n';
            }
            return log.flush() ? 0 : 1;
        } catch (const std::exception& error) {
            std::fprintf(stderr, "writer %d: %s\n", writer, error.what());
            return 1;
        }
    }

    // What a writer has written, checked against what is there.
    std::vector<Written> writtenBy(int writer) const {
        std::ifstream log(logOf(writer));
        std::vector<Written> all(EACH);
        for (int i = 0; i < EACH; ++i) {
            Written& written = all[static_cast<std::size_t>(i)];
            log >> written.id >> written.begun >> written.done;
            EXPECT_EQ(fetched({HOME, written.id, ""}), std::to_string(writer) + "/" + std::to_string(i));
        }
        return all;
    }
};

// The number of pairs in the wrong order, where one backup was done before the other began.
int disordered(const std::vector<Written>& all) {
    int count = 0;
    for (const Written& earlier : all) {
        for (const Written& later : all) {
            count += earlier.done < later.begun && earlier.id >= later.id ? 1 : 0;
        }
    }
    return count;
}

TEST_F(Race, LosesNothingAndKeepsTheOrder) {
    std::vector<pid_t> writers;
    for (int writer = 0; writer < WRITERS; ++writer) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::_exit(write(writer));
        }
        writers.push_back(child);
    }
    std::vector<Written> all;
    for (int writer = 0; writer < WRITERS; ++writer) {
        int status = 0;
        ::waitpid(writers[static_cast<std::size_t>(writer)], &status, 0);
        EXPECT_EQ(status, 0);
        const std::vector<Written> own = writtenBy(writer);
        all.insert(all.end(), own.begin(), own.end());
    }
    EXPECT_THAT(store->content().backups, SizeIs(WRITERS * EACH));
    EXPECT_EQ(disordered(all), 0);
}

}  // namespace
