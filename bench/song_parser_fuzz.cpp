// A long randomised run of the song and instrument parser over damaged files: the real device files
// and synthetic songs, truncated at random lengths, with flipped bytes, odd version and type bytes and
// unterminated paths, each written to a temporary file and handed to all three operations. The parser
// must never crash and must keep its promises: parseSamplePaths equals parseSong's samplePaths, only
// samplers carry a path, slots ascend, every text is UTF-8, and the only exception is
// M8InstrumentError. Build it with -fsanitize=address,undefined to catch out-of-bounds reads.
//
// Usage: song_parser_fuzz [seconds = 60] [seed = random] [fixtures folder]

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "content/M8SongParser.h"
#include "core/FileReading.h"
#include "core/Formatting.h"
#include "core/Utf8.h"

namespace {

namespace fs = std::filesystem;
using namespace tapekeep;

constexpr std::size_t instrumentTableOffset = 80'446;
constexpr std::size_t olderStride = 207;
constexpr std::size_t newerStride = 215;
constexpr std::size_t olderMinimum = instrumentTableOffset + 128 * olderStride;
constexpr std::size_t newerMinimum = instrumentTableOffset + 128 * newerStride;
constexpr std::size_t samplePathOffsets[] = {79, 87};

fs::path defaultFixtures() {
#ifdef TAPEKEEP_FIXTURES_DIR
    return TAPEKEEP_FIXTURES_DIR;
#else
    return fs::path(__FILE__).parent_path() / "../tests/data/m8";
#endif
}

std::vector<std::string> loadDeviceFiles(const fs::path& folder) {
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const auto extension = entry.path().extension();
        if (extension != ".m8s" && extension != ".m8i") continue;
        files.push_back(readWholeFile(entry.path()));
    }
    return files;
}

class Mutator {
public:
    explicit Mutator(std::uint64_t seed) : random_(seed) {}

    std::size_t below(std::size_t bound) {
        return bound == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
    }
    char anyByte() { return static_cast<char>(below(256)); }
    char nonZeroByte() { return static_cast<char>(1 + below(255)); }

    // A version byte pair from around the layout boundary, or anything at all.
    void setVersion(std::string& bytes) {
        static const unsigned char lows[] = {0x00, 0x3F, 0x40, 0x41, 0x20, 0x04, 0x70, 0xFF};
        static const unsigned char highs[] = {0x00, 0x01, 0x02, 0x03, 0x04, 0xFF};
        if (bytes.size() > 11) {
            bytes[10] = below(4) == 0 ? anyByte() : static_cast<char>(lows[below(std::size(lows))]);
            bytes[11] = below(4) == 0 ? anyByte() : static_cast<char>(highs[below(std::size(highs))]);
        }
    }

    // A song from nothing: a good header, some occupied slots of either layout, at a size near one
    // of the limits or anywhere below the larger.
    std::string syntheticSong() {
        const std::size_t sizes[] = {olderMinimum,
                                     olderMinimum - 1,
                                     newerMinimum,
                                     newerMinimum - 1,
                                     below(newerMinimum + 2000),
                                     13,
                                     14,
                                     10,
                                     9};
        std::string bytes(newerMinimum, '\0');
        bytes.replace(0, 10, std::string("M8VERSION\0", 10));
        setVersion(bytes);
        const std::size_t stride = below(2) == 0 ? olderStride : newerStride;
        for (std::size_t slot = 0; slot < 128; ++slot) {
            const std::size_t offset = instrumentTableOffset + slot * stride;
            bytes[offset] = below(3) == 0 ? anyByte() : static_cast<char>(below(2) == 0 ? 0xFF : 2);
            fillText(bytes, offset + 1, 12);
            fillText(bytes, offset + samplePathOffsets[stride == newerStride], 128);
        }
        bytes.resize(sizes[below(std::size(sizes))]);
        return bytes;
    }

