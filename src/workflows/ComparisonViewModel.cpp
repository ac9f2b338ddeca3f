#include "workflows/ComparisonViewModel.h"

#include "backup/RestoreError.h"
#include "backup/RsyncCommands.h"
#include "backup/RsyncDiffParser.h"
#include "backup/RsyncVersion.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "platform/ProcessRunner.h"

namespace tapekeep {
namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        if (!text.empty()) text += '\n';
        text += line;
    }
    return text;
}

}  // namespace

ComparisonViewModel::ComparisonViewModel(std::vector<BackupVersion> versions, Dependencies dependencies,
                                         QObject* parent)
    : QObject(parent),
      versions_(std::move(versions)),
      dependencies_(std::move(dependencies)),
      poster_(std::make_shared<MainThreadPoster>(this)),
      tasks_(poster_) {}

ComparisonViewModel::~ComparisonViewModel() {
    poster_->detach();
    tasks_.stopAll();
}

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
    tasks_.start([this, a = *versionA_, b = *versionB_, rsyncPath = dependencies_.rsyncPath,
                  logStore = dependencies_.logStore, poster = poster_](std::stop_token token) {
        Outcome outcome = run(a, b, rsyncPath, logStore, token);
        poster->post([this, outcome = std::move(outcome)]() mutable { finish(std::move(outcome)); });
    });
}

ComparisonViewModel::Outcome ComparisonViewModel::run(const BackupVersion& a, const BackupVersion& b,
                                                      const std::string& rsyncPath,
                                                      const RsyncLogStore& logStore, std::stop_token token) {
    try {
        std::vector<std::string> lines;  // read only after the process has ended
        const ProcessResult result = ProcessRunner::shared().run(
            rsyncPath, RsyncCommands::compareVersionsArguments(a.url, b.url),
            [&lines](const std::string& line) { lines.push_back(line); }, token);
        throwIfCancelled(token);
        // Every non-zero status fails: the 23 or 24 that a backup may accept would mean rows are missing.
        if (result.status != 0) throw RestoreError::rsyncFailed(result.status);
        return readOutput(lines, rsyncPath, logStore, token);
    } catch (const std::exception& error) {
        return Outcome{std::nullopt, describe(error)};
    }
}

// Output of an rsync whose version is unknown, or could not be told, cannot be trusted however
// well formed it looks: it is kept for diagnosis and no rows are shown.
ComparisonViewModel::Outcome ComparisonViewModel::readOutput(const std::vector<std::string>& lines,
                                                             const std::string& rsyncPath,
                                                             const RsyncLogStore& logStore,
                                                             std::stop_token token) {
    std::optional<RsyncVersion> version;
    try {
        version = RsyncVersion::detect(rsyncPath, token);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception&) {
        // The user sees only that the output could not be read, with the log kept for diagnosis.
    }
    if (version && version->kind() != RsyncVersion::Kind::unsupported)
        return Outcome{RsyncDiffParser::parse(lines, *version, false), {}};
    if (auto log = logStore.write(joined(lines)))
        return Outcome{std::nullopt, RestoreError::parseFailedWithLog(*log).description()};
    return Outcome{std::nullopt, "rsync output parse failed — could not save diagnostic log"};
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
    QVariantList list;
    for (const auto& version : versions_)
        list.push_back(QVariantMap{{"folderName", text(version.folderName)},
                                   {"path", text(version.url.string())},
                                   {"isLatest", version.isLatest}});
    return list;
}

QVariant ComparisonViewModel::diffResultVariant() const {
    if (!diffResult_) return {};
    QVariantList rows;
    for (const auto& difference : *diffResult_)
        rows.push_back(
            QVariantMap{{"path", text(difference.path)}, {"kind", FileDiff::rawValue(difference.kind)}});
    return rows;
}

QVariant ComparisonViewModel::errorMessageVariant() const {
    return errorMessage_ ? QVariant(text(*errorMessage_)) : QVariant();
}

}  // namespace tapekeep
