// tapekeep-cli given input that is not clean: settings files that cannot be used, names that are not
// UTF-8 or that hold control characters, numbers that would delete backups, and names that look like
// options. The real program, real files, and a real FAT card mounted through FUSE.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>

#include "CliProcess.h"
#include "FatCard.h"
#include "FileSnapshot.h"
#include "FuseCardTest.h"
#include "LiveProcesses.h"
#include "M8Files.h"
#include "TempDir.h"
#include "core/Utf8.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using nlohmann::json;
using test::FileSnapshot;
using test::readFile;
using test::runCli;
using test::shellQuote;
using test::TempDir;
using test::writeFile;

const std::string replacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr const char* aVersion = "backup-2024-05-01-120000";

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// True when the text holds a byte that a terminal would act on (a control character other than the
// line ends and the field separator that the output itself writes), or one that is not UTF-8.
bool holdsRawControlOrBadByte(const std::string& text) {
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F) return true;
    }
    return !isValidUtf8(text);
}

// Where tapekeep-cli run with that home keeps its settings.
fs::path settingsFileIn(const fs::path& home) {
    return home / "config/tapekeep/settings.json";
}

class CliInputTest : public ::testing::Test {
protected:
    fs::path settingsFile() const { return settingsFileIn(home_); }

    test::CliResult cli(const std::vector<std::string>& arguments) const { return runCli(home_, arguments); }

    // A set folder with one version in it under the base folder.
    fs::path makeVersion(const std::string& setName) const {
        const fs::path version = base_ / setName / aVersion;
        fs::create_directories(version);
        return version;
    }

    TempDir temp_;
    fs::path home_ = temp_ / "home";
    fs::path base_ = temp_ / "backups";
};

// ---- a settings file that cannot be used is left as it is -----------------------------------------

