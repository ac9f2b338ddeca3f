#include "workflows/StageSheetViewModel.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <utility>

#include "core/Cancelled.h"
#include "core/Error.h"
#include "edits/EditManifestStore.h"
#include "edits/EditPathValidator.h"
#include "edits/SampleAnalyzer.h"
#include "edits/StageSheetTexts.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// The shortest range the sheet keeps: one millisecond.
constexpr double shortestRange = 0.001;

QString textOf(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

std::string lowerCased(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool isWavFile(const std::string& path) {
    return lowerCased(fs::path(path).extension().string()) == ".wav";
}

// "m:ss.mmm"
QString timeText(double seconds) {
    const auto milliseconds = static_cast<long long>(std::llround(std::max(seconds, 0.0) * 1000));
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld.%03lld", milliseconds / 60000, milliseconds / 1000 % 60,
                  milliseconds % 1000);
    return QString::fromLatin1(text);
}

std::string suggestionFor(const StagingSource& source, const std::vector<EditEntry>& pendingEdits) {
    try {
        return source.suggestedTarget(pendingEdits);
    } catch (const Error&) {
        return {};  // every variant is taken: the user names one
    }
}

}  // namespace

StageSheetViewModel::StageSheetViewModel(Dependencies dependencies, QObject* parent)
    : QObject(parent),
      dependencies_(std::move(dependencies)),
      isWav_(isWavFile(dependencies_.samplePath)),
      work_(this) {}

StageSheetViewModel::~StageSheetViewModel() = default;

// ---- reading ----------------------------------------------------------------------------------

StageSheetViewModel::Loaded StageSheetViewModel::read(const std::stop_token& token) const {
    Loaded loaded;
    try {
        loaded.source = StagingSource::read(dependencies_.versionRoot, dependencies_.samplePath, token);
        loaded.pendingEdits = dependencies_.store->pendingEdits(dependencies_.backupRootName);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        loaded.source.reset();
        loaded.error = describe(error);
        return loaded;
    }
    try {
        loaded.peaks = SampleAnalyzer::peaks(loaded.source->url, dependencies_.waveformBins, token).peaks;
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        loaded.waveformError = describe(error);
    }
    return loaded;
}

void StageSheetViewModel::load() {
    if (isLoading_) return;
    isLoading_ = true;
    emit loadedChanged();
    work_.tasks().start(
        [this, poster = work_.poster()](std::stop_token token) {
            try {
                auto loaded = read(token);
                poster->post([this, loaded = std::move(loaded)]() mutable { show(std::move(loaded)); });
            } catch (const Cancelled&) {
                // The sheet went away: nothing to show.
            }
        },
        [this](BackgroundTasks::Id) {
            isLoading_ = false;
            emit loadedChanged();
            emit loadFinished();
        });
}

// A pending edit of the same sample is offered for replacement, with its mode and target.
void StageSheetViewModel::show(Loaded loaded) {
    source_ = std::move(loaded.source);
    pendingEdits_ = std::move(loaded.pendingEdits);
    peaks_ = std::move(loaded.peaks);
    loadError_ = std::move(loaded.error);
    waveformError_ = std::move(loaded.waveformError);
    if (source_) {
        lowerCasedVersionPaths_ = EditStagingService::lowerCasedPaths(source_->versionPaths);
        suggestedTarget_ = suggestionFor(*source_, pendingEdits_);
        newTarget_ = suggestedTarget_;
        low_ = 0;
        high_ = source_->durationSeconds;
        const auto found = std::ranges::find_if(pendingEdits_, [this](const EditEntry& edit) {
            return EditPathValidator::pathsEqual(edit.sourceRelativePath, source_->cardPath);
        });
        if (found != pendingEdits_.end()) {
            pendingEdit_ = *found;
            replacesPendingEdit_ = true;
            mode_ = isWav_ ? found->mode : EditMode::saveAsNew;
            if (found->mode == EditMode::saveAsNew) newTarget_ = found->targetRelativePath;
        }
    }
    emit loadedChanged();
    emit rangeChanged();
    changeChoice();
}

