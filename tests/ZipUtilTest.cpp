#include "src/ZipUtil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <random>

#include "simulator/base/Archive.h"
#include "tests/support/Archives.h"
#include "tests/support/BrokenFolder.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TestTv.h"
#include "tests/support/WithoutPrivileges.h"

namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;
using test::makeArchive;
using test::number;
using test::readFile;
using test::SmallDisk;
using test::write;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

Lines entryNames(const fs::path& archive) {
    Lines names;
    for (const sim::ArchiveEntry& entry : sim::listArchive(archive)) {
        names.push_back(entry.name);
    }
    return names;
}

std::string incompressible(std::size_t size) {
    std::minstd_rand random(1);
    std::string text(size, '\0');
    std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random() >> 8); });
    return text;
}

class ZipUtil : public test::InProcess {
protected:
    std::string at(const std::string& name) const { return folder / name; }

    CZipUtil zip;
};

TEST_F(ZipUtil, PacksAFolderAndUnpacksItAgain) {
    const std::map<std::string, std::string> files = {
        {"empty", ""},
        {"one-buffer", std::string(512, 'a')},
        {"sub/two-and-a-bit", std::string(1025, 'b')},
        {"sub/deeper/binary", std::string("\0\r\n\x1a\xff", 5)},
    };
    for (const auto& [name, content] : files) {
        write(at("in/" + name), content);
    }
    fs::create_directories(at("in/hollow"));

    ASSERT_TRUE(zip.CreateZipFile(at("in/"), at("out.zip")));
    EXPECT_FALSE(fs::exists(at("in"))) << "the packed folder is consumed";
    EXPECT_THAT(entryNames(at("out.zip")),
                UnorderedElementsAre("empty", "one-buffer", "sub/two-and-a-bit", "sub/deeper/binary"));

    ASSERT_TRUE(zip.UnzipFile(at("out.zip"), at("back/")));
    for (const auto& [name, content] : files) {
        EXPECT_EQ(readFile(at("back/" + name)), content) << name;
    }
    EXPECT_FALSE(fs::exists(at("back/hollow")));
}

// The byte layout of the application's archives.
TEST_F(ZipUtil, WritesBareDeflatedEntries) {
    write(at("in/name"), std::string(2000, 'x'));
    ASSERT_TRUE(zip.CreateZipFile(at("in/"), at("out.zip")));
    const std::string bytes = readFile(at("out.zip"));

    constexpr std::size_t END_SIZE = 22;
    const std::size_t end = bytes.size() - END_SIZE;
    EXPECT_EQ(number(bytes, end, 4), 0x06054b50U);
    EXPECT_EQ(number(bytes, end + 10, 2), 1U) << "entries";
    EXPECT_EQ(number(bytes, end + 20, 2), 0U) << "archive comment";

    const auto central = static_cast<std::size_t>(number(bytes, end + 16, 4));
    EXPECT_EQ(number(bytes, central, 4), 0x02014b50U);
    EXPECT_EQ(number(bytes, central + 10, 2), 8U) << "method";
    EXPECT_EQ(number(bytes, central + 12, 4), 0U) << "date and time";
    EXPECT_EQ(number(bytes, central + 24, 4), 2000U) << "size, not in a zip64 extension";
    EXPECT_EQ(number(bytes, central + 28, 2), 4U) << "length of the name";
    EXPECT_EQ(number(bytes, central + 30, 4), 0U) << "extra field and comment";
    EXPECT_EQ(number(bytes, central + 36, 2) & ~1U, 0U) << "internal attributes, but for the library's text hint";
    EXPECT_EQ(number(bytes, central + 38, 4), 0U) << "external attributes";

    EXPECT_EQ(number(bytes, 0, 4), 0x04034b50U);
    EXPECT_EQ(number(bytes, 10, 4), 0U) << "date and time";
    EXPECT_EQ(number(bytes, 28, 2), 0U) << "local extra field";
    EXPECT_EQ(bytes.substr(30, 4), "name");
}

TEST_F(ZipUtil, NamesEntriesByCuttingTheFolderTextOff) {
    write(at("in/sub/b"), "");
    ASSERT_TRUE(zip.CreateZipFile(at("in"), at("out.zip")));
    EXPECT_THAT(entryNames(at("out.zip")), ElementsAre("/sub/b"));

    EXPECT_THAT(log(), ::testing::IsSupersetOf(Lines{
                           "ZipUtil m_CreateZipFile(87) 5 File to zip=[/sub/b]",
                           "ZipUtil m_CreateZipFile(102) 5 Read file [{folder}/in/sub/b]",
                       }));
}

