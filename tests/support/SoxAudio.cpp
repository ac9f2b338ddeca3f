#include "SoxAudio.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include "QuietProcess.h"

namespace tapekeep::test {
namespace fs = std::filesystem;

namespace {

std::string format(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6f", value);
    return text;
}

}  // namespace

std::string soxMissing() {
    static const bool found = runQuietly({"sox", "--version"}) == 0;
    return found ? "" : "sox is not installed (scripts/setup.sh installs it)";
}

void makeAudio(const fs::path& file, const std::vector<std::string>& options, double seconds,
               const std::vector<std::string>& sound) {
    // Without dither, so that silence is silent.
    std::vector<std::string> words = {"sox", "-V1", "-D", "-n"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {file.string(), "synth", format(seconds)});
    words.insert(words.end(), sound.begin(), sound.end());
    ASSERT_EQ(runQuietly(words), 0) << "sox could not make " << file;
}

void makeEmptyWav(const fs::path& file) {
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* handle = sf_open(file.c_str(), SFM_WRITE, &info);
    ASSERT_NE(handle, nullptr) << file;
    sf_close(handle);
}

AudioSamples readAudio(const fs::path& file, std::int64_t first, std::int64_t frames) {
    SF_INFO info{};
    SNDFILE* handle = sf_open(file.c_str(), SFM_READ, &info);
    if (handle == nullptr) {
        ADD_FAILURE() << "libsndfile cannot open " << file;
        return {};
    }
    AudioSamples samples{info.samplerate, info.channels, info.format, 0, {}, {}};
    sf_seek(handle, first, SEEK_SET);
    const std::int64_t wanted = frames < 0 ? info.frames - first : frames;
    const int subtype = info.format & SF_FORMAT_SUBMASK;
    if (subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE) {
        samples.floats.resize(std::size_t(wanted * info.channels));
        samples.frames = sf_readf_double(handle, samples.floats.data(), wanted);
        samples.floats.resize(std::size_t(samples.frames * info.channels));
    } else {
        samples.integers.resize(std::size_t(wanted * info.channels));
        samples.frames = sf_readf_int(handle, samples.integers.data(), wanted);
        samples.integers.resize(std::size_t(samples.frames * info.channels));
    }
    sf_close(handle);
    return samples;
}

}  // namespace tapekeep::test