// ---- the choice -------------------------------------------------------------------------------

void StageSheetViewModel::setLow(double seconds) {
    const double low = std::clamp(seconds, 0.0, std::max(high_ - shortestRange, 0.0));
    if (low == low_) return;
    low_ = low;
    emit rangeChanged();
    changeChoice();
}

void StageSheetViewModel::setHigh(double seconds) {
    const double high = std::clamp(seconds, std::min(low_ + shortestRange, duration()), duration());
    if (high == high_) return;
    high_ = high;
    emit rangeChanged();
    changeChoice();
}

// A source that is no WAV file can only be saved as a new WAV file.
void StageSheetViewModel::setMode(EditMode mode) {
    if (mode == EditMode::overwrite && !isWav_) mode = EditMode::saveAsNew;
    if (mode == mode_) return;
    mode_ = mode;
    changeChoice();
}

void StageSheetViewModel::setModeLabel(const QString& label) {
    setMode(label == textOf(StageSheetTexts::overwriteMode) ? EditMode::overwrite : EditMode::saveAsNew);
}

void StageSheetViewModel::setTarget(const std::string& target) {
    if (target == newTarget_) return;
    newTarget_ = target;
    changeChoice();
}

void StageSheetViewModel::setReplacesPendingEdit(bool replaces) {
    replaces = replaces && pendingEdit_.has_value();
    if (replaces == replacesPendingEdit_) return;
    replacesPendingEdit_ = replaces;
    changeChoice();
}

void StageSheetViewModel::changeChoice() {
    setStageError(std::nullopt);
    emit choiceChanged();
    if (canStage() == lastCanStage_) return;
    lastCanStage_ = canStage();
    emit canStageChanged();
}

// The sheet's own words for the rules that typing breaks most: a path outside the samples folder,
// and the source itself; the staging service's words for the rest.
std::optional<std::string> StageSheetViewModel::targetProblem() const {
    if (mode_ == EditMode::overwrite || !source_) return std::nullopt;
    if (!lowerCased(newTarget_).starts_with("/samples/"))
        return std::string(StageSheetTexts::typedPathOutsideSamples);
    try {
        EditStagingService::validateTarget(newTarget_, source_->cardPath, lowerCasedVersionPaths_,
                                           pendingEdits_, replacingEditID());
        return std::nullopt;
    } catch (const StagingTargetError& error) {
        if (error.kind() == StagingTargetError::Kind::sameAsSource)
            return std::string(StageSheetTexts::sourceEqualsTarget);
        return describe(error);
    } catch (const std::exception& error) {
        return describe(error);
    }
}

std::optional<std::string> StageSheetViewModel::choiceProblem() const {
    if (mode_ == EditMode::overwrite && !isWav_) return std::string(StageSheetTexts::nonWavSource);
    return targetProblem();
}

std::optional<std::string> StageSheetViewModel::replacingEditID() const {
    if (replacesPendingEdit_ && pendingEdit_) return pendingEdit_->id;
    return std::nullopt;
}

bool StageSheetViewModel::canStage() const {
    return source_ && !isStaging() && high_ - low_ >= shortestRange / 2 && !choiceProblem();
}

// ---- staging ----------------------------------------------------------------------------------

void StageSheetViewModel::stage() {
    if (!source_ || isStaging()) return;
    if (auto problem = choiceProblem()) return setStageError(std::move(problem));
    auto request =
        source_->request(mode_, low_, high_, newTarget_, dependencies_.backupRootName, pendingEdits_);
    request.replacingEditID = replacingEditID();
    setStageError(std::nullopt);
    stageTask_ = work_.tasks().start([this, request = std::move(request), store = dependencies_.store,
                                      hook = dependencies_.afterRender,
                                      poster = work_.poster()](std::stop_token token) {
        Outcome outcome;
        try {
            EditStagingService service(store);
            if (hook) service.setAfterRender(hook);
            outcome.edit = service.stage(request, token);
        } catch (const Cancelled&) {
            // Nothing was staged and nothing is left: the sheet stays as it was.
        } catch (const std::exception& error) {
            outcome.error = describe(error);
        }
        poster->post([this, outcome = std::move(outcome)]() mutable { finishStaging(std::move(outcome)); });
    });
    emit isStagingChanged();
    emit canStageChanged();
    lastCanStage_ = false;
}

