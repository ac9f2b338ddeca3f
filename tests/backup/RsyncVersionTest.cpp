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

struct ClassifyCase {
    const char* name;
    std::string output;
    Kind expected;
};

class RsyncVersionClassifyTest : public testing::TestWithParam<ClassifyCase> {};

TEST_P(RsyncVersionClassifyTest, SortsVersionOutputIntoItsClass) {
    const ClassifyCase& example = GetParam();
    const RsyncVersion version = RsyncVersion::classify(example.output);
    EXPECT_EQ(version.kind(), example.expected) << version.description();
    if (example.expected == Kind::unsupported) {
        EXPECT_EQ(version.raw(), example.output);  // every example is shorter than 200 characters
    } else {
        EXPECT_EQ(version.raw(), "");
    }
}

INSTANTIATE_TEST_SUITE_P(
    VersionOutputs, RsyncVersionClassifyTest,
    testing::Values(
        ClassifyCase{"OpenrsyncAnywhere",
                     "usage: rsync\nopenrsync: protocol version 29\nrsync  version 3.4.1\n",
                     Kind::systemOrOpenrsync},
        ClassifyCase{"Samba269", "rsync  version 2.6.9  protocol version 29\nCopyright (C) 1996-2006\n",
                     Kind::systemOrOpenrsync},
        ClassifyCase{"MajorTwoWithUnreadableMinor", "rsync version 2.99999999999999999999",
                     Kind::systemOrOpenrsync},
        ClassifyCase{"V313", "rsync  version 3.1.3  protocol version 31\n", Kind::v31},
        ClassifyCase{"V327", "rsync  version 3.2.7  protocol version 31\n", Kind::v32v33},
        ClassifyCase{"V330", "rsync  version 3.3.0  protocol version 31\n", Kind::v32v33},
        ClassifyCase{"V341", "rsync  version 3.4.1  protocol version 32\n", Kind::v32v33},
        ClassifyCase{"V350", "rsync  version 3.5.0  protocol version 32\n", Kind::v32v33},
        ClassifyCase{"V309", "rsync  version 3.0.9  protocol version 30\n", Kind::unsupported},
        ClassifyCase{"V360", "rsync  version 3.6.0  protocol version 33\n", Kind::unsupported},
        ClassifyCase{"V400", "rsync  version 4.0.0  protocol version 40\n", Kind::unsupported},
        ClassifyCase{"UnreadableMajor", "rsync version 30000000000.2", Kind::unsupported},
        ClassifyCase{"RunsOfBlanksBetweenWords", "rsync \t \n version\t\t  3.2.7", Kind::v32v33},
        ClassifyCase{"FirstMatchCounts", "rsync version 3.1.2 (bundled with rsync version 3.2.7)", Kind::v31},
        ClassifyCase{"WordsMustBeThere", "rsyncversion 3.2.7", Kind::unsupported},
        ClassifyCase{"CaseMatters", "RSYNC VERSION 3.2.7", Kind::unsupported},
        ClassifyCase{"Garbage", "command not found", Kind::unsupported},
        ClassifyCase{"Empty", "", Kind::unsupported}),
    [](const testing::TestParamInfo<ClassifyCase>& example) { return example.param.name; });

TEST(RsyncVersionTest, UnsupportedKeepsTheFirst200Characters) {
    const std::string output = "no version here " + std::string(300, 'x');
    const RsyncVersion version = RsyncVersion::classify(output);
    EXPECT_EQ(version, RsyncVersion::unsupported(output.substr(0, 200)));
}

TEST(RsyncVersionTest, UnsupportedVersionNumberAlsoKeepsTheRawOutput) {
    const std::string output = "rsync  version 3.0.9  protocol version 30\n" + std::string(300, '-');
    EXPECT_EQ(RsyncVersion::classify(output).raw(), output.substr(0, 200));
}

TEST(RsyncVersionTest, CharactersAreCountedNotBytes) {
    std::string accented;  // "é" as two bytes, then "e" with a combining accent: both one character
    for (int count = 0; count < 150; ++count) accented += "\u00e9e\u0301";
    const RsyncVersion version = RsyncVersion::classify(accented);
    std::string expectedRaw;
    for (int count = 0; count < 100; ++count) expectedRaw += "\u00e9e\u0301";
    EXPECT_EQ(version.raw(), expectedRaw);
    std::string expectedDescription;
    for (int count = 0; count < 20; ++count) expectedDescription += "\u00e9e\u0301";
    EXPECT_EQ(version.description(), "unsupported(" + expectedDescription + ")");
}

TEST(RsyncVersionTest, DescriptionsOfEveryClass) {
    EXPECT_EQ(RsyncVersion::unsupported(std::string(39, 'a') + "bcdef").description(),
              "unsupported(" + std::string(39, 'a') + "b)");
    EXPECT_EQ(RsyncVersion::unsupported("short").description(), "unsupported(short)");
    EXPECT_EQ(RsyncVersion().description(), "unsupported()");
    EXPECT_EQ(RsyncVersion::v31().description(), "v31");
    EXPECT_EQ(RsyncVersion::v32v33().description(), "v32v33");
    EXPECT_EQ(RsyncVersion::systemOrOpenrsync().description(), "systemOrOpenrsync");
}

