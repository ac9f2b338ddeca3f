#include "core/SettingsStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "TempDir.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

using nlohmann::json;

TEST(SettingsStoreTest, MissingOrCorruptFileReadsEmptyAndIsReplacedOnWrite) {
    test::TempDir folder;
    SettingsStore missing(folder / "tapekeep/settings.json");
    EXPECT_EQ(missing.all(), json::object());
    EXPECT_EQ(missing.string("rsyncPath", "/usr/bin/rsync"), "/usr/bin/rsync");
    for (const std::string content : {"{\"keepCount\": 5", "[1, 2, 3]", ""}) {
        test::writeFile(folder / "settings.json", content);
        SettingsStore store(folder / "settings.json");
        EXPECT_EQ(store.all(), json::object()) << content;
        store.setValue("keepCount", 7);
        EXPECT_EQ(store.all(), (json{{"keepCount", 7}})) << content;
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
