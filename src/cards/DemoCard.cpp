#include "cards/DemoCard.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>
#include <string_view>

#include "core/AtomicFile.h"
#include "core/FileLock.h"
#include "core/PosixError.h"
#include "core/Uuid.h"
#include "platform/NoReplaceRename.h"
#include "platform/UserFolders.h"

namespace tapekeep::DemoCard {
namespace {

// ---- Samples: short generated hits and tones, 16-bit PCM, 44.1 kHz, mono ----

constexpr std::uint32_t sampleRate = 44100;

// One sound: a sine gliding from startHz to endHz, mixed with noise, under an exponential decay.
struct Sound {
    const char* file;  // below Samples/
    double seconds;
    double startHz;
    double endHz;
    double noise;  // 0 a pure tone, 1 pure noise
    double decaySeconds;
    double level = 0.8;
};

// About twenty sounds of a small drum kit, basses, synths and effects; a few are used by no song.
const Sound sounds[] = {
    {"Drums/kick.wav", 0.45, 150, 45, 0.02, 0.18},
    {"Drums/snare.wav", 0.30, 220, 180, 0.65, 0.09},
    {"Drums/clap.wav", 0.35, 1200, 1000, 0.90, 0.08},
    {"Drums/hat closed.wav", 0.08, 8000, 8000, 0.95, 0.02},
    {"Drums/hat open.wav", 0.40, 8000, 8000, 0.95, 0.12},
    {"Drums/rim.wav", 0.06, 1700, 1600, 0.30, 0.012},
    {"Drums/tom low.wav", 0.50, 110, 80, 0.05, 0.20},
    {"Drums/tom high.wav", 0.40, 190, 140, 0.05, 0.15},
    {"Drums/crash.wav", 1.10, 5000, 5000, 1.00, 0.45},
    {"Drums/Perc/shaker.wav", 0.15, 6000, 6000, 1.00, 0.04},
    {"Drums/Perc/cowbell.wav", 0.30, 800, 800, 0.00, 0.10},
    {"Drums/Perc/conga.wav", 0.30, 330, 300, 0.03, 0.08},
    {"Bass/sub c1.wav", 1.00, 32.70, 32.70, 0.00, 0.80},
    {"Bass/reese c2.wav", 1.00, 65.41, 65.41, 0.10, 0.90},
    {"Bass/pluck bass.wav", 0.50, 98, 97, 0.05, 0.15},
    {"Synth/pad c3.wav", 1.10, 130.81, 130.81, 0.03, 2.50},
    {"Synth/bell c5.wav", 0.90, 523.25, 523.25, 0.00, 0.35},
    {"Synth/stab.wav", 0.30, 261.63, 261.63, 0.05, 0.10},
    {"FX/riser.wav", 1.00, 200, 3000, 0.35, 3.00},
    {"FX/zap.wav", 0.20, 3000, 80, 0.00, 0.08},
    {"FX/vinyl crackle.wav", 1.00, 1000, 1000, 1.00, 5.00, 0.2},
};

void appendLittleEndian(std::string& bytes, std::uint32_t value, int width) {
    for (int index = 0; index < width; ++index)
        bytes.push_back(static_cast<char>((value >> (8 * index)) & 0xFF));
}

// Deterministic noise in [-1, 1], so that every demo card holds the same bytes.
class Noise {
public:
    double next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return static_cast<double>(state_) / 2147483647.5 - 1.0;
    }

private:
    std::uint32_t state_ = 0x2545F491;
};

std::string pcmSamples(const Sound& sound) {
    const auto count = static_cast<std::uint32_t>(std::lround(sound.seconds * sampleRate));
    const double glide = std::log(sound.endHz / sound.startHz);
    Noise noise;
    double phase = 0;
    std::string data;
    data.reserve(count * 2);
    for (std::uint32_t index = 0; index < count; ++index) {
        const double time = static_cast<double>(index) / sampleRate;
        const double fadeInOut = std::min({1.0, time / 0.002, (sound.seconds - time) / 0.005});
        const double envelope = sound.level * std::exp(-time / sound.decaySeconds) * std::max(0.0, fadeInOut);
        const double value = (1 - sound.noise) * std::sin(phase) + sound.noise * noise.next();
        phase += 2 * std::numbers::pi * sound.startHz * std::exp(glide * time / sound.seconds) / sampleRate;
        const auto sample =
            static_cast<std::int16_t>(std::lround(std::clamp(envelope * value, -1.0, 1.0) * 32767));
        appendLittleEndian(data, static_cast<std::uint16_t>(sample), 2);
    }
    return data;
}

std::string wavFile(const Sound& sound) {
    const std::string data = pcmSamples(sound);
    const auto dataSize = static_cast<std::uint32_t>(data.size());
    std::string bytes = "RIFF";
    appendLittleEndian(bytes, 36 + dataSize, 4);
    bytes += "WAVEfmt ";
    appendLittleEndian(bytes, 16, 4);  // format chunk size
    appendLittleEndian(bytes, 1, 2);   // PCM
    appendLittleEndian(bytes, 1, 2);   // mono
    appendLittleEndian(bytes, sampleRate, 4);
    appendLittleEndian(bytes, sampleRate * 2, 4);  // bytes per second
    appendLittleEndian(bytes, 2, 2);               // bytes per frame
    appendLittleEndian(bytes, 16, 2);              // bits per sample
    bytes += "data";
    appendLittleEndian(bytes, dataSize, 4);
    return bytes + data;
}

// ---- Songs and instruments, in the device's file layout of firmware 4.0 ----

constexpr std::uint8_t versionLow = 0x01;  // 4.0.1: the newer instrument layout
constexpr std::uint8_t versionHigh = 0x04;
constexpr std::size_t songFileSize = 110566;
constexpr std::size_t instrumentFileSize = 357;
constexpr std::size_t songFolderOffset = 14;
constexpr std::size_t songFolderWidth = 128;
constexpr std::size_t tempoOffset = 143;
constexpr std::size_t songNameOffset = 148;
constexpr std::size_t nameWidth = 12;
constexpr std::size_t instrumentTableOffset = 80446;
constexpr std::size_t instrumentStride = 215;
constexpr std::size_t samplePathOffset = 87;
constexpr std::size_t samplePathWidth = 128;
constexpr std::size_t instrumentFileRecordOffset = 14;

enum class InstrumentType : std::uint8_t {
    wavsynth = 0,
    macrosyn = 1,
    sampler = 2,
    midiOut = 3,
    fmsynth = 4,
    hypersynth = 5,
    external = 6,
};

struct Instrument {
    InstrumentType type;
    const char* name;
    const char* samplePath = "";  // card path, for a sampler only
};

struct Slot {
    int index;
    Instrument instrument;
};

struct Song {
    const char* file;  // below the card root
    float tempo;
    std::vector<Slot> slots;
};

Instrument sampler(const char* name, const char* samplePath) {
    return {InstrumentType::sampler, name, samplePath};
}

const std::vector<Song>& songs() {
    static const std::vector<Song> list = {
        {"System/STARTUP.m8s", 120.0F, {}},
        {"Songs/FIRSTSTEPS.m8s",
         120.0F,
         {{0, sampler("KICK", "/Samples/Drums/kick.wav")},
          {1, sampler("SNARE", "/Samples/Drums/snare.wav")},
          {2, sampler("HAT", "/Samples/Drums/hat closed.wav")},
          {3, sampler("SUB", "/Samples/Bass/sub c1.wav")},
          {4, {InstrumentType::wavsynth, "LEAD"}},
          {5, {InstrumentType::fmsynth, "BELLS"}}}},
        {"Songs/NIGHTDRIVE.m8s",
         98.5F,
         {{0, sampler("KICK", "/Samples/Drums/kick.wav")},
          {1, sampler("CLAP", "/Samples/Drums/clap.wav")},
          {2, sampler("OPENHAT", "/Samples/Drums/hat open.wav")},
          {3, sampler("REESE", "/Samples/Bass/reese c2.wav")},
          {4, sampler("PAD", "/Samples/Synth/pad c3.wav")},
          {5, sampler("BELL", "/Samples/Synth/bell c5.wav")},
          {8, {InstrumentType::macrosyn, "ARP"}},
          {12, sampler("RISER", "/Samples/FX/riser.wav")}}},
        {"Songs/Sketches/BROKENBEAT.m8s",
         172.0F,
         {{0, sampler("KICK", "/Samples/Drums/kick.wav")},
          {1, sampler("KICKVERB", "/Samples/Drums/kick.wav")},
          {2, sampler("SNARE", "/Samples/Drums/snare.wav")},
          {3, sampler("RIM", "/Samples/Drums/rim.wav")},
          {4, sampler("TOMLOW", "/Samples/Drums/tom low.wav")},
          {5, sampler("TOMHIGH", "/Samples/Drums/tom high.wav")},
          {6, sampler("SHAKER", "/Samples/Drums/Perc/shaker.wav")},
          {7, sampler("COWBELL", "/Samples/Drums/Perc/cowbell.wav")},
          {8, sampler("CONGA", "/Samples/Drums/Perc/conga.wav")},
          {9, sampler("PLUCK", "/Samples/Bass/pluck bass.wav")},
          {16, {InstrumentType::hypersynth, "CHORDS"}}}},
        {"Songs/Sketches/DRONE.m8s",
         60.0F,
         {{0, {InstrumentType::wavsynth, "DRONE"}},
          {1, {InstrumentType::fmsynth, "GLASS"}},
          {2, {InstrumentType::midiOut, "MIDI"}},
          {3, {InstrumentType::external, "EXTIN"}},
          {4, sampler("CRACKLE", "/Samples/FX/vinyl crackle.wav")}}},
    };
    return list;
}

struct InstrumentFile {
    const char* file;  // below the card root
    Instrument instrument;
};

const InstrumentFile instrumentFiles[] = {
    {"Instruments/KICK808.m8i", sampler("KICK808", "/Samples/Drums/kick.wav")},
    {"Instruments/SUBBASS.m8i", sampler("SUBBASS", "/Samples/Bass/sub c1.wav")},
    {"Instruments/WAVLEAD.m8i", {InstrumentType::wavsynth, "WAVLEAD"}},
    {"Instruments/Keys/SOFTPAD.m8i", sampler("SOFTPAD", "/Samples/Synth/pad c3.wav")},
    {"Instruments/Keys/GLASSBELL.m8i", {InstrumentType::fmsynth, "GLASSBELL"}},
};

// A zero-padded text field; texts longer than the field are cut, as the device does.
void putText(std::string& bytes, std::size_t offset, std::string_view text, std::size_t width) {
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), width, '\0');
    std::copy_n(text.begin(), std::min(text.size(), width),
                bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

void putHeader(std::string& bytes) {
    putText(bytes, 0, "M8VERSION", 10);  // the magic and its zero byte
    bytes[10] = static_cast<char>(versionLow);
    bytes[11] = static_cast<char>(versionHigh);
    bytes[12] = bytes[13] = '\0';
}

void putInstrument(std::string& bytes, std::size_t offset, const Instrument& instrument) {
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), instrumentStride, '\0');
    bytes[offset] = static_cast<char>(instrument.type);
    putText(bytes, offset + 1, instrument.name, nameWidth);
    if (instrument.type == InstrumentType::sampler)
        putText(bytes, offset + samplePathOffset, instrument.samplePath, samplePathWidth);
}

