// The comparison of two versions against the rsync dry run it wraps: two versions of 5,000 files
// that differ in one file are compared through ComparisonViewModel (the dry run with checksums,
// the version check of rsync, the parsing, the hop back to the event loop) and by the same rsync
// invocation run bare (fork, exec, wait; output discarded), in alternating rounds of one run.
// The figure is the ratio of the best times; the target is at most 1.05.

#include <QCoreApplication>
#include <QEventLoop>
#include <QObject>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "BareRsync.h"
#include "backup/RsyncCommands.h"
#include "workflows/ComparisonViewModel.h"

namespace fs = std::filesystem;
using namespace tapekeep;
using Seconds = std::chrono::duration<double>;

namespace {

constexpr int fileCount = 5000;
constexpr std::size_t bytesPerFile = 8192;

void generateVersion(const fs::path& version) {
    std::string block(bytesPerFile, 'x');
    for (int i = 0; i < fileCount; ++i) {
        const fs::path folder = version / (i % 10 == 0 ? "Songs" : "Samples/Kit " + std::to_string(i % 50));
        fs::create_directories(folder);
        std::snprintf(block.data(), 32, "file %d", i);
        std::ofstream(folder / ("take " + std::to_string(i) + ".wav"), std::ios::binary) << block;
    }
}

// One comparison through the controller, from compare() to the result on the event loop.
double timeController(const BackupVersion& a, const BackupVersion& b, std::size_t& rows) {
    ComparisonViewModel::Dependencies dependencies;
    dependencies.rsyncPath = "/usr/bin/rsync";
    ComparisonViewModel comparison({a, b}, std::move(dependencies));
    comparison.chooseVersionA(0);
    comparison.chooseVersionB(1);
    QEventLoop loop;
    QObject::connect(&comparison, &ComparisonViewModel::comparisonFinished, &loop, &QEventLoop::quit);
    const auto start = std::chrono::steady_clock::now();
    comparison.compare();
    loop.exec();
    const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
    if (!comparison.diffResult()) throw std::runtime_error(comparison.errorMessage().value_or("no result"));
    rows = comparison.diffResult()->size();
    return seconds;
}

double timeBare(const BackupVersion& a, const BackupVersion& b) {
    const auto start = std::chrono::steady_clock::now();
    bench::runBareRsync(RsyncCommands::compareVersionsArguments(a.url, b.url));
    return Seconds(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const fs::path root = (fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path()) /
                          "tapekeep-bench-comparison";
    fs::remove_all(root);
    const BackupVersion a{root / "backup-2026-01-01-100000", "backup-2026-01-01-100000", std::nullopt, false};
    const BackupVersion b{root / "backup-2026-01-02-100000", "backup-2026-01-02-100000", std::nullopt, false};
    std::printf("generating two versions of %d files…\n", fileCount);
    generateVersion(a.url);
    fs::copy(a.url, b.url, fs::copy_options::recursive);
    std::ofstream(b.url / "Songs/take 0.wav", std::ios::binary | std::ios::app) << "changed";
    timeBare(a, b);  // warm the cache

    constexpr int rounds = 7;
    double ours = 1e9, bare = 1e9;
    std::size_t rows = 0;
    try {
        for (int round = 0; round < rounds; ++round) {
            if (round % 2 == 0) {
                ours = std::min(ours, timeController(a, b, rows));
                bare = std::min(bare, timeBare(a, b));
            } else {
                bare = std::min(bare, timeBare(a, b));
                ours = std::min(ours, timeController(a, b, rows));
            }
        }
    } catch (const std::exception& error) {
        std::printf("version_comparison failed: %s\n", error.what());
        fs::remove_all(root);
        return 1;
    }
    fs::remove_all(root);
    std::printf(
        "comparison of %d files (%zu row): tapekeep %.1f ms, bare rsync %.1f ms, ratio %.3f (target: <= "
        "1.05)\n",
        fileCount, rows, ours * 1000, bare * 1000, ours / bare);
    return 0;
}
