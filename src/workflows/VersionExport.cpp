#include "workflows/VersionExport.h"

#include <algorithm>
#include <cmath>

#include "backup/BackupRepository.h"
#include "backup/RestoreError.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Formatting.h"
#include "core/Log.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// By the files' bytes; a folder of empty files goes by its entries.
double fractionOf(const ZipExporter::Progress& progress) {
    if (progress.totalBytes > 0)
        return std::min(
            1.0, static_cast<double>(progress.bytesWritten) / static_cast<double>(progress.totalBytes));
    if (progress.totalEntries > 0)
        return std::min(
            1.0, static_cast<double>(progress.entriesWritten) / static_cast<double>(progress.totalEntries));
    return 0;
}

// Whole percents, rounded down: 100 only once every byte is in the archive.
int percentOf(double fraction) {
    return static_cast<int>(std::floor(fraction * 100));
}

const Log& log() {
    static const Log instance("VersionExport");
    return instance;
}

std::string completionLine(const fs::path& archive) {
    std::error_code error;
    const auto size = fs::file_size(archive, error);
    if (error) return "Export complete!";  // published, then moved or removed at once
    return "Export complete! (" + formatByteCount(static_cast<std::int64_t>(size)) + ")";
}

}  // namespace

VersionExport::VersionExport(Exporter exporter, LogHandler log, QObject* parent)
    : QObject(parent), exporter_(std::move(exporter)), log_(std::move(log)) {}

void VersionExport::start(const fs::path& folder, const fs::path& destination) {
    if (task_) return log_("Export unavailable: An export is already running.");
    if (!BackupRepository::isRealDirectory(folder))
        return log_("Export unavailable: " + RestoreError::backupNotFound().description());
    log_("Calculating size…");
    showProgress(0);
    task_ = work_.tasks().start([this, folder, destination, exporter = exporter_, handlers = handlers(),
                                 poster = work_.poster()](std::stop_token token) {
        const Outcome outcome = run(exporter, folder, destination, handlers, token);
        poster->post([this, outcome] { finish(outcome); });
    });
    emit isExportingChanged();
}

void VersionExport::cancel() {
    if (task_) work_.tasks().cancel(*task_);
}

VersionExport::Outcome VersionExport::run(const Exporter& exporter, const fs::path& folder,
                                          const fs::path& destination, const ZipExporter::Handlers& handlers,
                                          std::stop_token token) {
    try {
        if (const std::int32_t status = exporter(folder, destination, token, handlers); status != 0)
            return {false, "Export failed (exit code " + std::to_string(status) + ")"};
        return {true, completionLine(destination)};
    } catch (const Cancelled&) {
        return {false, std::nullopt};
    } catch (const std::exception& error) {
        return {false, "Export failed: " + describe(error)};
    }
}

// On the export's thread: a queued call only when the shown percent would change. The archiver's own
// words about a failure go to the diagnostic log; the user reads the failure's line.
ZipExporter::Handlers VersionExport::handlers() {
    ZipExporter::Handlers handlers;
    handlers.outputLine = [](const std::string& line) { log().error("Archiver: " + line); };
    handlers.progress = [this, poster = work_.poster(),
                         shown = 0](const ZipExporter::Progress& progress) mutable {
        const double fraction = fractionOf(progress);
        if (percentOf(fraction) == shown) return;
        shown = percentOf(fraction);
        poster->post([this, fraction] { showProgress(fraction); });
    };
    return handlers;
}

void VersionExport::showProgress(double fraction) {
    if (progress_ != fraction) {
        progress_ = fraction;
        emit progressChanged();
    }
    if (const int percent = percentOf(fraction); percent_ != percent) {
        percent_ = percent;
        emit percentChanged();
    }
}

// The line stands in the log before anyone hears that the export is over.
void VersionExport::finish(const Outcome& outcome) {
    task_.reset();
    if (outcome.line) log_(*outcome.line);
    showProgress(outcome.succeeded ? 1.0 : 0.0);
    emit isExportingChanged();
    emit finished();
}

}  // namespace tapekeep