// A little-endian 32-bit float, as the device stores beats per minute.
void putTempo(std::string& bytes, float tempo) {
    const auto bits = std::bit_cast<std::uint32_t>(tempo);
    for (std::size_t index = 0; index < 4; ++index)
        bytes[tempoOffset + index] = static_cast<char>((bits >> (8 * index)) & 0xFF);
}

// "Songs/Sketches/X.m8s" is saved by the device with the folder text "/Songs/Sketches/".
std::string songFolderText(const std::filesystem::path& file) {
    return "/" + file.parent_path().generic_string() + "/";
}

std::string songFile(const Song& song) {
    std::string bytes(songFileSize, '\xFF');  // unused phrases, chains and slots read as empty
    putHeader(bytes);
    putText(bytes, songFolderOffset, songFolderText(song.file), songFolderWidth);
    bytes[tempoOffset - 1] = '\0';  // transpose
    putTempo(bytes, song.tempo);
    bytes[tempoOffset + 4] = '\0';  // quantise
    putText(bytes, songNameOffset, std::filesystem::path(song.file).stem().string(), nameWidth);
    for (const auto& slot : song.slots)
        putInstrument(bytes, instrumentTableOffset + static_cast<std::size_t>(slot.index) * instrumentStride,
                      slot.instrument);
    return bytes;
}

