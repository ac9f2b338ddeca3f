#include "app/AppSettings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QVariant>

#include <cstdlib>
#include <ostream>

#include "TempDir.h"

// Found by argument-dependent lookup, so that failures print the value.
void PrintTo(const QVariant& value, std::ostream* out) {
    *out << value.toString().toStdString();
}

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::readFile;
using test::TempDir;
using test::writeFile;

AppSettings::RsyncFinder finding(std::optional<std::string> result) {
    return [result] { return result; };
}

fs::path makeExecutable(const fs::path& file, fs::perms mode = fs::perms::owner_all) {
    writeFile(file, "#!/bin/sh\n");
    fs::permissions(file, mode);
    return file;
}

// Counts the emissions of one NOTIFY signal.
template <typename Signal>
std::shared_ptr<int> countEmissions(AppSettings& settings, Signal signal) {
    auto count = std::make_shared<int>(0);
    QObject::connect(&settings, signal, [count] { ++*count; });
    return count;
}

class AppSettingsTest : public ::testing::Test {
protected:
    TempDir temp;
    SettingsStore store{temp / "config/tapekeep/settings.json"};

    std::unique_ptr<AppSettings> open(std::optional<std::string> rsyncFound = std::nullopt) {
        return std::make_unique<AppSettings>(store, finding(std::move(rsyncFound)));
    }
};

TEST_F(AppSettingsTest, EmptyOrWronglyTypedValuesReadAsDefaultAndStartUpWritesOnlyTheRepairedRsync) {
    auto settings = open();
    const std::pair<const char*, QVariant> defaults[] = {
        {"backupBaseDirPath", QString()}, {"keepCount", 5},
        {"rotateBackups", true},          {"m8Accent", "pink"},
        {"backupSetLabelsJSON", "{}"},    {"verifyMismatchActionRaw", "flag"},
    };
    for (const auto& [name, expected] : defaults) EXPECT_EQ(settings->property(name), expected) << name;
    EXPECT_EQ(store.all(), (json{{"rsyncPath", "/usr/bin/rsync"}}));

    const std::tuple<const char*, json, const char*, QVariant> stored[] = {
        {"keepCount", "7", "keepCount", 5},
        {"keepCount", 7.5, "keepCount", 5},
        {"keepCount", 4294967296LL, "keepCount", 5},
        {"m8RotateEnabled", 0, "rotateBackups", true},
        {"backupBaseDirPath", json::array({"/x"}), "backupBaseDirPath", QString()},
        {"m8TypeScaleRaw", "XL", "m8TypeScale", "md"},
        {"mainTab", "Backup", "mainTab", "backup"},
        {"backupSetLabels", json::object(), "backupSetLabelsJSON", "{}"},
    };
    for (const auto& [key, value, property, expected] : stored) {
        store.setValue(key, value);
        EXPECT_EQ(open()->property(property), expected) << key << " = " << value.dump();
    }
}

TEST_F(AppSettingsTest, EachPropertyWritesItsOwnStoredKey) {
    auto settings = open();
    const std::tuple<const char*, QVariant, const char*, json> cases[] = {
        {"keepCount", 12, "keepCount", 12},
        {"rotateBackups", false, "m8RotateEnabled", false},
        {"backupSetLabelsJSON", R"({"A":"b"})", "backupSetLabels", R"({"A":"b"})"},
        {"m8TypeMode", "sans", "m8TypeModeRaw", "sans"},
        {"m8TypeScale", "xl", "m8TypeScaleRaw", "xl"},
        {"prereleaseBannerDismissedAt", 1718000000.25, "prereleaseBannerDismissedAt", 1718000000.25},
        {"prereleaseBannerLastShownAt", 42.5, "prereleaseBannerLastShownAt", 42.5},
    };
    for (const auto& [property, value, key, stored] : cases) {
        ASSERT_TRUE(settings->setProperty(property, value)) << property;
        EXPECT_EQ(store.value(key), stored) << property;
        EXPECT_EQ(settings->property(property), value) << property;
    }
}

TEST_F(AppSettingsTest, SetterNotifiesOnlyWhenTheValueReallyChanges) {
    auto settings = open();
    auto keepCountChanges = countEmissions(*settings, &AppSettings::keepCountChanged);
    auto accentChanges = countEmissions(*settings, &AppSettings::m8AccentChanged);

    settings->setKeepCount(5);  // the default, never stored
    EXPECT_EQ(*keepCountChanges, 0);
    EXPECT_FALSE(store.contains("keepCount"));
    settings->setKeepCount(8);
    settings->setKeepCount(8);
    EXPECT_EQ(*keepCountChanges, 1);

    settings->setKeepCount(0);  // would keep one version and delete the rest: refused
    settings->setKeepCount(-2);
    EXPECT_EQ(*keepCountChanges, 1);
    EXPECT_EQ(settings->keepCount(), 8);

    settings->setM8Accent("blue");  // not an accent: refused
    EXPECT_EQ(*accentChanges, 0);
    EXPECT_EQ(settings->m8Accent(), "pink");
    settings->setM8Accent("cyan");
    EXPECT_EQ(*accentChanges, 1);
}

