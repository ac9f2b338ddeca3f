#include "backup/BackupProgressTracker.h"

#include <algorithm>

namespace tapekeep {
namespace {

using CheckKind = TransferProgressLine::CheckKind;

// The bar stays short of full until the run reports that the transfer has finished.
constexpr double highestUnfinishedProgress = 0.99;

double clamped(double value) {
    return std::clamp(value, 0.0, 1.0);
}

// Progress from the "-chk=" counts alone: the share of the listed files that is checked.
double fractionByChecks(const TransferProgressLine& line) {
    if (!line.remaining || !line.total || *line.total <= 0) return 0.0;
    return clamped(static_cast<double>(*line.total - *line.remaining) / static_cast<double>(*line.total));
}

// Without an estimate rsync's percentage is all there is. A line of 100% and no bytes, though, is
// what rsync prints while it only checks files: then the bar is full only once nothing remains.
double fractionWithoutEstimate(const TransferProgressLine& line) {
    if (line.percent != 100 || line.transferredBytes != 0) return clamped(line.percent / 100.0);
    if (line.checkKind == CheckKind::to && line.remaining == 0) return 1.0;
    return fractionByChecks(line);
}

}  // namespace

double BackupProgressTracker::fraction(const TransferProgressLine& line) const {
    if (!expectedBytes) return fractionWithoutEstimate(line);
    if (*expectedBytes <= 0) return fractionByChecks(line);
    const double byteFraction =
        clamped(static_cast<double>(line.transferredBytes) / static_cast<double>(*expectedBytes));
    if (!expectedFiles || *expectedFiles <= 0) return byteFraction;
    const auto files = line.transferredFiles ? line.transferredFiles : lastTransferred;
    if (!files) return byteFraction;
    const double fileFraction = clamped(static_cast<double>(*files) / static_cast<double>(*expectedFiles));
    // Neither many small files nor one large file may run ahead alone.
    return (byteFraction + fileFraction) * 0.5;
}

double BackupProgressTracker::feed(const TransferProgressLine& line) {
    const bool beginsNewPass = isTransferFinished;
    if (beginsNewPass) {
        lastTransferred.reset();
        lastCompleteRemaining.reset();
    }
    if (line.transferredFiles)
        lastTransferred = std::max(*line.transferredFiles, lastTransferred.value_or(0));
    // While rsync still builds its file list ("ir-chk") its counts mean little.
    if (line.checkKind == CheckKind::to && line.remaining) lastCompleteRemaining = line.remaining;
    isTransferFinished = false;
    const double capped = std::min(fraction(line), highestUnfinishedProgress);
    displayedProgress = beginsNewPass ? capped : std::max(capped, displayedProgress.value_or(0.0));
    return *displayedProgress;
}

void BackupProgressTracker::apply(const TransferEvent& event) {
    switch (event.kind) {
        case TransferEvent::Kind::expectedBytes:
            expectedBytes = event.value;
            break;
        case TransferEvent::Kind::expectedFiles:
            expectedFiles = event.value;
            break;
        case TransferEvent::Kind::transferFinished:
            isTransferFinished = true;
            displayedProgress = 1.0;
            break;
    }
}

std::optional<std::int64_t> BackupProgressTracker::filesRemaining() const {
    if (expectedFiles && *expectedFiles > 0)
        return std::max<std::int64_t>(*expectedFiles - lastTransferred.value_or(0), 0);
    return lastCompleteRemaining;
}

}  // namespace tapekeep
