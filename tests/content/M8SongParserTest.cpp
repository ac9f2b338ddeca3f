#include "content/M8SongParser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "TempDir.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using Type = InstrumentInfo::InstrumentType;

const fs::path fixtures = TAPEKEEP_FIXTURES_DIR;

struct Layout {
    std::size_t stride;
    std::size_t pathOffset;
};
constexpr Layout olderLayout{207, 79};
constexpr Layout newerLayout{215, 87};
constexpr std::size_t olderMinimum = 106'942;
constexpr std::size_t newerMinimum = 107'966;

// A song built byte by byte: header, tempo 120, all 128 slots empty (type byte 0xFF), zeros elsewhere.
class SongBytes {
public:
    SongBytes(unsigned char low, unsigned char high, Layout layout, std::size_t size = newerMinimum)
        : layout_(layout), bytes_(std::max(size, newerMinimum), '\0'), size_(size) {
        put(0, std::string("M8VERSION\0", 10) + char(low) + char(high));
        setTempo(120.0f);
        for (int slot = 0; slot < 128; ++slot) put(slotOffset(slot), "\xFF");
    }
    static SongBytes newer() { return {0x20, 0x04, newerLayout}; }

    void put(std::size_t offset, std::string_view data) { bytes_.replace(offset, data.size(), data); }
    void setTempo(float tempo) {
        char raw[4];
        std::memcpy(raw, &tempo, 4);  // the test machine is little-endian, as the file is
        put(143, std::string_view(raw, 4));
    }
    void setSlot(int slot, unsigned char type, std::string_view name = "", std::string_view path = "") {
        put(slotOffset(slot), std::string(1, char(type)));
        put(slotOffset(slot) + 1, name);
        put(slotOffset(slot) + layout_.pathOffset, path);
    }
    [[nodiscard]] std::string bytes() const { return bytes_.substr(0, size_); }

private:
    [[nodiscard]] std::size_t slotOffset(int slot) const {
        return 80'446 + std::size_t(slot) * layout_.stride;
    }

    Layout layout_;
    std::string bytes_;
    std::size_t size_;
};

fs::path write(const TempDir& dir, const std::string& bytes, const std::string& name = "song.m8s") {
    test::writeFile(dir / name, bytes);
    return dir / name;
}

std::string instrumentBytes(unsigned char low, unsigned char high, unsigned char type, Layout layout,
                            std::string_view path) {
    std::string bytes =
        std::string("M8VERSION\0", 10) + char(low) + char(high) + std::string(2, '\0') + char(type);
    bytes.resize(14 + layout.pathOffset);
    return bytes + std::string(path);
}

TEST(M8SongParserTest, ReadsEveryRealSong) {
    struct Case {
        const char* file;
        double tempo;
        const char* name;
        std::size_t occupied;
        int samplerSlot;  // -1: none
        std::vector<std::string> samplePaths;
    };
    const std::vector<Case> cases{
        {"TEST-FILE.m8s", 120.0, "TEST-FILE", 7, 3, {"/Samples/Drums/Hits/TR505/bass drum 505.wav"}},
        {"CMDMAPPING_4_0.m8s", 133.0, "CMDMAPPING", 17, 32, {"/Samples/PICA.wav"}},
        {"CMDMAPPING_4_1_beta.m8s", 133.0, "CMDMAPPING", 17, 32, {"/Samples/PICA.wav"}},
        {"DEFAULT.m8s", 120.0, "DEFAULT", 0, -1, {}},
        {"V4EMPTY.m8s", 120.0, "V4EMPTY", 0, -1, {}},
        {"V4-1EMPTY.m8s", 120.0, "V4-1EMPTY", 0, -1, {}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.file);
        const auto song = M8SongParser::parseSong(fixtures / testCase.file);
        ASSERT_TRUE(song);
        EXPECT_EQ(song->tempo, testCase.tempo);
        EXPECT_EQ(song->name, testCase.name);
        EXPECT_EQ(song->instruments.size(), testCase.occupied);
        EXPECT_EQ(song->samplePaths, testCase.samplePaths);
        EXPECT_EQ(M8SongParser::parseSamplePaths(fixtures / testCase.file), testCase.samplePaths);
        for (const auto& instrument : song->instruments) {
            EXPECT_EQ(instrument.samplePath.has_value(), instrument.index == testCase.samplerSlot);
            EXPECT_EQ(instrument.type == Type::sampler, instrument.index == testCase.samplerSlot);
        }
    }
    // The test song holds one instrument of each type, each named, its name padded with 0xFF.
    std::vector<std::pair<std::string, std::string>> instruments;
    const auto testSong = M8SongParser::parseSong(fixtures / "TEST-FILE.m8s");  // outlives the loop
    ASSERT_TRUE(testSong);
    for (const auto& instrument : testSong->instruments)
        instruments.emplace_back(InstrumentInfo::rawValue(instrument.type), instrument.name);
    EXPECT_EQ(instruments, (std::vector<std::pair<std::string, std::string>>{{"WAVSYNTH", "WAV"},
                                                                             {"MACROSYN", "MAC"},
                                                                             {"SAMPLER", "SAMP"},
                                                                             {"FMSYNTH", "FM"},
                                                                             {"HYPERSYNTH", "HYPER"},
                                                                             {"MIDI OUT", "MIDI"},
                                                                             {"EXTERNAL", "EXT_INST"}}));
}

