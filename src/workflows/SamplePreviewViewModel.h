#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>
#include <QVariantList>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "edits/SampleMetadata.h"
#include "edits/SampleWaveform.h"
#include "workflows/BackgroundWork.h"

namespace tapekeep {

class AudioPlayerService;

// The preview of one sample in the Browse tab: what the file is (format, rate, channels, bit depth,
// duration, size), its waveform, playing it, saving a trimmed copy of it outside the staging flow,
// and writing the list of songs that use it to the desktop. The kept range is held here, on the
// waveform that the screen shows, for the trim.
//
// Lives on the GUI thread. The analysis and the trim run on background tasks. Each analysis carries
// the generation it was started with, and its result is dropped when another sample was chosen
// since, so a slow file never shows over the one chosen after it.
class SamplePreviewViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString sampleURL READ sampleURLText WRITE setSampleURLText NOTIFY sampleURLChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY analysisChanged)
    Q_PROPERTY(QString loadError READ loadErrorText NOTIFY analysisChanged)
    Q_PROPERTY(bool hasMetadata READ hasMetadata NOTIFY analysisChanged)
    Q_PROPERTY(QString formatName READ formatNameText NOTIFY analysisChanged)
    Q_PROPERTY(double sampleRate READ sampleRate NOTIFY analysisChanged)
    Q_PROPERTY(int channelCount READ channelCount NOTIFY analysisChanged)
    Q_PROPERTY(QVariant bitDepth READ bitDepthVariant NOTIFY analysisChanged)
    Q_PROPERTY(double durationSeconds READ durationSeconds NOTIFY analysisChanged)
    Q_PROPERTY(double fileSize READ fileSizeNumber NOTIFY analysisChanged)
    Q_PROPERTY(QString sizeText READ sizeText NOTIFY analysisChanged)
    Q_PROPERTY(QVariantList peaks READ peaksVariant NOTIFY analysisChanged)
    Q_PROPERTY(double keptLow READ keptLow NOTIFY keptRangeChanged)
    Q_PROPERTY(double keptHigh READ keptHigh NOTIFY keptRangeChanged)
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(QString trimPanelTitle READ trimPanelTitle CONSTANT)
    Q_PROPERTY(QString defaultTrimName READ defaultTrimName NOTIFY sampleURLChanged)
    Q_PROPERTY(QUrl defaultTrimURL READ defaultTrimURL NOTIFY sampleURLChanged)
    Q_PROPERTY(bool isSavingTrim READ isSavingTrim NOTIFY trimSaveChanged)
    Q_PROPERTY(QString trimSaveStatus READ trimSaveStatusText NOTIFY trimSaveChanged)
    Q_PROPERTY(QString trimSaveError READ trimSaveErrorText NOTIFY trimSaveChanged)
    Q_PROPERTY(QString songListStatus READ songListStatusText NOTIFY songListChanged)
    Q_PROPERTY(QString songListError READ songListErrorText NOTIFY songListChanged)

