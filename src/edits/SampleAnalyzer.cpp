#include "edits/SampleAnalyzer.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <limits>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "core/Cancelled.h"
#include "edits/SampleAnalyzerError.h"
#include "platform/AudioFile.h"

namespace tapekeep::SampleAnalyzer {
namespace fs = std::filesystem;

namespace {

constexpr std::int64_t blockFrames = 0x8000;
// The loudest bin is divided by at least this much, so that silence reads 0 rather than dividing
// by zero.
constexpr float magnitudeFloor = 0.0001f;

AudioFile openForAnalysis(const fs::path& url, const std::stop_token& token) {
    throwIfCancelled(token);
    auto file = AudioFile::openForReading(url);
    if (!file) throw SampleAnalyzerError::unreadable(url);
    return std::move(*file);
}

double durationOf(std::int64_t frames, double sampleRate) {
    return sampleRate > 0 ? double(frames) / sampleRate : 0;
}

std::vector<float> allocateBlock(int channels) {
    try {
        return std::vector<float>(std::size_t(blockFrames) * std::size_t(std::max(channels, 1)));
    } catch (const std::bad_alloc&) {
        throw SampleAnalyzerError::bufferAlloc();
    }
}

// Gathers frames, in order, into bins: frame f lies in bin ⌊f × bins ÷ total⌋, so bin b begins at
// frame ⌈b × total ÷ bins⌉ and each bin is one contiguous run of samples.
class BinAccumulator {
public:
    BinAccumulator(int bins, std::int64_t totalFrames)
        : bins_(bins),
          totalFrames_(totalFrames),
          ranges_(std::size_t(bins),
                  {std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest()}) {
        binEnd_ = firstFrameOf(1);
    }

    void add(const float* samples, std::int64_t frames, int channels) {
        while (frames > 0) {
            while (position_ >= binEnd_ && bin_ + 1 < bins_) binEnd_ = firstFrameOf(++bin_ + 1);
            const bool lastBin = bin_ + 1 == bins_;
            const std::int64_t take = lastBin ? frames : std::min(frames, binEnd_ - position_);
            widen(ranges_[std::size_t(bin_)], samples, std::size_t(take * channels));
            samples += take * channels;
            frames -= take;
            position_ += take;
        }
    }

    SampleWaveform finish(double durationSeconds) && {
        SampleWaveform waveform{
            .peaks = {}, .ranges = std::move(ranges_), .durationSeconds = durationSeconds};
        float loudest = magnitudeFloor;
        for (auto& range : waveform.ranges) {
            if (range.low > range.high) range = {};  // no frame fell in this bin
            loudest = std::max(loudest, magnitude(range));
        }
        for (const auto& range : waveform.ranges)
            waveform.peaks.push_back(std::min(magnitude(range) / loudest, 1.0f));
        return waveform;
    }

private:
    [[nodiscard]] std::int64_t firstFrameOf(std::int64_t bin) const {
        return std::int64_t((__int128(bin) * totalFrames_ + bins_ - 1) / bins_);
    }

    static void widen(SampleWaveform::Range& range, const float* samples, std::size_t count) {
        float low = range.low, high = range.high;
        for (std::size_t i = 0; i < count; ++i) {
            low = std::min(low, samples[i]);
            high = std::max(high, samples[i]);
        }
        range = {low, high};
    }

    static float magnitude(const SampleWaveform::Range& range) {
        return std::max({0.0f, -range.low, range.high});
    }

    std::int64_t bins_;
    std::int64_t totalFrames_;
    std::vector<SampleWaveform::Range> ranges_;
    std::int64_t bin_ = 0;
    std::int64_t binEnd_ = 0;  // the first frame after the current bin
    std::int64_t position_ = 0;
};

void readAttributes(const fs::path& url, SampleMetadata& metadata) {
    std::error_code error;
    const auto size = fs::file_size(url, error);
    if (!error) metadata.fileSize = size;
    const auto modified = fs::last_write_time(url, error);
    if (!error)
        metadata.modifiedDate =
            std::chrono::time_point_cast<Clock::duration>(std::chrono::file_clock::to_sys(modified));
}

}  // namespace

SampleMetadata metadata(const fs::path& url, const std::stop_token& token) {
    const AudioFile file = openForAnalysis(url, token);
    const AudioFormat& format = file.format();
    SampleMetadata metadata{.url = url,
                            .durationSeconds = durationOf(file.length(), format.sampleRate),
                            .sampleRate = format.sampleRate,
                            .channelCount = format.channelCount,
                            .bitDepth = std::nullopt,
                            .fileSize = 0,
                            .formatName = formatName(url),
                            .modifiedDate = std::nullopt,
                            .frameCount = file.length()};
    if (format.bitsPerChannel != 0) metadata.bitDepth = format.bitsPerChannel;
    readAttributes(url, metadata);
    return metadata;
}

SampleWaveform peaks(const fs::path& url, int bins, const std::stop_token& token) {
    AudioFile file = openForAnalysis(url, token);
    const std::int64_t length = file.length();
    const double duration = durationOf(length, file.format().sampleRate);
    if (length == 0 || bins <= 0)
        return {.peaks = {}, .ranges = {}, .durationSeconds = length == 0 ? 0 : duration};
    const int channels = file.format().channelCount;
    std::vector<float> block = allocateBlock(channels);
    BinAccumulator accumulator(bins, length);
    file.seek(0);
    for (std::int64_t position = 0; position < length;) {
        throwIfCancelled(token);
        const std::int64_t count = file.read(block, std::min(blockFrames, length - position));
        if (count <= 0) throw SampleAnalyzerError::incompleteRead(length, position);
        accumulator.add(block.data(), count, channels);
        position += count;
    }
    return std::move(accumulator).finish(duration);
}

std::string formatName(const fs::path& url) {
    static constexpr std::pair<std::string_view, std::string_view> names[] = {
        {".wav", "WAV"},   {".aif", "AIFF"}, {".aiff", "AIFF"}, {".mp3", "MP3"},
        {".flac", "FLAC"}, {".m4a", "M4A"},  {".ogg", "OGG"},   {".caf", "CAF"}};
    std::string extension = url.extension().string();
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return char(std::tolower(c)); });
    for (const auto& [suffix, name] : names)
        if (extension == suffix) return std::string(name);
    return "";
}

}  // namespace tapekeep::SampleAnalyzer