TEST(M8SongParserTest, RealInstrumentsAreNamedFmSynthsWithoutSample) {
    const std::vector<std::pair<const char*, const char*>> files{{"FMDUBSTAB_4_0.m8i", "FMDUBSTAB"},
                                                                 {"FMDUBSTAB_4_1.m8i", "FMDUBSTAB"},
                                                                 {"FMDUBSTABEQ_4_1.m8i", "FMDUBSTABEQ"}};
    for (const auto& [file, name] : files) {
        SCOPED_TRACE(file);
        EXPECT_EQ(M8SongParser::parseInstrument(fixtures / file), std::nullopt);
        const auto instrument = M8SongParser::parseInstrumentInfo(fixtures / file);
        EXPECT_EQ(instrument.type, Type::fm);
        EXPECT_EQ(instrument.name, name);
        EXPECT_EQ(M8SongParser::parseSong(fixtures / file), std::nullopt);
    }
    // Offset 14 of a song holds its folder ("/Songs/"), not the sampler's type byte.
    EXPECT_EQ(M8SongParser::parseInstrument(fixtures / "TEST-FILE.m8s"), std::nullopt);
}

TEST(M8SongParserTest, AcceptsWholeSongsOnly) {
    const std::string fullPath(128, 'p');  // no terminator: runs to the very end of a minimum-size file
    struct Case {
        const char* name;
        unsigned char low, high;
        Layout layout;
        std::size_t size;
        bool accepted;
        std::pair<std::size_t, char> headerByte{0, 'M'};  // unchanged unless a case says otherwise
    };
    const std::vector<Case> cases{
        {"older layout, minimum size", 0x30, 0x01, olderLayout, olderMinimum, true},
        {"older layout, one byte short", 0x30, 0x01, olderLayout, olderMinimum - 1, false},
        {"newer layout, minimum size", 0x20, 0x04, newerLayout, newerMinimum, true},
        {"newer layout, one byte short", 0x20, 0x04, newerLayout, newerMinimum - 1, false},
        // Only high byte 1 with a low byte below 0x40 selects the older layout.
        {"version 0x3F 0x01", 0x3F, 0x01, olderLayout, olderMinimum, true},
        {"version 0x40 0x01", 0x40, 0x01, newerLayout, newerMinimum, true},
        {"version 0x3F 0x00", 0x3F, 0x00, newerLayout, newerMinimum, true},
        {"13 bytes of header", 0x20, 0x04, newerLayout, 13, false},
        {"byte 9 is 1", 0x20, 0x04, newerLayout, newerMinimum, false, {9, 1}},
        {"magic misspelt", 0x20, 0x04, newerLayout, newerMinimum, false, {8, 'M'}},
    };
    TempDir dir;
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        SongBytes song(testCase.low, testCase.high, testCase.layout, testCase.size);
        song.setSlot(127, 2, "", fullPath);
        song.put(testCase.headerByte.first, std::string(1, testCase.headerByte.second));
        const auto file = write(dir, song.bytes());
        const auto parsed = M8SongParser::parseSong(file);
        const auto expectedPaths = testCase.accepted ? std::vector{fullPath} : std::vector<std::string>{};
        ASSERT_EQ(parsed.has_value(), testCase.accepted);
        EXPECT_EQ(M8SongParser::parseSamplePaths(file), expectedPaths);
        if (!parsed) continue;
        ASSERT_EQ(parsed->instruments.size(), 1u);
        EXPECT_EQ(parsed->instruments[0].index, 127);
        EXPECT_EQ(parsed->instruments[0].samplePath, fullPath);
    }
}

