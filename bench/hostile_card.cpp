// A hostile card: 100,000 small files under long names and deep folders, names with spaces,
// quotes, glob and escape characters, newlines, a leading "-", bytes that are not UTF-8 and
// decomposed accents. None starts with a dot: the scan leaves hidden names out, and one hidden
// folder would keep its whole chain out of the measure. The card is backed up in full through
// BackupOperation and its manifest scanned, against the same rsync passes run bare (fork, exec,
// wait; output discarded). The figure is Tapekeep's time over bare rsync's, measured in one run.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BareRsync.h"
#include "backup/BackupOperation.h"
#include "backup/RsyncCommands.h"
#include "content/M8ContentScanner.h"

extern char** environ;

namespace fs = std::filesystem;
using namespace tapekeep;
using Seconds = std::chrono::duration<double>;

namespace {

constexpr int fileCount = 100'000;
constexpr int filesPerFolder = 500;
constexpr int folderDepth = 12;
constexpr double targetRatio = 1.3;

const char* const hostileParts[] = {" spaces  and  more ", "'quoted\"", "*glob?[x]",   "back\\slash",
                                    "new\nline",           "-rf",       "esc\x1b[31m", "bad\xff\xfe",
                                    "Cho\xCC\x88re",       "tab\there", "%n%s",        "dots..."};

// A folder name of about 60 bytes, so a path twelve folders deep runs to about 750 bytes.
std::string longName(int index) {
    std::string name =
        std::string(hostileParts[index % std::size(hostileParts)]) + " " + std::to_string(index) + " ";
    while (name.size() < 60) name += "long name ";
    return name;
}

fs::path deepFolder(const fs::path& card, int folderIndex) {
    fs::path folder = card / (folderIndex % 3 == 0 ? "Songs" : "Samples");
    for (int level = 0; level < folderDepth; ++level) folder /= longName(folderIndex * folderDepth + level);
    return folder;
}

void generateCard(const fs::path& card) {
    fs::create_directories(card / "Instruments");
    fs::path folder;
    for (int file = 0; file < fileCount; ++file) {
        if (file % filesPerFolder == 0) {
            folder = deepFolder(card, file / filesPerFolder);
            fs::create_directories(folder);
        }
        std::ofstream(folder / (longName(file) + (file % 7 == 0 ? ".m8s" : ".wav")), std::ios::binary)
            << "take " << file;
    }
}

double bareBackup(const fs::path& card, const fs::path& destination) {
    const auto start = std::chrono::steady_clock::now();
    fs::create_directories(destination);
    bench::runBareRsync(RsyncCommands::estimateArguments(card, destination, std::nullopt));
    bench::runBareRsync(RsyncCommands::fullBackupArguments(card, destination, std::nullopt, true));
    return Seconds(std::chrono::steady_clock::now() - start).count();
}

// The backup, then the manifest scan with which the card is compared with its new version.
double tapekeepBackupAndScan(const BackupRequest& request, std::size_t& scannedFiles, double& scanSeconds) {
    const auto start = std::chrono::steady_clock::now();
    BackupOperation::run(
        request, [](const std::string&) {}, {}, BackupOperation::defaultRsyncRunner(),
        [](const BackupRequest&, std::stop_token) {}, {});
    const auto scanStart = std::chrono::steady_clock::now();
    M8ContentScanner scanner;
    scannedFiles = scanner.scanManifest(request.card.mountPath).value_or(Manifest{}).size();
    const auto end = std::chrono::steady_clock::now();
    scanSeconds = Seconds(end - scanStart).count();
    return Seconds(end - start).count();
}

}  // namespace

int main() {
    // In memory where the machine has it: on a disk, two identical bare rsync runs here differed by
    // 2.5 times, which would drown the overhead being measured. TMPDIR still chooses.
    const bool inMemory = std::getenv("TMPDIR") == nullptr && fs::is_directory("/dev/shm");
    const fs::path root =
        (inMemory ? fs::path("/dev/shm") : fs::temp_directory_path()) / "tapekeep-bench-hostile";
    fs::remove_all(root);
    const fs::path card = root / "M8HOSTILE";
    std::printf("in %s: ", root.c_str());
    std::printf("generating %d files, %d folders deep, with hostile names…\n", fileCount, folderDepth);
    generateCard(card);
    bench::runBareRsync(
        {"-an", "--stats", card.string() + "/", (root / "warm").string() + "/"});  // warm the cache

    // Each timed step starts after sync(), and the order of the two sides alternates.
    constexpr int rounds = 3;
    double bare = 1e9, ours = 1e9;
    std::size_t scannedFiles = 0;
    double scan = 0;
    for (int round = 0; round < rounds; ++round) {
        BackupRequest request;
        request.card = SDCard{card, "M8HOSTILE", "BENC-0001"};
        request.baseURL = root / ("store" + std::to_string(round));
        request.rsyncPath = "/usr/bin/rsync";
        request.keepCount = 5;
        const fs::path bareCopy = root / ("bare" + std::to_string(round));
        auto timeBare = [&] {
            ::sync();
            return bareBackup(card, bareCopy);
        };
        auto timeOurs = [&] {
            ::sync();
            return tapekeepBackupAndScan(request, scannedFiles, scan);
        };
        if (round % 2 == 0) {
            bare = std::min(bare, timeBare());
            ours = std::min(ours, timeOurs());
        } else {
            ours = std::min(ours, timeOurs());
            bare = std::min(bare, timeBare());
        }
        fs::remove_all(bareCopy);
        fs::remove_all(request.baseURL);
    }
    std::printf("scanned %zu files in %.3f s\n", scannedFiles, scan);
    std::printf("backup and scan: tapekeep %.3f s, bare rsync %.3f s\n", ours, bare);
    std::printf("ratio %.3f (target: <= %.1f)\n", ours / bare, targetRatio);
    fs::remove_all(root);
    return ours / bare <= targetRatio ? 0 : 1;
}
