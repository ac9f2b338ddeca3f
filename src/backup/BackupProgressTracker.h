#pragma once

#include <cstdint>
#include <optional>

#include "backup/TransferEvent.h"
#include "backup/TransferProgressLine.h"

namespace tapekeep {

// Joins rsync's running progress lines with the dry run's estimate into the value of a progress
// bar, which never runs backwards within a transfer pass and stays at or below 0.99 until the run
// reports that the transfer has finished. A controller keeps one per card, created with nothing
// known, and uses it from one thread (the GUI thread); it is a plain value with no locking.
struct BackupProgressTracker {
    std::optional<std::int64_t> expectedBytes;          // bytes that the dry run predicted
    std::optional<std::int64_t> expectedFiles;          // files that the dry run predicted
    std::optional<std::int64_t> lastTransferred;        // highest "xfr#" seen in this pass
    std::optional<std::int64_t> lastCompleteRemaining;  // remaining count of the last "to-chk="
    bool isTransferFinished = false;                    // the run reported transferFinished
    std::optional<double> displayedProgress;            // what the bar shows; absent before any value

    // The fraction of the transfer that `line` stands for, 0.0 to 1.0, from the estimate where there
    // is one and from rsync's percentage or its check counts where there is not.
    [[nodiscard]] double fraction(const TransferProgressLine& line) const;

    // Takes a progress line into the pass (a line after transferFinished begins a new pass) and
    // returns the new displayed progress.
    double feed(const TransferProgressLine& line);

    // Takes the run's estimate, or the end of a pass, which shows as 1.0.
    void apply(const TransferEvent& event);

    // Files still to copy as the user should read it: from the estimate when there is one, else
    // from rsync's last complete check count, which may be absent.
    [[nodiscard]] std::optional<std::int64_t> filesRemaining() const;
};

}  // namespace tapekeep
