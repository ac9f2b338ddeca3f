#include "app/AppSettings.h"

#include <gtest/gtest.h>

#include <QVariant>

#include <cstdlib>
#include <ostream>

#include "TempDir.h"

// Found by argument-dependent lookup, so that failures print the value.
void PrintTo(const QVariant& value, std::ostream* out) { *out << value.toString().toStdString(); }

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

TEST_F(AppSettingsTest, EmptyStoreReadsEveryDefault) {
    auto settings = open();
    const std::pair<const char*, QVariant> defaults[] = {
        {"backupBaseDirPath", QString()},        {"keepCount", 5},
        {"rotateBackups", true},                 {"appearance", "system"},
        {"verifyAfterBackup", false},            {"playSoundOnCompletion", true},
        {"completionSoundName", "Glass"},        {"excludedVolumes", QString()},
        {"notifyOnCompletion", true},            {"autoBackupOnConnect", false},
        {"autoBackupDelaySeconds", 5},           {"backupSetLabelsJSON", "{}"},
        {"menuBarMode", false},                  {"askToEjectOnQuit", true},
        {"m8Accent", "pink"},                    {"m8TypeMode", "mono"},
        {"m8TypeScale", "md"},                   {"mainTab", "backup"},
        {"launchOnLogin", false},                {"autoEjectOnCompletion", false},
        {"verifyMismatchActionRaw", "flag"},     {"notifyOnFailure", true},
    };
    for (const auto& [name, expected] : defaults)
        EXPECT_EQ(settings->property(name), expected) << name;
    // Start-up writes nothing but the repaired rsync path.
    EXPECT_EQ(store.all(), (json{{"rsyncPath", "/usr/bin/rsync"}}));
}

TEST_F(AppSettingsTest, StoredValuesOfTheWrongTypeOrUnknownRawValuesReadAsDefault) {
    const std::tuple<const char*, json, const char*, QVariant> cases[] = {
        {"keepCount", "7", "keepCount", 5},
        {"keepCount", 7.5, "keepCount", 5},
        {"keepCount", 1e12, "keepCount", 5},
        {"keepCount", 4294967296LL, "keepCount", 5},
        {"m8RotateEnabled", 0, "rotateBackups", true},
        {"completionSoundName", 5, "completionSoundName", "Glass"},
        {"backupBaseDirPath", json::array({"/x"}), "backupBaseDirPath", QString()},
        {"m8Accent", "blue", "m8Accent", "pink"},
        {"m8TypeModeRaw", true, "m8TypeMode", "mono"},
        {"m8TypeScaleRaw", "XL", "m8TypeScale", "md"},
        {"mainTab", "Backup", "mainTab", "backup"},
        {"verifyMismatchActionRaw", "skip", "verifyMismatchActionRaw", "flag"},
        {"backupSetLabels", json::object(), "backupSetLabelsJSON", "{}"},
        {"notifyOnFailure", "false", "notifyOnFailure", true},
    };
    for (const auto& [key, stored, property, expected] : cases) {
        store.setValue(key, stored);
        EXPECT_EQ(open()->property(property), expected) << key << " = " << stored.dump();
    }
}

