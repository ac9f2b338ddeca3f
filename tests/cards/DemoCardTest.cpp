#include "cards/DemoCard.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <set>

#include "TempDir.h"
#include "content/M8SongParser.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::TempDir;
using test::writeFile;

std::string le(std::size_t value, int width) {
    std::string bytes;
    for (int index = 0; index < width; ++index) bytes += static_cast<char>((value >> (8 * index)) & 0xFF);
    return bytes;
}

// A zero-ended text field, as the device stores names and paths.
std::string textField(const std::string& bytes, std::size_t offset, std::size_t width) {
    std::string field = bytes.substr(offset, width);
    return field.substr(0, field.find('\0'));
}

std::vector<fs::path> filesWithExtension(const fs::path& folder, const std::string& extension) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file() && entry.path().extension() == extension) found.push_back(entry.path());
    return found;
}

class DemoCardTest : public ::testing::Test {
protected:
    bool buildFolderLeft() const {
        for (const auto& entry : fs::directory_iterator(root))
            if (entry.path().filename().string().starts_with(".M8DEMO-building-")) return true;
        return false;
    }

    TempDir temp;
    fs::path root = temp / "demo";
    fs::path card = root / "M8DEMO";
};

TEST_F(DemoCardTest, IsCreatedOnceAndAnExistingCardIsNeverTouched) {
    DemoCard::ensureCreated(root);
    EXPECT_EQ(DemoCard::cardFolder(root), card);
    EXPECT_TRUE(fs::is_regular_file(card / "System/STARTUP.m8s"));
    EXPECT_TRUE(fs::is_directory(card / "Songs") && fs::is_directory(card / "Instruments"));
    EXPECT_FALSE(buildFolderLeft());

    writeFile(card / "Songs/FIRSTSTEPS.m8s", "edited by the user");
    fs::remove(card / "Samples/Drums/kick.wav");
    DemoCard::ensureCreated(root);
    EXPECT_EQ(readFile(card / "Songs/FIRSTSTEPS.m8s"), "edited by the user");
    EXPECT_FALSE(fs::exists(card / "Samples/Drums/kick.wav"));

    fs::remove_all(card);
    fs::create_directories(card);
    DemoCard::ensureCreated(root);
    EXPECT_TRUE(fs::is_empty(card));
}

// Files larger than the limit fail with EFBIG, even for root: a disk that fills up mid-creation.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        previousHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &previous_);
        rlimit limited = previous_;
        limited.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previousHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit previous_{};
    void (*previousHandler_)(int) = nullptr;
};