TEST(M8SongParserTest, KeepsTempoOnlyWithinTheDeviceRange) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const std::vector<std::pair<float, std::optional<double>>> cases{
        {19.99f, std::nullopt},  {20.0f, 20.0},       {120.5f, 120.5},         {300.0f, 300.0},
        {300.01f, std::nullopt}, {nan, std::nullopt}, {infinity, std::nullopt}};
    TempDir dir;
    for (const auto& [stored, expected] : cases) {
        SCOPED_TRACE(stored);
        auto song = SongBytes::newer();
        song.setTempo(stored);
        song.setSlot(0, 1);
        const auto parsed = M8SongParser::parseSong(write(dir, song.bytes()));
        ASSERT_TRUE(parsed);
        EXPECT_EQ(parsed->tempo, expected);
        EXPECT_EQ(parsed->instruments.size(), 1u);  // an absent tempo stops nothing
    }
}

TEST(M8SongParserTest, DecodesNamesAsUtf8OnlyAndPathsWithLatin1Fallback) {
    struct Case {
        std::string stored;  // written to the song name, an instrument name and a sample path
        std::string name;
        std::optional<std::string> path;
    };
    const std::vector<Case> cases{
        {"KICK", "KICK", "KICK"},
        {"Caf\xE9", "", "Caf\u00E9"},
        {"Ch\u00F6re", "Ch\u00F6re", "Ch\u00F6re"},
        {"\xC0\x80", "", "\u00C0\u0080"},  // overlong zero
        {std::string("AB\0CD", 5), "AB", "AB"},
        {"", "", std::nullopt},
        {"   ", "   ", "   "},
        {"Samples\\x.wav", "Samples\\x.wa", "Samples\\x.wav"},  // 13th byte is past the name field
        {"ABCDEFGHIJKL\xE9", "ABCDEFGHIJKL", "ABCDEFGHIJKL\u00E9"},
        {"KICK\xFF\xFF\xFF", "KICK", "KICK\u00FF\u00FF\u00FF"},  // the device's padding ends a name
        {"A\xFF\xE9", "A", "A\u00FF\u00E9"},                     // whatever follows the padding
        {"\xFFKICK", "", "\u00FFKICK"},
    };
    TempDir dir;
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.stored);
        auto song = SongBytes::newer();
        song.put(148, testCase.stored);
        song.setSlot(0, 2, testCase.stored, testCase.stored);
        const auto parsed = M8SongParser::parseSong(write(dir, song.bytes()));
        ASSERT_TRUE(parsed);
        EXPECT_EQ(parsed->name, testCase.name);
        EXPECT_EQ(parsed->instruments.at(0).name, testCase.name);
        EXPECT_EQ(parsed->instruments.at(0).samplePath, testCase.path);
        const auto instrument = instrumentBytes(0x20, 0x04, 2, newerLayout, testCase.stored + '\0');
        EXPECT_EQ(M8SongParser::parseInstrument(write(dir, instrument, "i.m8i")), testCase.path);
        std::string namedInstrument = instrument;
        namedInstrument.replace(15, std::min<std::size_t>(testCase.stored.size(), 12), testCase.stored, 0,
                                12);
        EXPECT_EQ(M8SongParser::parseInstrumentInfo(write(dir, namedInstrument, "n.m8i")).name,
                  testCase.name);
    }
}

