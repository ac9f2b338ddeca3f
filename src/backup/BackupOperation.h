#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "backup/BackupOutcome.h"
#include "backup/BackupRequest.h"
#include "backup/TransferEvent.h"
#include "core/Timestamp.h"

namespace tapekeep {

// One backup from request to outcome: validate the card, copy it with rsync into a hidden staging
// folder hard-linked against the previous version, publish it with one atomic rename, rotate.
// A failure leaves no half-written version: the staging folder is removed or kept for diagnosis.
//
// run() blocks the calling thread; log, onEvent and rsync's line handler are called on it.
class BackupOperation {
public:
    using Request = BackupRequest;
    using Outcome = BackupOutcome;
    using LineHandler = std::function<void(const std::string& line)>;
    using LogHandler = std::function<void(const std::string& line)>;
    using EventHandler = std::function<void(const TransferEvent& event)>;
    // Runs one rsync and returns its exit status; throws when it could not be run.
    using RsyncRunner =
        std::function<int(const std::string& rsyncPath, const std::vector<std::string>& arguments,
                          const LineHandler& onLine, std::stop_token token)>;
    // Throws when the card is no longer the mounted, expected volume.
    using VolumeValidator = std::function<void(const Request& request, std::stop_token token)>;

    // What the run needs from the machine; replaceable so that failures can be provoked in tests.
    struct Environment {
        std::function<std::optional<std::int64_t>(const std::filesystem::path&)> availableBytes;
        std::function<Clock::time_point()> now;
        static Environment system();
    };

    static constexpr std::int64_t requiredHeadroomBytes = 104'857'600;  // 100 MiB beyond the estimate

    static Outcome run(const Request& request, const LogHandler& log, const EventHandler& onEvent,
                       const RsyncRunner& runRsync, const VolumeValidator& validateVolume,
                       std::stop_token token, const Environment& environment = Environment::system());

    // The rsync runner of a normal run: the shared process runner with rsync's locale rule.
    static RsyncRunner defaultRsyncRunner();

    // A "Total transferred file size" / "Number of files transferred" value of rsync --stats.
    static std::optional<std::int64_t> parseStatsNumber(const std::string& line, bool stripBytes);
};

}  // namespace tapekeep
