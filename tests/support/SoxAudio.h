#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tapekeep::test {

// Real audio files made by sox at test time, and read back with libsndfile.

// Why sox cannot make test audio here, or empty when it can.
std::string soxMissing();

// Runs sox: `seconds` of the sound, white noise by default so that every frame differs from its
// neighbours and a trim shifted by one frame shows, in the format that the options before the file
// name give (such as {"-r", "44100", "-c", "2", "-b", "24"}); the file's extension picks the
// container. Fails the calling test when sox fails.
void makeAudio(const std::filesystem::path& file, const std::vector<std::string>& format, double seconds,
               const std::vector<std::string>& sound = {"whitenoise", "vol", "0.6"});

// A 16-bit stereo WAV file without frames (sox cannot make one).
void makeEmptyWav(const std::filesystem::path& file);

// A file's samples, interleaved, as libsndfile converts them: integers at full 32-bit scale, or
// floats; from `first` for at most `frames` frames (all with -1).
struct AudioSamples {
    int sampleRate = 0;
    int channels = 0;
    int format = 0;  // libsndfile's SF_FORMAT_* word
    std::int64_t frames = 0;
    std::vector<std::int32_t> integers;
    std::vector<double> floats;
};
AudioSamples readAudio(const std::filesystem::path& file, std::int64_t first = 0, std::int64_t frames = -1);

}  // namespace tapekeep::test
