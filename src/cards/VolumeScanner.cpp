#include "cards/VolumeScanner.h"

#include <utf8proc.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <optional>
#include <thread>

#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/NaturalOrder.h"
#include "core/SettingsStore.h"
#include "core/TimeLimitedCall.h"
#include "core/Utf8.h"
#include "platform/LinuxDiskIdentity.h"
#include "platform/MountTable.h"

namespace tapekeep {
namespace {

using std::filesystem::path;
using SteadyClock = std::chrono::steady_clock;

constexpr const char* excludedVolumesKey = "excludedVolumes";
constexpr std::size_t exclusionListCharacterLimit = 1024;

namespace Reason {
constexpr const char* defaultExclusion = "defaultExclusion";
constexpr const char* userExclusion = "userExclusion";
constexpr const char* notDirectory = "notDirectory";
constexpr const char* diskutilTimedOut = "diskutilTimedOut";
constexpr const char* diskutilFailed = "diskutilFailed";
constexpr const char* diskutilCancelled = "diskutilCancelled";
constexpr const char* noUUID = "noUUID";
constexpr const char* internalDevice = "internalDevice";
constexpr const char* notM8Card = "notM8Card";
}  // namespace Reason

// What looking at one candidate volume came to.
struct ProbeOutcome {
    enum class Kind { card, nonM8, ignored };

    static ProbeOutcome card(SDCard detected) {
        std::string name = detected.volumeName;
        return {Kind::card, std::move(name), std::move(detected), {}};
    }
    static ProbeOutcome nonM8(std::string name) { return {Kind::nonM8, std::move(name), {}, {}}; }
    static ProbeOutcome ignored(std::string name, std::string reason) {
        return {Kind::ignored, std::move(name), {}, std::move(reason)};
    }

