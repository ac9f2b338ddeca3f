#pragma once

#include <QObject>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "backup/ZipExporter.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"

namespace tapekeep {

// The export of a version folder as a ZIP archive, one at a time, on a background task. The archive
// reaches its destination whole or not at all. Progress comes back to the GUI thread only when its
// whole percent changes, however many blocks and entries the archiver reports. What the user should
// read goes to the owner's log through the log handler.
//
// Lives on the GUI thread and is used only there. Destroying it cancels a running export, which then
// leaves no file behind.
class VersionExport : public QObject {
    Q_OBJECT

public:
    // ZipExporter::exportFolder, or a stand-in around it.
    using Exporter = std::function<std::int32_t(const std::filesystem::path& source,
                                                const std::filesystem::path& destination,
                                                const std::stop_token& token, const ZipExporter::Handlers&)>;
    using LogHandler = std::function<void(const std::string& line)>;

    VersionExport(Exporter exporter, LogHandler log, QObject* parent = nullptr);

    // Writes the archive of the folder to destination, replacing a file there. Refused with a line
    // saying why while another export runs, or when the folder is no longer there.
    void start(const std::filesystem::path& folder, const std::filesystem::path& destination);
    // Stops a running export at its next entry or block: it ends with no line and no file.
    void cancel();

    [[nodiscard]] bool isExporting() const { return task_.has_value(); }
    [[nodiscard]] double progress() const { return progress_; }  // 0 to 1
    [[nodiscard]] int percent() const { return percent_; }       // 0 to 100

signals:
    void isExportingChanged();
    void progressChanged();
    void percentChanged();
    // Not a property: the moment a started export has ended, whichever way.
    void finished();

private:
    struct Outcome {
        bool succeeded = false;
        std::optional<std::string> line;  // none for a cancellation
    };

    static Outcome run(const Exporter& exporter, const std::filesystem::path& folder,
                       const std::filesystem::path& destination, const ZipExporter::Handlers& handlers,
                       std::stop_token token);
    [[nodiscard]] ZipExporter::Handlers handlers();
    void showProgress(double fraction);
    void finish(const Outcome& outcome);

    Exporter exporter_;
    LogHandler log_;
    double progress_ = 0;
    int percent_ = 0;
    std::optional<BackgroundTasks::Id> task_;
    BackgroundWork work_{this};  // last: gone first, with its task stopped
};

}  // namespace tapekeep