TEST_F(CliInputTest, DamagedSettingsFileIsLeftAsItIsReadingCommandsWorkOnDefaultsAndWritesSayWhy) {
    const struct {
        const char* name;
        std::function<void(const fs::path&)> make;
        std::string reason;
    } cases[] = {
        {"trailing comma",
         [](const fs::path& file) { writeFile(file, "{\"keepCount\": 9, \"m8Accent\": \"lime\",}\n"); },
         "not valid JSON (at byte 37)"},
        {"over 1 MiB",
         [](const fs::path& file) {
             writeFile(file, "{\"keepCount\": 9, \"padding\": \"" + std::string(1 << 20, ' ') + "\"}");
         },
         "larger than 1 MiB"},
        {"directory", [](const fs::path& file) { fs::create_directories(file); }, "not a regular file"},
        {"FIFO",
         [](const fs::path& file) {
             fs::create_directories(file.parent_path());
             ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
         },
         "not a regular file"},
    };
    const fs::path emptyVolumes = temp_ / "no volumes";
    fs::create_directories(emptyVolumes);
    for (const auto& [name, make, reason] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all(home_);
        make(settingsFile());
        fs::permissions(settingsFile(),
                        fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
        const FileSnapshot before = FileSnapshot::of(settingsFile());
        const std::string damage =
            "Settings file is damaged: " + settingsFile().string() + ": " + reason + ". Fix or remove it.";

        const auto listed = cli({"settings", "list"});
        EXPECT_EQ(listed.status, 0) << listed.err;
        EXPECT_NE(listed.out.find("keepCount = 5\n"), std::string::npos) << listed.out;
        EXPECT_EQ(occurrences(listed.err, damage), 1u) << listed.err;

        const auto cards = cli({"--volumes-root", emptyVolumes.string(), "cards"});
        EXPECT_EQ(cards.status, 0) << cards.err;
        EXPECT_EQ(occurrences(cards.err, damage), 1u) << cards.err;

        const auto sets = cli({"sets"});  // the base folder would come from the settings
        EXPECT_EQ(sets.status, 2) << sets.err;
        EXPECT_TRUE(sets.lastErrorLine.starts_with("No backup folder is set.")) << sets.err;
        EXPECT_EQ(occurrences(sets.err, damage), 1u) << sets.err;

        const auto written = cli({"settings", "set", "keepCount", "7"});
        EXPECT_EQ(written.status, 1) << written.err;
        EXPECT_EQ(written.lastErrorLine, damage);

        EXPECT_EQ(FileSnapshot::of(settingsFile()), before);
    }
}

TEST_F(CliInputTest, SettingsFileThatIsALinkIsWrittenThroughAndStaysALink) {
    const fs::path target = home_ / "dotfiles/tapekeep.json";
    writeFile(target, "{\"m8Accent\": \"lime\"}");
    fs::create_directories(settingsFile().parent_path());
    fs::create_symlink("../../dotfiles/tapekeep.json", settingsFile());

    const auto result = cli({"settings", "set", "keepCount", "7"});
    ASSERT_EQ(result.status, 0) << result.err;
    ASSERT_TRUE(fs::is_symlink(settingsFile()));
    EXPECT_EQ(fs::read_symlink(settingsFile()), "../../dotfiles/tapekeep.json");
    const auto stored = json::parse(readFile(target));
    EXPECT_EQ(stored.at("keepCount"), 7);
    EXPECT_EQ(stored.at("m8Accent"), "lime");
}

// ---- "--" ends the options ------------------------------------------------------------------------

TEST_F(CliInputTest, DoubleDashEndsTheOptionsSoThatANameThatLooksLikeOneCanBeGiven) {
    makeVersion("-rf");
    const std::string base = base_.string();
    const struct {
        std::vector<std::string> arguments;
        int status;
    } cases[] = {
        {{"--base", base, "versions", "--", "-rf"}, 0},
        {{"--base", base, "--", "versions", "--", "-rf"}, 0},
        {{"--base", base, "--json", "--", "versions", "--", "-rf"}, 0},
        {{"--base", base, "versions", "-rf"}, 2},                  // an unknown option
        {{"--base", base, "versions", "--", "-rf", "--json"}, 2},  // a second operand, not a flag
        {{"--base", base, "--", "--json", "versions", "-rf"}, 2},  // not a command
    };
    for (const auto& [arguments, status] : cases) {
        const auto result = cli(arguments);
        SCOPED_TRACE(::testing::PrintToString(arguments));
        EXPECT_EQ(result.status, status) << result.err;
        if (status == 0) {
            EXPECT_NE(result.out.find(aVersion), std::string::npos) << result.out;
        }
    }
}

// ---- names that are not UTF-8 or hold control characters -------------------------------------------

TEST_F(CliInputTest, SetAndSampleNamesAreRepairedInJsonAndEscapedInPlainOutput) {
    const std::string badByte = "CARD\xFF_0000C0DE";
    const std::string forging = "M8\nfake line\x1b[2J_0000BEEF";
    makeVersion(badByte);
    const fs::path version = makeVersion(forging);
    writeFile(version / ".tapekeep-note", "before the gig\n\x1b]0;owned\x07");
    writeFile(version / "Samples/kick\n\x1b[31m.wav", "RIFF");
    const std::string base = base_.string();

    const auto asJson = cli({"--base", base, "--json", "sets"});
    ASSERT_EQ(asJson.status, 0) << asJson.err;
    const auto sets = json::parse(asJson.out).at("sets");
    ASSERT_EQ(sets.size(), 2u) << asJson.out;
    std::set<std::string> names;
    for (const auto& set : sets) names.insert(set.at("folderName").get<std::string>());
    EXPECT_EQ(names, (std::set<std::string>{"CARD" + replacement + "_0000C0DE", forging}));
    for (const auto& set : sets) EXPECT_TRUE(isValidUtf8(set.at("path").get<std::string>()));

    const struct {
        std::vector<std::string> arguments;
        std::vector<std::string> expectedLines;
    } plain[] = {
        {{"--base", base, "sets"},
         {"CARD\\xff_0000C0DE\t1 version(s)\t" + base + "/CARD\\xff_0000C0DE",
          "M8\\nfake line\\x1b[2J_0000BEEF\t1 version(s)\t" + base + "/M8\\nfake line\\x1b[2J_0000BEEF"}},
        {{"--base", base, "versions", "--", forging},
         {std::string(aVersion) + "\t\tbefore the gig\\n\\x1b]0;owned\\x07"}},
        {{"--base", base, "usage", forging, aVersion}, {"Samples/kick\\n\\x1b[31m.wav"}},
    };
    for (const auto& [arguments, expectedLines] : plain) {
        const auto result = cli(arguments);
        SCOPED_TRACE(arguments[2]);
        ASSERT_EQ(result.status, 0) << result.err;
        auto lines = linesOf(result.out);
        std::sort(lines.begin(), lines.end());
        EXPECT_EQ(lines, expectedLines);
        EXPECT_FALSE(holdsRawControlOrBadByte(result.out)) << result.out;
    }
}

TEST_F(CliInputTest, SongNamesAndSamplePathsCannotForgeLinesInPlainOutput) {
    constexpr std::size_t songNameOffset = 148, firstInstrumentName = 80446 + 1;
    std::string song = test::songWithSamples({"/Samples/a\nb\x07.wav"});
    song.replace(songNameOffset, 9, "LIVE\n\x1b[2J");
    song.replace(firstInstrumentName, 8, "KIK\r\x1b[1A");
    const fs::path file = temp_ / "LIVE.m8s";
    writeFile(file, song);

    const auto plain = cli({"song", file.string()});
    ASSERT_EQ(plain.status, 0) << plain.err;
    const auto lines = linesOf(plain.out);
    ASSERT_EQ(lines.size(), 2u) << plain.out;
    EXPECT_TRUE(lines[0].starts_with("Song LIVE\\n\\x1b[2J, tempo ")) << lines[0];
    EXPECT_EQ(lines[1], "  0\tSAMPLER\tKIK\\r\\x1b[1A\t/Samples/a\\nb\\x07.wav");
    EXPECT_FALSE(holdsRawControlOrBadByte(plain.out)) << plain.out;

    const auto asJson = cli({"--json", "song", file.string()});  // JSON keeps the text, escaped its own way
    ASSERT_EQ(asJson.status, 0) << asJson.err;
    const auto parsed = json::parse(asJson.out);
    EXPECT_EQ(parsed.at("name"), "LIVE\n\x1b[2J");
    EXPECT_EQ(parsed.at("samplePaths"), json::array({"/Samples/a\nb\x07.wav"}));
    EXPECT_FALSE(holdsRawControlOrBadByte(asJson.out)) << asJson.out;
}

// ---- on a real card -----------------------------------------------------------------------------------

// A card whose file system is mounted under a folder of the test's choosing, as the system names a
// volume after its label, which can hold any bytes.
class CliCardInputTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        writeFile(card_->mountPath() / "Songs/DEMO.m8s", test::songWithSamples({"/Samples/kick.wav"}));
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", "bass");
        writeFile(card_->mountPath() / "Samples/kick.wav", "RIFF kick");
    }

    void TearDown() override {
        if (remounted_) unmountRemount();
    }

    fs::path settingsFile() const { return settingsFileIn(home()); }

    void remountAs(const std::string& name) {
        card_->unmount();
        remounted_ = volumes_ / name;
        fs::create_directories(*remounted_);
        std::string output;
        ASSERT_EQ(test::runShell("fusefat -o rw+,fsname=" + card_->loopDevice() + " " +
                                     shellQuote(card_->loopDevice()) + " " + shellQuote(remounted_->string()),
                                 &output),
                  0)
            << output;
    }

    // fusefat writes back lazily, so a busy mount is retried, as the card itself does.
    void unmountRemount() {
        test::waitUntil(
            [&] { return test::runShell("fusermount -u " + shellQuote(remounted_->string())) == 0; },
            std::chrono::seconds(2));
        remounted_.reset();
    }

    std::vector<fs::path> publishedVersions() const { return storeEntries("backup-"); }

    std::optional<fs::path> remounted_;
};

