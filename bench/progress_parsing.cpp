// How fast rsync's output goes from pipe bytes to log lines and a progress value: LineSplitter,
// parseProgressLine, isProgressNoise and BackupProgressTracker together, as a backup runs them
// for every line, against a plain memchr line count over the same bytes.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "backup/BackupProgressTracker.h"
#include "backup/ProgressLineParser.h"
#include "core/Formatting.h"
#include "core/LineSplitter.h"

namespace {

using namespace tapekeep;

constexpr std::size_t chunkSize = 64 * 1024;  // what one read from the pipe delivers at most
constexpr std::uint64_t minimumLines = 10'000'000;
constexpr double targetLinesPerSecond = 2'000'000;

// One card's worth of "rsync -avh --info=progress2 --stats" output: the file list with verbose
// names, CR-refreshed progress lines between them (with ir-chk while the list grows, to-chk once
// it is complete), a little progress noise, and the statistics at the end.
class RsyncOutputBuilder {
public:
    explicit RsyncOutputBuilder(unsigned seed) : random_(seed) {}

    std::string run(int fileCount) {
        std::string out =
            "sending incremental file list\ncreated directory /media/backup/M8_1A2B3C4D/.incomplete\n./\n";
        std::int64_t bytes = 0;
        for (int file = 1; file <= fileCount; ++file) {
            out += fileName(file) + "\n";
            const int refreshes = 1 + below(4);
            for (int i = 0; i < refreshes; ++i) {
                bytes += 1000 + below(900'000);
                out += '\r';
                out += progressLine(bytes, file * 100 / fileCount, file, fileCount, i + 1 == refreshes);
            }
            if (below(50) == 0) out += noiseLine(bytes);
            out += "\n";
        }
        return out + statistics(fileCount, bytes);
    }

private:
    int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random_); }

    std::string fileName(int file) {
        static const char* const folders[] = {"Samples/Drums/", "Samples/Vox/Chöre/", "Songs/Live Set/",
                                              "Instruments/", "Samples/Field Recordings 2024/"};
        static const char* const stems[] = {"kick ", "snare ", "take ", "track ", "bass ", "Ünïcode pad "};
        static const char* const extensions[] = {".wav", ".wav", ".wav", ".m8s", ".m8i"};
        return std::string(folders[below(5)]) + stems[below(6)] + std::to_string(file % 100) +
               extensions[below(5)];
    }

    std::string progressLine(std::int64_t bytes, int percent, int file, int fileCount, bool withChecks) {
        char text[160];
        const int written = std::snprintf(text, sizeof text, "%15s %3d%% %7.2fMB/s    0:00:%02d",
                                          formatWithThousandsSeparator(bytes).c_str(), percent,
                                          1.0 + below(9000) / 100.0, below(60));
        std::string line(text, static_cast<std::size_t>(written));
        if (!withChecks) return line + "  ";
        const bool listComplete = file > fileCount / 4;
        const int total = listComplete ? fileCount + 1 : file + 1 + below(200);
        return line + " (xfr#" + std::to_string(file) + ", " + (listComplete ? "to" : "ir") +
               "-chk=" + std::to_string(total - file) + "/" + std::to_string(total) + ")";
    }

    // Progress display that is no progress2 line: per-file --progress lines of older rsyncs, and a
    // percentage past 100 that a growing file can produce.
    std::string noiseLine(std::int64_t bytes) {
        const std::string count = formatWithThousandsSeparator(bytes);
        if (below(2) == 0) return "\r" + count + " 100%   10.00MB/s    0:00:00 (xfer#1, to-check=0/1)";
        return "\r" + count + " 101%   10.00MB/s    0:00:00";
    }

    static std::string statistics(int fileCount, std::int64_t bytes) {
        const std::string files = formatWithThousandsSeparator(fileCount);
        const std::string size = formatWithThousandsSeparator(bytes);
        return "\nNumber of files: " + files + " (reg: " + files +
               ", dir: 12)\nNumber of created files: " + files +
               "\nNumber of deleted files: 0\nNumber of regular files transferred: " + files +
               "\nTotal file size: " + size + " bytes\nTotal transferred file size: " + size +
               " bytes\nLiteral data: " + size +
               " bytes\nMatched data: 0 bytes\nFile list size: 12.34K\nFile list generation time: 0.001 "
               "seconds\n"
               "File list transfer time: 0.000 seconds\nTotal bytes sent: " +
               size + "\nTotal bytes received: 1.23K\n\nsent " + size +
               " bytes  received 1.23K bytes  45.67M bytes/sec\ntotal size is " + size +
               "  speedup is 1.00\n";
    }

