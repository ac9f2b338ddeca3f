#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

struct sf_private_tag;  // libsndfile's SNDFILE

namespace tapekeep {

// How a file stores its samples.
struct AudioFormat {
    double sampleRate = 0;
    int channelCount = 0;
    int bitsPerChannel = 0;    // 0 where the stream has no fixed width (MP3, Ogg)
    bool isLinearPCM = false;  // plain integer or float samples in a PCM container (WAV, AIFF)
    bool isFloat = false;
};

// An audio file through libsndfile: WAV, AIFF, FLAC, Ogg and MP3 read, WAV written. Frames are
// read and written interleaved, as 32-bit integers (full scale, exact for every integer PCM width),
// 32-bit floats or 64-bit floats; libsndfile converts between the file's format and the buffer's.
// One thread at a time.
class AudioFile {
public:
    // Nothing when the file cannot be opened as audio.
    static std::optional<AudioFile> openForReading(const std::filesystem::path& file);
    // A new little-endian WAV file of the format's rate, channels, width and float flag; nothing
    // when it cannot be created or the format cannot be written as WAV.
    static std::optional<AudioFile> createWav(const std::filesystem::path& file, const AudioFormat& format);

    AudioFile(AudioFile&& other) noexcept;
    AudioFile& operator=(AudioFile&& other) noexcept;
    ~AudioFile();

    [[nodiscard]] const AudioFormat& format() const { return format_; }
    // The frames the file says it holds. A WAV or AIFF file cut short still says what its header
    // says, so that reading it ends early; an MP3's figure is counted by decoding it, since its
    // header only estimates.
    [[nodiscard]] std::int64_t length() const { return length_; }

    bool seek(std::int64_t frame);
    // Up to `frames` frames into the buffer, which holds at least frames × channels samples; 0 at
    // the end of the data.
    std::int64_t read(std::span<std::int32_t> buffer, std::int64_t frames);
    std::int64_t read(std::span<float> buffer, std::int64_t frames);
    std::int64_t read(std::span<double> buffer, std::int64_t frames);
    // Appends the frames; false when they were not all written.
    bool write(std::span<const std::int32_t> buffer, std::int64_t frames);
    bool write(std::span<const float> buffer, std::int64_t frames);
    bool write(std::span<const double> buffer, std::int64_t frames);
    // Finishes a written file (its header, its data on disk); false on failure.
    bool close();

private:
    AudioFile(sf_private_tag* file, AudioFormat format, std::int64_t length);

    sf_private_tag* file_;  // null once closed or moved from
    AudioFormat format_;
    std::int64_t length_;
};

}  // namespace tapekeep
