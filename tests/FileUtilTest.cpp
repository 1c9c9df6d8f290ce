#include "src/FileUtil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <filesystem>

#include "tests/support/SmallDisk.h"
#include "tests/support/TestTv.h"
#include "tests/support/WithoutPrivileges.h"

namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;
using test::readFile;
using test::write;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::StartsWith;

class FileUtil : public test::InProcess {
protected:
    std::string at(const std::string& name) const { return folder / name; }
};

unsigned int modeOf(const fs::path& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

TEST_F(FileUtil, RemovesAFileOrAnEmptyFolder) {
    write(at("file"), "x");
    write(at("full/file"), "x");
    EXPECT_TRUE(CFileUtil::Remove(at("file")));
    EXPECT_FALSE(CFileUtil::Remove(at("file")));
    EXPECT_FALSE(CFileUtil::Remove(at("full")));
    EXPECT_TRUE(fs::exists(at("full/file")));
    EXPECT_EQ(log(), (Lines{"FileUtil Remove(65) 5 remove({folder}/file) success",
                            "FileUtil Remove(69) 6 remove({folder}/file) fail [0][Success]",
                            "FileUtil Remove(69) 6 remove({folder}/full) fail [39][Directory not empty]"}));
}

TEST_F(FileUtil, RemovesATree) {
    write(at("tree/a/b"), "x");
    EXPECT_TRUE(CFileUtil::RemoveAll(at("tree/")));
    EXPECT_FALSE(fs::exists(at("tree")));
    EXPECT_FALSE(CFileUtil::RemoveAll(at("tree/")));
    EXPECT_EQ(log(), (Lines{"FileUtil RemoveAll(50) 5 remove_all({folder}/tree/) success",
                            "FileUtil RemoveAll(54) 6 remove_all({folder}/tree/) fail [0][Success]"}));
}

// A partial removal counts as removed.
TEST_F(FileUtil, TakesAPartForTheWholeTree) {
    write(at("tree/gone"), "x");
    write(at("tree/kept/file"), "x");
    ASSERT_EQ(::chmod(at("tree/kept").c_str(), 0500), 0);
    {
        const test::WithoutPrivileges unprivileged;
        EXPECT_TRUE(CFileUtil::RemoveAll(at("tree")));
    }
    EXPECT_TRUE(fs::exists(at("tree/kept/file")));
    EXPECT_EQ(log(), (Lines{"FileUtil RemoveAll(50) 5 remove_all({folder}/tree) success"}));
    ASSERT_EQ(::chmod(at("tree/kept").c_str(), 0700), 0);
}

TEST_F(FileUtil, OpensOnlyTheLastFolderOfAChainToEverybody) {
    const mode_t before = ::umask(027);
    EXPECT_TRUE(CFileUtil::CreateDirectories(at("a/b/c/")));
    ::umask(before);
    EXPECT_EQ(modeOf(at("a")), 0750U);
    EXPECT_EQ(modeOf(at("a/b")), 0750U);
    EXPECT_EQ(modeOf(at("a/b/c")), 0777U);

    EXPECT_TRUE(CFileUtil::CreateDirectories(at("a/b")));
    EXPECT_EQ(modeOf(at("a/b")), 0750U) << "a folder that is there keeps its mode";

    // A folder below one with the set-group-id bit is made with that bit, which does not stay.
    ASSERT_EQ(::chmod(at("a/b").c_str(), 02750), 0);
    EXPECT_TRUE(CFileUtil::CreateDirectories(at("a/b/d")));
    EXPECT_EQ(modeOf(at("a/b/d")), 0777U) << "replaced, not added to";

    write(at("file"), "x");
    EXPECT_FALSE(CFileUtil::CreateDirectories(at("file")));
    EXPECT_EQ(log(), (Lines{"FileUtil CreateDirectories(32) 5 create_directories({folder}/a/b/c/) success",
                            "FileUtil CreateDirectories(32) 5 create_directories({folder}/a/b/d) success",
                            "FileUtil CreateDirectories(27) 6 create_directories({folder}/file) fail [20][Not a "
                            "directory]"}));
}

TEST_F(FileUtil, CopiesAFileIntoAFolderUnderItsOwnName) {
    write(at("from/file"), "new");
    EXPECT_TRUE(CFileUtil::Copy(at("from/file"), at("to")));
    write(at("to/file"), "old");
    EXPECT_TRUE(CFileUtil::Copy(at("from/file"), at("to/")));
    EXPECT_EQ(readFile(at("to/file")), "new");
    EXPECT_EQ(log(), (Lines{"FileUtil CreateDirectories(32) 5 create_directories({folder}/to) success",
                            "FileUtil Copy(94) 5 copy_file({folder}/from/file, {folder}/to/file) success",
                            "FileUtil Copy(94) 5 copy_file({folder}/from/file, {folder}/to/file) success"}));
}

TEST_F(FileUtil, FollowsLinks) {
    write(at("from/file"), "text");
    fs::create_directories(at("to"));
    fs::create_symlink("from/file", at("file"));
    fs::create_symlink("to", at("folder"));
    EXPECT_TRUE(CFileUtil::CreateDirectories(at("folder")));
    EXPECT_TRUE(CFileUtil::Copy(at("file"), at("folder")));
    EXPECT_EQ(readFile(at("to/file")), "text");
    EXPECT_EQ(log(), (Lines{"FileUtil Copy(94) 5 copy_file({folder}/file, {folder}/folder/file) success"}));
}

TEST_F(FileUtil, CopiesNothingButRegularFiles) {
    write(at("folder/file"), "x");
    EXPECT_FALSE(CFileUtil::Copy(at("folder"), at("to")));
    EXPECT_FALSE(CFileUtil::Copy(at("missing"), at("to")));
    EXPECT_FALSE(fs::exists(at("to")));
    write(at("taken"), "x");
    EXPECT_FALSE(CFileUtil::Copy(at("folder/file"), at("taken")));
    EXPECT_EQ(log(), (Lines{"FileUtil Copy(80) 6 is_regular_file({folder}/folder) fail [0][Success]",
                            "FileUtil Copy(80) 6 is_regular_file({folder}/missing) fail [2][No such file or directory]",
                            "FileUtil CreateDirectories(27) 6 create_directories({folder}/taken) fail [20][Not a "
                            "directory]"}));
}

TEST_F(FileUtil, TakesAwayTheFolderThatAFailedCopyMade) {
    write(at("file"), "x");
    fs::create_directories(at("kept/file"));
    EXPECT_FALSE(CFileUtil::Copy(at("file"), at("kept")));
    EXPECT_TRUE(fs::exists(at("kept"))) << "a folder that was there stays";

    // Into a folder whose path is too long for any file name below it.
    const std::string name(200, 'n');
    write(at(name), "x");
    std::string deep = at("deep/");
    while (deep.size() < PATH_MAX - 200) {
        deep += std::string(std::min<std::size_t>(150, PATH_MAX - 100 - deep.size()), 'd') + "/";
    }
    EXPECT_FALSE(CFileUtil::Copy(at(name), deep));
    EXPECT_FALSE(fs::exists(deep));
    EXPECT_TRUE(fs::exists(at("deep"))) << "only the folder itself is taken away";
    const Lines lines = log();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], "FileUtil Copy(98) 6 copy_file({folder}/file, {folder}/kept/file) fail [22][Invalid argument]");
    EXPECT_THAT(lines[2], EndsWith("fail [36][File name too long]"));
    EXPECT_THAT(lines[3],
                AllOf(StartsWith("FileUtil RemoveAll(50) 5 remove_all({folder}/deep/"), EndsWith(" success")));
}

