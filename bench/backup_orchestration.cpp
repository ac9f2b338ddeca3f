// Tapekeep's cost over rsync's own work: a generated card of 2,000+ files and 300+ MB is backed
// up first in full and then unchanged, once through BackupOperation and once as the same rsync
// invocations run bare (fork, exec, wait; output discarded), and the two wall times are compared.

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BareRsync.h"
#include "backup/BackupOperation.h"
#include "backup/RsyncCommands.h"

extern char** environ;

namespace fs = std::filesystem;
using namespace tapekeep;
using Seconds = std::chrono::duration<double>;

namespace {

constexpr int fileCount = 2400;
constexpr std::size_t bytesPerFile = 131'072;  // 2,400 × 128 KiB ≈ 315 MB

void generateCard(const fs::path& card) {
    std::string block(bytesPerFile, '\0');
    unsigned seed = 12345;
    for (auto& byte : block) {
        seed = seed * 1103515245u + 12345u;
        byte = static_cast<char>(seed >> 16);
    }
    for (int i = 0; i < fileCount; ++i) {
        const fs::path folder = card / (i % 10 == 0 ? "Songs" : "Samples/Kit " + std::to_string(i % 37));
        fs::create_directories(folder);
        std::snprintf(block.data(), 32, "file %d", i);  // every file differs from the others
        std::ofstream(folder / ("take " + std::to_string(i) + (i % 10 == 0 ? ".m8s" : ".wav")),
                      std::ios::binary)
            << block;
    }
    fs::create_directories(card / "Instruments");
}

// The dry run and the transfer that a backup makes, with nothing around them.
double bareBackup(const fs::path& card, const fs::path& destination,
                  const std::optional<fs::path>& linkDest) {
    const auto start = std::chrono::steady_clock::now();
    fs::create_directories(destination);
    bench::runBareRsync(RsyncCommands::estimateArguments(card, destination, linkDest));
    bench::runBareRsync(RsyncCommands::fullBackupArguments(card, destination, linkDest, true));
    return Seconds(std::chrono::steady_clock::now() - start).count();
}

double tapekeepBackup(const BackupRequest& request) {
    const auto start = std::chrono::steady_clock::now();
    BackupOperation::run(
        request, [](const std::string&) {}, {}, BackupOperation::defaultRsyncRunner(),
        [](const BackupRequest&, std::stop_token) {}, {});
    return Seconds(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main() {
    const fs::path root = fs::temp_directory_path() / "tapekeep-bench-backup";
    fs::remove_all(root);
    const fs::path card = root / "M8BENCH";
    std::printf("generating %d files of %zu bytes…\n", fileCount, bytesPerFile);
    generateCard(card);
    bench::runBareRsync(
        {"-an", "--stats", card.string() + "/", (root / "warm").string() + "/"});  // warm the cache

    // Writes of one run must not be flushed during the next: every timed step starts after sync(),
    // and the order of the two sides alternates between rounds. The best of each side counts.
    constexpr int rounds = 3;
    double bareFull = 1e9, oursFull = 1e9, bareUnchanged = 1e9, oursUnchanged = 1e9;
    for (int round = 0; round < rounds; ++round) {
        BackupRequest request;
        request.card = SDCard{card, "M8BENCH", "BENCH-0000-0000-00000001"};
        request.baseURL = root / ("store" + std::to_string(round));
        request.rsyncPath = "/usr/bin/rsync";
        request.keepCount = 5;
        const fs::path bare = root / ("bare" + std::to_string(round));
        auto timeBare = [&](const char* version, std::optional<fs::path> linkDest) {
            ::sync();
            return bareBackup(card, bare / version, linkDest);
        };
        auto timeOurs = [&] {
            ::sync();
            return tapekeepBackup(request);
        };
        if (round % 2 == 0) {
            bareFull = std::min(bareFull, timeBare("one", std::nullopt));
            oursFull = std::min(oursFull, timeOurs());
            bareUnchanged = std::min(bareUnchanged, timeBare("two", bare / "one"));
            oursUnchanged = std::min(oursUnchanged, timeOurs());
        } else {
            oursFull = std::min(oursFull, timeOurs());
            bareFull = std::min(bareFull, timeBare("one", std::nullopt));
            oursUnchanged = std::min(oursUnchanged, timeOurs());
            bareUnchanged = std::min(bareUnchanged, timeBare("two", bare / "one"));
        }
        fs::remove_all(bare);
        fs::remove_all(request.baseURL);
    }
    const double bare = bareFull + bareUnchanged, ours = oursFull + oursUnchanged;

    std::printf("full copy:  tapekeep %.3f s, bare rsync %.3f s, ratio %.3f\n", oursFull, bareFull,
                oursFull / bareFull);
    std::printf("unchanged:  tapekeep %.3f s, bare rsync %.3f s, ratio %.3f\n", oursUnchanged, bareUnchanged,
                oursUnchanged / bareUnchanged);
    std::printf("overall ratio %.3f (target: <= 1.05)\n", ours / bare);
    fs::remove_all(root);
    return 0;
}