TEST_F(ZipUtil, FollowsLinks) {
    write(at("target/file"), "text");
    fs::create_directories(at("in"));
    fs::create_symlink(at("target"), at("in/folder"));
    fs::create_symlink(at("target/file"), at("in/link"));
    ASSERT_TRUE(zip.CreateZipFile(at("in/"), at("out.zip")));
    EXPECT_EQ(test::tree(at("target")), Lines{"file"}) << "only the links are consumed";
    fs::create_symlink("out.zip", at("link.zip"));
    ASSERT_TRUE(zip.UnzipFile(at("link.zip"), at("back/")));
    EXPECT_EQ(readFile(at("back/folder/file")), "text");
    EXPECT_EQ(readFile(at("back/link")), "text");
}

TEST_F(ZipUtil, PacksAnEmptyFolderIntoAnEmptyArchive) {
    fs::create_directories(at("in"));
    EXPECT_TRUE(zip.CreateZipFile(at("in/"), at("out.zip")));
    EXPECT_FALSE(fs::exists(at("in")));
    EXPECT_EQ(fs::file_size(at("out.zip")), 22U);
    // The library cannot open an archive whose end record is at offset 0.
    EXPECT_FALSE(zip.UnzipFile(at("out.zip"), at("back")));
    EXPECT_EQ(log().back(), "ZipUtil UnzipFile(146) 6 Cannot open {folder}/out.zip.");
}

TEST_F(ZipUtil, LeavesEverythingIfTheArchiveCannotBeOpened) {
    write(at("in/a"), "x");
    EXPECT_FALSE(zip.CreateZipFile(at("in/"), at("missing/out.zip")));
    EXPECT_TRUE(fs::exists(at("in/a")));
    EXPECT_EQ(log(), (Lines{"ZipUtil CreateZipFile(27) 6 zipOpen64 error"}));
}

TEST_F(ZipUtil, RemovesBothWhenTheSourceIsNoFolder) {
    write(at("in"), "x");
    EXPECT_FALSE(zip.CreateZipFile(at("in"), at("out.zip")));
    EXPECT_FALSE(fs::exists(at("in")));
    EXPECT_FALSE(fs::exists(at("out.zip")));
    EXPECT_EQ(log(), (Lines{"ZipUtil CreateZipFile(42) 6 tempPath[{folder}/in] is not directory",
                            "FileUtil RemoveAll(50) 5 remove_all({folder}/in) success",
                            "FileUtil Remove(65) 5 remove({folder}/out.zip) success"}));
}

TEST_F(ZipUtil, RemovesBothWhenAFileCannotBeRead) {
    fs::create_directories(at("in/sub"));
    fs::create_symlink(at("nowhere"), at("in/sub/dangling"));
    EXPECT_FALSE(zip.CreateZipFile(at("in/"), at("out.zip")));
    EXPECT_FALSE(fs::exists(at("in")));
    EXPECT_FALSE(fs::exists(at("out.zip")));
    EXPECT_EQ(log(), (Lines{"ZipUtil m_CreateZipFile(87) 5 File to zip=[sub/dangling]",
                            "ZipUtil m_CreateZipFile(99) 6 Cannot open {folder}/in/sub/dangling for archiving.",
                            "ZipUtil CreateZipFile(37) 6 m_CreateZipFile fail",
                            "FileUtil RemoveAll(50) 5 remove_all({folder}/in/) success",
                            "FileUtil Remove(65) 5 remove({folder}/out.zip) success"}));
}

TEST_F(ZipUtil, ThrowsIfAMemberCannotBeAskedFor) {
    fs::create_directories(at("in"));
    fs::create_symlink("itself", at("in/itself"));
    const test::LeavesHandles leavesHandles;
    EXPECT_THROW(zip.CreateZipFile(at("in/"), at("out.zip")), fs::filesystem_error);

    write(at("closed/file"), "text");
    // A folder that can be listed but not entered, and one that can be entered but not listed.
    for (const fs::perms mode : {fs::perms::owner_read, fs::perms::owner_exec}) {
        fs::permissions(at("closed"), mode);
        const test::WithoutPrivileges unprivileged;
        EXPECT_THROW(zip.CreateZipFile(at("closed/"), at("out.zip")), fs::filesystem_error);
    }
    fs::permissions(at("closed"), fs::perms::owner_all);
}

TEST_F(ZipUtil, ThrowsIfAFolderCannotBeReadToItsEnd) {
    write(at("in/sub/a"), "x");
    write(at("in/sub/b"), "x");
    const test::LeavesHandles leavesHandles;
    for (const int most : {0, 3}) {
        const test::BrokenFolder broken(at("in/sub"), most);
        EXPECT_THROW(zip.CreateZipFile(at("in/"), at("out.zip")), fs::filesystem_error) << most;
    }
}

