#include "core/SettingsStore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "FileSnapshot.h"
#include "TempDir.h"
#include "core/PosixError.h"
#include "core/SettingsStoreError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::FileSnapshot;

TEST(SettingsStoreTest, MissingFileReadsEmptyAndIsCreatedOnWrite) {
    test::TempDir folder;
    SettingsStore missing(folder / "tapekeep/settings.json");
    EXPECT_EQ(missing.all(), json::object());
    EXPECT_EQ(missing.string("rsyncPath", "/usr/bin/rsync"), "/usr/bin/rsync");
    EXPECT_EQ(missing.damage(), std::nullopt);
    missing.setValue("keepCount", 7);
    EXPECT_EQ(json::parse(test::readFile(folder / "tapekeep/settings.json")), (json{{"keepCount", 7}}));
}

std::string damageText(const fs::path& file, const std::string& reason) {
    return "Settings file is damaged: " + file.string() + ": " + reason + ". Fix or remove it.";
}

// Reads fall back to empty; every write is refused with the damage text and leaves the file as it
// was, with nothing made beside it.
void expectLeftAlone(const fs::path& file, const std::string& reason) {
    const FileSnapshot before = FileSnapshot::of(file);
    SettingsStore store(file);
    EXPECT_EQ(store.all(), json::object());
    EXPECT_EQ(store.value("keepCount"), std::nullopt);
    EXPECT_EQ(store.damage(), damageText(file, reason));
    try {
        store.setValue("keepCount", 7);
        ADD_FAILURE() << "a damaged file was written";
    } catch (const SettingsStoreError& error) {
        EXPECT_EQ(error.description(), damageText(file, reason));
    }
    EXPECT_THROW(store.removeValue("keepCount"), SettingsStoreError);
    EXPECT_EQ(FileSnapshot::of(file), before);
    std::vector<std::string> beside;
    for (const auto& entry : fs::directory_iterator(file.parent_path()))
        if (entry.path() != file) beside.push_back(entry.path().filename().string());
    EXPECT_EQ(beside, std::vector<std::string>{}) << "no lock file or temporary";
}

TEST(SettingsStoreTest, FileThatCannotBeParsedIsReadAsEmptyAndNeverOverwritten) {
    const std::string tooLarge =
        "{\"padding\": \"" + std::string(SettingsStore::largestFileSize, 'x') + "\"}";
    const struct {
        std::string content, reason;
    } cases[] = {
        {"{\"keepCount\": 5, \"rsyncPath\": \"/usr/bin/rsync\",}\n", "not valid JSON (at byte 48)"},
        {"{\"keepCount\": 5", "not valid JSON (at byte 16)"},
        {"", "not valid JSON (at byte 1)"},
        {"{\"volume\": \"CARD\xff\"}", "not valid JSON (at byte 17)"},
        {"[1, 2, 3]", "not a JSON object"},
        {"null", "not a JSON object"},
        {tooLarge, "larger than 1 MiB"},
    };
    for (const auto& [content, reason] : cases) {
        SCOPED_TRACE(content.substr(0, 60));
        test::TempDir folder;
        test::writeFile(folder / "settings.json", content);
        fs::permissions(folder / "settings.json", fs::perms::owner_read | fs::perms::owner_write);
        expectLeftAlone(folder / "settings.json", reason);
    }
}

// A FIFO would block an ordinary open until a writer came, and /dev/zero would fill the memory: both
// must return at once. (Tests run as root, which reads any mode; a directory or a link loop makes a
// path that truly cannot be read.)
TEST(SettingsStoreTest, PathThatIsNotARegularFileIsRefusedAtOnceAndLeftAsItIs) {
    const struct {
        const char* name;
        std::function<void(const fs::path&)> make;
        std::string reason;
    } cases[] = {
        {"directory", [](const fs::path& path) { fs::create_directory(path); }, "not a regular file"},
        {"FIFO", [](const fs::path& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); },
         "not a regular file"},
        {"link to /dev/zero", [](const fs::path& path) { fs::create_symlink("/dev/zero", path); },
         "not a regular file"},
        {"link loop", [](const fs::path& path) { fs::create_symlink(path.filename(), path); },
         errnoText(ELOOP)},
    };
    for (const auto& [name, make, reason] : cases) {
        SCOPED_TRACE(name);
        test::TempDir folder;
        make(folder / "settings.json");
        expectLeftAlone(folder / "settings.json", reason);
    }
}