TEST_F(CliCardInputTest, KeepBelowOneIsAUsageErrorBeforeAnythingIsWritten) {
    const struct {
        const char* name;
        std::optional<std::string> storedSettings;
        std::vector<std::string> arguments;
        std::string lastErrorLine;
    } cases[] = {
        {"--keep 0",
         std::nullopt,
         {"backup", "M8CARD", "--keep", "0"},
         "--keep takes a whole number of at least 1, not \"0\"."},
        {"--keep -1",
         std::nullopt,
         {"backup", "M8CARD", "--keep=-1"},
         "--keep takes a whole number of at least 1, not \"-1\"."},
        {"stored 0",
         R"({"keepCount": 0})",
         {"backup", "M8CARD"},
         "The setting keepCount is 0, but at least 1 version must be kept. Pass --keep N, or set it with: "
         "tapekeep-cli settings set keepCount N"},
        {"stored -4",
         R"({"keepCount": -4})",
         {"backup", "--all"},
         "The setting keepCount is -4, but at least 1 version must be kept. Pass --keep N, or set it with: "
         "tapekeep-cli settings set keepCount N"},
        {"watch --auto",
         R"({"keepCount": 0})",
         {"watch", "--auto"},
         "The setting keepCount is 0, but at least 1 version must be kept. Pass --keep N, or set it with: "
         "tapekeep-cli settings set keepCount N"},
        {"settings set",
         R"({"keepCount": 3})",
         {"settings", "set", "keepCount", "0"},
         "The setting keepCount takes an integer of at least 1, not \"0\"."},
    };
    for (const auto& [name, storedSettings, arguments, lastErrorLine] : cases) {
        SCOPED_TRACE(name);
        fs::remove_all(home());
        if (storedSettings) writeFile(settingsFile(), *storedSettings);
        const auto result = cli(arguments);
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_EQ(result.lastErrorLine, lastErrorLine);
        EXPECT_EQ(publishedVersions().size(), 0u);
        EXPECT_FALSE(fs::exists(base_));
        if (storedSettings) {
            EXPECT_EQ(json::parse(readFile(settingsFile())).at("keepCount"),
                      json::parse(*storedSettings).at("keepCount"));
        }
    }
}

