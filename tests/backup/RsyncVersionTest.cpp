#include "backup/RsyncVersion.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "TempDir.h"
#include "backup/RsyncError.h"
#include "core/Cancelled.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using Kind = RsyncVersion::Kind;

TEST(RsyncVersionTest, SortsVersionOutputIntoItsClass) {
    const std::vector<std::pair<std::string, Kind>> cases{
        {"usage: rsync\nopenrsync: protocol version 29\nrsync  version 3.4.1\n", Kind::systemOrOpenrsync},
        {"rsync  version 2.6.9  protocol version 29\nCopyright (C) 1996-2006\n", Kind::systemOrOpenrsync},
        {"rsync version 2.99999999999999999999", Kind::systemOrOpenrsync},
        {"rsync  version 3.1.3  protocol version 31\n", Kind::v31},
        {"rsync  version 3.2.7  protocol version 31\n", Kind::v32v33},
        {"rsync  version 3.5.0  protocol version 32\n", Kind::v32v33},
        {"rsync  version 3.0.9  protocol version 30\n", Kind::unsupported},
        {"rsync  version 3.6.0  protocol version 33\n", Kind::unsupported},
        {"rsync  version 4.0.0  protocol version 40\n", Kind::unsupported},
        {"rsync version 30000000000.2", Kind::unsupported},
        {"rsync \t \n version\t\t  3.2.7", Kind::v32v33},
        {"rsync version 3.1.2 (bundled with rsync version 3.2.7)", Kind::v31},
        {"rsyncversion 3.2.7", Kind::unsupported},
        {"RSYNC VERSION 3.2.7", Kind::unsupported},
        {"", Kind::unsupported},
    };
    for (const auto& [output, expected] : cases) {
        const RsyncVersion version = RsyncVersion::classify(output);
        EXPECT_EQ(version.kind(), expected) << output;
        EXPECT_EQ(version.raw(), expected == Kind::unsupported ? output : "") << output;
    }
}

TEST(RsyncVersionTest, UnsupportedKeepsTheFirst200CharactersNotBytes) {
    const std::string output = "rsync  version 3.0.9  protocol version 30\n" + std::string(300, '-');
    EXPECT_EQ(RsyncVersion::classify(output), RsyncVersion::unsupported(output.substr(0, 200)));
    std::string accented, first100, first20;  // "é" as two bytes, then "e" with a combining accent
    for (int count = 0; count < 150; ++count) {
        accented += "\u00e9e\u0301";
        if (count < 100) first100 += "\u00e9e\u0301";
        if (count < 20) first20 += "\u00e9e\u0301";
    }
    EXPECT_EQ(RsyncVersion::classify(accented).raw(), first100);
    EXPECT_EQ(RsyncVersion::classify(accented).description(), "unsupported(" + first20 + ")");
}

TEST(RsyncVersionTest, DescriptionsLabelsAndFeaturesOfEveryClass) {
    const std::vector<std::tuple<RsyncVersion, std::string, std::string, bool>> cases{
        {RsyncVersion::unsupported(std::string(39, 'a') + "bcdef"),
         "unsupported(" + std::string(39, 'a') + "b)", "unsupported", false},
        {RsyncVersion(), "unsupported()", "unsupported", false},
        {RsyncVersion::v31(), "v31", "rsync 3.1", true},
        {RsyncVersion::v32v33(), "v32v33", "rsync 3.2 \u2013 3.5", true},
        {RsyncVersion::systemOrOpenrsync(), "systemOrOpenrsync", "openrsync / Samba 2.6.9", false},
    };
    for (const auto& [version, description, label, full] : cases) {
        EXPECT_EQ(version.description(), description);
        EXPECT_EQ(version.settingsLabel(), label) << description;
        EXPECT_EQ(version.hasFullFeatures(), full) << description;
    }
}

// ---- detection --------------------------------------------------------------------------------

class RsyncDetectionTest : public ::testing::Test {
protected:
    std::string script(const std::string& name, const std::string& body,
                       fs::perms mode = fs::perms::owner_all) {
        test::writeFile(folder / name, body + "\n");
        fs::permissions(folder / name, mode);
        return (folder / name).string();
    }
    test::TempDir folder;
};

TEST_F(RsyncDetectionTest, RunsTheExecutableWithVersionFlagInRsyncsLocale) {
    if (fs::exists("/usr/bin/rsync")) {
        EXPECT_EQ(RsyncVersion::detect("/usr/bin/rsync").kind(), Kind::v32v33);
    }
    const auto path = script(
        "rsync",
        "#!/bin/sh\n"
        R"([ "$1" = --version ] && [ "$LC_NUMERIC" = C ] && [ -z "${LC_ALL+set}" ] && echo 'rsync version 3.1.3')");
    EXPECT_EQ(RsyncVersion::detect(path), RsyncVersion::v31());
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(RsyncVersion::detect(path, stop.get_token()), Cancelled);
}

TEST_F(RsyncDetectionTest, FailuresNameThePathAndTheirKind) {
    using enum RsyncError::Kind;
    const std::vector<std::pair<std::string, RsyncError::Kind>> cases{
        {(folder / "missing").string(), notExecutable},
        {folder.path().string(), notExecutable},
        {script("plain", "#!/bin/sh\necho 'rsync version 3.2.7'", fs::perms::owner_read), notExecutable},
        {script("failing", "#!/bin/sh\necho 'rsync version 3.2.7'; exit 1"), execFailed},
        {script("unstartable", "#!/nonexistent/interpreter"), execFailed},
    };
    for (const auto& [path, kind] : cases) {
        const std::string text = kind == notExecutable ? "rsync is not executable at " + path
                                                       : "rsync at " + path + " exited with code -1";
        try {
            RsyncVersion::detect(path);
            ADD_FAILURE() << "no RsyncError for " << text;
        } catch (const RsyncError& error) {
            EXPECT_EQ(error.kind(), kind) << text;
            EXPECT_EQ(error.path(), path);
            EXPECT_EQ(error.description(), text);
        }
    }
}

}  // namespace
}  // namespace tapekeep
