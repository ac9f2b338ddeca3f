// What rsync's output costs the GUI thread once it reaches the backup controller, and how often it
// redraws the card: a million lines of a realistic "rsync -avh --info=progress2" run go through
// BackupViewModel::appendOutput during a real (held) backup, in batches of 10,000 with the event
// loop turning between them as it does between pipe reads. The GUI thread's time per line is set
// against copying the same lines into a plain list, and the observable properties of the card may
// change at most four times a second however fast the lines come.

#include <QCoreApplication>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "app/AppSettings.h"
#include "core/Formatting.h"
#include "core/SettingsStore.h"
#include "workflows/BackupViewModel.h"

namespace {

using namespace tapekeep;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t lineCount = 1'000'000;
constexpr std::size_t batchSize = 10'000;
constexpr double linesPerSecond = 250'000;  // far above any card's rate: a stress, not a model
constexpr std::int64_t cardBytes = 256LL * 1024 * 1024;
constexpr double targetMicrosecondsPerLine = 1.0;
constexpr double targetChangesPerSecond = 4.0;
const std::string cardID = "76FA-7D45-0000-BE4C";

double seconds(SteadyClock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// A card in a temporary folder: a few M8 files and one large sparse sample, so that the dry run
// predicts enough bytes for the progress bar to move through the whole feed.
class BenchCard {
public:
    BenchCard() {
        std::string pattern = (fs::temp_directory_path() / "tapekeep-bench-XXXXXX").string();
        root_ = mkdtemp(pattern.data());
        for (const char* file : {"Songs/live set.m8s", "Instruments/bass.m8i"})
            write(mountPath() / file, "m8");
        write(mountPath() / "Samples/field recording.wav", "");
        fs::resize_file(mountPath() / "Samples/field recording.wav", cardBytes);
    }
    ~BenchCard() {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
    [[nodiscard]] fs::path mountPath() const { return root_ / "volumes/CARD"; }
    [[nodiscard]] const fs::path& root() const { return root_; }

private:
    static void write(const fs::path& file, const std::string& content) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << content;
    }
    fs::path root_;
};

// The lines as rsync prints them between carriage returns: a file name, one to four progress
// refreshes (ir-chk while the file list grows, to-chk once it is complete), now and then a line of
// older per-file progress display, and the statistics at the end.
std::vector<std::string> rsyncLines(std::size_t count) {
    std::mt19937 random(2024);
    auto below = [&](int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random); };
    static const char* const folders[] = {"Samples/Drums/", "Samples/Vox/Chöre/", "Songs/Live Set/",
                                          "Instruments/", "Samples/Field Recordings 2024/"};
    static const char* const stems[] = {"kick ", "snare ", "take ", "track ", "bass ", "Ünïcode pad "};
    static const char* const extensions[] = {".wav", ".wav", ".wav", ".m8s", ".m8i"};
    const int fileCount = static_cast<int>(count * 10 / 35);
    const std::int64_t step = 2 * cardBytes / (fileCount * 5 / 2);
    std::vector<std::string> lines{"sending incremental file list", "./"};
    std::int64_t bytes = 0;
    char text[200];
    for (int file = 1; lines.size() < count - 2; ++file) {
        lines.push_back(std::string(folders[below(5)]) + stems[below(6)] + std::to_string(file % 100) +
                        extensions[below(5)]);
        for (int refresh = 1 + below(4); refresh > 0; --refresh) {
            bytes = std::min(cardBytes, bytes + below(static_cast<int>(step)));
            const bool listComplete = file > fileCount / 4;
            const int total = listComplete ? fileCount + 1 : file + 1 + below(200);
            std::snprintf(text, sizeof text, "%15s %3d%% %7.2fMB/s    0:00:%02d (xfr#%d, %s-chk=%d/%d)",
                          formatWithThousandsSeparator(bytes).c_str(),
                          static_cast<int>(bytes * 100 / cardBytes), 1.0 + below(9000) / 100.0, below(60),
                          file, listComplete ? "to" : "ir", total - file, total);
            lines.emplace_back(text);
        }
        if (below(50) == 0)
            lines.push_back(formatWithThousandsSeparator(bytes) + " 101%   10.00MB/s    0:00:00");
    }
    lines.resize(count - 2);
    lines.push_back("sent " + formatWithThousandsSeparator(bytes) +
                    " bytes  received 1.23K bytes  45.67M bytes/sec");
    lines.push_back("total size is " + formatWithThousandsSeparator(cardBytes) + "  speedup is 1.00");
    return lines;
}

// A controller over the bench card, whose transfer pass waits until the run is cancelled, so
// that the feed below stands in for rsync's output with the card's progress tracker in place.
struct HeldRun {
    explicit HeldRun(const BenchCard& card)
        : store(card.root() / "settings.json"),
          settings(store, [] { return std::optional<std::string>("/usr/bin/rsync"); }) {
        settings.setBackupBaseDirPath(QString::fromStdString((card.root() / "backups").string()));
        BackupViewModel::Dependencies dependencies;
        dependencies.makeScanner = [volume = card.mountPath()] {
            VolumeScanner::Configuration configuration;
            configuration.volumesProvider = [volume] { return std::vector{volume}; };
            configuration.diskInfoProvider = [](const fs::path&, std::stop_token) {
                return DiskInfo{cardID, false};
            };
            return std::make_unique<VolumeScanner>(std::move(configuration));
        };
        dependencies.runRsync = [this](const std::string& path, const std::vector<std::string>& arguments,
                                       const BackupOperation::LineHandler& onLine, std::stop_token token) {
            if (!arguments.empty() && arguments.front() == "-an")
                return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
            transferEntered = true;
            while (!token.stop_requested()) std::this_thread::sleep_for(5ms);
            return 0;
        };
        dependencies.watchCards = false;
        model = std::make_unique<BackupViewModel>(settings, std::move(dependencies));
    }