TEST(M8SongParserTest, CollectsSamplerPathsOnceAndTypesEveryOccupiedSlot) {
    auto song = SongBytes::newer();  // every other slot is empty (0xFF)
    const std::vector<std::tuple<int, unsigned char, std::string>> slots{
        {3, 2, "/b.wav"}, {9, 2, "/b.wav"},  {10, 2, "/B.wav"}, {20, 2, "/a.wav"},
        {30, 2, ""},      {40, 4, "/f.wav"}, {50, 7, "/x.wav"}, {60, 254, "/y.wav"}};
    for (const auto& [slot, type, path] : slots) song.setSlot(slot, type, "N", path);
    TempDir dir;
    const auto file = write(dir, song.bytes());
    const auto parsed = M8SongParser::parseSong(file);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->samplePaths, (std::vector<std::string>{"/B.wav", "/a.wav", "/b.wav"}));
    EXPECT_EQ(M8SongParser::parseSamplePaths(file), parsed->samplePaths);
    using Row = std::tuple<int, Type, std::optional<std::string>>;
    std::vector<Row> rows;
    for (const auto& instrument : parsed->instruments) {
        rows.emplace_back(instrument.index, instrument.type, instrument.samplePath);
        EXPECT_EQ(instrument.name, "N");
    }
    const std::vector<Row> expected{{3, Type::sampler, "/b.wav"},  {9, Type::sampler, "/b.wav"},
                                    {10, Type::sampler, "/B.wav"}, {20, Type::sampler, "/a.wav"},
                                    {30, Type::sampler, {}},       {40, Type::fm, {}},
                                    {50, Type::unknown, {}},       {60, Type::unknown, {}}};
    EXPECT_EQ(rows, expected);
    EXPECT_NE(M8SongParser::parseSong(file)->instruments[0].id, parsed->instruments[0].id);
}

TEST(M8SongParserTest, InstrumentFailuresAreTold) {
    using Kind = M8InstrumentError::Kind;
    const std::string header("M8VERSION\0\x20\x04\0\0", 14);
    struct Case {
        const char* name;
        std::string bytes;
        std::optional<Kind> error;
        std::optional<std::string> path;
    };
    const std::vector<Case> cases{
        {"magic alone", "M8VERSION", Kind::notAnInstrument, {}},
        {"good header, no type byte", header, Kind::unreadable, {}},
        {"not a sampler", header + '\4', {}, {}},
        {"sampler ending before its path", header + '\2' + std::string(86, 'x'), Kind::unreadable, {}},
        {"sampler path cut by the end of the file", header + '\2' + std::string(86, 'x') + "abc", {}, "abc"},
        {"sampler with an empty path", header + '\2' + std::string(300, '\0'), {}, {}},
        {"older layout", instrumentBytes(0x3F, 0x01, 2, olderLayout, "/s.wav"), {}, "/s.wav"},
        {"newer layout", instrumentBytes(0x40, 0x01, 2, newerLayout, "/s.wav"), {}, "/s.wav"},
    };
    TempDir dir;
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        const auto file = write(dir, testCase.bytes, "i.m8i");
        try {
            EXPECT_EQ(M8SongParser::parseInstrument(file), testCase.path);
            EXPECT_FALSE(testCase.error);
        } catch (const M8InstrumentError& error) {
            EXPECT_EQ(error.kind(), testCase.error);
            EXPECT_EQ(error.file(), file);
        }
    }
    try {
        M8SongParser::parseInstrument(write(dir, "M8VERSION", "KICK.m8i"));
        ADD_FAILURE();
    } catch (const M8InstrumentError& error) {
        EXPECT_STREQ(error.what(), "Not an M8 instrument: KICK.m8i");
    }
}

TEST(M8SongParserTest, FilesThatCannotBeReadGiveNothing) {
    TempDir dir;
    const auto song = write(dir, SongBytes::newer().bytes());
    const auto huge = write(dir, SongBytes::newer().bytes(), "huge.m8s");
    fs::resize_file(huge, 16 * 1024 * 1024 + 1);  // sparse: too large for any M8 file
    fs::resize_file(song, 16 * 1024 * 1024);      // the largest size still read
    EXPECT_TRUE(M8SongParser::parseSong(song));
    for (const auto& file : {huge, dir / "missing.m8s"}) {
        SCOPED_TRACE(file);
        EXPECT_EQ(M8SongParser::parseSong(file), std::nullopt);
        EXPECT_TRUE(M8SongParser::parseSamplePaths(file).empty());
        try {
            M8SongParser::parseInstrument(file);
            ADD_FAILURE();
        } catch (const M8InstrumentError& error) {
            EXPECT_EQ(error.kind(), M8InstrumentError::Kind::unreadable);
            EXPECT_EQ(error.what(), "Could not read instrument: " + file.filename().string());
        }
    }
}

}  // namespace
}  // namespace tapekeep
