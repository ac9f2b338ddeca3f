#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "cards/ValidateResult.h"
#include "core/DiskInfo.h"
#include "core/Log.h"
#include "core/SDCard.h"

namespace tapekeep {

class SettingsStore;

// The marker test: "System/STARTUP.m8s" exists at the volume root (any kind of item), or both
// "Songs" and "Instruments" are folders there. Nothing is opened. Any thread.
bool isM8Card(const std::filesystem::path& volume);

// Finds the M8 cards among the mounted volumes (scan) and tells whether the card with a given
// volume UUID is still mounted (validate). The UUID is a card's only identity: its mount path and
// name may change between mounts.
//
// A serial service: scan and validate hold one lock for their whole run, so callers on any thread
// wait for each other. A scan probes up to concurrencyLimit volumes at once, each on a thread of
// its own and each given probeTimeout to answer, every touch of the mount point included (a FUSE
// mount whose daemon stopped answering blocks the touching thread in the kernel for good). A probe
// that overruns is asked to stop and left to finish alone, so a stuck disk or mount costs its slot
// no longer than the timeout and never holds up a cancelled scan.
class VolumeScanner {
public:
    // The candidate volumes, in order. What it throws, scan throws.
    using VolumesProvider = std::function<std::vector<std::filesystem::path>()>;
    // The disk behind a volume. Called on probe threads, several at once; must honour the token.
    using DiskInfoProvider =
        std::function<DiskInfo(const std::filesystem::path& volume, std::stop_token token)>;
    // Whether a volume is an M8 card. Called on probe threads, several at once.
    using CardDetector = std::function<bool(const std::filesystem::path& volume)>;

    struct ScanResult {
        std::vector<SDCard> cards;  // by volume name, as a file browser orders names
        int examinedCount = 0;      // the cards and the external volumes with a UUID that are not cards
        int excludedCount = 0;      // those external volumes that are not cards
    };

    // What a scanner is built from. Empty providers take the system's: the mount points below
    // volumeRoots, the platform's disk identity, and isM8Card.
    struct Configuration {
        std::vector<std::filesystem::path> volumeRoots = defaultVolumeRoots();
        VolumesProvider volumesProvider = {};
        DiskInfoProvider diskInfoProvider = {};
        CardDetector cardDetector = {};
        SettingsStore* settings = nullptr;  // where "excludedVolumes" is read; null reads as empty
        std::chrono::duration<double> probeTimeout{5.0};
        int concurrencyLimit = 4;
    };

    // "/media", "/run/media", "/mnt".
    static const std::vector<std::filesystem::path>& defaultVolumeRoots();
    // The system's own volumes, never probed.
    static const std::set<std::string>& defaultExcludedNames();
    // The user's list as the setting holds it: only the first 1,024 characters count, names are
    // separated by ",", and spaces and tabs around them are dropped, as are empty names.
    static std::set<std::string> parseExclusionList(const std::string& setting);

    VolumeScanner();
    VolumeScanner(std::vector<std::filesystem::path> volumeRoots, SettingsStore* settings);
    explicit VolumeScanner(Configuration configuration);

    [[nodiscard]] std::chrono::duration<double> probeTimeout() const { return probeTimeout_; }
    [[nodiscard]] int concurrencyLimit() const { return concurrencyLimit_; }

    // The M8 cards among the volumes. A volume that cannot be probed is left out, never failing the
    // scan. Throws what volumesProvider throws, and Cancelled once every probe has been asked to
    // stop (and those that could, have).
    ScanResult scan(std::stop_token token = {}) const;

    // Looks the card up by UUID alone: no exclusion list, no marker test, no timeout on the disk's
    // answer. Only the test whether a volume is a directory, the one touch of its mount point, is
    // given probeTimeout; a volume that does not answer it counts as a failed probe. An empty UUID
    // is notFound; scanFailed when listing failed or every probe failed. Throws only Cancelled.
    ValidateResult validate(const std::string& uuid, std::stop_token token = {}) const;

private:
    std::set<std::string> userExcludedNames() const;
    std::vector<std::filesystem::path> candidatesAmong(
        const std::vector<std::filesystem::path>& volumes) const;

    // Constant after construction.
    VolumesProvider volumesProvider_;
    DiskInfoProvider diskInfoProvider_;
    CardDetector cardDetector_;
    SettingsStore* settings_;
    std::chrono::duration<double> probeTimeout_;
    int concurrencyLimit_;
    Log log_{"VolumeScanner"};

    mutable std::mutex serialLock_;  // held through each scan and validate
};

}  // namespace tapekeep
