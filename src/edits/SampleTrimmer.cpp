#include "edits/SampleTrimmer.h"

#include <algorithm>
#include <new>
#include <vector>

#include "backup/AtomicFileExport.h"
#include "core/Cancelled.h"
#include "core/TestPause.h"
#include "edits/SampleTrimmerError.h"

namespace tapekeep::SampleTrimmer {
namespace fs = std::filesystem;

namespace {

constexpr std::int64_t blockFrames = 0x8000;

// The frames kept: from `first` up to, not including, `end`.
struct FrameRange {
    std::int64_t first = 0;
    std::int64_t end = 0;
};

AudioFile openSource(const fs::path& source, const std::stop_token& token) {
    throwIfCancelled(token);
    auto file = AudioFile::openForReading(source);
    if (!file) throw SampleTrimmerError::unreadable(source);
    return std::move(*file);
}

FrameRange framesToKeep(const AudioFile& file, double low, double high) {
    const double rate = file.format().sampleRate;
    const double total = rate > 0 ? double(file.length()) / rate : 0;
    const double from = std::max(low, 0.0);
    const double to = std::min(high, total);
    if (!(rate > 0) || !(to > from)) throw SampleTrimmerError::rangeInvalid(low, high, total);
    // A range to the end keeps the last frame, whatever the rounding of total × rate.
    const FrameRange range{std::int64_t(from * rate), to == total ? file.length() : std::int64_t(to * rate)};
    if (range.end <= range.first) throw SampleTrimmerError::rangeInvalid(low, high, total);
    return range;
}

template <typename Sample>
std::vector<Sample> allocateBlock(int channels) {
    try {
        return std::vector<Sample>(std::size_t(blockFrames) * std::size_t(std::max(channels, 1)));
    } catch (const std::bad_alloc&) {
        throw SampleTrimmerError::bufferAlloc();
    }
}

// Copies the range block by block; libsndfile converts each block from the source's format to the
// buffer's and from the buffer's to the output's. Integers are carried at full 32-bit scale, so
// integer PCM of any width comes through sample for sample.
template <typename Sample>
void copyFrames(AudioFile& from, AudioFile& to, FrameRange range, const fs::path& destination,
                const std::stop_token& token) {
    const std::int64_t wanted = range.end - range.first;
    std::vector<Sample> block = allocateBlock<Sample>(from.format().channelCount);
    if (!from.seek(range.first)) throw SampleTrimmerError::incompleteRead(wanted, 0);
    for (std::int64_t done = 0; done < wanted;) {
        throwIfCancelled(token);
        const std::int64_t count = from.read(std::span<Sample>(block), std::min(blockFrames, wanted - done));
        if (count <= 0) throw SampleTrimmerError::incompleteRead(wanted, done);
        if (!to.write(std::span<const Sample>(block), count))
            throw SampleTrimmerError::unwritable(destination);
        if (done == 0) TestPause::at("trim-block", token);
        done += count;
    }
}

void writeTrim(AudioFile& source, FrameRange range, const fs::path& temporary, const fs::path& destination,
               const std::stop_token& token) {
    const AudioFormat format = outputFormat(source.format());
    auto output = AudioFile::createWav(temporary, format);
    if (!output) throw SampleTrimmerError::unwritable(destination);
    if (format.isFloat && format.bitsPerChannel == 64)
        copyFrames<double>(source, *output, range, destination, token);
    else if (format.isFloat)
        copyFrames<float>(source, *output, range, destination, token);
    else
        copyFrames<std::int32_t>(source, *output, range, destination, token);
    if (!output->close()) throw SampleTrimmerError::unwritable(destination);
}

}  // namespace

std::int64_t trim(const fs::path& source, const fs::path& destination, double low, double high,
                  const std::stop_token& token) {
    AudioFile input = openSource(source, token);
    const FrameRange range = framesToKeep(input, low, high);
    AtomicFileExport::exportFile(
        source, destination,
        [&](const fs::path& temporary) { writeTrim(input, range, temporary, destination, token); }, token);
    return range.end - range.first;
}

AudioFormat outputFormat(const AudioFormat& source) {
    const int bits = source.bitsPerChannel;
    const bool keepsFloat = source.isLinearPCM && source.isFloat && (bits == 32 || bits == 64);
    const bool keepsInteger =
        source.isLinearPCM && !source.isFloat && (bits == 8 || bits == 16 || bits == 24 || bits == 32);
    AudioFormat output = source;
    output.isLinearPCM = true;
    output.isFloat = keepsFloat;
    output.bitsPerChannel = keepsFloat || keepsInteger ? bits : 16;
    return output;
}

}  // namespace tapekeep::SampleTrimmer
