#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "edits/EditEntry.h"
#include "edits/EditMode.h"
#include "edits/EditStagingService.h"
#include "edits/StagingSource.h"
#include "workflows/BackgroundWork.h"

namespace tapekeep {

class EditManifestStore;

// The controller behind the stage sheet of one sample of a backup version: reads the sample (its
// length, waveform and users, the version's paths) and the set's pending edits, keeps the user's
// choice of range, mode and target with the staging rules applied as it changes, and stages the
// trim as a pending edit.
//
// Lives on the GUI thread. The reading and the staging run as background tasks whose results come
// back as queued calls; the target check runs on the GUI thread at each change, against what the
// reading found. Failures reach the sheet by their description.
class StageSheetViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY loadedChanged)
    Q_PROPERTY(bool isLoaded READ isLoaded NOTIFY loadedChanged)
    // "Checking song references…" while reading, the refusal after a failed read, else empty.
    Q_PROPERTY(QString loadMessage READ loadMessage NOTIFY loadedChanged)
    Q_PROPERTY(QString loadError READ loadErrorText NOTIFY loadedChanged)
    Q_PROPERTY(QString source READ sourceText CONSTANT)
    Q_PROPERTY(QVariantList peaks READ peaksVariant NOTIFY loadedChanged)
    Q_PROPERTY(QString waveformError READ waveformErrorText NOTIFY loadedChanged)
    Q_PROPERTY(double duration READ duration NOTIFY loadedChanged)
    Q_PROPERTY(double low READ low WRITE setLow NOTIFY rangeChanged)
    Q_PROPERTY(double high READ high WRITE setHigh NOTIFY rangeChanged)
    Q_PROPERTY(QString lowText READ lowText NOTIFY rangeChanged)
    Q_PROPERTY(QString highText READ highText NOTIFY rangeChanged)
    Q_PROPERTY(QString keptText READ keptText NOTIFY rangeChanged)
    // "+ NEW" or "REPLACE".
    Q_PROPERTY(QString mode READ modeLabel WRITE setModeLabel NOTIFY choiceChanged)
    Q_PROPERTY(QStringList modes READ modes CONSTANT)
    Q_PROPERTY(bool canReplace READ canReplace CONSTANT)
    // The path the trim goes to: the typed one for a new file, the sample itself for a replace.
    Q_PROPERTY(QString target READ targetText WRITE setTargetText NOTIFY choiceChanged)
    Q_PROPERTY(QString suggestedTarget READ suggestedTargetText NOTIFY loadedChanged)
    // Why the target would be refused, empty when it is fine.
    Q_PROPERTY(QString targetMessage READ targetMessage NOTIFY choiceChanged)
    Q_PROPERTY(QString sourceFormatWarning READ sourceFormatWarning CONSTANT)
    Q_PROPERTY(QString pendingEditNotice READ pendingEditNotice NOTIFY loadedChanged)
    // Whether the staged trim takes the place of the sample's pending edit.
    Q_PROPERTY(
        bool replacesPendingEdit READ replacesPendingEdit WRITE setReplacesPendingEdit NOTIFY choiceChanged)
    Q_PROPERTY(QString usersHeading READ usersHeading NOTIFY loadedChanged)
    Q_PROPERTY(QStringList users READ usersList NOTIFY loadedChanged)
    // The question to ask before a replace is staged; empty for a new file.
    Q_PROPERTY(QString replaceQuestion READ replaceQuestion NOTIFY choiceChanged)
    Q_PROPERTY(bool canStage READ canStage NOTIFY canStageChanged)
    Q_PROPERTY(bool isStaging READ isStaging NOTIFY isStagingChanged)
    Q_PROPERTY(QString stageError READ stageErrorText NOTIFY stageErrorChanged)