TEST(SettingsStoreTest, DamageIsLoggedOnceHoweverOftenTheFileIsRead) {
    test::TempDir folder;
    test::writeFile(folder / "settings.json", "{\"keepCount\": 5,}");
    SettingsStore store(folder / "settings.json"), other(folder / "settings.json");
    ::testing::internal::CaptureStderr();
    for (int i = 0; i < 3; ++i) {
        (void)store.all();
        (void)store.value("keepCount");
        (void)other.string("rsyncPath");
    }
    const std::string log = ::testing::internal::GetCapturedStderr();
    const std::string text = damageText(folder / "settings.json", "not valid JSON (at byte 17)");
    const auto first = log.find(text);
    ASSERT_NE(first, std::string::npos) << log;
    EXPECT_EQ(log.find(text, first + 1), std::string::npos) << log;
}

TEST(SettingsStoreTest, SymbolicLinkIsWrittenThroughToItsTargetAndStaysALink) {
    const struct {
        const char* name;
        std::vector<std::pair<std::string, std::string>> links;  // link name -> target, in order
        std::string target;                                      // the file that the chain ends in
        bool targetExists;
    } cases[] = {
        {"relative link", {{"settings.json", "dotfiles/tapekeep.json"}}, "dotfiles/tapekeep.json", true},
        {"chain",
         {{"settings.json", "middle.json"}, {"middle.json", "dotfiles/tapekeep.json"}},
         "dotfiles/tapekeep.json",
         true},
        {"dangling link", {{"settings.json", "dotfiles/new.json"}}, "dotfiles/new.json", false},
    };
    for (const auto& [name, links, target, targetExists] : cases) {
        SCOPED_TRACE(name);
        test::TempDir folder;
        fs::create_directories(folder / "dotfiles");
        if (targetExists) test::writeFile(folder / target, "{\"m8Accent\": \"lime\"}");
        for (const auto& [link, to] : links) fs::create_symlink(to, folder / link);

        SettingsStore store(folder / "settings.json");
        store.setValue("keepCount", 7);

        for (const auto& [link, to] : links) {
            ASSERT_TRUE(fs::is_symlink(folder / link)) << link;
            EXPECT_EQ(fs::read_symlink(folder / link), to) << link;
        }
        json expected = {{"keepCount", 7}};
        if (targetExists) expected["m8Accent"] = "lime";
        EXPECT_EQ(json::parse(test::readFile(folder / target)), expected);
        EXPECT_EQ(store.all(), expected);
    }
}

TEST(SettingsStoreTest, SetGetRemoveRoundTripAndNullIsAbsent) {
    test::TempDir folder;
    SettingsStore store(folder / "nested/folder/settings.json");
    const json values = {{"text", "/usr/local/bin/rsync"},
                         {"number", 10},
                         {"flag", true},
                         {"list", {"Songs", "Samples"}},
                         {"object", {{"x", 1.5}, {"y", nullptr}}}};
    for (const auto& [key, value] : values.items()) store.setValue(key, value);
    for (const auto& [key, value] : values.items()) EXPECT_EQ(store.value(key), value) << key;
    EXPECT_EQ(store.string("text"), "/usr/local/bin/rsync");
    EXPECT_EQ(store.string("number", "fallback"), "fallback");  // not a string
    store.removeValue("number");
    store.removeValue("never set");
    EXPECT_EQ(store.all().size(), values.size() - 1);
    store.setValue("lastCard", nullptr);
    EXPECT_FALSE(store.contains("number") || store.contains("lastCard"));
    EXPECT_EQ(store.value("lastCard"), std::nullopt);
}

TEST(SettingsStoreTest, StoresOnOneFileShareItAndConcurrentWritersLoseNothing) {
    test::TempDir folder;
    SettingsStore first(folder / "settings.json"), second(folder / "settings.json");
    constexpr int writesEach = 100;
    auto writeKeys = [](SettingsStore& store, const std::string& prefix) {
        for (int i = 0; i < writesEach; ++i) store.setValue(prefix + std::to_string(i), i);
    };
    std::thread one(writeKeys, std::ref(first), "first.");
    std::thread two(writeKeys, std::ref(second), "second.");
    std::thread three(writeKeys, std::ref(first), "third.");  // same object as `one`
    one.join();
    two.join();
    three.join();

    const auto all = json::parse(test::readFile(folder / "settings.json"));
    EXPECT_EQ(all.size(), 3u * writesEach);
    EXPECT_EQ(first.all(), all);
    for (const std::string prefix : {"first.", "second.", "third."})
        for (int i = 0; i < writesEach; ++i)
            EXPECT_EQ(all.value(prefix + std::to_string(i), -1), i) << prefix << i;
    // Nothing but the file and its lock is left behind: no temporary survives.
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"settings.json", "settings.json.lock"}));
}

TEST(SettingsStoreTest, WriteWhereNoFileCanBeThrowsPosixError) {
    test::TempDir folder;
    test::writeFile(folder / "config", "a file where the folder should be");
    SettingsStore store(folder / "config/tapekeep/settings.json");
    EXPECT_THROW(store.setValue("keepCount", 6), PosixError);
    EXPECT_EQ(store.all(), json::object());
}

}  // namespace
}  // namespace tapekeep