public:
    using MetadataReader = std::function<SampleMetadata(const std::filesystem::path&, std::stop_token)>;
    using PeaksReader =
        std::function<SampleWaveform(const std::filesystem::path&, int bins, std::stop_token)>;
    // Writes the kept range of the source to the destination; returns the frames written.
    using Trimmer = std::function<std::int64_t(const std::filesystem::path& source,
                                               const std::filesystem::path& destination, double low,
                                               double high, std::stop_token)>;

    struct Dependencies {
        int bins = 512;
        MetadataReader readMetadata;  // default: SampleAnalyzer::metadata
        PeaksReader readPeaks;        // default: SampleAnalyzer::peaks
        Trimmer trim;                 // default: SampleTrimmer::trim
        // Where the song list goes; nothing when there is no desktop. Default: UserFolders::desktop.
        std::function<std::optional<std::filesystem::path>()> desktopFolder;
        // Made on the first play, so that nothing of the audio backend starts before it is wanted.
        // Default: a player of the preview's own.
        std::function<std::unique_ptr<AudioPlayerService>()> makePlayer;
    };

    explicit SamplePreviewViewModel(Dependencies dependencies, QObject* parent = nullptr);
    ~SamplePreviewViewModel() override;

    // --- The sample ---
    // Another sample stops its playback, forgets what was shown and analyses the new one; the same
    // one changes nothing; an empty path shows nothing.
    void setSample(const std::filesystem::path& sample);
    // The file in the Browse tab's preview: a sample when its extension is an audio one, else none.
    void showFile(const std::optional<std::filesystem::path>& file);
    [[nodiscard]] const std::filesystem::path& sample() const { return sample_; }
    [[nodiscard]] bool isLoading() const { return isLoading_; }
    [[nodiscard]] const std::optional<std::string>& loadError() const { return loadError_; }
    [[nodiscard]] const std::optional<SampleMetadata>& metadata() const { return metadata_; }
    [[nodiscard]] bool hasMetadata() const { return metadata_.has_value(); }
    [[nodiscard]] const std::optional<SampleWaveform>& waveform() const { return waveform_; }

    // --- The kept range, in seconds ---
    // Clamped to the sample's duration, low never above high. A new sample keeps all of it.
    Q_INVOKABLE void setKeptRange(double low, double high);
    [[nodiscard]] double keptLow() const { return keptLow_; }
    [[nodiscard]] double keptHigh() const { return keptHigh_; }

    // --- Playback: one file at a time ---
    Q_INVOKABLE void play();
    Q_INVOKABLE void stop();
    Q_INVOKABLE void togglePlayback();
    // The player plays this sample.
    [[nodiscard]] bool isPlaying() const;

    // --- A trimmed copy saved outside the staging flow ---
    [[nodiscard]] static QString trimPanelTitle();
    // "{stem}-trim.wav"; empty with no sample.
    [[nodiscard]] QString defaultTrimName() const;
    // The default name beside the sample, where the save panel opens; empty with no sample.
    [[nodiscard]] QUrl defaultTrimURL() const;
    // Renders the kept range to the chosen file (".wav" appended when it lacks it), never over the
    // sample itself; trimSaveFinished follows unless another save or sample replaced this one.
    void saveTrimmed(const std::filesystem::path& chosen);
    // The same, for a file URL or a path.
    Q_INVOKABLE void saveTrimmedTo(const QString& chosen);
    [[nodiscard]] bool isSavingTrim() const { return trimTask_.has_value(); }
    [[nodiscard]] const std::optional<std::string>& trimSaveStatus() const { return trimSaveStatus_; }
    [[nodiscard]] const std::optional<std::string>& trimSaveError() const { return trimSaveError_; }

    // --- The songs that use the sample ---
    // Writes them, one a line, to "Tapekeep-songs-using-{hash}.txt" on the desktop.
    void writeSongList(const std::vector<std::string>& songs);
    Q_INVOKABLE void writeSongListOf(const QStringList& songs);
    [[nodiscard]] const std::optional<std::string>& songListStatus() const { return songListStatus_; }
    [[nodiscard]] const std::optional<std::string>& songListError() const { return songListError_; }

    [[nodiscard]] QString sampleURLText() const;
    // A file URL or a path.
    void setSampleURLText(const QString& sample);
    [[nodiscard]] QString loadErrorText() const;
    [[nodiscard]] QString formatNameText() const;
    [[nodiscard]] double sampleRate() const { return metadata_ ? metadata_->sampleRate : 0; }
    [[nodiscard]] int channelCount() const { return metadata_ ? metadata_->channelCount : 0; }
    // null when the format has no fixed width or nothing is known yet.
    [[nodiscard]] QVariant bitDepthVariant() const;
    [[nodiscard]] double durationSeconds() const { return metadata_ ? metadata_->durationSeconds : 0; }
    [[nodiscard]] double fileSizeNumber() const;
    // "12 KB" and the like; empty until known.
    [[nodiscard]] QString sizeText() const;
    // The bins from 0 to 1; empty until known.
    [[nodiscard]] QVariantList peaksVariant() const;
    [[nodiscard]] QString trimSaveStatusText() const;
    [[nodiscard]] QString trimSaveErrorText() const;
    [[nodiscard]] QString songListStatusText() const;
    [[nodiscard]] QString songListErrorText() const;

signals:
    void sampleURLChanged();
    void analysisChanged();
    void keptRangeChanged();
    void isPlayingChanged();
    void trimSaveChanged();
    void songListChanged();
    // Not properties: an analysis task ended, its result shown or dropped; a save of a trim ended.
    void analysisEnded();
    void trimSaveFinished();

private:
    struct Analysis {
        SampleMetadata metadata;
        SampleWaveform waveform;
    };

    void startAnalysis();
    void publishAnalysis(std::uint64_t generation, std::optional<Analysis> analysis,
                         std::optional<std::string> error);
    void cancelTrimSave();
    void finishTrimSave(std::uint64_t generation, std::optional<std::string> status,
                        std::optional<std::string> error);
    void setTrimSaveOutcome(std::optional<std::string> status, std::optional<std::string> error);
    AudioPlayerService& player();

    Dependencies dependencies_;
    std::filesystem::path sample_;

    bool isLoading_ = false;
    std::optional<std::string> loadError_;
    std::optional<SampleMetadata> metadata_;
    std::optional<SampleWaveform> waveform_;
    std::uint64_t analysisGeneration_ = 0;
    std::optional<BackgroundTasks::Id> analysisTask_;

    double keptLow_ = 0;
    double keptHigh_ = 0;

    std::optional<std::string> trimSaveStatus_;
    std::optional<std::string> trimSaveError_;
    std::uint64_t trimGeneration_ = 0;
    std::optional<BackgroundTasks::Id> trimTask_;

    std::optional<std::string> songListStatus_;
    std::optional<std::string> songListError_;

    std::unique_ptr<AudioPlayerService> player_;
    BackgroundWork work_;  // last: gone first, with its tasks stopped
};

}  // namespace tapekeep
