#include "app/SettingsKeys.h"

#include <gtest/gtest.h>

#include "TempDir.h"

namespace tapekeep {
namespace {

using nlohmann::json;

TEST(SettingsKeysTest, ListsEveryStoredKeyOnce) {
    std::string keys;
    for (const auto& definition : SettingsKeys::all()) keys += definition.key + " ";
    EXPECT_EQ(
        keys,
        "backupBaseDirPath keepCount m8RotateEnabled rsyncPath appearance verifyAfterBackup "
        "playSoundOnCompletion completionSoundName excludedVolumes notifyOnCompletion autoBackupOnConnect "
        "autoBackupDelaySeconds backupSetLabels menuBarMode askToEjectOnQuit m8Accent m8TypeModeRaw "
        "m8TypeScaleRaw mainTab launchOnLogin autoEjectOnCompletion verifyMismatchActionRaw "
        "notifyOnFailure backupBeforeRestore prereleaseBannerDismissedAt prereleaseBannerLastShownAt ");
    for (const auto& definition : SettingsKeys::all())
        EXPECT_TRUE(SettingsKeys::accepts(definition, definition.defaultValue)) << definition.key;
}

TEST(SettingsKeysTest, ParsesCommandLineTextIntoTheKeysType) {
    struct Case {
        const char* key;
        const char* text;
        std::optional<json> expected;
    };
    const Case cases[] = {
        {"keepCount", "5", json(5)},
        {"keepCount", "5.0", std::nullopt},
        {"keepCount", " 5", std::nullopt},
        {"keepCount", "99999999999", std::nullopt},
        {"keepCount", "1", json(1)},
        {"keepCount", "0", std::nullopt},  // rotation would keep one version and delete the rest
        {"keepCount", "-3", std::nullopt},
        {"autoBackupDelaySeconds", "0", json(0)},
        {"m8RotateEnabled", "true", json(true)},
        {"m8RotateEnabled", "TRUE", std::nullopt},
        {"rsyncPath", "/opt/rsync 3/bin/rsync", json("/opt/rsync 3/bin/rsync")},
        {"completionSoundName", "5", json("5")},
        {"completionSoundName", "\xE9", std::nullopt},
        {"m8Accent", "lime", json("lime")},
        {"m8Accent", "Lime", std::nullopt},
        {"verifyMismatchActionRaw", "skip", std::nullopt},
        {"backupSetLabels", R"({ "M8_1" : "Live" })", json(R"({"M8_1":"Live"})")},
        {"backupSetLabels", R"({"M8_1":1})", std::nullopt},
        {"prereleaseBannerDismissedAt", "1718000000.5", json(1718000000.5)},
        {"prereleaseBannerDismissedAt", "0", json(0.0)},
        {"prereleaseBannerDismissedAt", "nan", std::nullopt},
        {"prereleaseBannerDismissedAt", "inf", std::nullopt},
        {"prereleaseBannerLastShownAt", "1e3x", std::nullopt},
        {"m8AutoEjectAfterBackup", "true", std::nullopt},
        {"noSuchKey", "x", std::nullopt},
    };
    for (const auto& [key, text, expected] : cases)
        EXPECT_EQ(SettingsKeys::parseValue(key, text), expected) << key << " <- \"" << text << "\"";
}

TEST(SettingsKeysTest, ReadAllGivesEveryKeyWithUsableValuesOrDefaults) {
    test::TempDir temp;
    SettingsStore store(temp / "settings.json");
    store.setValue("keepCount", 3);
    store.setValue("m8Accent", "blue");
    store.setValue("someoneElsesKey", true);

    auto values = SettingsKeys::readAll(store);

    EXPECT_EQ(values.size(), SettingsKeys::all().size());
    EXPECT_EQ(values["keepCount"], 3);
    EXPECT_EQ(values["m8Accent"], "pink");
    EXPECT_EQ(values["completionSoundName"], "Glass");
    EXPECT_FALSE(values.contains("someoneElsesKey"));
}

TEST(SettingsKeysTest, DescribesWhatAKeyAccepts) {
    EXPECT_EQ(SettingsKeys::describeExpected(*SettingsKeys::find("m8TypeModeRaw")), "one of: mono, sans");
    EXPECT_EQ(SettingsKeys::describeExpected(*SettingsKeys::find("menuBarMode")), "true or false");
    EXPECT_EQ(SettingsKeys::describeExpected(*SettingsKeys::find("autoBackupDelaySeconds")), "an integer");
    EXPECT_EQ(SettingsKeys::describeExpected(*SettingsKeys::find("keepCount")), "an integer of at least 1");
    EXPECT_EQ(SettingsKeys::find("rotateBackups"), nullptr);  // properties are not keys
}

}  // namespace
}  // namespace tapekeep
