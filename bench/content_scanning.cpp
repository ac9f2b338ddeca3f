// How fast M8ContentScanner reads a card's metadata: scanManifest over a generated tree of 50,000
// files, against a plain std::filesystem::recursive_directory_iterator walk of the same tree that
// reads each file's size and modification time; and quickDiff of two 50,000-entry manifests that
// differ in a few hundred files.

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "content/M8ContentScanner.h"

namespace {

using namespace tapekeep;
namespace fs = std::filesystem;

constexpr int fileCount = 50'000;
constexpr int rounds = 3;
constexpr double targetScanRatio = 1.3;
constexpr double targetDiffMilliseconds = 100.0;

// A card as a busy user leaves it: songs with numbered copies, instruments, and sample packs two
// and three folders deep, a few names written decomposed and a few hidden files.
void generateCard(const fs::path& root) {
    static const char* const folders[] = {"Songs/Live Set",        "Songs/Sketches",
                                          "Instruments",           "Samples/Drums/Kicks",
                                          "Samples/Drums/Snares",  "Samples/Vox/Cho\xCC\x88re",
                                          "Samples/Field 2024/Am", "Samples/Field 2024/Pm"};
    static const char* const extensions[] = {".wav", ".wav", ".wav", ".m8s", ".m8i"};
    for (int file = 0; file < fileCount; ++file) {
        const fs::path folder = root / folders[file % 8] / ("pack " + std::to_string(file / 800));
        if (file % 800 < 8) fs::create_directories(folder);
        const std::string stem = (file % 97 == 0 ? ".take " : "take ") + std::to_string(file);
        std::ofstream(folder / (stem + extensions[file % 5]), std::ios::binary)
            << std::string(file % 64, 'x');
    }
}

struct Totals {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
    fs::file_time_type latest = fs::file_time_type::min();
};

Totals iteratorWalk(const fs::path& root) {
    Totals totals;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file()) continue;
        ++totals.files;
        totals.bytes += static_cast<std::int64_t>(entry.file_size());
        totals.latest = std::max(totals.latest, entry.last_write_time());
    }
    return totals;
}

template <typename Work>
double millisecondsFor(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// The baseline as the scanner last saw it, and the card now: 100 files changed in size, 100 new,
// 100 gone, 200 touched within the card's 2 seconds and 1,000 shifted by daylight saving time.
std::pair<Manifest, Manifest> manifestsWithDifferences(const Manifest& baseline) {
    using namespace std::chrono_literals;
    Manifest current;
    current.reserve(baseline.size() + 100);
    int index = 0;
    for (const auto& [path, entry] : baseline) {
        ManifestEntry now = entry;
        const int position = index++;
        if (position < 100)
            now.size += 1;
        else if (position < 200)
            continue;
        else if (position < 400)
            now.modified += 1s;
        else if (position < 1400)
            now.modified += 1h;
        current.emplace(path, now);
    }
    for (int added = 0; added < 100; ++added)
        current.emplace("Songs/new " + std::to_string(added) + ".m8s", ManifestEntry{1});
    return {std::move(current), baseline};
}

}  // namespace

int main() {
    std::string pattern = (fs::temp_directory_path() / "tapekeep-bench-content-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) return 1;
    const fs::path root = pattern;
    generateCard(root);

    M8ContentScanner scanner;
    Manifest manifest;
    Totals totals;
    iteratorWalk(root);  // both walks then start from a warm cache
    double scanMs = 1e300, iteratorMs = 1e300, diffMs = 1e300;
    for (int round = 0; round < rounds; ++round) {  // interleaved, so that neither gets a quieter moment
        scanMs = std::min(scanMs, millisecondsFor([&] { manifest = *scanner.scanManifest(root); }));
        iteratorMs = std::min(iteratorMs, millisecondsFor([&] { totals = iteratorWalk(root); }));
    }
    const double ratio = scanMs / iteratorMs;

    const auto [current, baseline] = manifestsWithDifferences(manifest);
    std::size_t differences = 0;
    for (int round = 0; round < rounds; ++round) {
        diffMs = std::min(diffMs, millisecondsFor([&] {
                              differences = M8ContentScanner::quickDiff(current, baseline).size();
                          }));
    }
    fs::remove_all(root);

    std::printf("tree: %lld files of %lld bytes (%zu visible) in %s\n", static_cast<long long>(totals.files),
                static_cast<long long>(totals.bytes), manifest.size(), pattern.c_str());
    std::printf("scanManifest:                      %7.1f ms (best of %d)\n", scanMs, rounds);
    std::printf("recursive_directory_iterator walk: %7.1f ms (size and mtime read, best of %d)\n", iteratorMs,
                rounds);
    std::printf("ratio: %.2f, target <= %.1f: %s\n", ratio, targetScanRatio,
                ratio <= targetScanRatio ? "met" : "NOT met");
    std::printf("quickDiff: %.1f ms for %zu + %zu entries, %zu differences; target < %.0f ms: %s\n", diffMs,
                current.size(), baseline.size(), differences, targetDiffMilliseconds,
                diffMs < targetDiffMilliseconds ? "met" : "NOT met");
    return totals.latest == fs::file_time_type::min() ? 1 : 0;
}
