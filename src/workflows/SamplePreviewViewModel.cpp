#include "workflows/SamplePreviewViewModel.h"

#include <algorithm>

#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Formatting.h"
#include "core/Log.h"
#include "edits/SampleAnalyzer.h"
#include "edits/SampleTrimmer.h"
#include "edits/TrimSaveName.h"
#include "platform/UserFolders.h"
#include "workflows/AudioPlayerService.h"
#include "workflows/QmlValues.h"
#include "workflows/SampleSongList.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

const Log& log() {
    static const Log instance("SamplePreviewViewModel");
    return instance;
}

// The screen hands over file URLs from its dialogs and plain paths from the models.
fs::path pathOf(const QString& text) {
    const QUrl url(text);
    return (url.isLocalFile() ? url.toLocalFile() : text).toStdString();
}

QString optionalText(const std::optional<std::string>& text) {
    return text ? QmlValues::text(*text) : QString();
}

}  // namespace

SamplePreviewViewModel::SamplePreviewViewModel(Dependencies dependencies, QObject* parent)
    : QObject(parent), dependencies_(std::move(dependencies)), work_(this) {
    if (!dependencies_.readMetadata) dependencies_.readMetadata = &SampleAnalyzer::metadata;
    if (!dependencies_.readPeaks) dependencies_.readPeaks = &SampleAnalyzer::peaks;
    if (!dependencies_.trim) dependencies_.trim = &SampleTrimmer::trim;
    if (!dependencies_.desktopFolder) dependencies_.desktopFolder = &UserFolders::desktop;
    if (!dependencies_.makePlayer)
        dependencies_.makePlayer = [] { return std::make_unique<AudioPlayerService>(); };
}

SamplePreviewViewModel::~SamplePreviewViewModel() = default;

// --- The sample ---

void SamplePreviewViewModel::setSample(const fs::path& sample) {
    if (sample == sample_) return;
    stop();
    cancelTrimSave();
    setTrimSaveOutcome(std::nullopt, std::nullopt);
    songListStatus_.reset();
    songListError_.reset();
    emit songListChanged();
    sample_ = sample;
    emit sampleURLChanged();
    emit isPlayingChanged();
    startAnalysis();
}

void SamplePreviewViewModel::showFile(const std::optional<fs::path>& file) {
    const bool isSample = file && !SampleAnalyzer::formatName(*file).empty();
    setSample(isSample ? *file : fs::path());
}

// What was shown goes at once; the new sample's values come when its analysis ends.
void SamplePreviewViewModel::startAnalysis() {
    ++analysisGeneration_;
    if (analysisTask_) work_.tasks().cancel(*analysisTask_);
    analysisTask_.reset();
    metadata_.reset();
    waveform_.reset();
    loadError_.reset();
    isLoading_ = !sample_.empty();
    keptLow_ = keptHigh_ = 0;
    emit analysisChanged();
    emit keptRangeChanged();
    if (sample_.empty()) return;
    const auto generation = analysisGeneration_;
    analysisTask_ = work_.tasks().start(
        [this, generation, sample = sample_, bins = dependencies_.bins,
         readMetadata = dependencies_.readMetadata, readPeaks = dependencies_.readPeaks,
         poster = work_.poster()](std::stop_token token) {
            try {
                Analysis analysis{readMetadata(sample, token), readPeaks(sample, bins, token)};
                poster->post([this, generation, analysis = std::move(analysis)]() mutable {
                    publishAnalysis(generation, std::move(analysis), std::nullopt);
                });
            } catch (const Cancelled&) {
            } catch (const std::exception& error) {
                poster->post([this, generation, message = describe(error)] {
                    publishAnalysis(generation, std::nullopt, message);
                });
            }
        },
        [this](BackgroundTasks::Id id) {
            if (analysisTask_ == id) analysisTask_.reset();
            emit analysisEnded();
        });
}

void SamplePreviewViewModel::publishAnalysis(std::uint64_t generation, std::optional<Analysis> analysis,
                                             std::optional<std::string> error) {
    if (generation != analysisGeneration_) return;
    isLoading_ = false;
    if (analysis) {
        metadata_ = std::move(analysis->metadata);
        waveform_ = std::move(analysis->waveform);
        keptLow_ = 0;
        keptHigh_ = metadata_->durationSeconds;
    } else {
        log().error("Analysing " + sample_.string() + " failed: " + error.value_or(""));
        loadError_ = std::move(error);
    }
    emit analysisChanged();
    emit keptRangeChanged();
}

// --- The kept range ---

void SamplePreviewViewModel::setKeptRange(double low, double high) {
    const double end = durationSeconds();
    const double clampedLow = std::clamp(low, 0.0, end);
    const double clampedHigh = std::clamp(high, clampedLow, end);
    if (clampedLow == keptLow_ && clampedHigh == keptHigh_) return;
    keptLow_ = clampedLow;
    keptHigh_ = clampedHigh;
    emit keptRangeChanged();
}

// --- Playback ---

AudioPlayerService& SamplePreviewViewModel::player() {
    if (!player_) {
        player_ = dependencies_.makePlayer();
        connect(player_.get(), &AudioPlayerService::isPlayingChanged, this,
                &SamplePreviewViewModel::isPlayingChanged);
        connect(player_.get(), &AudioPlayerService::currentURLChanged, this,
                &SamplePreviewViewModel::isPlayingChanged);
    }
    return *player_;
}

void SamplePreviewViewModel::play() {
    if (sample_.empty()) return;
    player().play(QmlValues::text(sample_.string()));
}

void SamplePreviewViewModel::stop() {
    if (player_) player_->stop();
}