TEST_F(FileUtil, LeavesWhatAFailedCopyHasWritten) {
    write(at("large"), std::string(2 * test::SmallDisk::SIZE, 'x'));
    fs::create_directories(at("to"));
    {
        const test::SmallDisk disk;
        EXPECT_FALSE(CFileUtil::Copy(at("large"), at("to")));
    }
    EXPECT_EQ(fs::file_size(at("to/large")), test::SmallDisk::SIZE);
    EXPECT_THAT(log().back(), StartsWith("FileUtil Copy(98) 6 copy_file({folder}/large, {folder}/to/large) fail ["));
}

TEST_F(FileUtil, MovesByCopyAndDelete) {
    write(at("file"), "x");
    EXPECT_TRUE(CFileUtil::Move(at("file"), at("to/")));
    EXPECT_EQ(readFile(at("to/file")), "x");
    EXPECT_FALSE(fs::exists(at("file")));
    EXPECT_FALSE(CFileUtil::Move(at("file"), at("to/")));
    EXPECT_FALSE(CFileUtil::Move(at("to/file"), at("to/file")));
    EXPECT_EQ(readFile(at("to/file")), "x") << "a source that was not copied stays";

    // A file of the kernel's can be copied, but not deleted.
    EXPECT_TRUE(CFileUtil::Move("/proc/self/stat", at("to/"))) << "the source that stays does not count";
    EXPECT_THAT(log().back(), StartsWith("FileUtil Remove(69) 6 remove(/proc/self/stat) fail ["));
}

}  // namespace