    // One to four damages of the kinds that a bad card, a cut copy or a future firmware could cause.
    void damage(std::string& bytes) {
        const std::size_t count = 1 + below(4);
        for (std::size_t i = 0; i < count; ++i) {
            switch (below(8)) {
                case 0:
                    bytes.resize(interestingLength(bytes.size()));
                    break;
                case 1:
                    flipBytes(bytes);
                    break;
                case 2:
                    setVersion(bytes);
                    break;
                case 3:
                    setTypeBytes(bytes);
                    break;
                case 4:
                    fillUnterminatedPath(bytes);
                    break;
                case 5:
                    makeSamplerInstrument(bytes);
                    break;
                case 6:
                    fillText(bytes, 143, 4);
                    break;  // the tempo's bits
                case 7:
                    bytes.append(below(3000), anyByte());
                    break;
            }
        }
    }

private:
    // Bytes of text: plain ASCII, valid UTF-8, bytes that are not UTF-8, or zeros, in any mix.
    void fillText(std::string& bytes, std::size_t offset, std::size_t width) {
        static const std::string_view pieces[] = {
            "/Samples/", "kick.wav",     "\xC3\xB6",         "\xE9", "\xFF",
            "\xC0\x80",  "\xED\xA0\x80", "\xF4\x90\x80\x80", "..\\", std::string_view("\0", 1)};
        std::string text;
        while (text.size() < width) text += pieces[below(std::size(pieces))];
        if (below(3) == 0) std::generate(text.begin(), text.end(), [&] { return anyByte(); });
        const std::size_t length = below(width + 1);
        for (std::size_t i = 0; i < length && offset + i < bytes.size(); ++i) bytes[offset + i] = text[i];
    }

    std::size_t interestingLength(std::size_t size) {
        const std::size_t lengths[] = {below(size + 1),
                                       below(200),
                                       9,
                                       10,
                                       12,
                                       13,
                                       14,
                                       15,
                                       14 + 79,
                                       14 + 87,
                                       olderMinimum - 1,
                                       olderMinimum,
                                       newerMinimum - 1,
                                       newerMinimum};
        return std::min(size, lengths[below(std::size(lengths))]);
    }

    void flipBytes(std::string& bytes) {
        const std::size_t count = 1 + below(64);
        for (std::size_t i = 0; i < count && !bytes.empty(); ++i) bytes[below(bytes.size())] ^= nonZeroByte();
    }

    void setTypeBytes(std::string& bytes) {
        const std::size_t stride = below(2) == 0 ? olderStride : newerStride;
        const std::size_t count = 1 + below(128);
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t offset = instrumentTableOffset + below(128) * stride;
            if (offset < bytes.size()) bytes[offset] = anyByte();
        }
    }

    void fillUnterminatedPath(std::string& bytes) {
        const std::size_t stride = below(2) == 0 ? olderStride : newerStride;
        const std::size_t offset =
            instrumentTableOffset + below(128) * stride + samplePathOffsets[stride == newerStride];
        for (std::size_t i = 0; i < 128 && offset + i < bytes.size(); ++i) bytes[offset + i] = nonZeroByte();
    }

    // Type byte 2 at offset 14, so that parseInstrument goes on to the path, which may run off the end.
    void makeSamplerInstrument(std::string& bytes) {
        if (bytes.size() <= 14) return;
        bytes[14] = 2;
        fillText(bytes, 14 + samplePathOffsets[below(2)], 128);
    }

    std::mt19937_64 random_;
};

// What every accepted song must satisfy; empty when it does, else what broke.
std::string brokenPromise(const M8SongMetadata& song, const std::vector<std::string>& samplePaths) {
    if (samplePaths != song.samplePaths) return "parseSamplePaths differs from parseSong";
    if (song.tempo && !(*song.tempo >= 20.0 && *song.tempo <= 300.0)) return "tempo out of range";
    if (!isValidUtf8(song.name) || song.name.size() > 12) return "bad song name";
    if (!std::is_sorted(song.samplePaths.begin(), song.samplePaths.end()) ||
        std::adjacent_find(song.samplePaths.begin(), song.samplePaths.end()) != song.samplePaths.end())
        return "sample paths not sorted and distinct";
    std::set<std::string> samplerPaths;
    int previous = -1;
    for (const auto& instrument : song.instruments) {
        if (instrument.index <= previous || instrument.index > 127) return "slots not ascending in 0...127";
        previous = instrument.index;
        if (instrument.id.size() != 36 || !isValidUtf8(instrument.name) || instrument.name.size() > 12)
            return "bad id or name";
        if (!instrument.samplePath) continue;
        if (instrument.type != InstrumentInfo::InstrumentType::sampler) return "path on a non-sampler";
        if (instrument.samplePath->empty() || !isValidUtf8(*instrument.samplePath)) return "bad sample path";
        samplerPaths.insert(*instrument.samplePath);
    }
    if (std::vector(samplerPaths.begin(), samplerPaths.end()) != song.samplePaths)
        return "samplePaths are not the samplers' paths";
    return {};
}