TEST_F(AppSettingsTest, EachPropertyWritesItsOwnStoredKey) {
    auto settings = open();
    const std::tuple<const char*, QVariant, const char*, json> cases[] = {
        {"backupBaseDirPath", "/srv/m8", "backupBaseDirPath", "/srv/m8"},
        {"keepCount", 12, "keepCount", 12},
        {"rotateBackups", false, "m8RotateEnabled", false},
        {"appearance", "dark", "appearance", "dark"},
        {"backupSetLabelsJSON", R"({"A":"b"})", "backupSetLabels", R"({"A":"b"})"},
        {"m8Accent", "violet", "m8Accent", "violet"},
        {"m8TypeMode", "sans", "m8TypeModeRaw", "sans"},
        {"m8TypeScale", "xl", "m8TypeScaleRaw", "xl"},
        {"mainTab", "settings", "mainTab", "settings"},
        {"autoEjectOnCompletion", true, "autoEjectOnCompletion", true},
        {"verifyMismatchActionRaw", "abort", "verifyMismatchActionRaw", "abort"},
        {"autoBackupDelaySeconds", 30, "autoBackupDelaySeconds", 30},
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

TEST_F(AppSettingsTest, LegacyAutoEjectIsCarriedOverOnceWhenTheNewKeyIsAbsent) {
    store.setValue("m8AutoEjectAfterBackup", true);
    EXPECT_TRUE(open()->autoEjectOnCompletion());
    EXPECT_EQ(store.value("autoEjectOnCompletion"), json(true));
    EXPECT_EQ(store.value("m8AutoEjectAfterBackup"), json(true));  // left as it is

    open()->setAutoEjectOnCompletion(false);
    EXPECT_FALSE(open()->autoEjectOnCompletion());  // the stored false now wins over the legacy key
}

TEST_F(AppSettingsTest, LegacyFalseIsCarriedOverToo) {
    store.setValue("m8AutoEjectAfterBackup", false);
    open();
    EXPECT_EQ(store.value("autoEjectOnCompletion"), json(false));
}

TEST_F(AppSettingsTest, LegacyValueThatIsNotABooleanIsIgnored) {
    for (const json& legacy : {json("true"), json(1), json::object()}) {
        store.setValue("m8AutoEjectAfterBackup", legacy);
        EXPECT_FALSE(open()->autoEjectOnCompletion()) << legacy.dump();
        EXPECT_FALSE(store.contains("autoEjectOnCompletion")) << legacy.dump();
    }
}

TEST_F(AppSettingsTest, AnyStoredNewKeyEndsTheMigration) {
    store.setValue("m8AutoEjectAfterBackup", true);
    for (const json& stored : {json(false), json("maybe")}) {
        store.setValue("autoEjectOnCompletion", stored);
        EXPECT_FALSE(open()->autoEjectOnCompletion()) << stored.dump();
        EXPECT_EQ(store.value("autoEjectOnCompletion"), stored);
    }
}

TEST_F(AppSettingsTest, StoredExecutableRsyncSurvivesEvenWhenAnotherCandidateExists) {
    auto chosen = makeExecutable(temp / "bin/rsync-mine").string();
    auto other = makeExecutable(temp / "bin/rsync-other").string();
    store.setValue("rsyncPath", chosen);
    EXPECT_EQ(open(other)->rsyncPath().toStdString(), chosen);
}

TEST_F(AppSettingsTest, MissingOrUnusableRsyncIsReplacedByTheBestCandidate) {
    auto found = makeExecutable(temp / "bin/rsync").string();
    auto notExecutable = makeExecutable(temp / "bin/plain", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_directories(temp / "bin/folder");
    const json stored[] = {"", (temp / "gone/rsync").string(), notExecutable.string(),
                           (temp / "bin/folder").string(), 42};
    for (const auto& path : stored) {
        store.setValue("rsyncPath", path);
        EXPECT_EQ(open(found)->rsyncPath().toStdString(), found) << path.dump();
        EXPECT_EQ(store.value("rsyncPath"), json(found));
    }
}

TEST_F(AppSettingsTest, RsyncFallsBackToTheSystemOneWhenNoCandidateIsFound) {
    EXPECT_EQ(open(std::nullopt)->rsyncPath(), "/usr/bin/rsync");
}

TEST_F(AppSettingsTest, RsyncRepairRunsAfterTheMigration) {
    store.setValue("m8AutoEjectAfterBackup", true);
    auto found = makeExecutable(temp / "bin/rsync").string();
    auto settings = open(found);
    EXPECT_TRUE(settings->autoEjectOnCompletion());
    EXPECT_EQ(settings->rsyncPath().toStdString(), found);
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

TEST_F(AppSettingsTest, LabelsThatAreNotAJsonObjectOfStringsReadAsNone) {
    for (const char* text : {"{not json", "[\"a\"]", R"({"M8_1":1})", ""}) {
        store.setValue("backupSetLabels", text);
        auto settings = open();
        EXPECT_TRUE(settings->labels().empty()) << text;
        EXPECT_EQ(settings->label("M8_1"), std::nullopt) << text;
    }
}

TEST_F(AppSettingsTest, LabelsThatCannotBeEncodedStoreAnEmptyObject) {
    auto settings = open();
    settings->setLabels({{"M8_1", "kept"}});
    settings->setLabels({{"M8_1", "\xE9t\xE9"}});  // Latin-1 bytes, not UTF-8
    EXPECT_EQ(store.string("backupSetLabels"), "{}");
}

class LaunchOnLoginTest : public AppSettingsTest {
protected:
    void SetUp() override {
        const char* saved = std::getenv("XDG_CONFIG_HOME");
        previous_ = saved ? std::optional<std::string>(saved) : std::nullopt;
        ::setenv("XDG_CONFIG_HOME", (temp / "config").c_str(), 1);
    }
    void TearDown() override {
        if (previous_) ::setenv("XDG_CONFIG_HOME", previous_->c_str(), 1);
        else ::unsetenv("XDG_CONFIG_HOME");
    }
    fs::path entry() const { return temp / "config/autostart/tapekeep.desktop"; }

private:
    std::optional<std::string> previous_;
};

TEST_F(LaunchOnLoginTest, WritesAndRemovesTheAutostartEntry) {
    auto settings = open();
    EXPECT_EQ(AppSettings::autostartEntry(), entry());

    settings->setLaunchOnLogin(true);
    settings->applyLaunchOnLogin();
    std::string text = readFile(entry());
    EXPECT_TRUE(text.starts_with("[Desktop Entry]\n")) << text;
    EXPECT_NE(text.find("\nType=Application\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nExec=\""), std::string::npos) << text;

    settings->setLaunchOnLogin(false);
    settings->applyLaunchOnLogin();
    EXPECT_FALSE(fs::exists(entry()));
    EXPECT_NO_THROW(settings->applyLaunchOnLogin());  // removing what is gone is no failure
}

TEST_F(LaunchOnLoginTest, FailureSetsTheSwitchToWhatTheSystemNowHas) {
    writeFile(temp / "config/autostart", "a file where the autostart folder should be");
    auto settings = open();
    auto changes = countEmissions(*settings, &AppSettings::launchOnLoginChanged);

    settings->setLaunchOnLogin(true);
    settings->applyLaunchOnLogin();

    EXPECT_FALSE(settings->launchOnLogin());
    EXPECT_EQ(*changes, 2);
}

}  // namespace
}  // namespace tapekeep