    std::mt19937 random_;
};

struct Tally {
    std::uint64_t lines = 0;
    std::uint64_t progress = 0;
    std::uint64_t noise = 0;
    std::uint64_t logged = 0;
    double displayedSum = 0;  // keeps the tracker's work observable to the optimiser
};

template <typename Consume>
void inChunks(std::string_view bytes, Consume consume) {
    for (std::size_t at = 0; at < bytes.size(); at += chunkSize) consume(bytes.substr(at, chunkSize));
}

Tally splitAndParse(std::string_view output, int passes) {
    Tally tally;
    BackupProgressTracker tracker;
    tracker.apply(TransferEvent::expectedBytes(static_cast<std::int64_t>(output.size()) * 40));
    tracker.apply(TransferEvent::expectedFiles(1'000'000));
    LineSplitter splitter([&](const std::string& line) {
        ++tally.lines;
        if (auto progress = parseProgressLine(line)) {
            ++tally.progress;
            tally.displayedSum += tracker.feed(*progress);
        } else if (isProgressNoise(line)) {
            ++tally.noise;
        } else {
            ++tally.logged;
        }
    });
    for (int pass = 0; pass < passes; ++pass) {
        inChunks(output, [&](std::string_view chunk) { splitter.append(chunk); });
        splitter.finish();
        tracker.apply(TransferEvent::transferFinished());
    }
    return tally;
}

std::uint64_t countLineFeeds(std::string_view output, int passes) {
    std::uint64_t count = 0;
    for (int pass = 0; pass < passes; ++pass) {
        inChunks(output, [&](std::string_view chunk) {
            const char* at = chunk.data();
            const char* end = at + chunk.size();
            while (
                (at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at))))) {
                ++count;
                ++at;
            }
        });
    }
    return count;
}

template <typename Work>
double secondsFor(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string perSecond(double count, double seconds) {
    return formatWithThousandsSeparator(static_cast<std::int64_t>(count / seconds));
}

}  // namespace

int main() {
    RsyncOutputBuilder builder(2024);
    std::string output;
    while (output.size() < 8 * 1024 * 1024) output += builder.run(400);

    const Tally onePass = splitAndParse(output, 1);
    const int passes = static_cast<int>((minimumLines + onePass.lines - 1) / onePass.lines);
    const double mebibytes = static_cast<double>(output.size()) * passes / (1024.0 * 1024.0);

    Tally tally;
    const double parseSeconds = secondsFor([&] { tally = splitAndParse(output, passes); });
    std::uint64_t lineFeeds = 0;
    const double countSeconds = secondsFor([&] { lineFeeds = countLineFeeds(output, passes); });

    std::printf(
        "rsync output: %.1f MiB per pass, %d passes, %s lines (%.1f%% progress, %.1f%% noise, %.1f%% "
        "logged)\n",
        static_cast<double>(output.size()) / (1024.0 * 1024.0), passes,
        formatWithThousandsSeparator(static_cast<std::int64_t>(tally.lines)).c_str(),
        100.0 * static_cast<double>(tally.progress) / static_cast<double>(tally.lines),
        100.0 * static_cast<double>(tally.noise) / static_cast<double>(tally.lines),
        100.0 * static_cast<double>(tally.logged) / static_cast<double>(tally.lines));
    std::printf("split + parse + noise + tracker: %s lines/s (%.0f MiB/s)\n",
                perSecond(static_cast<double>(tally.lines), parseSeconds).c_str(), mebibytes / parseSeconds);
    if (tally.displayedSum < 0) return 1;  // never: the tracker shows 0 to 1
    std::printf("baseline memchr LF count:        %s lines/s (%.0f MiB/s)\n",
                perSecond(static_cast<double>(lineFeeds), countSeconds).c_str(), mebibytes / countSeconds);
    std::printf("ratio: the same bytes take %.1fx the time of the memchr count\n",
                parseSeconds / countSeconds);
    const double linesPerSecond = static_cast<double>(tally.lines) / parseSeconds;
    std::printf("target: >= %.0f lines/s: %s\n", targetLinesPerSecond,
                linesPerSecond >= targetLinesPerSecond ? "met" : "NOT met");
    return 0;
}