struct Counts {
    std::int64_t iterations = 0;
    std::int64_t songsAccepted = 0;
    std::int64_t instrumentPaths = 0;
    std::int64_t instrumentErrors = 0;
};

// Runs the three operations on one file; empty when all went as promised, else what broke.
std::string exercise(const fs::path& file, Counts& counts) {
    try {
        const auto song = M8SongParser::parseSong(file);
        const auto samplePaths = M8SongParser::parseSamplePaths(file);
        if (song) {
            ++counts.songsAccepted;
            if (auto broken = brokenPromise(*song, samplePaths); !broken.empty()) return broken;
        } else if (!samplePaths.empty()) {
            return "parseSamplePaths found paths in a file that is no song";
        }
        try {
            const auto path = M8SongParser::parseInstrument(file);
            if (path && (path->empty() || path->size() > 256 || !isValidUtf8(*path)))
                return "bad instrument path";
            counts.instrumentPaths += path ? 1 : 0;
        } catch (const M8InstrumentError&) {
            ++counts.instrumentErrors;
        }
    } catch (const std::exception& error) {
        return std::string("unexpected exception: ") + error.what();
    }
    return {};
}

// Memory-backed where possible: rewriting one file on ext4 forces a flush at every close, which
// would make the disk, not the parser, the limit.
fs::path scratchFolder() {
    std::error_code error;
    if (fs::is_directory("/dev/shm", error)) return "/dev/shm";
    return fs::temp_directory_path();
}

void writeBytes(const fs::path& file, const std::string& bytes) {
    std::ofstream output(file, std::ios::binary | std::ios::trunc);
    output.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60.0;
    const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : std::random_device{}();
    const fs::path fixtures = argc > 3 ? fs::path(argv[3]) : defaultFixtures();

    const auto deviceFiles = loadDeviceFiles(fixtures);
    if (deviceFiles.empty()) {
        std::fprintf(stderr, "song_parser_fuzz: no .m8s or .m8i files in %s\n", fixtures.c_str());
        return 2;
    }
    std::string folder = (scratchFolder() / "song-parser-fuzz-XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) return 2;
    const fs::path file = fs::path(folder) / "input";

    Mutator mutator(seed);
    Counts counts;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    std::string failure;
    std::string bytes;
    while (failure.empty() && std::chrono::steady_clock::now() < deadline) {
        const bool synthetic = mutator.below(3) == 0;
        bytes = synthetic ? mutator.syntheticSong() : deviceFiles[mutator.below(deviceFiles.size())];
        if (!synthetic || mutator.below(2) == 0) mutator.damage(bytes);
        writeBytes(file, bytes);
        failure = exercise(file, counts);
        ++counts.iterations;
    }

    std::printf(
        "song_parser_fuzz: seed %llu, %.0f s, %s iterations: %s songs accepted, %s instrument paths, "
        "%s instrument errors\n",
        static_cast<unsigned long long>(seed), seconds,
        formatWithThousandsSeparator(counts.iterations).c_str(),
        formatWithThousandsSeparator(counts.songsAccepted).c_str(),
        formatWithThousandsSeparator(counts.instrumentPaths).c_str(),
        formatWithThousandsSeparator(counts.instrumentErrors).c_str());
    if (!failure.empty()) {
        const fs::path kept = fs::current_path() / "song_parser_fuzz-failure.bin";
        writeBytes(kept, bytes);
        std::printf("FAILED: %s (input kept in %s)\n", failure.c_str(), kept.c_str());
    }
    fs::remove_all(folder);
    return failure.empty() ? 0 : 1;
}
