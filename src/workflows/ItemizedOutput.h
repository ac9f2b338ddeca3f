#pragma once

#include <filesystem>
#include <future>
#include <stop_token>
#include <string>
#include <vector>

#include "backup/RsyncLogStore.h"
#include "backup/RsyncVersion.h"
#include "core/FileDiff.h"
#include "core/Log.h"

// The reading of an rsync dry run's itemised lines, shared by every controller that shows such a
// run's rows (the comparison of two versions, the preview of a restore). Any thread.
namespace tapekeep::ItemizedOutput {

// The class of the rsync at rsyncPath, told on a thread of its own: started before the dry run, its
// process runs alongside instead of adding its whole time after the run. Throws (through the
// future) what RsyncVersion::detect throws.
std::future<RsyncVersion> detectVersionMeanwhile(const std::string& rsyncPath, std::stop_token token);

// The differences that the lines of a finished dry run name, read as the class that detection
// (of the rsync that printed them) tells. Output of an rsync whose class is unsupported, or could not be
// told, cannot be trusted however well formed it looks: it is saved to logStore for diagnosis and
// RestoreError::parseFailedWithLog is thrown (an Error saying so when even the log cannot be saved).
// The failures are logged on log: "detectVersion failed: {error}" and "{purpose} parse failed: {error}".
// Throws Cancelled.
std::vector<FileDiff> read(const std::vector<std::string>& lines, std::future<RsyncVersion> detection,
                           const RsyncLogStore& logStore, const Log& log, const std::string& purpose,
                           std::stop_token token);

// The lines as one text, for a log file.
std::string joined(const std::vector<std::string>& lines);

}  // namespace tapekeep::ItemizedOutput