    Kind kind;
    std::string volumeName;
    SDCard detected;     // for the kind card
    std::string reason;  // for the kind ignored
};

// "/media/user/CARD/" is named "CARD", as "/media/user/CARD" is.
std::string volumeName(const path& volume) {
    return volume.has_filename() ? volume.filename().string() : volume.parent_path().filename().string();
}

bool isExistingDirectory(const path& volume) {
    std::error_code error;
    return std::filesystem::is_directory(volume, error);
}

bool itemExists(const path& item) {
    std::error_code error;
    return std::filesystem::exists(item, error);
}

// The first `count` characters as the user counts them (grapheme clusters), so that a cut never
// splits a letter from its accent. A byte that is not UTF-8 counts as one character.
std::string_view firstCharacters(std::string_view text, std::size_t count) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    std::size_t position = 0, characters = 0;
    utf8proc_int32_t previous = -1, state = 0;
    while (position < text.size()) {
        utf8proc_int32_t codepoint = 0;
        auto length = utf8proc_iterate(bytes + position,
                                       static_cast<utf8proc_ssize_t>(text.size() - position), &codepoint);
        if (length <= 0) {
            length = 1;
            codepoint = 0xFFFD;
        }
        if (previous < 0 || utf8proc_grapheme_break_stateful(previous, codepoint, &state)) {
            if (characters == count) return text.substr(0, position);
            ++characters;
        }
        previous = codepoint;
        position += static_cast<std::size_t>(length);
    }
    return text;
}

// The mount table names mount points by their real paths, so a root reached through a symbolic
// link ("/media" -> "/run/media") is resolved first. A root that is itself a mount point may not
// answer: then the roots are taken as given.
std::vector<path> resolvedRoots(const std::vector<path>& roots, SteadyClock::duration limit) {
    auto resolve = [roots] {
        std::vector<path> resolved;
        for (const path& root : roots) {
            std::error_code error;
            const path real = std::filesystem::weakly_canonical(root, error);
            resolved.push_back(error ? root : real);
        }
        return resolved;
    };
    return callWithTimeLimit(std::move(resolve), limit).value_or(roots);
}

SteadyClock::duration asLimit(std::chrono::duration<double> timeout) {
    return std::chrono::duration_cast<SteadyClock::duration>(timeout);
}

// Whether the volume is a directory, or nothing when it gave no answer within the limit.
std::optional<bool> isDirectoryWithin(const path& volume, SteadyClock::duration limit,
                                      std::stop_token token) {
    return callWithTimeLimit([volume] { return isExistingDirectory(volume); }, limit, std::move(token));
}

void logExclusion(const Log& log, const std::string& name, const std::string& reason) {
    log.debug("Excluded volume '" + name + "' reason=" + reason);
}

// The rest of a probe once the disk has answered; the marker test comes last, only for external
// volumes with a UUID.
ProbeOutcome examine(const path& volume, const DiskInfo& info,
                     const VolumeScanner::CardDetector& cardDetector) {
    const std::string name = volumeName(volume);
    if (info.uuid.empty()) return ProbeOutcome::ignored(name, Reason::noUUID);
    if (info.isInternal) return ProbeOutcome::ignored(name, Reason::internalDevice);
    if (cardDetector(volume)) return ProbeOutcome::card(SDCard{volume, name, info.uuid});
    return ProbeOutcome::nonM8(name);
}

ProbeOutcome outcomeOfFailure(const std::string& name, const std::exception_ptr& error) {
    if (isCancellation(error)) throw Cancelled();
    // Never taken: the test above claims every cancellation first. The reason stays so that the
    // vocabulary of the log is complete.
    if (isCancellation(error)) return ProbeOutcome::ignored(name, Reason::diskutilCancelled);
    return ProbeOutcome::ignored(name, Reason::diskutilFailed);
}

// Everything a scan learns about one candidate, every touch of its mount point included: a mount
// whose file system stopped answering blocks the touching thread in the kernel for good. The marker
// test comes last, only for external volumes with a UUID.
ProbeOutcome probe(const path& volume, const VolumeScanner::DiskInfoProvider& diskInfoProvider,
                   const VolumeScanner::CardDetector& cardDetector, std::stop_token token) {
    const std::string name = volumeName(volume);
    if (!isExistingDirectory(volume)) return ProbeOutcome::ignored(name, Reason::notDirectory);
    DiskInfo info;
    try {
        info = diskInfoProvider(volume, std::move(token));
    } catch (...) {
        return outcomeOfFailure(name, std::current_exception());
    }
    return examine(volume, info, cardDetector);
}

// The coordination of one scan's probes; guarded by mutex.
struct ProbeGroup {
    std::mutex mutex;
    std::condition_variable_any changed;  // a probe finished
};

// One probe in flight, shared by the scan and the probe's thread. Fields below the line are
// guarded by ProbeGroup::mutex.
struct ProbeSlot {
    path volume;
    std::stop_source stopSource;
    SteadyClock::time_point deadline;
    std::thread thread;  // touched by the scan only
    // ---
    bool finished = false;
    std::optional<ProbeOutcome> outcome;
    std::exception_ptr error;  // a cancellation, or an error of the card detector
};

// The body of a probe's thread. Owns copies of everything it uses, because a probe that overran
// its deadline is left behind and may outlive its scan and its scanner, for good when the kernel
// never answers.
void runProbe(std::shared_ptr<ProbeGroup> group, std::shared_ptr<ProbeSlot> slot,
              VolumeScanner::DiskInfoProvider diskInfoProvider, VolumeScanner::CardDetector cardDetector) {
    std::optional<ProbeOutcome> outcome;
    std::exception_ptr error;
    try {
        outcome = probe(slot->volume, diskInfoProvider, cardDetector, slot->stopSource.get_token());
    } catch (...) {
        error = std::current_exception();
    }
    std::lock_guard lock(group->mutex);
    slot->outcome = std::move(outcome);
    slot->error = error;
    slot->finished = true;
    group->changed.notify_all();
}

// How long a cancelled scan waits for its probes to see their stop (a disk tool is killed, say)
// before it leaves those that are blocked where no stop reaches.
constexpr auto stopGracePeriod = std::chrono::milliseconds(500);

// Probes the candidates, at most `limit` at a time, starting the next in list order whenever one
// ends. Outcomes come in order of completion. A probe that has not finished by its deadline is
// left to finish alone and counts as timed out. A cancellation (of the scan, or thrown by a probe)
// stops every running probe, waits a little for them and throws.
class ProbeRun {
public:
    ProbeRun(const std::vector<path>& candidates, const VolumeScanner::DiskInfoProvider& diskInfoProvider,
             const VolumeScanner::CardDetector& cardDetector, std::chrono::duration<double> timeout,
             int limit, std::stop_token token)
        : candidates_(candidates),
          diskInfoProvider_(diskInfoProvider),
          cardDetector_(cardDetector),
          timeout_(asLimit(timeout)),
          limit_(static_cast<std::size_t>(std::max(1, limit))),
          token_(std::move(token)) {}

