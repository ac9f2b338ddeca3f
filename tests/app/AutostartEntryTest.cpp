#include "app/AutostartEntry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "TempDir.h"
#include "app/AppSettings.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

fs::path runningBinary() {
    return fs::read_symlink("/proc/self/exe");
}

// The value of the entry's Exec key.
std::string execOf(const std::string& text) {
    const auto start = text.find("\nExec=");
    if (start == std::string::npos) return {};
    const auto end = text.find('\n', start + 1);
    return text.substr(start + 6, end - start - 6);
}

// Points ${XDG_CONFIG_HOME} at a folder for the life of the object.
class ConfigHome {
public:
    explicit ConfigHome(const fs::path& folder) {
        if (const char* saved = std::getenv("XDG_CONFIG_HOME")) previous_ = saved;
        ::setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    }
    ~ConfigHome() {
        if (previous_) {
            ::setenv("XDG_CONFIG_HOME", previous_->c_str(), 1);
        } else {
            ::unsetenv("XDG_CONFIG_HOME");
        }
    }
    ConfigHome(const ConfigHome&) = delete;
    ConfigHome& operator=(const ConfigHome&) = delete;

private:
    std::optional<std::string> previous_;
};

class AutostartEntryTest : public ::testing::Test {
protected:
    test::TempDir temp;
    fs::path file = temp / "config/autostart/tapekeep.desktop";
    AutostartEntry entry{file};
};

TEST_F(AutostartEntryTest, IsWrittenToStartTheRunningProgramAndRemovedWhenOff) {
    EXPECT_EQ(AutostartEntry(fs::path("/x/tapekeep.desktop")).file(), "/x/tapekeep.desktop");
    {
        const ConfigHome home(temp / "config");
        EXPECT_EQ(AutostartEntry::defaultFile(), file);
    }
    EXPECT_FALSE(entry.isInstalled());
    ASSERT_TRUE(entry.install(runningBinary().string()));
    const std::string text = test::readFile(file);
    EXPECT_TRUE(text.starts_with("[Desktop Entry]\n")) << text;
    EXPECT_NE(text.find("\nType=Application\n"), std::string::npos) << text;
    EXPECT_EQ(execOf(text), "\"" + runningBinary().string() + "\"");
    EXPECT_TRUE(entry.isInstalled());

    // Written again for another program, in place, with no temporary left beside it.
    ASSERT_TRUE(entry.install("/opt/tape keep/bin/tape$keep%"));
    EXPECT_EQ(execOf(test::readFile(file)), R"("/opt/tape keep/bin/tape\\$keep%%")");
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), fs::directory_iterator()), 1);

    EXPECT_TRUE(entry.remove());
    EXPECT_FALSE(fs::exists(file));
    EXPECT_FALSE(entry.isInstalled());
    EXPECT_TRUE(entry.remove());  // nothing there is no failure
}

TEST_F(AutostartEntryTest, AFileOfThatNameThatIsNotOursIsNeitherReplacedNorRemoved) {
    const std::string foreign = "[Desktop Entry]\nType=Application\nName=Tapekeep\nExec=/usr/bin/other\n";
    test::writeFile(file, foreign);
    EXPECT_FALSE(entry.isInstalled());
    EXPECT_FALSE(entry.install(runningBinary().string()));
    EXPECT_EQ(test::readFile(file), foreign);
    EXPECT_FALSE(entry.remove());
    EXPECT_EQ(test::readFile(file), foreign);

    // A link is not followed, not even to an entry of ours: it is the user's.
    fs::remove(file);
    const fs::path ours = temp / "elsewhere.desktop";
    test::writeFile(ours, AutostartEntry::text("/usr/bin/tapekeep"));
    fs::create_symlink(ours, file);
    EXPECT_FALSE(entry.remove());
    EXPECT_TRUE(fs::is_symlink(file));
    EXPECT_FALSE(entry.install("/usr/bin/tapekeep"));
    EXPECT_TRUE(fs::is_symlink(file));

    fs::remove(file);
    fs::create_directory(file);
    EXPECT_FALSE(entry.remove());
    EXPECT_TRUE(fs::is_directory(file));
}

TEST_F(AutostartEntryTest, TheSettingsSwitchLeavesAForeignEntryAloneAndShowsItIsOff) {
    const ConfigHome home(temp / "config");
    SettingsStore store(temp / "config/tapekeep/settings.json");
    AppSettings settings(store, [] { return std::optional<std::string>(); });
    const std::string foreign = "[Desktop Entry]\nExec=/usr/bin/other\n";
    test::writeFile(file, foreign);

    settings.setLaunchOnLogin(true);
    settings.applyLaunchOnLogin();
    EXPECT_EQ(test::readFile(file), foreign);
    EXPECT_FALSE(settings.launchOnLogin());

    settings.applyLaunchOnLogin();  // off, with the foreign file there
    EXPECT_EQ(test::readFile(file), foreign);

    fs::remove(file);
    settings.setLaunchOnLogin(true);
    settings.applyLaunchOnLogin();
    EXPECT_TRUE(settings.launchOnLogin());
    // The desktop program beside this one when there is one, else the one on the PATH.
    const std::string exec = execOf(test::readFile(file));
    EXPECT_TRUE(exec == "\"tapekeep\"" ||
                exec == "\"" + (runningBinary().parent_path() / "tapekeep").string() + "\"")
        << exec;
    settings.setLaunchOnLogin(false);
    settings.applyLaunchOnLogin();
    EXPECT_FALSE(fs::exists(file));
}

}  // namespace
}  // namespace tapekeep