std::string instrumentFile(const Instrument& instrument) {
    std::string bytes(instrumentFileSize, '\0');
    putHeader(bytes);
    putInstrument(bytes, instrumentFileRecordOffset, instrument);
    return bytes;
}

// ---- Creation ----

constexpr std::string_view buildingPrefix = ".M8DEMO-building-";

void createFolders(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw PosixError::fromErrno(error.value(), folder.string());
}

void writeCardFile(const std::filesystem::path& file, std::string_view bytes) {
    createFolders(file.parent_path());
    writeFileAtomically(file, bytes);  // synced, so the renamed card never holds empty files
}

void writeContent(const std::filesystem::path& card) {
    for (const auto& sound : sounds) writeCardFile(card / "Samples" / sound.file, wavFile(sound));
    for (const auto& entry : instrumentFiles)
        writeCardFile(card / entry.file, instrumentFile(entry.instrument));
    for (const auto& song : songs()) writeCardFile(card / song.file, songFile(song));
}

// Under the creation lock, any build folder is a leftover of a creation that was cut short.
void removeUnfinishedBuilds(const std::filesystem::path& demoRoot) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(demoRoot, error)) {
        if (!entry.path().filename().string().starts_with(buildingPrefix)) continue;
        std::error_code ignored;
        std::filesystem::remove_all(entry.path(), ignored);
    }
}