void SamplePreviewViewModel::togglePlayback() {
    isPlaying() ? stop() : play();
}

bool SamplePreviewViewModel::isPlaying() const {
    return player_ && !sample_.empty() && player_->isPlaying() &&
           player_->currentURL() == QmlValues::text(sample_.string());
}

// --- A trimmed copy ---

QString SamplePreviewViewModel::trimPanelTitle() {
    return QString::fromUtf8(TrimSaveName::panelTitle);
}

QString SamplePreviewViewModel::defaultTrimName() const {
    return sample_.empty() ? QString() : QmlValues::text(TrimSaveName::defaultName(sample_));
}

QUrl SamplePreviewViewModel::defaultTrimURL() const {
    if (sample_.empty()) return {};
    return QUrl::fromLocalFile(
        QmlValues::text((sample_.parent_path() / TrimSaveName::defaultName(sample_)).string()));
}

void SamplePreviewViewModel::saveTrimmed(const fs::path& chosen) {
    if (sample_.empty() || !metadata_) return;
    cancelTrimSave();
    fs::path destination;
    try {
        destination = TrimSaveName::savePath(sample_, chosen);
    } catch (const Error& refusal) {
        setTrimSaveOutcome(std::nullopt, refusal.description());
        emit trimSaveFinished();
        return;
    }
    const auto generation = ++trimGeneration_;
    trimTask_ = work_.tasks().start([this, generation, source = sample_, destination, low = keptLow_,
                                     high = keptHigh_, trim = dependencies_.trim,
                                     poster = work_.poster()](std::stop_token token) {
        std::optional<std::string> status;
        std::optional<std::string> error;
        try {
            trim(source, destination, low, high, token);
            status = "Saved " + destination.filename().string();
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& failure) {
            error = describe(failure);
        }
        poster->post([this, generation, status = std::move(status), error = std::move(error)]() mutable {
            finishTrimSave(generation, std::move(status), std::move(error));
        });
    });
    setTrimSaveOutcome(std::nullopt, std::nullopt);
}

void SamplePreviewViewModel::saveTrimmedTo(const QString& chosen) {
    saveTrimmed(pathOf(chosen));
}

void SamplePreviewViewModel::cancelTrimSave() {
    ++trimGeneration_;
    if (trimTask_) work_.tasks().cancel(*trimTask_);
    trimTask_.reset();
}

void SamplePreviewViewModel::finishTrimSave(std::uint64_t generation, std::optional<std::string> status,
                                            std::optional<std::string> error) {
    if (generation != trimGeneration_) return;
    trimTask_.reset();
    if (error) log().error("Saving a trim of " + sample_.string() + " failed: " + *error);
    setTrimSaveOutcome(std::move(status), std::move(error));
    emit trimSaveFinished();
}

void SamplePreviewViewModel::setTrimSaveOutcome(std::optional<std::string> status,
                                                std::optional<std::string> error) {
    trimSaveStatus_ = std::move(status);
    trimSaveError_ = std::move(error);
    emit trimSaveChanged();
}

// --- The songs that use the sample ---

void SamplePreviewViewModel::writeSongList(const std::vector<std::string>& songs) {
    if (sample_.empty()) return;
    songListStatus_.reset();
    songListError_.reset();
    try {
        const auto file = SampleSongList::write(dependencies_.desktopFolder(), sample_, songs);
        songListStatus_ = "Saved " + file.filename().string() + " to the Desktop";
    } catch (const std::exception& error) {
        songListError_ = describe(error);
    }
    emit songListChanged();
}

void SamplePreviewViewModel::writeSongListOf(const QStringList& songs) {
    std::vector<std::string> list;
    for (const auto& song : songs) list.push_back(song.toStdString());
    writeSongList(list);
}

// --- What the screen reads ---

QString SamplePreviewViewModel::sampleURLText() const {
    return QmlValues::text(sample_.string());
}

void SamplePreviewViewModel::setSampleURLText(const QString& sample) {
    setSample(sample.isEmpty() ? fs::path() : pathOf(sample));
}

QString SamplePreviewViewModel::loadErrorText() const {
    return optionalText(loadError_);
}

QString SamplePreviewViewModel::formatNameText() const {
    return metadata_ ? QmlValues::text(metadata_->formatName) : QString();
}

QVariant SamplePreviewViewModel::bitDepthVariant() const {
    return metadata_ && metadata_->bitDepth ? QVariant(*metadata_->bitDepth) : QVariant();
}

double SamplePreviewViewModel::fileSizeNumber() const {
    return metadata_ ? static_cast<double>(metadata_->fileSize) : 0;
}

QString SamplePreviewViewModel::sizeText() const {
    return metadata_ ? QmlValues::text(formatByteCount(static_cast<std::int64_t>(metadata_->fileSize)))
                     : QString();
}

QVariantList SamplePreviewViewModel::peaksVariant() const {
    QVariantList peaks;
    if (!waveform_) return peaks;
    peaks.reserve(static_cast<qsizetype>(waveform_->peaks.size()));
    for (const float peak : waveform_->peaks) peaks.push_back(static_cast<double>(peak));
    return peaks;
}

QString SamplePreviewViewModel::trimSaveStatusText() const {
    return optionalText(trimSaveStatus_);
}

QString SamplePreviewViewModel::trimSaveErrorText() const {
    return optionalText(trimSaveError_);
}

QString SamplePreviewViewModel::songListStatusText() const {
    return optionalText(songListStatus_);
}

QString SamplePreviewViewModel::songListErrorText() const {
    return optionalText(songListError_);
}

}  // namespace tapekeep