public:
    struct Dependencies {
        std::shared_ptr<EditManifestStore> store;
        std::string backupRootName;         // the set's folder name
        std::filesystem::path versionRoot;  // the version folder
        std::string samplePath;             // card path of the sample in the version
        int waveformBins = 480;
        EditStagingService::RenderHook afterRender;  // for tests
    };

    explicit StageSheetViewModel(Dependencies dependencies, QObject* parent = nullptr);
    ~StageSheetViewModel() override;

    // Reads the sample and the pending edits; the sheet calls it once when it opens.
    Q_INVOKABLE void load();
    // Stages the trim as chosen; a refusal of the choice goes to stageError without a task.
    Q_INVOKABLE void stage();
    // Stops a staging under way; it leaves nothing behind.
    Q_INVOKABLE void cancel();

    void setLow(double seconds);
    void setHigh(double seconds);
    void setMode(EditMode mode);
    void setModeLabel(const QString& label);
    void setTarget(const std::string& target);
    void setTargetText(const QString& target) { setTarget(target.toStdString()); }
    void setReplacesPendingEdit(bool replaces);

    [[nodiscard]] bool isLoading() const { return isLoading_; }
    [[nodiscard]] bool isLoaded() const { return source_.has_value(); }
    [[nodiscard]] QString loadMessage() const;
    [[nodiscard]] const std::optional<std::string>& loadError() const { return loadError_; }
    [[nodiscard]] QString loadErrorText() const;
    [[nodiscard]] QString sourceText() const;
    [[nodiscard]] QVariantList peaksVariant() const;
    [[nodiscard]] QString waveformErrorText() const;
    [[nodiscard]] double duration() const { return source_ ? source_->durationSeconds : 0; }
    [[nodiscard]] double low() const { return low_; }
    [[nodiscard]] double high() const { return high_; }
    [[nodiscard]] QString lowText() const;
    [[nodiscard]] QString highText() const;
    [[nodiscard]] QString keptText() const;
    [[nodiscard]] EditMode mode() const { return mode_; }
    [[nodiscard]] QString modeLabel() const;
    [[nodiscard]] static QStringList modes();
    [[nodiscard]] bool canReplace() const { return isWav_; }
    [[nodiscard]] const std::string& target() const;
    [[nodiscard]] QString targetText() const;
    [[nodiscard]] QString suggestedTargetText() const;
    [[nodiscard]] QString targetMessage() const;
    [[nodiscard]] QString sourceFormatWarning() const;
    [[nodiscard]] QString pendingEditNotice() const;
    [[nodiscard]] bool replacesPendingEdit() const { return replacesPendingEdit_; }
    [[nodiscard]] QString usersHeading() const;
    [[nodiscard]] QStringList usersList() const;
    [[nodiscard]] QString replaceQuestion() const;
    [[nodiscard]] bool canStage() const;
    [[nodiscard]] bool isStaging() const { return stageTask_.has_value(); }
    [[nodiscard]] const std::optional<std::string>& stageError() const { return stageError_; }
    [[nodiscard]] QString stageErrorText() const;

signals:
    void loadedChanged();
    void rangeChanged();
    void choiceChanged();
    void canStageChanged();
    void isStagingChanged();
    void stageErrorChanged();
    // A pending edit was made; the sheet's work is done.
    void staged(const QString& editID);
    // Not a property: the moment a started read has ended, either way.
    void loadFinished();

private:
    // What one read found, handed from its task to the GUI thread.
    struct Loaded {
        std::optional<StagingSource> source;
        std::vector<EditEntry> pendingEdits;
        std::vector<float> peaks;
        std::optional<std::string> error;
        std::optional<std::string> waveformError;
    };
    struct Outcome {
        std::optional<EditEntry> edit;
        std::optional<std::string> error;  // none with no edit: cancelled
    };

    [[nodiscard]] Loaded read(const std::stop_token& token) const;
    void show(Loaded loaded);
    [[nodiscard]] std::optional<std::string> targetProblem() const;
    [[nodiscard]] std::optional<std::string> choiceProblem() const;
    [[nodiscard]] std::optional<std::string> replacingEditID() const;
    void finishStaging(Outcome outcome);
    void setStageError(std::optional<std::string> error);
    void changeChoice();

    Dependencies dependencies_;
    bool isWav_ = false;
    bool isLoading_ = false;
    std::optional<StagingSource> source_;
    std::vector<EditEntry> pendingEdits_;
    std::set<std::string> lowerCasedVersionPaths_;
    std::vector<float> peaks_;
    std::optional<std::string> loadError_;
    std::optional<std::string> waveformError_;
    std::optional<EditEntry> pendingEdit_;  // the set's pending edit of this sample, if any
    std::string suggestedTarget_;
    double low_ = 0;
    double high_ = 0;
    EditMode mode_ = EditMode::saveAsNew;
    std::string newTarget_;
    bool replacesPendingEdit_ = false;
    bool lastCanStage_ = false;
    std::optional<std::string> stageError_;
    std::optional<BackgroundTasks::Id> stageTask_;
    BackgroundWork work_;  // last: gone first, with its tasks stopped
};

}  // namespace tapekeep
