#include "content/M8SongParser.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <string_view>
#include <utility>

#include "content/M8InstrumentError.h"
#include "core/FileReading.h"
#include "core/PosixError.h"
#include "core/Utf8.h"
#include "core/Uuid.h"

namespace tapekeep::M8SongParser {
namespace {

namespace fs = std::filesystem;
using InstrumentType = InstrumentInfo::InstrumentType;

// Songs are about 110 KB and instruments a few hundred bytes; anything this large is neither, and is
// refused from its size alone so that a stray huge file never ends up in memory. This limit, and
// reading only regular files (a FIFO or device named like a song would block the reader or never
// end), are deliberate: a file that breaks either rule is treated as unreadable, never parsed.
constexpr std::size_t largestReadableFile = 16 * 1024 * 1024;

constexpr std::string_view magic = "M8VERSION";  // offsets 0 to 8, then a zero byte at 9
constexpr std::size_t magicZeroOffset = 9;
constexpr std::size_t versionLowOffset = 10;
constexpr std::size_t versionHighOffset = 11;
constexpr std::size_t headerSize = 14;  // also where an instrument file's one record begins
constexpr std::size_t shortestSongCandidate = 14;
constexpr std::size_t shortestInstrumentWithType = 15;

constexpr std::size_t tempoOffset = 143;  // little-endian 32-bit float
constexpr std::size_t songNameOffset = 148;
constexpr double slowestTempo = 20.0;
constexpr double fastestTempo = 300.0;

constexpr std::size_t instrumentTableOffset = 80446;
constexpr std::size_t slotCount = 128;
constexpr std::size_t nameOffset = 1;  // within a record, after the type byte
constexpr std::size_t nameWidth = 12;
constexpr std::size_t samplePathWidth = 128;
constexpr unsigned char samplerTypeByte = 2;
constexpr unsigned char emptySlotTypeByte = 0xFF;

// Where the version puts an instrument record's fields.
struct Layout {
    std::size_t stride;
    std::size_t samplePathOffset;
};
constexpr Layout olderLayout{207, 79};
constexpr Layout newerLayout{215, 87};

// ---- bounds-checked access: every read of the file goes through these two --------------------

// The part of [offset, offset + width) that lies inside the bytes: shorter, or empty, near the end.
std::string_view field(std::string_view bytes, std::size_t offset, std::size_t width) {
    if (offset >= bytes.size()) return {};
    return bytes.substr(offset, width);
}

// The byte at offset, absent past the end.
std::optional<unsigned char> byteAt(std::string_view bytes, std::size_t offset) {
    if (offset >= bytes.size()) return std::nullopt;
    return static_cast<unsigned char>(bytes[offset]);
}

// ---- reading the file ---------------------------------------------------------------------------

// The whole file in one read of its size; absent when it cannot be read, is not a regular file, or
// is larger than any M8 file can be. A vector rather than a string: its buffer ends exactly where the
// file does, so a sanitizer sees a read one byte too far.
std::optional<std::vector<char>> readWholeFile(const fs::path& file) {
    try {
        return readWholeFileBytes(file, {.regularFileOnly = true, .largestSize = largestReadableFile});
    } catch (const PosixError&) {
        return std::nullopt;
    }
}

// ---- header and layout --------------------------------------------------------------------------

// The magic text and its zero byte. Comparing the bytes is the same as decoding them as UTF-8 and
// comparing the text: bytes that are not UTF-8 cannot equal the ASCII literal.
bool hasM8Header(std::string_view bytes) {
    return field(bytes, 0, magic.size()) == magic && byteAt(bytes, magicZeroOffset) == 0;
}

// High byte 1 with a low byte below 0x40 marks the older, shorter records; every other version,
// including ones no device has written yet, gets the newer layout. Nothing else of it is examined.
Layout layoutFor(std::string_view bytes) {
    const auto low = byteAt(bytes, versionLowOffset);
    const auto high = byteAt(bytes, versionHighOffset);
    if (!low || !high) return newerLayout;
    return *high == 1 && *low < 0x40 ? olderLayout : newerLayout;
}

// The layout of a whole song, or absent when the bytes are no song or are cut off before the end of
// the instrument table: a truncated song yields nothing, not a partial result.
std::optional<Layout> songLayout(std::string_view bytes) {
    if (bytes.size() < shortestSongCandidate || !hasM8Header(bytes)) return std::nullopt;
    const Layout layout = layoutFor(bytes);
    if (bytes.size() < instrumentTableOffset + slotCount * layout.stride) return std::nullopt;
    return layout;
}

// ---- text fields --------------------------------------------------------------------------------

std::string_view upToFirstZero(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

std::string latin1ToUtf8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char character : bytes) {
        const auto value = static_cast<unsigned char>(character);
        if (value < 0x80) {
            text += character;
        } else {
            text += static_cast<char>(0xC0 | (value >> 6));
            text += static_cast<char>(0x80 | (value & 0x3F));
        }
    }
    return text;
}

// Devices pad a name with 0xFF after its end, and 0xFF is never part of UTF-8 text.
std::string_view upToNameEnd(std::string_view field) {
    return field.substr(0, field.find_first_of(std::string_view("\0\xFF", 2)));
}

// Names are UTF-8 or nothing: one bad byte before the name's end loses the whole name. Not trimmed.
std::string decodeName(std::string_view field) {
    const auto text = upToNameEnd(field);
    return isValidUtf8(text) ? std::string(text) : std::string();
}

// Paths fall back to Latin 1, which decodes any bytes. Kept exactly as decoded: making sense of a
// path is the resolver's job.
std::optional<std::string> decodeSamplePath(std::string_view field) {
    const auto bytes = upToFirstZero(field);
    if (bytes.empty()) return std::nullopt;
    return isValidUtf8(bytes) ? std::string(bytes) : latin1ToUtf8(bytes);
}

std::optional<double> readTempo(std::string_view bytes) {
    const auto raw = field(bytes, tempoOffset, sizeof(float));
    if (raw.size() < sizeof(float)) return std::nullopt;
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < raw.size(); ++i)
        bits |= std::uint32_t{static_cast<unsigned char>(raw[i])} << (8 * i);
    const double tempo = std::bit_cast<float>(bits);
    // A NaN fails both comparisons, an infinity one of them.
    if (tempo >= slowestTempo && tempo <= fastestTempo) return tempo;
    return std::nullopt;
}

