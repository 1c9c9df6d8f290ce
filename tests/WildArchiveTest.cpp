// Archives of other tools, and damaged ones: how unpacking ends for each, its last message, and what it leaves.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>

#include "simulator/base/Digest.h"
#include "simulator/lineup/Unpacking.h"
#include "src/ZipUtil.h"
#include "tests/support/Archives.h"
#include "tests/support/TestTv.h"

namespace {

using test::centralRecord;
using test::setNumber;
using test::Strings;

constexpr std::size_t LOCAL_HEADER = 30;
constexpr std::size_t CENTRAL_RECORD = 46;
constexpr std::size_t END_RECORD = 22;
constexpr std::size_t SIZE = 1000;                       // of each entry
constexpr std::size_t SECOND = LOCAL_HEADER + 5 + SIZE;  // the second local header

// Damages an archive with the entries "first" and "second", each stored.
struct Wild {
    const char* name;
    std::function<void(std::string& bytes)> change;
    bool isUnpacked;
    const char* lastRecord;  // of the extractor
    Strings left;            // files, those damaged in part included
};

// A field of both headers of the first entry.
std::function<void(std::string&)> inBothHeaders(std::size_t local, std::size_t central, std::size_t size,
                                                std::uint64_t value) {
    return [=](std::string& bytes) {
        setNumber(bytes, local, size, value);
        setNumber(bytes, centralRecord(bytes, 0) + central, size, value);
    };
}

std::function<void(std::string&)> inCentralRecord(std::size_t n, std::size_t field, std::size_t size,
                                                  std::uint64_t value) {
    return [=](std::string& bytes) { setNumber(bytes, centralRecord(bytes, n) + field, size, value); };
}

std::function<void(std::string&)> cutTo(std::function<std::size_t(const std::string&)> size) {
    return [size = std::move(size)](std::string& bytes) { bytes.resize(size(bytes)); };
}

// A different archive altogether.
std::function<void(std::string&)> instead(const std::vector<std::pair<std::string, std::string>>& entries) {
    return [=](std::string& bytes) {
        const test::TempFolder folder;
        test::makeArchive(folder / "x.zip", entries);
        bytes = test::readFile(folder / "x.zip");
    };
}

void insertBefore(std::string& bytes, std::size_t at, const std::string& more) {
    bytes.insert(at, more);
    setNumber(bytes, bytes.size() - END_RECORD + 16, 4,
              test::number(bytes, bytes.size() - END_RECORD + 16, 4) + more.size());
}

// Sizes and checksum of the first entry behind its data, as a writer to a pipe puts them.
void withDataDescriptor(std::string& bytes) {
    const std::string sizes = bytes.substr(14, 12);
    setNumber(bytes, 6, 2, 8);
    setNumber(bytes, 14, 4, 0);
    setNumber(bytes, 18, 8, 0);
    setNumber(bytes, centralRecord(bytes, 0) + 8, 2, 8);
    const std::size_t second = centralRecord(bytes, 1);
    setNumber(bytes, second + 42, 4, test::number(bytes, second + 42, 4) + 16);
    insertBefore(bytes, SECOND, "PK\x07\x08" + sizes);
}

// The sizes of the first entry in an extra field of its central record, and -1 instead of them.
void withZip64(std::string& bytes) {
    const std::size_t record = centralRecord(bytes, 0);
    std::string extra("\x01\x00\x10\x00", 4);
    extra.resize(20);
    setNumber(extra, 4, 8, SIZE);
    setNumber(extra, 12, 8, SIZE);
    setNumber(bytes, record + 20, 8, UINT64_MAX);
    setNumber(bytes, record + 30, 2, extra.size());
    bytes.insert(record + CENTRAL_RECORD + 5, extra);
    const std::size_t end = bytes.size() - END_RECORD;
    setNumber(bytes, end + 12, 4, test::number(bytes, end + 12, 4) + extra.size());
}

void withComment(std::string& bytes, const std::string& comment) {
    setNumber(bytes, bytes.size() - 2, 2, comment.size());
    bytes += comment;
}

// What the simulator says of x.zip is what the application has made of it in to/.
void expectUnpackedAlike(const std::filesystem::path& folder, bool isUnpacked) {
    const test::TempFolder model;
    const sim::Unpacking unpacking = sim::unpackBundle(sim::openFile(folder / "x.zip", O_RDONLY), model.path(),
                                                       [](const std::string&) { return sim::limits::ENTRY_BYTES; });
    const auto hasProblem = [](const sim::UnpackedEntry& entry) { return !entry.problem.empty(); };
    const bool isWhole =
        unpacking.problem.empty() && std::none_of(unpacking.entries.begin(), unpacking.entries.end(), hasProblem);
    const bool leadsOut = std::any_of(unpacking.entries.begin(), unpacking.entries.end(), [](const auto& entry) {
        return entry.problem.find("leads out") != std::string::npos;
    });
    if (leadsOut) {
        return;  // the application follows it
    }
    ASSERT_EQ(isWhole, isUnpacked) << unpacking.problem
                                   << (unpacking.entries.empty() ? "" : unpacking.entries.back().problem);
    ASSERT_EQ(test::tree(model.path()), test::tree(folder / "to"));
    for (const auto& [path, digest] : unpacking.files) {
        ASSERT_EQ(digest, sim::digestOf(folder / "to" / path)) << path;
    }
}

class WildArchive : public test::InProcess, public ::testing::WithParamInterface<Wild> {};

TEST_P(WildArchive, IsUnpackedAsFarAsItGoes) {
    test::makeArchive(folder / "x.zip", {{"first", std::string(SIZE, '1')}, {"second", std::string(SIZE, '2')}});
    std::string bytes = test::readFile(folder / "x.zip");
    GetParam().change(bytes);
    test::write(folder / "x.zip", bytes);
    const test::LeavesHandles leavesHandles;
    EXPECT_EQ(CZipUtil().UnzipFile(folder / "x.zip", (folder / "to").string() + "/"), GetParam().isUnpacked);
    EXPECT_EQ(log().back(), std::string("ZipUtil UnzipFile") + GetParam().lastRecord);
    EXPECT_EQ(test::tree(folder / "to"), GetParam().left);
    expectUnpackedAlike(folder.path(), GetParam().isUnpacked);
}

// Bits, bytes and lengths at random places, most of them in the structures.
std::string mutated(std::string bytes, std::mt19937& random) {
    const auto below = [&](std::size_t limit) { return random() % limit; };
    const std::size_t structures = test::centralRecord(bytes, 0);
    for (std::size_t i = 1 + below(3); i > 0; --i) {
        const std::size_t at = below(4) > 0 ? structures + below(bytes.size() - structures) : below(bytes.size());
        switch (below(3)) {
            case 0:
                bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
                break;
            case 1:
                bytes[at] = static_cast<char>(random());
                break;
            default:
                bytes[at] = below(2) > 0 ? '/' : '.';
        }
    }
    return bytes;
}

// What the application leaves open when it fails. Thousands would be too many.
void closeAll(const std::filesystem::path& file) {
    for (int descriptor = 0; descriptor < 64; ++descriptor) {
        std::error_code ignored;
        if (std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored) == file) {
            ::close(descriptor);
        }
    }
}