    ProbeRun(const ProbeRun&) = delete;
    ProbeRun& operator=(const ProbeRun&) = delete;

    ~ProbeRun() {
        for (auto& slot : running_) abandon(*slot);
    }

    std::vector<ProbeOutcome> run() {
        while (!failure_) {
            if (token_.stop_requested()) {
                failure_ = std::make_exception_ptr(Cancelled());
                break;
            }
            fillSlots();
            if (running_.empty()) return std::move(outcomes_);
            waitForChange();
            harvest();
        }
        stopRunning();
        std::rethrow_exception(failure_);
    }

private:
    void fillSlots() {
        while (running_.size() < limit_ && next_ < candidates_.size()) start(candidates_[next_++]);
    }

    void start(const path& volume) {
        auto slot = std::make_shared<ProbeSlot>();
        slot->volume = volume;
        slot->deadline = SteadyClock::now() + timeout_;
        try {
            slot->thread = std::thread(runProbe, group_, slot, diskInfoProvider_, cardDetector_);
        } catch (const std::system_error&) {
            outcomes_.push_back(ProbeOutcome::ignored(volumeName(volume), Reason::diskutilFailed));
            return;
        }
        running_.push_back(std::move(slot));
    }

    // Wakes on a finished probe, the earliest deadline or the scan's token.
    void waitForChange() {
        std::unique_lock lock(group_->mutex);
        group_->changed.wait_until(lock, token_, earliestDeadline(), [this] { return anyFinished(); });
    }

    // Under the group's lock.
    bool anyFinished() const {
        return std::any_of(running_.begin(), running_.end(), [](const auto& slot) { return slot->finished; });
    }
    bool allFinished() const {
        return std::all_of(running_.begin(), running_.end(), [](const auto& slot) { return slot->finished; });
    }
    SteadyClock::time_point earliestDeadline() const {
        return (*std::min_element(running_.begin(), running_.end(),
                                  [](const auto& a, const auto& b) { return a->deadline < b->deadline; }))
            ->deadline;
    }

    void harvest() {
        std::vector<std::shared_ptr<ProbeSlot>> finished, overdue;
        {
            std::lock_guard lock(group_->mutex);
            const auto now = SteadyClock::now();
            for (const auto& slot : running_) {
                if (slot->finished)
                    finished.push_back(slot);
                else if (now >= slot->deadline)
                    overdue.push_back(slot);
            }
        }
        for (const auto& slot : finished) collect(*slot);
        for (const auto& slot : overdue) timeOut(*slot);
        std::erase_if(running_, [&](const auto& slot) {
            return std::find(finished.begin(), finished.end(), slot) != finished.end() ||
                   std::find(overdue.begin(), overdue.end(), slot) != overdue.end();
        });
    }

    // The thread has set finished and let go of the lock: nothing of it is left but its return.
    void collect(ProbeSlot& slot) {
        slot.thread.join();
        if (slot.error && !failure_) failure_ = slot.error;
        if (slot.outcome) outcomes_.push_back(std::move(*slot.outcome));
    }