// ---- instrument records -------------------------------------------------------------------------

// One instrument record, from its type byte on, cut short where the file ends.
struct InstrumentRecord {
    std::string_view bytes;
    Layout layout;

    [[nodiscard]] std::optional<unsigned char> typeByte() const { return byteAt(bytes, 0); }
    [[nodiscard]] std::string name() const { return decodeName(field(bytes, nameOffset, nameWidth)); }
    [[nodiscard]] std::optional<std::string> samplePath() const {
        return decodeSamplePath(field(bytes, layout.samplePathOffset, samplePathWidth));
    }
};

InstrumentRecord songSlot(std::string_view song, Layout layout, std::size_t slot) {
    return {field(song, instrumentTableOffset + slot * layout.stride, layout.stride), layout};
}

// The enumeration is declared in the device's numbering, so a known type byte is its position.
InstrumentType typeFor(unsigned char typeByte) {
    constexpr auto lastKnown = static_cast<unsigned char>(InstrumentType::external);
    return typeByte <= lastKnown ? static_cast<InstrumentType>(typeByte) : InstrumentType::unknown;
}

// Distinct by plain string equality (paths differing in case both stay), sorted bytewise.
std::vector<std::string> distinctSorted(std::vector<std::string> paths) {
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    return paths;
}

}  // namespace

std::optional<M8SongMetadata> parseSong(const fs::path& file) {
    const auto contents = readWholeFile(file);
    if (!contents) return std::nullopt;
    const std::string_view bytes(contents->data(), contents->size());
    const auto layout = songLayout(bytes);
    if (!layout) return std::nullopt;

    M8SongMetadata song;
    song.tempo = readTempo(bytes);
    song.name = decodeName(field(bytes, songNameOffset, nameWidth));
    for (std::size_t slot = 0; slot < slotCount; ++slot) {
        const auto record = songSlot(bytes, *layout, slot);
        const auto typeByte = record.typeByte();
        if (!typeByte || *typeByte == emptySlotTypeByte) continue;
        InstrumentInfo instrument{makeUuid(), static_cast<int>(slot), typeFor(*typeByte), record.name(), {}};
        if (*typeByte == samplerTypeByte) instrument.samplePath = record.samplePath();
        if (instrument.samplePath) song.samplePaths.push_back(*instrument.samplePath);
        song.instruments.push_back(std::move(instrument));
    }
    song.samplePaths = distinctSorted(std::move(song.samplePaths));
    return song;
}

std::optional<std::string> parseInstrument(const fs::path& file) {
    return parseInstrumentInfo(file).samplePath;
}

InstrumentInfo parseInstrumentInfo(const fs::path& file) {
    const auto contents = readWholeFile(file);
    if (!contents) throw M8InstrumentError::unreadable(file);
    const std::string_view bytes(contents->data(), contents->size());
    // Fewer than 10 bytes cannot hold the magic and its zero byte, so they fail here too.
    if (!hasM8Header(bytes)) throw M8InstrumentError::notAnInstrument(file);
    if (bytes.size() < shortestInstrumentWithType) throw M8InstrumentError::unreadable(file);

    const InstrumentRecord record{field(bytes, headerSize, bytes.size()), layoutFor(bytes)};
    InstrumentInfo instrument{makeUuid(), 0, typeFor(*record.typeByte()), record.name(), {}};
    if (record.typeByte() != samplerTypeByte) return instrument;
    // The path may run to the end of a short file, but it must at least begin inside it.
    if (headerSize + record.layout.samplePathOffset >= bytes.size())
        throw M8InstrumentError::unreadable(file);
    instrument.samplePath = record.samplePath();
    return instrument;
}

std::vector<std::string> parseSamplePaths(const fs::path& file) {
    const auto contents = readWholeFile(file);
    if (!contents) return {};
    const std::string_view bytes(contents->data(), contents->size());
    const auto layout = songLayout(bytes);
    if (!layout) return {};

    std::vector<std::string> paths;
    for (std::size_t slot = 0; slot < slotCount; ++slot) {
        const auto record = songSlot(bytes, *layout, slot);
        if (record.typeByte() != samplerTypeByte) continue;
        if (auto path = record.samplePath()) paths.push_back(std::move(*path));
    }
    return distinctSorted(std::move(paths));
}

}  // namespace tapekeep::M8SongParser
