#include "workflows/ComparisonViewModel.h"

#include "backup/RestoreError.h"
#include "backup/RsyncCommands.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Log.h"
#include "platform/ProcessRunner.h"
#include "workflows/ItemizedOutput.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
ComparisonViewModel::ComparisonViewModel(std::vector<BackupVersion> versions, Dependencies dependencies,
                                         QObject* parent)
    : QObject(parent), versions_(std::move(versions)), dependencies_(std::move(dependencies)), work_(this) {}

void ComparisonViewModel::chooseVersionA(int index) {
    setVersionA(index >= 0 && static_cast<std::size_t>(index) < versions_.size()
                    ? std::optional(versions_[static_cast<std::size_t>(index)])
                    : std::nullopt);
}

void ComparisonViewModel::chooseVersionB(int index) {
    setVersionB(index >= 0 && static_cast<std::size_t>(index) < versions_.size()
                    ? std::optional(versions_[static_cast<std::size_t>(index)])
                    : std::nullopt);
}

void ComparisonViewModel::setVersionA(std::optional<BackupVersion> version) {
    versionA_ = std::move(version);
    emit versionAChanged();
}

void ComparisonViewModel::setVersionB(std::optional<BackupVersion> version) {
    versionB_ = std::move(version);
    emit versionBChanged();
}

// The selection errors return before anything is cleared, so an earlier result stays beside them.
void ComparisonViewModel::compare() {
    if (auto refusal = dependencies_.featureAccess.refusal("compare")) return setError(*refusal);
    if (!versionA_ || !versionB_) return setError("Select two versions to compare.");
    if (versionA_->url == versionB_->url) return setError("Select two different versions.");
    setComparing(true);
    setDiffResult(std::nullopt);
    setError(std::nullopt);
    work_.tasks().start([this, a = *versionA_, b = *versionB_, rsyncPath = dependencies_.rsyncPath,
                         logStore = dependencies_.logStore, poster = work_.poster()](std::stop_token token) {
        Outcome outcome = run(a, b, rsyncPath, logStore, token);
        poster->post([this, outcome = std::move(outcome)]() mutable { finish(std::move(outcome)); });
    });
}

ComparisonViewModel::Outcome ComparisonViewModel::run(const BackupVersion& a, const BackupVersion& b,
                                                      const std::string& rsyncPath,
                                                      const RsyncLogStore& logStore, std::stop_token token) {
    try {
        auto detection = ItemizedOutput::detectVersionMeanwhile(rsyncPath, token);
        std::vector<std::string> lines;  // read only after the process has ended
        const ProcessResult result = ProcessRunner::shared().run(
            rsyncPath, RsyncCommands::compareVersionsArguments(a.url, b.url),
            [&lines](const std::string& line) { lines.push_back(line); }, token);
        throwIfCancelled(token);
        // Every non-zero status fails: the 23 or 24 that a backup may accept would mean rows are missing.
        if (result.status != 0) throw RestoreError::rsyncFailed(result.status);
        static const Log log("ComparisonViewModel");
        return Outcome{ItemizedOutput::read(lines, std::move(detection), logStore, log, "Comparison", token),
                       {}};
    } catch (const std::exception& error) {
        return Outcome{std::nullopt, describe(error)};
    }
}

void ComparisonViewModel::finish(Outcome outcome) {
    setDiffResult(std::move(outcome.differences));
    if (!diffResult_) setError(outcome.error);
    setComparing(false);
    emit comparisonFinished();
}

void ComparisonViewModel::setError(std::optional<std::string> message) {
    if (errorMessage_ == message) return;
    errorMessage_ = std::move(message);
    emit errorMessageChanged();
}

void ComparisonViewModel::setDiffResult(std::optional<std::vector<FileDiff>> result) {
    if (!diffResult_ && !result) return;
    diffResult_ = std::move(result);
    emit diffResultChanged();
}

void ComparisonViewModel::setComparing(bool comparing) {
    if (isComparing_ == comparing) return;
    isComparing_ = comparing;
    emit isComparingChanged();
}

int ComparisonViewModel::indexOf(const std::optional<BackupVersion>& version) const {
    if (!version) return -1;
    for (std::size_t index = 0; index < versions_.size(); ++index)
        if (versions_[index].url == version->url) return static_cast<int>(index);
    return -1;
}

QVariantList ComparisonViewModel::versionsVariant() const {
    return QmlValues::listOf(versions_, QmlValues::version);
}

QVariant ComparisonViewModel::diffResultVariant() const {
    return QmlValues::diffRows(diffResult_);
}

QVariant ComparisonViewModel::errorMessageVariant() const {
    return QmlValues::optionalText(errorMessage_);
}

}  // namespace tapekeep