    void timeOut(ProbeSlot& slot) {
        abandon(slot);
        outcomes_.push_back(ProbeOutcome::ignored(volumeName(slot.volume), Reason::diskutilTimedOut));
    }

    // Passes the stop on to every running probe and gives them the grace period to end; those that
    // do are joined, the others left behind.
    void stopRunning() {
        for (auto& slot : running_) slot->stopSource.request_stop();
        {
            std::unique_lock lock(group_->mutex);
            group_->changed.wait_for(lock, stopGracePeriod, [this] { return allFinished(); });
        }
        for (auto& slot : running_) {
            bool finished = false;
            {
                std::lock_guard lock(group_->mutex);
                finished = slot->finished;
            }
            if (finished)
                slot->thread.join();
            else
                abandon(*slot);
        }
        running_.clear();
    }

    // The thread keeps its own references to the slot and the group, so it may go on alone.
    static void abandon(ProbeSlot& slot) {
        slot.stopSource.request_stop();
        if (slot.thread.joinable()) slot.thread.detach();
    }

    const std::vector<path>& candidates_;
    const VolumeScanner::DiskInfoProvider& diskInfoProvider_;
    const VolumeScanner::CardDetector& cardDetector_;
    const SteadyClock::duration timeout_;
    const std::size_t limit_;
    const std::stop_token token_;

    std::shared_ptr<ProbeGroup> group_ = std::make_shared<ProbeGroup>();
    std::vector<std::shared_ptr<ProbeSlot>> running_;
    std::size_t next_ = 0;  // the next candidate to start
    std::vector<ProbeOutcome> outcomes_;
    std::exception_ptr failure_;  // the first cancellation or error; no probe starts after it
};

}  // namespace

bool isM8Card(const path& volume) {
    if (itemExists(volume / "System" / "STARTUP.m8s")) return true;
    return isExistingDirectory(volume / "Songs") && isExistingDirectory(volume / "Instruments");
}

const std::vector<path>& VolumeScanner::defaultVolumeRoots() {
    static const std::vector<path> roots{"/media", "/run/media", "/mnt"};
    return roots;
}

const std::set<std::string>& VolumeScanner::defaultExcludedNames() {
    static const std::set<std::string> names{
        "Macintosh HD", "Data",  "com.apple.TimeMachine.localsnapshots", "Recovery", "Preboot",
        "VM",           "Update"};
    return names;
}

std::set<std::string> VolumeScanner::parseExclusionList(const std::string& setting) {
    const std::string_view list = firstCharacters(setting, exclusionListCharacterLimit);
    std::set<std::string> names;
    std::size_t start = 0;
    while (start <= list.size()) {
        const std::size_t end = std::min(list.find(',', start), list.size());
        if (const auto name = trimmedSpacesAndTabs(list.substr(start, end - start)); !name.empty())
            names.emplace(name);
        start = end + 1;
    }
    return names;
}

VolumeScanner::VolumeScanner() : VolumeScanner(Configuration{}) {}

VolumeScanner::VolumeScanner(std::vector<path> volumeRoots, SettingsStore* settings)
    : VolumeScanner(Configuration{.volumeRoots = std::move(volumeRoots), .settings = settings}) {}

VolumeScanner::VolumeScanner(Configuration configuration)
    : volumesProvider_(std::move(configuration.volumesProvider)),
      diskInfoProvider_(std::move(configuration.diskInfoProvider)),
      cardDetector_(std::move(configuration.cardDetector)),
      settings_(configuration.settings),
      probeTimeout_(configuration.probeTimeout),
      concurrencyLimit_(configuration.concurrencyLimit) {
    if (!volumesProvider_)
        volumesProvider_ = [roots = std::move(configuration.volumeRoots), limit = asLimit(probeTimeout_)] {
            return MountTable::readLive().volumesBelow(resolvedRoots(roots, limit));
        };
    if (!diskInfoProvider_) diskInfoProvider_ = LinuxDiskIdentity::diskInfo;
    if (!cardDetector_) cardDetector_ = isM8Card;
}

