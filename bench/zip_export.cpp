// A ZIP export against the archiver itself: a generated version of about 1 GiB of audio-like
// samples is archived once by ZipExporter (walk, write, read-back, rename) and once by bsdtar
// writing the same archive (same libarchive, deflate, the version folder on top), in the same
// process, on a RAM disk where one is free. The wall times are compared; the target is a ratio of
// at most 1.10. The process's peak resident memory is printed after a small export and after the
// large ones, to show that it does not grow with the archive.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "backup/ZipExporter.h"

extern char** environ;

namespace fs = std::filesystem;
using namespace tapekeep;
using Seconds = std::chrono::duration<double>;

namespace {

constexpr std::size_t sampleBytes = 4 * 1024 * 1024;
constexpr const char* versionName = "backup-2024-05-01-120000";

// Where the archives are written: a RAM disk with room for the version and two archives, so that
// neither side waits for a disk; otherwise the temporary folder.
fs::path benchRoot(std::uintmax_t needed) {
    struct statvfs shm {};
    const bool roomy = ::statvfs("/dev/shm", &shm) == 0 && shm.f_bavail * shm.f_frsize > needed;
    return (roomy ? fs::path("/dev/shm") : fs::temp_directory_path()) / "tapekeep-bench-zip";
}

// 16-bit stereo PCM of a tone with noise under it, as a sample on a card is: deflate finds some
// redundancy in it, not much.
void fillAudio(std::vector<char>& block, unsigned seed) {
    std::array<double, 1024> table{};
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = std::sin(2 * M_PI * double(i) / double(table.size()));
    const std::size_t step = 3 + seed % 29;
    for (std::size_t frame = 0, phase = 0; frame + 4 <= block.size(); frame += 4, phase += step) {
        seed = seed * 1103515245u + 12345u;
        const auto noise = static_cast<int>((seed >> 16) % 2048) - 1024;
        const auto value = static_cast<std::int16_t>(12000 * table[phase % table.size()] + noise);
        std::copy_n(reinterpret_cast<const char*>(&value), 2, &block[frame]);
        std::copy_n(reinterpret_cast<const char*>(&value), 2, &block[frame + 2]);
    }
}

std::uintmax_t generateVersion(const fs::path& version, std::size_t sampleCount) {
    std::vector<char> block(sampleBytes);
    std::uintmax_t total = 0;
    for (std::size_t i = 0; i < sampleCount; ++i) {
        const fs::path folder = version / "Samples" / ("Kit " + std::to_string(i % 16));
        fs::create_directories(folder);
        fillAudio(block, static_cast<unsigned>(i + 1));
        std::ofstream(folder / ("take " + std::to_string(i) + ".wav"), std::ios::binary)
            .write(block.data(), block.size());
        total += block.size();
    }
    for (int i = 0; i < 64; ++i) {
        fs::create_directories(version / "Songs");
        std::ofstream(version / "Songs" / ("SONG" + std::to_string(i) + ".m8s"), std::ios::binary)
            .write(block.data(), 110566);
        total += 110566;
    }
    return total;
}

long peakResidentKiB(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    return usage.ru_maxrss;
}

// bsdtar writing the same archive: the version folder as the top entry, deflate, nothing around it.
double bsdtarExport(const fs::path& version, const fs::path& archive) {
    fs::remove(archive);
    std::vector<std::string> words = {"/usr/bin/bsdtar",
                                      "-c",
                                      "-f",
                                      archive.string(),
                                      "--format",
                                      "zip",
                                      "-C",
                                      version.parent_path().string(),
                                      version.filename().string()};
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
    int status = 0;
    ::waitpid(pid, &status, 0);
    const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? seconds : -1;
}

double tapekeepExport(const fs::path& version, const fs::path& archive) {
    const auto start = std::chrono::steady_clock::now();
    const auto status = ZipExporter::exportFolder(version, archive, {});
    const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
    return status == 0 ? seconds : -1;
}

double mebibytes(std::uintmax_t bytes) {
    return double(bytes) / (1024.0 * 1024.0);
}

}  // namespace

int main() {
    constexpr std::size_t largeSamples = 256;  // 256 × 4 MiB = 1 GiB
    const fs::path root = benchRoot(3ull * largeSamples * sampleBytes);
    fs::remove_all(root);
    const fs::path small = root / "M8_SMALL" / versionName;
    const fs::path large = root / "M8_BENCH" / versionName;
    std::printf("generating in %s…\n", root.c_str());
    const auto smallBytes = generateVersion(small, 16);
    const auto largeBytes = generateVersion(large, largeSamples);

    const long before = peakResidentKiB(RUSAGE_SELF);
    if (tapekeepExport(small, root / "small.zip") < 0)
        return std::fprintf(stderr, "small export failed\n"), 1;
    const long afterSmall = peakResidentKiB(RUSAGE_SELF);

    // The order of the two sides alternates between rounds; the best of each counts.
    constexpr int rounds = 2;
    double ours = 1e9, theirs = 1e9;
    for (int round = 0; round < rounds; ++round) {
        for (int side = 0; side < 2; ++side) {
            const bool oursFirst = round % 2 == 0;
            const double seconds = (side == 0) == oursFirst ? tapekeepExport(large, root / "tapekeep.zip")
                                                            : bsdtarExport(large, root / "bsdtar.zip");
            if (seconds < 0) return std::fprintf(stderr, "an export failed\n"), 1;
            ((side == 0) == oursFirst ? ours : theirs) =
                std::min((side == 0) == oursFirst ? ours : theirs, seconds);
        }
    }
    const long afterLarge = peakResidentKiB(RUSAGE_SELF);

    std::printf("version: %.0f MiB in %zu files; archives: tapekeep %.0f MiB, bsdtar %.0f MiB\n",
                mebibytes(largeBytes), largeSamples + 64, mebibytes(fs::file_size(root / "tapekeep.zip")),
                mebibytes(fs::file_size(root / "bsdtar.zip")));
    std::printf("zip export: tapekeep %.2f s (walk, write, read-back, rename), bsdtar %.2f s (write)\n", ours,
                theirs);
    std::printf("ratio tapekeep / bsdtar: %.3f (target <= 1.10)\n", ours / theirs);
    std::printf(
        "peak RSS: %ld KiB before any export, %ld KiB after a %.0f MiB export, %ld KiB after the %.0f MiB "
        "ones (bsdtar: %ld KiB)\n",
        before, afterSmall, mebibytes(smallBytes), afterLarge, mebibytes(largeBytes),
        peakResidentKiB(RUSAGE_CHILDREN));
    fs::remove_all(root);
    return 0;
}