TEST_F(ZipUtil, RemovesBothWhenTheDiskIsFull) {
    write(at("in/large"), incompressible(2 * SmallDisk::SIZE));
    {
        const SmallDisk disk;
        EXPECT_FALSE(zip.CreateZipFile(at("in/"), at("out.zip")));
    }
    EXPECT_FALSE(fs::exists(at("in")));
    EXPECT_FALSE(fs::exists(at("out.zip")));
    EXPECT_EQ(log(),
              (Lines{"ZipUtil m_CreateZipFile(87) 5 File to zip=[large]",
                     "ZipUtil m_CreateZipFile(102) 5 Read file [{folder}/in/large]",
                     "ZipUtil m_CreateZipFile(110) 6 failed when archiving {folder}/in/large",
                     "ZipUtil CreateZipFile(37) 6 m_CreateZipFile fail", "ZipUtil CreateZipFile(47) 6 zipClose fail",
                     "FileUtil RemoveAll(50) 5 remove_all({folder}/in/) success",
                     "FileUtil Remove(65) 5 remove({folder}/out.zip) success"}));
}

TEST_F(ZipUtil, TellsWhatIsNoArchive) {
    EXPECT_FALSE(zip.UnzipFile(at("missing"), at("to")));
    fs::create_directories(at("folder"));
    EXPECT_FALSE(zip.UnzipFile(at("folder"), at("to")));
    write(at("text"), "no archive at all");
    EXPECT_FALSE(zip.UnzipFile(at("text"), at("to")));
    EXPECT_FALSE(fs::exists(at("to")));
    makeArchive(at("good.zip"), {{"a", "x"}});
    const test::LeavesHandles leavesHandles;
    EXPECT_FALSE(zip.UnzipFile(at("good.zip"), at("text")));
    EXPECT_EQ(log(),
              (Lines{"ZipUtil UnzipFile(131) 6 exists({folder}/missing) fail [0][Success]",
                     "ZipUtil UnzipFile(138) 6 {folder}/folder is directory. Cannot unzip. [0][Success]",
                     "ZipUtil UnzipFile(146) 6 Cannot open {folder}/text.",
                     "ZipUtil UnzipFile(160) 5 opened zip file {folder}/good.zip with (1) files for extracting",
                     "FileUtil CreateDirectories(27) 6 create_directories({folder}/text) fail [20][Not a directory]"}));
}

TEST_F(ZipUtil, ReportsEachEntryOnceItIsThere) {
    makeArchive(at("two.zip"), {{"a", "1"}, {"sub/b", "22"}});
    write(at("to/a"), "something longer that was there");
    ASSERT_TRUE(zip.UnzipFile(at("two.zip"), at("to/")));
    EXPECT_EQ(readFile(at("to/a")), "1");
    EXPECT_EQ(log(), (Lines{"ZipUtil UnzipFile(160) 5 opened zip file {folder}/two.zip with (2) files for extracting",
                            "ZipUtil UnzipFile(246) 5 extracted file a from {folder}/two.zip",
                            "FileUtil CreateDirectories(32) 5 create_directories({folder}/to/sub) success",
                            "ZipUtil UnzipFile(246) 5 extracted file sub/b from {folder}/two.zip",
                            "ZipUtil UnzipFile(256) 5 closed zip file {folder}/two.zip"}));
}

// Names are used verbatim.
TEST_F(ZipUtil, FollowsNamesThatLeadOutOfTheFolder) {
    makeArchive(at("out.zip"), {{"../sibling", "1"}, {at("absolute/file"), "2"}});
    ASSERT_TRUE(zip.UnzipFile(at("out.zip"), at("to")));
    EXPECT_EQ(readFile(at("sibling")), "1");
    EXPECT_EQ(readFile(at("absolute/file")), "2");
}

TEST_F(ZipUtil, StopsIfTheDiskIsFull) {
    makeArchive(at("x.zip"), {{"large", std::string(2 * SmallDisk::SIZE, 'x')}});
    {
        const SmallDisk disk;
        const test::LeavesHandles leavesHandles;
        EXPECT_FALSE(zip.UnzipFile(at("x.zip"), at("to/")));
    }
    EXPECT_EQ(log().back(), "ZipUtil UnzipFile(224) 6 error while writing file large from {folder}/x.zip");
    EXPECT_TRUE(fs::exists(at("to/large"))) << "what was written stays";
}

}  // namespace