class MutatedArchive : public test::InProcess {};

TEST_F(MutatedArchive, IsReadAsTheApplicationUnpacksIt) {
    test::makeArchive(folder / "good.zip", {{"first", std::string(SIZE, '1')}, {"a/b", "2"}, {"a/c", "3"}});
    const std::string good = test::readFile(folder / "good.zip");
    std::mt19937 random(17);
    const test::LeavesHandles leavesHandles;
    int unpacked = 0;
    for (int i = 0; i < 5'000; ++i) {
        SCOPED_TRACE(i);
        test::write(folder / "x.zip", mutated(good, random));
        std::filesystem::remove_all(folder / "to");
        const bool isUnpacked = CZipUtil().UnzipFile(folder / "x.zip", (folder / "to").string() + "/");
        expectUnpackedAlike(folder.path(), isUnpacked);
        unpacked += isUnpacked ? 1 : 0;
        closeAll(folder / "x.zip");
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(unpacked, 500);
    EXPECT_LT(unpacked, 4'500);
}

const Strings BOTH = {"first", "second"};
constexpr bool IS_LONG_SHORT = sizeof(long) == 4;
constexpr char CLOSED[] = "(256) 5 closed zip file {folder}/x.zip";
constexpr char CANNOT_OPEN[] = "(146) 6 Cannot open {folder}/x.zip.";
constexpr char NO_INFO[] = "(178) 6 error while reading file info from {folder}/x.zip";
constexpr char NOT_OPENED[] = "(186) 6 error while opening file from {folder}/x.zip";
constexpr char NOT_DECOMPRESSED[] = "(211) 6 error while decompressing file first from {folder}/x.zip";
constexpr char ENDS_EARLY[] = "(217) 6 EOF while decompressing file first from {folder}/x.zip";
constexpr char NOT_CLOSED[] = "(233) 6 error while closing file first from {folder}/x.zip";
constexpr char NO_NEXT[] = "(242) 6 error while moving to next file from {folder}/x.zip";

INSTANTIATE_TEST_SUITE_P(
    Zip, WildArchive,
    ::testing::Values(
        Wild{"InOrder", [](std::string&) {}, true, CLOSED, BOTH},
        // cut off
        Wild{"Empty", cutTo([](const std::string&) { return 0; }), false, CANNOT_OPEN, {}},
        Wild{"CutInTheLocalHeader", cutTo([](const std::string&) { return 10; }), false, CANNOT_OPEN, {}},
        Wild{"CutInTheData", cutTo([](const std::string&) { return SECOND - 500; }), false, CANNOT_OPEN, {}},
        Wild{"CutInTheDirectory",
             cutTo([](const std::string& b) { return centralRecord(b, 1) + 10; }),
             false,
             CANNOT_OPEN,
             {}},
        Wild{"CutInTheEndRecord", cutTo([](const std::string& b) { return b.size() - 5; }), false, CANNOT_OPEN, {}},
        // structures that are not what they should be
        Wild{"LocalHeader", [](std::string& b) { b[SECOND] = '!'; }, false, NOT_OPENED, {"first"}},
        Wild{"FirstCentralRecord", [](std::string& b) { b[centralRecord(b, 0)] = '!'; }, false, NO_INFO, {}},
        Wild{"SecondCentralRecord", [](std::string& b) { b[centralRecord(b, 1)] = '!'; }, false, NO_NEXT, {"first"}},
        Wild{"MoreEntriesThanThereAre",
             [](std::string& b) {
                 setNumber(b, b.size() - END_RECORD + 8, 2, 3);
                 setNumber(b, b.size() - END_RECORD + 10, 2, 3);
             },
             false, NO_NEXT, BOTH},
        Wild{"FewerEntriesThanThereAre",
             [](std::string& b) {
                 setNumber(b, b.size() - END_RECORD + 8, 2, 1);
                 setNumber(b, b.size() - END_RECORD + 10, 2, 1);
             },
             true,
             CLOSED,
             {"first"}},
        // contents
        Wild{"Data", [](std::string& b) { b[LOCAL_HEADER + 5 + 500] = '!'; }, false, NOT_CLOSED, {"first"}},
        Wild{"Checksum", inBothHeaders(14, 16, 4, 0), false, NOT_CLOSED, {"first"}},
        Wild{"LargerThanItsData", inBothHeaders(22, 24, 4, 2 * SIZE), false, ENDS_EARLY, {"first"}},
        Wild{"SmallerThanItsData", inBothHeaders(22, 24, 4, SIZE / 2), false, NOT_CLOSED, {"first"}},
        Wild{"LargerInTheDirectory", inCentralRecord(0, 24, 4, 2 * SIZE), false, NOT_OPENED, {}},
        Wild{"LargerInTheLocalHeader", [](std::string& b) { setNumber(b, 22, 4, 2 * SIZE); }, false, NOT_OPENED, {}},
        Wild{
            "MoreDataThanTheFileHas", inBothHeaders(18, 20, 8, 0x7fffffff7fffffff), false, NOT_DECOMPRESSED, {"first"}},
        // methods
        Wild{"Encrypted", inBothHeaders(6, 8, 2, 1), true, CLOSED, BOTH},
        Wild{"UnknownMethod", inBothHeaders(8, 10, 2, 99), false, NOT_OPENED, {}},
        Wild{"SaidToBeDeflated", inBothHeaders(8, 10, 2, 8), false, NOT_DECOMPRESSED, {"first"}},
        // names; the library does not end one that fills the buffer
        Wild{"NameOf255", instead({{std::string(255, 'n'), "x"}}), true, CLOSED, {std::string(255, 'n')}},
        Wild{"NameOf256", instead({{std::string(256, 'n'), "x"}}), true, CLOSED, {std::string(255, 'n')}},
        Wild{"NameOf65535", instead({{std::string(65535, 'n'), "x"}}), true, CLOSED, {std::string(255, 'n')}},
        Wild{"NameWithNul",
             [](std::string& b) { b[centralRecord(b, 0) + CENTRAL_RECORD + 3] = '\0'; },
             true,
             CLOSED,
             {"fir", "second"}},
        Wild{"NameWithBackslashes", instead({{"a\\b", "x"}}), true, CLOSED, {"a\\b"}},
        Wild{"Folder",
             instead({{"made/", ""}}),
             false,
             "(197) 6 cannot extract {folder}/to/made/ [made/] on {folder}/to/",
             {"made/"}},
        Wild{"FileInThePlaceOfAFolder",
             instead({{"a", "x"}, {"a/b", "y"}}),
             false,
             "(197) 6 cannot extract {folder}/to/a/b [a/b] on {folder}/to/",
             {"a"}},
        Wild{"TheSameNameTwice",
             [](std::string& b) { b.replace(centralRecord(b, 1) + CENTRAL_RECORD, 6, "first\0", 6); },
             true,
             CLOSED,
             {"first"}},
        // what other tools write
        Wild{"DataDescriptor", &withDataDescriptor, true, CLOSED, BOTH},
        // if long has 64 bits, the library expects the sizes in their usual place
        Wild{"Zip64", &withZip64, IS_LONG_SHORT, IS_LONG_SHORT ? CLOSED : NOT_OPENED,
             IS_LONG_SHORT ? BOTH : test::Strings{}},

        Wild{"Prefix", [](std::string& b) { b.insert(0, "#!/bin/sh\n"); }, true, CLOSED, BOTH},
        Wild{"Comment", [](std::string& b) { withComment(b, "made by hand"); }, true, CLOSED, BOTH},
        Wild{"CommentLikeAnEndRecord",
             [](std::string& b) { withComment(b, std::string("PK\x05\x06", 4) + std::string(18, '\0')); },
             true,
             CLOSED,
             {}},
        Wild{"TextBehind", [](std::string& b) { b += "\n"; }, true, CLOSED, BOTH}),
    [](const auto& each) { return each.param.name; });

}  // namespace
