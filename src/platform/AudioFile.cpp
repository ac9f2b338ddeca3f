#include "platform/AudioFile.h"

#include <sndfile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <utility>
#include <vector>

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

constexpr std::int64_t countingBlockFrames = 32768;

int bitsOf(int subtype) {
    switch (subtype) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_ULAW:
        case SF_FORMAT_ALAW:
            return 8;
        case SF_FORMAT_DWVW_12:
            return 12;
        case SF_FORMAT_PCM_16:
        case SF_FORMAT_DWVW_16:
            return 16;
        case SF_FORMAT_PCM_24:
        case SF_FORMAT_DWVW_24:
            return 24;
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_FLOAT:
            return 32;
        case SF_FORMAT_DOUBLE:
            return 64;
        default:
            return 0;
    }
}

bool isCompressedContainer(int major) {
    return major == SF_FORMAT_FLAC || major == SF_FORMAT_OGG || major == SF_FORMAT_MPEG;
}

AudioFormat formatOf(const SF_INFO& info) {
    const int major = info.format & SF_FORMAT_TYPEMASK;
    const int subtype = info.format & SF_FORMAT_SUBMASK;
    const bool isFloat = subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE;
    const bool isInteger = subtype == SF_FORMAT_PCM_S8 || subtype == SF_FORMAT_PCM_U8 ||
                           subtype == SF_FORMAT_PCM_16 || subtype == SF_FORMAT_PCM_24 ||
                           subtype == SF_FORMAT_PCM_32;
    return {.sampleRate = double(info.samplerate),
            .channelCount = info.channels,
            .bitsPerChannel = bitsOf(subtype),
            .isLinearPCM = (isFloat || isInteger) && !isCompressedContainer(major),
            .isFloat = isFloat};
}

std::uint32_t littleEndian32(const unsigned char* bytes) {
    return std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16 |
           std::uint32_t(bytes[3]) << 24;
}

std::uint32_t bigEndian32(const unsigned char* bytes) {
    return std::uint32_t(bytes[3]) | std::uint32_t(bytes[2]) << 8 | std::uint32_t(bytes[1]) << 16 |
           std::uint32_t(bytes[0]) << 24;
}

// Walks a RIFF or IFF file's top-level chunks to the one named `wanted`: its size and, read into
// `start`, the first bytes of its data. The walk stops at the first chunk that cannot be read.
std::optional<std::uint32_t> findChunk(std::ifstream& in, const char* wanted, bool bigEndian,
                                       std::array<unsigned char, 8>& start) {
    std::array<unsigned char, 8> header{};
    while (in.read(reinterpret_cast<char*>(header.data()), header.size())) {
        const std::uint32_t size = bigEndian ? bigEndian32(&header[4]) : littleEndian32(&header[4]);
        if (std::equal(header.begin(), header.begin() + 4, wanted)) {
            in.read(reinterpret_cast<char*>(start.data()), start.size());
            return size;
        }
        in.seekg(std::streamoff(size) + (size & 1), std::ios::cur);
    }
    return std::nullopt;
}

// The frames a WAV or AIFF header names: a WAV's data chunk size over the frame size, an AIFF's
// frame count. libsndfile quietly shortens both to what the file holds; the header's word is kept
// so that a file cut short is told apart from a short file. Nothing where the header does not say
// (a streamed WAV's size of 0 or 0xFFFFFFFF).
std::optional<std::int64_t> statedFrames(const fs::path& file, const AudioFormat& format) {
    std::ifstream in(file, std::ios::binary);
    std::array<unsigned char, 12> form{};
    if (!format.isLinearPCM || !in.read(reinterpret_cast<char*>(form.data()), form.size()))
        return std::nullopt;
    const std::string kind(form.begin(), form.begin() + 4), type(form.begin() + 8, form.end());
    std::array<unsigned char, 8> start{};
    if (kind == "RIFF" && type == "WAVE") {
        const auto size = findChunk(in, "data", false, start);
        const std::int64_t frameBytes = std::int64_t(format.channelCount) * ((format.bitsPerChannel + 7) / 8);
        if (!size || *size == 0 || *size == 0xFFFFFFFF || frameBytes <= 0) return std::nullopt;
        return *size / frameBytes;
    }
    if (kind == "FORM" && (type == "AIFF" || type == "AIFC")) {
        if (!findChunk(in, "COMM", true, start) || !in) return std::nullopt;
        return bigEndian32(&start[2]);
    }
    return std::nullopt;
}

