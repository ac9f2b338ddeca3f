// The waveform of a 10-minute stereo WAV against a plain read of the same file: SampleAnalyzer's
// peaks (decode, bin, scale) and a loop of read() over the file's bytes, both from the page cache,
// in the same process, on a RAM disk where one is free. The target is at least 200 MB of audio per
// second for the peaks; the ratio of the two times shows what decoding and binning cost over
// reading. The process's peak resident memory after the peaks of a 1-minute file and of the
// 10-minute one shows that memory does not grow with the file's length.

#include <fcntl.h>
#include <sndfile.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "BestTime.h"
#include "edits/SampleAnalyzer.h"

namespace fs = std::filesystem;
using namespace tapekeep;

namespace {

constexpr int sampleRate = 44100;
constexpr int channels = 2;
constexpr int bins = 2000;

fs::path benchRoot(std::uintmax_t needed) {
    struct statvfs shm {};
    const bool roomy = ::statvfs("/dev/shm", &shm) == 0 && shm.f_bavail * shm.f_frsize > needed;
    return (roomy ? fs::path("/dev/shm") : fs::temp_directory_path()) / "tapekeep-bench-peaks";
}

// 16-bit stereo: a tone with noise under it, as a recorded sample is.
bool writeWav(const fs::path& file, int seconds) {
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* handle = sf_open(file.c_str(), SFM_WRITE, &info);
    if (handle == nullptr) return false;
    std::vector<short> block(sampleRate * channels);
    unsigned seed = 1;
    for (int second = 0; second < seconds; ++second) {
        for (int frame = 0; frame < sampleRate; ++frame) {
            seed = seed * 1103515245u + 12345u;
            const double tone = 12000 * std::sin(2 * M_PI * 220 * frame / sampleRate);
            const auto value = short(tone + double(int((seed >> 16) % 2048) - 1024));
            block[std::size_t(frame * channels)] = value;
            block[std::size_t(frame * channels + 1)] = short(-value);
        }
        sf_writef_short(handle, block.data(), sampleRate);
    }
    return sf_close(handle) == 0;
}

void plainRead(const fs::path& file) {
    std::vector<char> buffer(1 << 20);
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    while (::read(descriptor, buffer.data(), buffer.size()) > 0) {
    }
    ::close(descriptor);
}

long peakResidentKiB() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

}  // namespace

int main() {
    const fs::path root = benchRoot(150ull << 20);
    fs::remove_all(root);
    fs::create_directories(root);
    const fs::path oneMinute = root / "one-minute.wav", tenMinutes = root / "ten-minutes.wav";
    if (!writeWav(oneMinute, 60) || !writeWav(tenMinutes, 600))
        return std::fprintf(stderr, "cannot write\n"), 1;
    const double megabytes = double(fs::file_size(tenMinutes)) / 1e6;

    const long before = peakResidentKiB();
    SampleAnalyzer::peaks(oneMinute, bins, {});
    const long afterOneMinute = peakResidentKiB();
    SampleAnalyzer::peaks(tenMinutes, bins, {});
    const long afterTenMinutes = peakResidentKiB();

    const double reading = bench::bestSeconds(5, [&] { plainRead(tenMinutes); });
    const double peaks = bench::bestSeconds(5, [&] { SampleAnalyzer::peaks(tenMinutes, bins, {}); });
    std::printf("10-minute stereo 16-bit WAV, %.0f MB, %d bins\n", megabytes, bins);
    std::printf("plain read: %.3f s (%.0f MB/s); peaks: %.3f s (%.0f MB/s, target >= 200 MB/s)\n", reading,
                megabytes / reading, peaks, megabytes / peaks);
    std::printf("ratio peaks / plain read: %.2f\n", peaks / reading);
    std::printf("peak RSS: %ld KiB before, %ld KiB after a 1-minute file, %ld KiB after a 10-minute file\n",
                before, afterOneMinute, afterTenMinutes);
    fs::remove_all(root);
    return 0;
}
