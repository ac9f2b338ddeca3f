#include "ui/RsyncClassLabel.h"

#include "backup/RsyncFinder.h"
#include "backup/RsyncVersion.h"
#include "core/Cancelled.h"
#include "core/Error.h"

namespace tapekeep {

RsyncClassLabel::RsyncClassLabel(QObject* parent) : QObject(parent) {}

void RsyncClassLabel::setPath(const QString& path) {
    if (path == path_) return;
    path_ = path;
    emit pathChanged();
    detect();
}

namespace {

QStringList installedRsyncs() {
    QStringList found;
    for (const auto& candidate : rsyncCandidates())
        if (isExecutableFile(candidate)) found.append(QString::fromStdString(candidate));
    return found;
}

}  // namespace

void RsyncClassLabel::detect() {
    background_.tasks().cancel(running_);
    const std::uint64_t generation = ++generation_;
    setDetecting(true);
    running_ = background_.tasks().start(
        [this, generation, path = path_.toStdString(), poster = background_.poster()](std::stop_token token) {
            Result result;
            try {
                result.label = QString::fromStdString(RsyncVersion::detect(path, token).settingsLabel());
            } catch (const Cancelled&) {
                return;  // a newer path is being classified
            } catch (const std::exception& error) {
                result.label = QString::fromStdString(RsyncVersion().settingsLabel());
                result.problem = QString::fromStdString(describe(error));
            }
            result.installed = installedRsyncs();
            poster->post([this, generation, result] { applyResult(generation, result); });
        });
}

void RsyncClassLabel::applyResult(std::uint64_t generation, const Result& result) {
    if (generation != generation_) return;
    label_ = result.label;
    problem_ = result.problem;
    installed_ = result.installed;
    emit resultChanged();
    setDetecting(false);
}

void RsyncClassLabel::setDetecting(bool detecting) {
    if (detecting == isDetecting_) return;
    isDetecting_ = detecting;
    emit isDetectingChanged();
}

}  // namespace tapekeep