bool isPresent(const std::filesystem::path& path) {
    std::error_code ignored;
    return std::filesystem::symlink_status(path, ignored).type() != std::filesystem::file_type::not_found;
}

}  // namespace

std::filesystem::path demoRoot() {
    return UserFolders::dataHome() / "tapekeep" / "demo";
}

std::filesystem::path baseFolder(const std::filesystem::path& demoRoot) {
    return demoRoot / "backups";
}

std::filesystem::path cardFolder(const std::filesystem::path& demoRoot) {
    return demoRoot / volumeName;
}

void ensureCreated(const std::filesystem::path& demoRoot) {
    const auto card = cardFolder(demoRoot);
    if (isPresent(card)) return;
    createFolders(demoRoot);
    FileLock lock(demoRoot / ".M8DEMO.lock");
    if (isPresent(card)) return;  // another process finished it while we waited
    removeUnfinishedBuilds(demoRoot);
    const auto building = demoRoot / (std::string(buildingPrefix) + makeUuid());
    try {
        writeContent(building);
        renameNoReplace(building, card);
    } catch (const PosixError& error) {
        std::error_code ignored;
        std::filesystem::remove_all(building, ignored);
        if (error.code() != EEXIST) throw;  // a card folder made meanwhile is kept as it is
    }
}

std::function<std::vector<std::filesystem::path>()> volumesProvider(const std::filesystem::path& demoRoot) {
    return [card = cardFolder(demoRoot)] { return std::vector<std::filesystem::path>{card}; };
}

std::function<DiskInfo(const std::filesystem::path&, std::stop_token)> diskInfoProvider() {
    return [](const std::filesystem::path& volume, std::stop_token) {
        auto name = volume.has_filename() ? volume.filename() : volume.parent_path().filename();
        if (name != volumeName) return DiskInfo{};
        return DiskInfo{uuid, false};
    };
}

}  // namespace tapekeep::DemoCard
