#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "TempDir.h"
#include "app/AppSettings.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

class SettingsStoreProblemTest : public ::testing::Test {
protected:
    test::TempDir temp;
    fs::path file = temp / "config/tapekeep/settings.json";
    SettingsStore store{file};

    std::unique_ptr<AppSettings> open() {
        return std::make_unique<AppSettings>(store,
                                             [] { return std::optional<std::string>("/usr/bin/rsync"); });
    }
    std::shared_ptr<int> countProblemChanges(AppSettings& settings) {
        auto count = std::make_shared<int>(0);
        QObject::connect(&settings, &AppSettings::storeProblemChanged, [count] { ++*count; });
        return count;
    }
};

TEST_F(SettingsStoreProblemTest, ADamagedFileIsNamedWithItsPathAndNoChangeOverwritesIt) {
    const std::string damaged = "{\"keepCount\": 3,";
    test::writeFile(file, damaged);
    auto settings = open();
    const QString problem = settings->storeProblem();
    EXPECT_TRUE(
        problem.startsWith("Settings file is damaged: " + QString::fromStdString(file.string()) + ": "))
        << problem.toStdString();

    auto changes = countProblemChanges(*settings);
    settings->setKeepCount(9);
    settings->setM8Accent("lime");
    EXPECT_EQ(test::readFile(file), damaged);
    EXPECT_EQ(settings->keepCount(), 5);
    EXPECT_EQ(settings->storeProblem(), problem);
    EXPECT_EQ(*changes, 0);

    // Mended outside the program: a fresh look clears the text, and a new damage shows again.
    test::writeFile(file, "{}");
    settings->recheckStore();
    EXPECT_EQ(settings->storeProblem(), QString());
    EXPECT_EQ(*changes, 1);
    settings->recheckStore();
    EXPECT_EQ(*changes, 1);
    test::writeFile(file, "[]");
    settings->recheckStore();
    EXPECT_TRUE(settings->storeProblem().contains(QString::fromStdString(file.string())));
    EXPECT_EQ(*changes, 2);
}

TEST_F(SettingsStoreProblemTest, AFailedWriteIsShownUntilAWriteSucceeds) {
    auto settings = open();
    EXPECT_EQ(settings->storeProblem(), QString());
    fs::remove_all(temp / "config");
    test::writeFile(temp / "config", "a file where the settings folder should be");
    auto changes = countProblemChanges(*settings);

    settings->setKeepCount(9);
    const QString problem = settings->storeProblem();
    EXPECT_TRUE(
        problem.startsWith("Settings could not be saved to " + QString::fromStdString(file.string()) + ": "))
        << problem.toStdString();
    EXPECT_EQ(*changes, 1);
    settings->recheckStore();  // the file itself is not damaged: the failure stays
    EXPECT_EQ(settings->storeProblem(), problem);

    fs::remove(temp / "config");
    settings->setKeepCount(9);
    EXPECT_EQ(settings->keepCount(), 9);
    EXPECT_EQ(settings->storeProblem(), QString());
    EXPECT_EQ(*changes, 2);
}

}  // namespace
}  // namespace tapekeep