TEST_F(AppSettingsTest, FailedWriteNeitherThrowsNorNotifies) {
    writeFile(temp / "blocked", "a file where the settings folder should be");
    SettingsStore blocked(temp / "blocked/settings.json");
    AppSettings settings(blocked, finding(std::nullopt));
    auto changes = countEmissions(settings, &AppSettings::keepCountChanged);

    EXPECT_NO_THROW(settings.setKeepCount(9));
    EXPECT_EQ(*changes, 0);
    EXPECT_EQ(settings.keepCount(), 5);
}

TEST_F(AppSettingsTest, StoredKeepCountBelowOneReadsAsStoredSoThatItsUserCanRefuseIt) {
    store.setValue("keepCount", 0);
    EXPECT_EQ(open()->keepCount(), 0);
}

// The start-up repairs must not replace a file that the user can still fix, nor fail the program:
// the repaired rsync is used unstored, every other setting reads as its default.
TEST_F(AppSettingsTest, DamagedFileIsNotRepairedNorWrittenAndTheRepairedRsyncIsUsedAllTheSame) {
    const fs::path file = store.file();
    const std::string damaged = R"({"keepCount": 9, "m8AutoEjectAfterBackup": true,})";
    writeFile(file, damaged);
    struct stat before {};
    ASSERT_EQ(::stat(file.c_str(), &before), 0);
    const auto found = makeExecutable(temp / "bin/rsync").string();

    auto settings = open(found);
    EXPECT_EQ(settings->rsyncPath().toStdString(), found);
    EXPECT_EQ(settings->keepCount(), 5);
    EXPECT_FALSE(settings->autoEjectOnCompletion());
    auto changes = countEmissions(*settings, &AppSettings::keepCountChanged);
    EXPECT_NO_THROW(settings->setKeepCount(3));
    EXPECT_EQ(*changes, 0);

    struct stat after {};
    ASSERT_EQ(::stat(file.c_str(), &after), 0);
    EXPECT_EQ(readFile(file), damaged);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(AppSettingsTest, TwoInstancesOnOneFileSeeEachOthersWrites) {
    auto first = open();
    auto second = open();
    first->setKeepCount(9);
    second->setMainTab("browse");
    EXPECT_EQ(second->keepCount(), 9);
    EXPECT_EQ(first->mainTab(), "browse");

    store.setValue("m8Accent", "amber");  // as the CLI would
    EXPECT_EQ(first->m8Accent(), "amber");
}

TEST_F(AppSettingsTest, LegacyAutoEjectIsCarriedOverOnlyWhenBooleanAndTheNewKeyIsAbsent) {
    struct Case {
        json legacy;
        std::optional<json> stored;
        bool expected;
    };
    const std::vector<Case> cases{
        {true, std::nullopt, true}, {false, std::nullopt, false}, {"true", std::nullopt, false},
        {true, false, false},       {true, "maybe", false},
    };
    for (const auto& [legacy, stored, expected] : cases) {
        store.removeValue("autoEjectOnCompletion");
        store.setValue("m8AutoEjectAfterBackup", legacy);
        if (stored) store.setValue("autoEjectOnCompletion", *stored);
        const auto carried = stored || !legacy.is_boolean() ? stored : std::optional(legacy);
        EXPECT_EQ(open()->autoEjectOnCompletion(), expected) << legacy.dump();
        EXPECT_EQ(store.value("autoEjectOnCompletion"), carried) << legacy.dump();
        EXPECT_EQ(store.value("m8AutoEjectAfterBackup"), legacy);  // left as it is
    }
}

TEST_F(AppSettingsTest, UnusableRsyncIsReplacedByTheBestCandidateOrTheSystemOne) {
    const auto found = makeExecutable(temp / "bin/rsync").string();
    const auto chosen = makeExecutable(temp / "bin/rsync-mine").string();
    const auto notExecutable =
        makeExecutable(temp / "bin/plain", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_directories(temp / "bin/folder");
    const std::vector<std::pair<json, std::string>> cases{
        {chosen, chosen},
        {"", found},
        {(temp / "gone/rsync").string(), found},
        {notExecutable.string(), found},
        {(temp / "bin/folder").string(), found},
        {42, found},
    };
    for (const auto& [stored, expected] : cases) {
        store.setValue("rsyncPath", stored);
        EXPECT_EQ(open(found)->rsyncPath().toStdString(), expected) << stored.dump();
        EXPECT_EQ(store.value("rsyncPath"), json(expected));
    }
    store.setValue("rsyncPath", "");
    EXPECT_EQ(open(std::nullopt)->rsyncPath(), "/usr/bin/rsync");
}

TEST_F(AppSettingsTest, LabelsRoundTripThroughTheStore) {
    auto settings = open();
    auto changes = countEmissions(*settings, &AppSettings::backupSetLabelsJSONChanged);
    settings->setLabels({{"M8_0000C0DE", "Live set"}, {"M8_DEADBEEF", "Café ☕"}, {"M8_00000000", ""}});

    EXPECT_EQ(*changes, 1);
    auto other = open();
    EXPECT_EQ(other->label("M8_0000C0DE"), "Live set");
    EXPECT_EQ(other->label("M8_DEADBEEF"), "Café ☕");
    EXPECT_EQ(other->label("M8_00000000"), std::nullopt);  // an empty label is none
    EXPECT_EQ(other->label("M8_UNKNOWN1"), std::nullopt);
    EXPECT_EQ(json::parse(store.string("backupSetLabels")).size(), 3u);
}

TEST_F(AppSettingsTest, LabelsThatAreNotAJsonObjectOfStringsReadAsNoneAndUnencodableOnesStoreNone) {
    for (const char* text : {"{not json", "[\"a\"]", R"({"M8_1":1})"}) {
        store.setValue("backupSetLabels", text);
        EXPECT_EQ(open()->label("M8_1"), std::nullopt) << text;
    }
    auto settings = open();
    settings->setLabels({{"M8_1", "kept"}});
    settings->setLabels({{"M8_1", "\xE9t\xE9"}});  // Latin-1 bytes, not UTF-8
    EXPECT_EQ(store.string("backupSetLabels"), "{}");
}

TEST_F(AppSettingsTest, LaunchOnLoginWritesAndRemovesTheAutostartEntryAndAFailureTurnsTheSwitchBack) {
    const char* saved = std::getenv("XDG_CONFIG_HOME");
    const std::optional<std::string> previous = saved ? std::optional<std::string>(saved) : std::nullopt;
    ::setenv("XDG_CONFIG_HOME", (temp / "config").c_str(), 1);
    const fs::path entry = temp / "config/autostart/tapekeep.desktop";
    auto settings = open();
    EXPECT_EQ(AppSettings::autostartEntry(), entry);
    settings->setLaunchOnLogin(true);
    settings->applyLaunchOnLogin();
    const std::string text = readFile(entry);
    EXPECT_TRUE(text.starts_with("[Desktop Entry]\n") &&
                text.find("\nType=Application\n") != std::string::npos &&
                text.find("\nExec=\"") != std::string::npos)
        << text;
    settings->setLaunchOnLogin(false);
    settings->applyLaunchOnLogin();
    EXPECT_FALSE(fs::exists(entry));
    EXPECT_NO_THROW(settings->applyLaunchOnLogin());  // removing what is gone is no failure

    fs::remove_all(temp / "config/autostart");
    writeFile(temp / "config/autostart", "a file where the autostart folder should be");
    auto changes = countEmissions(*settings, &AppSettings::launchOnLoginChanged);
    settings->setLaunchOnLogin(true);
    settings->applyLaunchOnLogin();
    EXPECT_FALSE(settings->launchOnLogin());
    EXPECT_EQ(*changes, 2);
    if (previous) {
        ::setenv("XDG_CONFIG_HOME", previous->c_str(), 1);
    } else {
        ::unsetenv("XDG_CONFIG_HOME");
    }
}

TEST_F(AppSettingsTest, TheBannersNumbersStartAtZero) {
    auto settings = open();
    EXPECT_EQ(settings->prereleaseBannerDismissedAt(), 0.0);
    EXPECT_EQ(settings->prereleaseBannerLastShownAt(), 0.0);
    store.setValue("prereleaseBannerLastShownAt", "soon");  // not a number: reads as the default
    EXPECT_EQ(settings->prereleaseBannerLastShownAt(), 0.0);
}

TEST_F(AppSettingsTest, ChoosingTheBaseFolderAsksOnceAndStoresOnlyAChoice) {
    auto settings = open();
    settings->setBackupBaseDirPath("/srv/before");
    std::vector<AppSettings::FolderChoice> asked;
    EXPECT_EQ(settings->chooseBaseDirectory([&](const AppSettings::FolderChoice& choice) {
        asked.push_back(choice);
        return std::optional<fs::path>();
    }),
              std::nullopt);
    EXPECT_EQ(settings->backupBaseDirPath(), "/srv/before");
    EXPECT_EQ(settings->chooseBaseDirectory([&](const AppSettings::FolderChoice& choice) {
        asked.push_back(choice);
        return std::optional<fs::path>("/srv/m8 backups");
    }),
              fs::path("/srv/m8 backups"));
    EXPECT_EQ(settings->backupBaseDirPath(), "/srv/m8 backups");
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[1].title, "Choose Backup Folder");
    EXPECT_EQ(asked[1].message, "Select where M8 backups should be stored");
    EXPECT_TRUE(asked[1].canCreateFolders);
}

}  // namespace
}  // namespace tapekeep