TEST_F(CliCardInputTest, TheCliNamesNoSound) {
    writeFile(settingsFile(), R"({"playSoundOnCompletion": true, "completionSoundName": "Glass"})");
    const auto result = cli({"backup", "M8CARD"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(publishedVersions().size(), 1u);
    EXPECT_EQ(result.err.find("sound"), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("Glass"), std::string::npos) << result.err;
}

TEST_F(CliCardInputTest, CardNamedWithBadBytesAndControlsIsListedAndBackedUp) {
    remountAs("M8\xFF\x1b[2J\nCARD");
    const std::string repairedName = "M8" + replacement + "\x1b[2J\nCARD";

    const auto cards = cli({"--json", "cards"});
    ASSERT_EQ(cards.status, 0) << cards.err;
    const auto listed = json::parse(cards.out).at("cards");
    ASSERT_EQ(listed.size(), 1u) << cards.out;
    EXPECT_EQ(listed[0].at("volumeName"), repairedName);
    EXPECT_EQ(listed[0].at("uuid"), card_->uuid());

    const auto plain = cli({"cards"});
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(linesOf(plain.out), std::vector<std::string>{"M8\\xff\\x1b[2J\\nCARD\t" + card_->uuid() + "\t" +
                                                           volumes_.string() + "/M8\\xff\\x1b[2J\\nCARD"});

    const auto backup = cli({"--json", "backup", card_->uuid()});
    ASSERT_EQ(backup.status, 0) << backup.err;
    const std::string version = json::parse(backup.out).at("version").get<std::string>();
    const auto versions = publishedVersions();
    ASSERT_EQ(versions.size(), 1u);
    EXPECT_EQ(version, repairUtf8(versions.front().string()));
    EXPECT_FALSE(holdsRawControlOrBadByte(backup.err)) << backup.err;
}

TEST_F(CliCardInputTest, WatchPrintsACardNamedWithBadBytesAsJsonLines) {
    remountAs(std::string("M8\xFF") + "CARD");
    const auto watcher = startCli({"--json", "watch"});
    auto idleLine = [&]() -> std::optional<json> {
        for (const auto& line : test::jsonLinesOf(watcher->out()))
            if (line.value("state", "") == "idle") return line;
        return std::nullopt;
    };
    // Waits (generously) for the card's first line; a watcher that died never prints it.
    std::optional<json> idle;
    test::waitUntil([&] { return (idle = idleLine()).has_value(); }, std::chrono::seconds(60));
    ASSERT_TRUE(idle.has_value()) << watcher->out() << watcher->err();
    EXPECT_EQ(idle->at("volumeName"), "M8" + replacement + "CARD");
    watcher->signal(SIGTERM);
    EXPECT_EQ(watcher->wait(), 0) << watcher->err();
}

}  // namespace
}  // namespace tapekeep