VolumeScanner::ScanResult VolumeScanner::scan(std::stop_token token) const {
    std::lock_guard serial(serialLock_);
    throwIfCancelled(token);
    const std::vector<path> candidates = candidatesAmong(volumesProvider_());
    throwIfCancelled(token);
    if (candidates.empty()) return {};

    const auto outcomes =
        ProbeRun(candidates, diskInfoProvider_, cardDetector_, probeTimeout_, concurrencyLimit_, token).run();
    ScanResult result;
    for (const ProbeOutcome& outcome : outcomes) {
        switch (outcome.kind) {
            case ProbeOutcome::Kind::card:
                result.cards.push_back(outcome.detected);
                ++result.examinedCount;
                break;
            case ProbeOutcome::Kind::nonM8:
                logExclusion(log_, outcome.volumeName, Reason::notM8Card);
                ++result.examinedCount;
                ++result.excludedCount;
                break;
            case ProbeOutcome::Kind::ignored:
                logExclusion(log_, outcome.volumeName, outcome.reason);
                break;
        }
    }
    std::stable_sort(result.cards.begin(), result.cards.end(), [](const SDCard& a, const SDCard& b) {
        return naturalLess(a.volumeName, b.volumeName);
    });
    return result;
}

std::set<std::string> VolumeScanner::userExcludedNames() const {
    return settings_ ? parseExclusionList(settings_->string(excludedVolumesKey)) : std::set<std::string>();
}

// The volumes worth probing, in list order; the others are logged and counted nowhere. Decided by
// name alone: whether a volume is a directory is learnt by its probe, within its time limit.
std::vector<path> VolumeScanner::candidatesAmong(const std::vector<path>& volumes) const {
    const std::set<std::string> userNames = userExcludedNames();
    std::vector<path> candidates;
    for (const path& volume : volumes) {
        const std::string name = volumeName(volume);
        if (defaultExcludedNames().contains(name))
            logExclusion(log_, name, Reason::defaultExclusion);
        else if (userNames.contains(name))
            logExclusion(log_, name, Reason::userExclusion);
        else
            candidates.push_back(volume);
    }
    return candidates;
}

ValidateResult VolumeScanner::validate(const std::string& uuid, std::stop_token token) const {
    std::lock_guard serial(serialLock_);
    if (uuid.empty()) return ValidateResult::notFound();
    throwIfCancelled(token);
    std::vector<path> volumes;
    try {
        volumes = volumesProvider_();
    } catch (const Cancelled&) {
        throw;
    } catch (...) {
        log_.error("/Volumes enumeration failed — scanFailed: " + describe(std::current_exception()));
        return ValidateResult::scanFailed();
    }

    bool attemptedProbe = false, sawSuccessfulProbe = false;
    for (const path& volume : volumes) {
        throwIfCancelled(token);
        const std::optional<bool> isDirectory = isDirectoryWithin(volume, asLimit(probeTimeout_), token);
        if (isDirectory == false) continue;
        attemptedProbe = true;
        if (!isDirectory) {
            log_.debug("Volume " + volume.string() + " did not answer within the probe timeout");
            continue;
        }
        DiskInfo info;
        try {
            info = diskInfoProvider_(volume, token);
        } catch (const Cancelled&) {
            throw;
        } catch (...) {
            log_.debug("diskutil info failed for " + volume.string() + ": " +
                       describe(std::current_exception()));
            continue;
        }
        if (info.uuid == uuid) {
            log_.debug("UUID " + uuid + " still mounted at " + volume.string());
            return ValidateResult::found(SDCard{volume, volumeName(volume), uuid});
        }
        sawSuccessfulProbe = true;
    }
    if (attemptedProbe && !sawSuccessfulProbe) {
        log_.error("All diskutil probes failed under /Volumes — scanFailed");
        return ValidateResult::scanFailed();
    }
    log_.debug("UUID " + uuid + " not found in /Volumes (card pulled/replaced)");
    return ValidateResult::notFound();
}

}  // namespace tapekeep
