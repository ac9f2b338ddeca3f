#include "backup/RsyncLogStore.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <string>

#include "TempDir.h"
#include "core/Timestamp.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

TEST(RsyncLogStoreTest, WriteCreatesTheFolderAndNamesTheLogByTheTimeInUtc) {
    test::TempDir temp;
    const RsyncLogStore store(temp / "state/Logs/Tapekeep");
    const std::string text = "sending incremental file list\n>f+++++++++\tSongs/a\xC3\xA9.m8s\n";

    const std::string before = "rsync-" + formatLogTimestamp(Clock::now()) + ".log";
    const std::optional<fs::path> file = store.write(text);
    const std::string after = "rsync-" + formatLogTimestamp(Clock::now()) + ".log";

    ASSERT_TRUE(file.has_value());
    EXPECT_EQ(file->parent_path(), store.folder());
    const std::string name = file->filename().string();
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(rsync-\d{8}-\d{6}-\d{3}\.log)"))) << name;
    EXPECT_LE(before, name);
    EXPECT_LE(name, after);
    EXPECT_EQ(test::readFile(*file), text);
    EXPECT_EQ(std::distance(fs::directory_iterator(store.folder()), fs::directory_iterator()), 1);
}

TEST(RsyncLogStoreTest, WriteReturnsNothingWhenTheFolderCannotBeMade) {
    test::TempDir temp;
    test::writeFile(temp / "state", "a file where the folder should be");
    EXPECT_FALSE(RsyncLogStore(temp / "state/Logs/Tapekeep").write("log").has_value());
}

TEST(RsyncLogStoreTest, PruneDeletesOnlyLogsOlderThanTheAge) {
    test::TempDir temp;
    const RsyncLogStore store(temp / "Logs/Tapekeep");
    const auto daysAgo = [](int days) { return fs::file_time_type::clock::now() - std::chrono::days(days); };
    const auto make = [&](const std::string& name, int age) {
        test::writeFile(store.folder() / name, name);
        fs::last_write_time(store.folder() / name, daysAgo(age));
    };
    make("rsync-20240101-000000-000.log", 31);
    make("rsync-20240103-000000-000.log", 29);
    make("notes.log", 31);
    make("rsync-20240101-000000-000.txt", 31);
    make("my-rsync-20240101-000000-000.log", 31);

    store.prune(30);

    EXPECT_FALSE(fs::exists(store.folder() / "rsync-20240101-000000-000.log"));
    for (const char* kept : {"rsync-20240103-000000-000.log", "notes.log", "rsync-20240101-000000-000.txt",
                             "my-rsync-20240101-000000-000.log"})
        EXPECT_TRUE(fs::exists(store.folder() / kept)) << kept;
    EXPECT_NO_THROW(RsyncLogStore(temp / "missing").prune(30));
}

}  // namespace
}  // namespace tapekeep
