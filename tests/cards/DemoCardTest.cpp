#include "cards/DemoCard.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <set>

#include "TempDir.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::TempDir;
using test::writeFile;

constexpr std::size_t instrumentTable = 80446;
constexpr std::size_t stride = 215;
constexpr std::size_t samplePathOffset = 87;

std::uint32_t littleEndian(const std::string& bytes, std::size_t offset, int width) {
    std::uint32_t value = 0;
    for (int index = width - 1; index >= 0; --index)
        value = (value << 8) | static_cast<unsigned char>(bytes.at(offset + static_cast<std::size_t>(index)));
    return value;
}

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

bool hasM8Header(const std::string& bytes) {
    return bytes.starts_with(std::string("M8VERSION\0", 10));
}

// The sampler slots of a song: slot number to sample path.
std::map<int, std::string> samplerSlots(const std::string& song) {
    std::map<int, std::string> slots;
    for (int slot = 0; slot < 128; ++slot) {
        std::size_t record = instrumentTable + static_cast<std::size_t>(slot) * stride;
        if (static_cast<unsigned char>(song.at(record)) == 2)
            slots[slot] = textField(song, record + samplePathOffset, 128);
    }
    return slots;
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
            loudest = std::max(loudest, std::abs(static_cast<std::int16_t>(littleEndian(bytes, offset, 2))));
        EXPECT_GT(loudest, 1000) << "a sample that is silent";
    }
    EXPECT_GE(folders.size(), 4u);
    EXPECT_TRUE(folders.contains(card / "Samples/Drums/Perc"));
}

TEST_F(DemoCardTest, SongsAndInstrumentsFollowTheDeviceLayoutAndReferenceSamplesOnTheCard) {
    DemoCard::ensureCreated(root);
    std::set<std::string> referenced;
    const auto songs = filesWithExtension(card, ".m8s");
    ASSERT_GE(songs.size(), 4u);
    for (const auto& file : songs) {
        SCOPED_TRACE(file.string());
        const std::string bytes = readFile(file);
        ASSERT_TRUE(hasM8Header(bytes));
        EXPECT_EQ(static_cast<unsigned char>(bytes[11]), 4u);  // firmware 4: stride 215, path at 87
        ASSERT_GE(bytes.size(), instrumentTable + 128 * stride);
        const float tempo = std::bit_cast<float>(littleEndian(bytes, 143, 4));
        EXPECT_TRUE(tempo >= 20.0F && tempo <= 300.0F) << tempo;
        EXPECT_EQ(textField(bytes, 14, 128),
                  "/" + fs::relative(file.parent_path(), card).generic_string() + "/");
        EXPECT_EQ(textField(bytes, 148, 12), file.stem().string());
        for (const auto& [slot, path] : samplerSlots(bytes)) referenced.insert(path);
    }
    const std::string firstSteps = readFile(card / "Songs/FIRSTSTEPS.m8s");
    EXPECT_EQ(std::bit_cast<float>(littleEndian(firstSteps, 143, 4)), 120.0F);
    EXPECT_EQ(samplerSlots(firstSteps)[2], "/Samples/Drums/hat closed.wav");
    EXPECT_EQ(samplerSlots(readFile(card / "Songs/Sketches/BROKENBEAT.m8s"))[6],
              "/Samples/Drums/Perc/shaker.wav");

    const auto instruments = filesWithExtension(card / "Instruments", ".m8i");
    ASSERT_GE(instruments.size(), 3u);
    const std::size_t fromSongs = referenced.size();
    int samplers = 0;
    for (const auto& file : instruments) {
        const std::string bytes = readFile(file);
        ASSERT_TRUE(hasM8Header(bytes)) << file;
        EXPECT_EQ(textField(bytes, 15, 12), file.stem().string());
        if (bytes.at(14) != 2) continue;
        ++samplers;
        referenced.insert(textField(bytes, 14 + samplePathOffset, 128));
    }
    EXPECT_GE(fromSongs, 10u);
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