TEST(RsyncVersionTest, SettingsLabelsAndFeatures) {
    EXPECT_EQ(RsyncVersion::unsupported("x").settingsLabel(), "unsupported");
    EXPECT_EQ(RsyncVersion::v31().settingsLabel(), "rsync 3.1");
    EXPECT_EQ(RsyncVersion::v32v33().settingsLabel(), "rsync 3.2 \u2013 3.5");
    EXPECT_EQ(RsyncVersion::systemOrOpenrsync().settingsLabel(), "openrsync / Samba 2.6.9");
    EXPECT_FALSE(RsyncVersion::unsupported("x").hasFullFeatures());
    EXPECT_TRUE(RsyncVersion::v31().hasFullFeatures());
    EXPECT_TRUE(RsyncVersion::v32v33().hasFullFeatures());
    EXPECT_FALSE(RsyncVersion::systemOrOpenrsync().hasFullFeatures());
}

// --- Detection ---------------------------------------------------------------------------------

fs::path writeScript(const test::TempDir& folder, const std::string& name, const std::string& body) {
    const fs::path script = folder / name;
    test::writeFile(script, "#!/bin/sh\n" + body + "\n");
    fs::permissions(script, fs::perms::owner_all);
    return script;
}

void expectRsyncError(const std::string& path, RsyncError::Kind kind, const std::string& text) {
    try {
        RsyncVersion::detect(path);
        FAIL() << "expected RsyncError for " << path;
    } catch (const RsyncError& error) {
        EXPECT_EQ(error.kind(), kind);
        EXPECT_EQ(error.path(), path);
        EXPECT_EQ(error.description(), text);
    }
}

TEST(RsyncVersionTest, DetectsTheInstalledRsync) {
    if (!fs::exists("/usr/bin/rsync")) GTEST_SKIP() << "no /usr/bin/rsync on this machine";
    // The build machine carries rsync 3.5.0.
    EXPECT_EQ(RsyncVersion::detect("/usr/bin/rsync").kind(), Kind::v32v33);
}

TEST(RsyncVersionTest, DetectRunsTheExecutableWithVersionFlag) {
    test::TempDir folder;
    const fs::path script =
        writeScript(folder, "rsync", R"(if [ "$1" = --version ]; then echo 'rsync  version 3.1.3'; fi)");
    EXPECT_EQ(RsyncVersion::detect(script.string()), RsyncVersion::v31());
}

TEST(RsyncVersionTest, DetectUsesRsyncsLocaleEnvironment) {
    test::TempDir folder;
    const fs::path script = writeScript(
        folder, "rsync",
        R"(if [ "$LC_NUMERIC" = C ] && [ -z "${LC_ALL+set}" ]; then echo 'rsync version 3.2.7'; else echo wrong; fi)");
    EXPECT_EQ(RsyncVersion::detect(script.string()), RsyncVersion::v32v33());
}

TEST(RsyncVersionTest, FileWithoutExecutePermissionIsNotExecutable) {
    test::TempDir folder;
    const fs::path file = folder / "rsync";
    test::writeFile(file, "#!/bin/sh\necho 'rsync version 3.2.7'\n");
    expectRsyncError(file.string(), RsyncError::Kind::notExecutable,
                     "rsync is not executable at " + file.string());
}

TEST(RsyncVersionTest, MissingFileAndFolderAreNotExecutable) {
    test::TempDir folder;
    const std::string missing = (folder / "missing").string();
    expectRsyncError(missing, RsyncError::Kind::notExecutable, "rsync is not executable at " + missing);
    expectRsyncError(folder.path().string(), RsyncError::Kind::notExecutable,
                     "rsync is not executable at " + folder.path().string());
}

TEST(RsyncVersionTest, NonZeroExitReportsCodeMinusOne) {
    test::TempDir folder;
    const fs::path script = writeScript(folder, "rsync", "echo 'rsync version 3.2.7'; exit 1");
    expectRsyncError(script.string(), RsyncError::Kind::execFailed,
                     "rsync at " + script.string() + " exited with code -1");
}

TEST(RsyncVersionTest, ExecutableThatCannotStartReportsCodeMinusOne) {
    test::TempDir folder;
    const fs::path script = folder / "rsync";
    test::writeFile(script, "#!/nonexistent/interpreter\n");
    fs::permissions(script, fs::perms::owner_all);
    expectRsyncError(script.string(), RsyncError::Kind::execFailed,
                     "rsync at " + script.string() + " exited with code -1");
}

TEST(RsyncVersionTest, DetectHonoursCancellation) {
    test::TempDir folder;
    const fs::path script = writeScript(folder, "rsync", "echo 'rsync version 3.2.7'");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(RsyncVersion::detect(script.string(), stop.get_token()), Cancelled);
}

}  // namespace
}  // namespace tapekeep