    bool start() {
        model->scanForCards();
        if (!waitFor([&] { return !model->isScanning(); }) || model->detectedCards().size() != 1)
            return false;
        model->startBackup(model->detectedCards().front());
        return waitFor([&] { return transferEntered.load(); });
    }

    void stop() {
        model->cancelRun(model->detectedCards().front());
        waitFor([&] { return !model->isRunning(cardID); });
    }

    static bool waitFor(const std::function<bool()>& done) {
        const auto end = SteadyClock::now() + 60s;
        while (!done() && SteadyClock::now() < end) {
            QCoreApplication::processEvents();
            std::this_thread::sleep_for(1ms);
        }
        return done();
    }

    SettingsStore store;
    AppSettings settings;
    std::atomic<bool> transferEntered{false};
    std::unique_ptr<BackupViewModel> model;
};

struct FeedResult {
    double busySeconds = 0;    // GUI thread time: appendOutput and the event loop's turns
    double appendSeconds = 0;  // of which appendOutput alone
    double wallSeconds = 0;
    int changes[3] = {};  // cardLogs, cardProgress, cardFilesRemaining
};

// Feeds the lines at linesPerSecond in batches, turning the event loop between batches and while
// waiting for the next; the GUI thread's busy time is what appendOutput and the turns take.
FeedResult feed(BackupViewModel& model, const std::vector<std::string>& lines) {
    FeedResult result;
    QObject::connect(&model, &BackupViewModel::cardLogsChanged, [&] { ++result.changes[0]; });
    QObject::connect(&model, &BackupViewModel::cardProgressChanged, [&] { ++result.changes[1]; });
    QObject::connect(&model, &BackupViewModel::cardFilesRemainingChanged, [&] { ++result.changes[2]; });
    auto turnEventLoop = [&] {
        const auto before = SteadyClock::now();
        QCoreApplication::processEvents();
        result.busySeconds += seconds(SteadyClock::now() - before);
    };
    const auto start = SteadyClock::now();
    for (std::size_t first = 0; first < lines.size(); first += batchSize) {
        const auto due =
            start + std::chrono::duration_cast<SteadyClock::duration>(
                        std::chrono::duration<double>(static_cast<double>(first) / linesPerSecond));
        while (SteadyClock::now() < due) {
            turnEventLoop();
            std::this_thread::sleep_for(200us);
        }
        const auto before = SteadyClock::now();
        for (std::size_t i = first; i < std::min(first + batchSize, lines.size()); ++i)
            model.appendOutput(cardID, lines[i]);
        const double batch = seconds(SteadyClock::now() - before);
        result.appendSeconds += batch;
        result.busySeconds += batch;
        turnEventLoop();
    }
    // The last flush falls a quarter second after the last line.
    const auto drained = SteadyClock::now() + 400ms;
    while (SteadyClock::now() < drained) {
        turnEventLoop();
        std::this_thread::sleep_for(200us);
    }
    result.wallSeconds = seconds(SteadyClock::now() - start);
    return result;
}

// The least a log could cost: the same lines copied into a list.
double baselineSeconds(const std::vector<std::string>& lines) {
    std::vector<std::string> copy;
    const auto start = SteadyClock::now();
    for (const auto& line : lines) copy.push_back(line);
    const double elapsed = seconds(SteadyClock::now() - start);
    return copy.size() == lines.size() ? elapsed : -1;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const BenchCard card;
    const std::vector<std::string> lines = rsyncLines(lineCount);
    HeldRun run(card);
    if (!run.start()) {
        std::fprintf(stderr, "the held backup did not start\n");
        return 1;
    }
    const FeedResult result = feed(*run.model, lines);
    const std::size_t logged = run.model->cardLog(cardID).size();
    const auto progress = run.model->cardProgress(cardID);
    run.stop();
    const double baseline = baselineSeconds(lines);

    const double count = static_cast<double>(lines.size());
    const double perLine = result.busySeconds / count * 1e6;
    std::printf("rsync output: %s lines at %s lines/s over %.2f s; %s reached the log, progress %.3f\n",
                formatWithThousandsSeparator(static_cast<std::int64_t>(lines.size())).c_str(),
                formatWithThousandsSeparator(static_cast<std::int64_t>(linesPerSecond)).c_str(),
                result.wallSeconds, formatWithThousandsSeparator(static_cast<std::int64_t>(logged)).c_str(),
                progress.value_or(-1));
    std::printf("GUI thread per line: %.3f us (appendOutput alone %.3f us, flushes and event loop %.3f us)\n",
                perLine, result.appendSeconds / count * 1e6,
                (result.busySeconds - result.appendSeconds) / count * 1e6);
    std::printf("baseline copy into a list: %.3f us per line; ratio %.1fx\n", baseline / count * 1e6,
                result.busySeconds / baseline);
    double worst = 0;
    const char* names[] = {"cardLogs", "cardProgress", "cardFilesRemaining"};
    for (int i = 0; i < 3; ++i) {
        const double rate = result.changes[i] / result.wallSeconds;
        worst = std::max(worst, rate);
        std::printf("%s changed %d times: %.2f a second\n", names[i], result.changes[i], rate);
    }
    std::printf("target: < %.1f us per line on the GUI thread: %s\n", targetMicrosecondsPerLine,
                perLine < targetMicrosecondsPerLine ? "met" : "NOT met");
    std::printf("target: <= %.0f changes a second per property: %s\n", targetChangesPerSecond,
                worst <= targetChangesPerSecond ? "met" : "NOT met");
    return 0;
}