// Decodes the whole stream once to count its frames, then returns to the start.
std::int64_t decodedFrames(SNDFILE* file, int channels) {
    std::vector<float> block(std::size_t(countingBlockFrames) * std::size_t(channels));
    std::int64_t total = 0;
    for (sf_count_t count; (count = sf_readf_float(file, block.data(), countingBlockFrames)) > 0;)
        total += count;
    sf_seek(file, 0, SEEK_SET);
    return total;
}

std::int64_t lengthOf(SNDFILE* file, const SF_INFO& info, const fs::path& path, const AudioFormat& format) {
    if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) return decodedFrames(file, info.channels);
    return std::max<std::int64_t>(info.frames, statedFrames(path, format).value_or(0));
}

std::optional<int> wavSubtype(const AudioFormat& format) {
    if (format.isFloat && format.bitsPerChannel == 32) return SF_FORMAT_FLOAT;
    if (format.isFloat && format.bitsPerChannel == 64) return SF_FORMAT_DOUBLE;
    if (format.isFloat) return std::nullopt;
    switch (format.bitsPerChannel) {
        case 8:
            return SF_FORMAT_PCM_U8;  // 8-bit WAV is unsigned
        case 16:
            return SF_FORMAT_PCM_16;
        case 24:
            return SF_FORMAT_PCM_24;
        case 32:
            return SF_FORMAT_PCM_32;
        default:
            return std::nullopt;
    }
}

// At most as many frames as the buffer holds.
template <typename Sample>
std::int64_t framesIn(std::span<Sample> buffer, std::int64_t frames, int channels) {
    return std::min<std::int64_t>(frames, std::int64_t(buffer.size()) / std::max(channels, 1));
}

}  // namespace

std::optional<AudioFile> AudioFile::openForReading(const fs::path& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) return std::nullopt;
    // A decoded float beyond full scale becomes full scale, not a wrapped integer.
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    const AudioFormat format = formatOf(info);
    return AudioFile(file, format, lengthOf(file, info, path, format));
}

std::optional<AudioFile> AudioFile::createWav(const fs::path& path, const AudioFormat& format) {
    const auto subtype = wavSubtype(format);
    if (!subtype || format.channelCount <= 0 || !(format.sampleRate >= 1)) return std::nullopt;
    SF_INFO info{};
    info.samplerate = int(std::lround(format.sampleRate));
    info.channels = format.channelCount;
    info.format = SF_FORMAT_WAV | *subtype | SF_ENDIAN_LITTLE;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return std::nullopt;
    return AudioFile(file, format, 0);
}

AudioFile::AudioFile(sf_private_tag* file, AudioFormat format, std::int64_t length)
    : file_(file), format_(format), length_(length) {}

AudioFile::AudioFile(AudioFile&& other) noexcept
    : file_(std::exchange(other.file_, nullptr)), format_(other.format_), length_(other.length_) {}

AudioFile& AudioFile::operator=(AudioFile&& other) noexcept {
    if (this != &other) {
        close();
        file_ = std::exchange(other.file_, nullptr);
        format_ = other.format_;
        length_ = other.length_;
    }
    return *this;
}

AudioFile::~AudioFile() {
    close();
}

bool AudioFile::seek(std::int64_t frame) {
    return sf_seek(file_, frame, SEEK_SET) == frame;
}

std::int64_t AudioFile::read(std::span<std::int32_t> buffer, std::int64_t frames) {
    frames = framesIn(buffer, frames, format_.channelCount);
    return sf_readf_int(file_, buffer.data(), frames);
}

std::int64_t AudioFile::read(std::span<float> buffer, std::int64_t frames) {
    frames = framesIn(buffer, frames, format_.channelCount);
    return sf_readf_float(file_, buffer.data(), frames);
}

std::int64_t AudioFile::read(std::span<double> buffer, std::int64_t frames) {
    frames = framesIn(buffer, frames, format_.channelCount);
    return sf_readf_double(file_, buffer.data(), frames);
}

bool AudioFile::write(std::span<const std::int32_t> buffer, std::int64_t frames) {
    if (framesIn(buffer, frames, format_.channelCount) < frames) return false;
    return sf_writef_int(file_, buffer.data(), frames) == frames;
}

bool AudioFile::write(std::span<const float> buffer, std::int64_t frames) {
    if (framesIn(buffer, frames, format_.channelCount) < frames) return false;
    return sf_writef_float(file_, buffer.data(), frames) == frames;
}

bool AudioFile::write(std::span<const double> buffer, std::int64_t frames) {
    if (framesIn(buffer, frames, format_.channelCount) < frames) return false;
    return sf_writef_double(file_, buffer.data(), frames) == frames;
}

bool AudioFile::close() {
    if (file_ == nullptr) return true;
    return sf_close(std::exchange(file_, nullptr)) == 0;
}

}  // namespace tapekeep