TEST_F(DemoCardTest, CreationCutShortLeavesNoHalfCardAndALeftoverIsReplacedWhole) {
    {
        FileSizeLimit limit(20'000);
        EXPECT_THROW(DemoCard::ensureCreated(root), PosixError);
    }
    EXPECT_FALSE(fs::exists(card));
    EXPECT_FALSE(buildFolderLeft());

    writeFile(root / ".M8DEMO-building-0000/Songs/HALF.m8s", "cut short");
    DemoCard::ensureCreated(root);
    EXPECT_FALSE(buildFolderLeft());
    EXPECT_FALSE(fs::exists(card / "Songs/HALF.m8s"));
    EXPECT_TRUE(fs::is_regular_file(card / "System/STARTUP.m8s"));

    writeFile(temp / "file-root", "not a folder");
    EXPECT_THROW(DemoCard::ensureCreated(temp / "file-root"), PosixError);
}

TEST_F(DemoCardTest, SamplesAreAudiblePcmWaveFilesInSubfolders) {
    DemoCard::ensureCreated(root);
    auto samples = filesWithExtension(card / "Samples", ".wav");
    ASSERT_GE(samples.size(), 18u);
    std::set<fs::path> folders;
    for (const auto& file : samples) {
        SCOPED_TRACE(file.string());
        folders.insert(file.parent_path());
        const std::string bytes = readFile(file);
        ASSERT_GE(bytes.size(), 1000u);
        EXPECT_LE(bytes.size(), 120'000u);
        // PCM, mono, 44,100 frames and 88,200 bytes a second, 16 bits, one data chunk to the end.
        EXPECT_EQ(bytes.substr(0, 44), "RIFF" + le(bytes.size() - 8, 4) + "WAVEfmt " + le(16, 4) + le(1, 2) +
                                           le(1, 2) + le(44100, 4) + le(88200, 4) + le(2, 2) + le(16, 2) +
                                           "data" + le(bytes.size() - 44, 4));
        int loudest = 0;
        for (std::size_t offset = 44; offset + 1 < bytes.size(); offset += 2)
            loudest = std::max(
                loudest,
                std::abs(static_cast<std::int16_t>(static_cast<unsigned char>(bytes[offset]) |
                                                   static_cast<unsigned char>(bytes[offset + 1]) << 8)));
        EXPECT_GT(loudest, 1000) << "a sample that is silent";
    }
    EXPECT_GE(folders.size(), 4u);
    EXPECT_TRUE(folders.contains(card / "Samples/Drums/Perc"));
}

// The song parser, checked against real device files, reads every demo file as the device would.
TEST_F(DemoCardTest, SongsAndInstrumentsReadAsDeviceFilesAndReferenceSamplesOnTheCard) {
    DemoCard::ensureCreated(root);
    std::set<std::string> referenced;
    const auto songs = filesWithExtension(card, ".m8s");
    ASSERT_GE(songs.size(), 4u);
    for (const auto& file : songs) {
        SCOPED_TRACE(file.string());
        const auto song = M8SongParser::parseSong(file);
        ASSERT_TRUE(song);
        EXPECT_TRUE(song->tempo.has_value());
        EXPECT_EQ(song->name, file.stem().string());
        EXPECT_EQ(textField(readFile(file), 14, 128),
                  "/" + fs::relative(file.parent_path(), card).generic_string() + "/");
        referenced.insert(song->samplePaths.begin(), song->samplePaths.end());
    }
    EXPECT_GE(referenced.size(), 10u);

    const auto instruments = filesWithExtension(card / "Instruments", ".m8i");
    ASSERT_GE(instruments.size(), 3u);
    int samplers = 0;
    for (const auto& file : instruments) {
        EXPECT_EQ(textField(readFile(file), 15, 12), file.stem().string()) << file;
        const auto path = M8SongParser::parseInstrument(file);
        samplers += path ? 1 : 0;
        if (path) referenced.insert(*path);
    }
    EXPECT_GE(samplers, 2);
    for (const auto& path : referenced) {
        ASSERT_TRUE(path.starts_with("/Samples/")) << path;
        EXPECT_TRUE(fs::is_regular_file(card / path.substr(1))) << path;
    }
}

TEST_F(DemoCardTest, LivesUnderTheUsersDataFolderAndIsTheOnlyExternalDiskOfItsProviders) {
    EXPECT_EQ(DemoCard::volumesProvider(root)(), std::vector<fs::path>{card});
    const auto diskInfo = DemoCard::diskInfoProvider();
    EXPECT_EQ(diskInfo(card, {}), (DiskInfo{DemoCard::uuid, false}));
    EXPECT_EQ(diskInfo(card / "", {}), (DiskInfo{DemoCard::uuid, false}));
    EXPECT_EQ(diskInfo("/media/user/OTHER", {}).uuid, "");

    const char* saved = std::getenv("XDG_DATA_HOME");
    const std::string previous = saved ? saved : "";
    ::setenv("XDG_DATA_HOME", temp.path().c_str(), 1);
    EXPECT_EQ(DemoCard::demoRoot(), temp / "tapekeep/demo");
    EXPECT_EQ(DemoCard::baseFolder(DemoCard::demoRoot()), temp / "tapekeep/demo/backups");
    if (saved) {
        ::setenv("XDG_DATA_HOME", previous.c_str(), 1);
    } else {
        ::unsetenv("XDG_DATA_HOME");
    }
}

}  // namespace
}  // namespace tapekeep