void StageSheetViewModel::cancel() {
    if (stageTask_) work_.tasks().cancel(*stageTask_);
}

void StageSheetViewModel::finishStaging(Outcome outcome) {
    stageTask_.reset();
    setStageError(std::move(outcome.error));
    emit isStagingChanged();
    lastCanStage_ = canStage();
    emit canStageChanged();
    if (outcome.edit) emit staged(QmlValues::text(outcome.edit->id));
}

void StageSheetViewModel::setStageError(std::optional<std::string> error) {
    if (error == stageError_) return;
    stageError_ = std::move(error);
    emit stageErrorChanged();
}

// ---- what the sheet shows ---------------------------------------------------------------------

QString StageSheetViewModel::loadMessage() const {
    if (isLoading_) return textOf(StageSheetTexts::checkingReferences);
    if (loadError_) return textOf(StageSheetTexts::referencesUnavailable);
    return {};
}

QString StageSheetViewModel::loadErrorText() const {
    return loadError_ ? QmlValues::text(*loadError_) : QString();
}

QString StageSheetViewModel::sourceText() const {
    return QmlValues::text(dependencies_.samplePath);
}

QVariantList StageSheetViewModel::peaksVariant() const {
    QVariantList peaks;
    peaks.reserve(static_cast<qsizetype>(peaks_.size()));
    for (const float peak : peaks_) peaks.push_back(static_cast<double>(peak));
    return peaks;
}

QString StageSheetViewModel::waveformErrorText() const {
    return waveformError_ ? QmlValues::text(*waveformError_) : QString();
}

QString StageSheetViewModel::lowText() const {
    return timeText(low_);
}

QString StageSheetViewModel::highText() const {
    return timeText(high_);
}

QString StageSheetViewModel::keptText() const {
    return timeText(high_ - low_);
}

QString StageSheetViewModel::modeLabel() const {
    return textOf(mode_ == EditMode::overwrite ? StageSheetTexts::overwriteMode
                                               : StageSheetTexts::saveAsNewMode);
}

QStringList StageSheetViewModel::modes() {
    return {textOf(StageSheetTexts::saveAsNewMode), textOf(StageSheetTexts::overwriteMode)};
}

const std::string& StageSheetViewModel::target() const {
    return mode_ == EditMode::overwrite && source_ ? source_->cardPath : newTarget_;
}

QString StageSheetViewModel::targetText() const {
    return QmlValues::text(target());
}

QString StageSheetViewModel::suggestedTargetText() const {
    return QmlValues::text(suggestedTarget_);
}

QString StageSheetViewModel::targetMessage() const {
    const auto problem = targetProblem();
    return problem ? QmlValues::text(*problem) : QString();
}

QString StageSheetViewModel::sourceFormatWarning() const {
    return isWav_ ? QString() : textOf(StageSheetTexts::nonWavSource);
}

QString StageSheetViewModel::pendingEditNotice() const {
    return pendingEdit_ ? textOf(StageSheetTexts::pendingEditExists) : QString();
}

QString StageSheetViewModel::usersHeading() const {
    if (!source_) return {};
    return textOf(source_->users.empty() ? StageSheetTexts::noUsers : StageSheetTexts::usersHeading);
}

QStringList StageSheetViewModel::usersList() const {
    return source_ ? QmlValues::textList(source_->users) : QStringList();
}

QString StageSheetViewModel::replaceQuestion() const {
    if (mode_ != EditMode::overwrite || !source_) return {};
    return QmlValues::text("Really replace " + source_->cardPath +
                           "? The songs and instruments that use it may break if the original is replaced.");
}

QString StageSheetViewModel::stageErrorText() const {
    return stageError_ ? QmlValues::text(*stageError_) : QString();
}

}  // namespace tapekeep
