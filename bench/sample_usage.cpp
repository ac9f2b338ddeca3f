// How long the sample usage index of a large version takes: 1,000 songs, each a copy of a song a
// device wrote with its samplers pointed at a handful of 5,000 samples, in every spelling a device
// produces (absolute, relative to the song's folder or the one above, backslashes, other letter case).
// The target is under one second. The baseline is a plain walk of the same version that reads every
// song once, which the index cannot avoid: it must find the songs among the samples and read them
// whole, so the ratio is what parsing and resolving the references cost on top of the file system.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "BestTime.h"
#include "M8Files.h"
#include "content/SampleReferences.h"
#include "core/Formatting.h"

namespace {

namespace fs = std::filesystem;
using namespace tapekeep;

constexpr int songCount = 1'000;
constexpr int kitCount = 50, samplesPerKit = 100;  // 5,000 samples
constexpr int referencesPerSong = 6;
constexpr int runs = 3;
constexpr double targetSeconds = 1.0;

void writeFile(const fs::path& file, const std::string& content) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

std::string sampleName(int kit, int sample) {
    char name[48];
    std::snprintf(name, sizeof name, "Kit%02d/hit%03d.wav", kit, sample);
    return name;
}

std::string upperCased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

// One reference as a device may have stored it, for a song one or two folders below the root.
std::string storedReference(const std::string& sample, bool nested, int spelling) {
    switch (spelling) {
        case 0:
            return "/Samples/" + sample;
        case 1:
            return (nested ? "../../Samples/" : "../Samples/") + sample;
        case 2:
            return "\\Samples\\" + sample.substr(0, 5) + "\\" + sample.substr(6);
        default:
            return "/samples/" + upperCased(sample);
    }
}

void generateVersion(const fs::path& version) {
    for (int kit = 0; kit < kitCount; ++kit)
        for (int sample = 0; sample < samplesPerKit; ++sample)
            writeFile(version / "Samples" / sampleName(kit, sample), "RIFF....WAVE");
    std::mt19937 random(2024);
    std::uniform_int_distribution<int> kitOf(0, kitCount - 1), sampleOf(0, samplesPerKit - 1),
        spellingOf(0, 3);
    for (int song = 0; song < songCount; ++song) {
        const bool nested = song % 5 != 0;  // most songs live in set folders
        std::vector<std::string> references;
        for (int reference = 0; reference < referencesPerSong; ++reference)
            references.push_back(
                storedReference(sampleName(kitOf(random), sampleOf(random)), nested, spellingOf(random)));
        const fs::path folder =
            nested ? version / "Songs" / ("Set" + std::to_string(song % 40)) : version / "Songs";
        writeFile(folder / ("SONG" + std::to_string(song) + ".m8s"), test::deviceSongWithSamples(references));
    }
}

std::size_t readWholeFile(const fs::path& file, std::vector<char>& buffer) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) std::abort();
    std::size_t total = 0;
    for (ssize_t count; (count = ::read(fd, buffer.data(), buffer.size())) > 0;)
        total += static_cast<std::size_t>(count);
    ::close(fd);
    return total;
}

// The least the index must do: find every song in the version and read it once.
std::size_t walkReadingEverySong(const fs::path& version) {
    std::vector<char> buffer(128 * 1024);
    std::size_t total = 0;
    for (const auto& entry : fs::recursive_directory_iterator(version))
        if (entry.is_regular_file() && entry.path().extension() == ".m8s")
            total += readWholeFile(entry.path(), buffer);
    return total;
}

}  // namespace

int main() {
    std::string pattern = (fs::temp_directory_path() / "tapekeep-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) return 1;
    const fs::path version = fs::path(pattern) / "backup-2024-01-01-120000";
    generateVersion(version);

    BrowseFileService::SampleUsageIndex index;
    const double indexSeconds =
        bench::bestSeconds(runs, [&] { index = BrowseFileService::sampleUsageIndex(version); });
    std::size_t bytes = 0;
    const double readSeconds = bench::bestSeconds(runs, [&] { bytes = walkReadingEverySong(version); });
    std::size_t usages = 0;
    for (const auto& [key, users] : index) usages += users.size();

    std::printf("version: %s songs (%.0f MiB), %s samples, %d references each; index: %s keys, %s usages\n",
                formatWithThousandsSeparator(songCount).c_str(),
                static_cast<double>(bytes) / (1024.0 * 1024.0),
                formatWithThousandsSeparator(kitCount * samplesPerKit).c_str(), referencesPerSong,
                formatWithThousandsSeparator(static_cast<std::int64_t>(index.size())).c_str(),
                formatWithThousandsSeparator(static_cast<std::int64_t>(usages)).c_str());
    std::printf("sampleUsageIndex:                   %7.1f ms (best of %d; target under %.0f ms)\n",
                indexSeconds * 1000.0, runs, targetSeconds * 1000.0);
    std::printf("baseline, walk reading every song:  %7.1f ms (best of %d)\n", readSeconds * 1000.0, runs);
    std::printf("ratio: the index takes %.1fx the time of the walk\n", indexSeconds / readSeconds);
    std::printf("target met: %s\n", indexSeconds < targetSeconds ? "yes" : "no");

    std::error_code ignored;
    fs::remove_all(pattern, ignored);
    return 0;
}
