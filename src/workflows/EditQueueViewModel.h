#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cards/OperationLock.h"
#include "core/SDCard.h"
#include "edits/ApplyProgress.h"
#include "edits/EditApplier.h"
#include "edits/EditEntry.h"
#include "edits/EditLiveCheck.h"
#include "workflows/BackgroundWork.h"
#include "workflows/FeatureAccessAdmission.h"

namespace tapekeep {

class EditManifestStore;

// The controller behind the pending edits sheet of one backup set: loads the set's pending edits,
// holds them against the live card, gates the apply, runs it and counts what came of it. Without a
// card the edits are listed and can be discarded or renamed, but nothing is checked or applied.
//
// Lives on the GUI thread. Loads and the apply run as background tasks; their results come back as
// queued calls, a load's only while it is the newest one. Every failure of a load, a rename or a
// discard goes to loadError by its description.
class EditQueueViewModel : public QObject {
    Q_OBJECT
    // One map per edit: id, mode ("saveAsNew"/"overwrite"), modeLabel ("+ NEW"/"REPLACE"), source,
    // target, createdAt (ms), applyError, states (texts), blocked, selected, progress, progressText,
    // canRename.
    Q_PROPERTY(QVariantList rows READ rows NOTIFY rowsChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(QVariant loadError READ loadErrorVariant NOTIFY loadErrorChanged)
    Q_PROPERTY(bool isApplying READ isApplying NOTIFY isApplyingChanged)
    Q_PROPERTY(bool canApply READ canApply NOTIFY canApplyChanged)
    Q_PROPERTY(bool hasCard READ hasCard CONSTANT)
    Q_PROPERTY(int selectedCount READ selectedCount NOTIFY rowsChanged)
    // null, or {"succeeded", "failed", "failureMessages"}.
    Q_PROPERTY(QVariant lastApplyResult READ lastApplyResultVariant NOTIFY lastApplyResultChanged)
    // The sheet's notices for the state as it is, most serious first.
    Q_PROPERTY(QStringList notices READ notices NOTIFY noticesChanged)
    Q_PROPERTY(QString applyConfirmation READ applyConfirmation NOTIFY rowsChanged)

public:
    struct Dependencies {
        std::shared_ptr<EditManifestStore> store;
        std::string backupRootName;
        std::optional<SDCard> card;  // the card of the set, when it is mounted
        std::string rsyncPath;
        FeatureAccessAdmission featureAccess;
        EditApplier::Dependencies applier;
        OperationLock* lock = &OperationLock::shared();
    };

    struct ApplyResult {
        int succeeded = 0;
        int failed = 0;
        std::vector<std::string> failureMessages;
    };

    explicit EditQueueViewModel(Dependencies dependencies, QObject* parent = nullptr);
    ~EditQueueViewModel() override;

    Q_INVOKABLE void load();
    // Writes the selected edits that are not blocked to the card.
    Q_INVOKABLE void apply();
    // Ends a running apply: the edit under way fails as cancelled, those behind it stay as they were.
    Q_INVOKABLE void cancel();
    void discard(const std::vector<std::string>& ids);
    Q_INVOKABLE void discardSelected();
    Q_INVOKABLE void discardAll();
    Q_INVOKABLE void rename(const QString& id, const QString& newTarget);
    Q_INVOKABLE void setSelected(const QString& id, bool selected);
    Q_INVOKABLE void selectAll(bool selected);
    void select(const std::set<std::string>& ids);

    [[nodiscard]] const std::vector<EditEntry>& edits() const { return edits_; }
    [[nodiscard]] const std::optional<EditLiveCheck>& liveCheck() const { return liveCheck_; }
    [[nodiscard]] const std::optional<std::string>& loadError() const { return loadError_; }
    [[nodiscard]] const std::optional<std::string>& scanError() const { return scanError_; }
    [[nodiscard]] bool isLoading() const { return loadsRunning_ > 0; }
    [[nodiscard]] bool isApplying() const { return isApplying_; }
    [[nodiscard]] bool canApply() const { return canApply_; }
    [[nodiscard]] bool hasCard() const { return dependencies_.card.has_value(); }
    [[nodiscard]] const std::map<std::string, ApplyProgress>& perEditProgress() const {
        return perEditProgress_;
    }
    [[nodiscard]] const std::set<std::string>& selection() const { return selection_; }
    [[nodiscard]] const std::optional<ApplyResult>& lastApplyResult() const { return lastApplyResult_; }
    [[nodiscard]] bool isBlocked(const EditEntry& edit) const { return blockReason(edit).has_value(); }
    [[nodiscard]] std::optional<std::string> blockReason(const EditEntry& edit) const;

    [[nodiscard]] QVariantList rows() const;
    [[nodiscard]] QVariant loadErrorVariant() const;
    [[nodiscard]] int selectedCount() const { return static_cast<int>(selection_.size()); }
    [[nodiscard]] QVariant lastApplyResultVariant() const;
    [[nodiscard]] QStringList notices() const;
    [[nodiscard]] QString applyConfirmation() const;

signals:
    void rowsChanged();
    void isLoadingChanged();
    void loadErrorChanged();
    void isApplyingChanged();
    void canApplyChanged();
    void lastApplyResultChanged();
    void noticesChanged();
    // Not properties: the moment a load, or an apply with its final reload, has ended.
    void loadFinished();
    void applyFinished();

private:
    // What one load found, handed from its task to the GUI thread.
    struct Loaded {
        std::vector<EditEntry> edits;
        std::optional<EditLiveCheck> liveCheck;
        std::optional<std::string> error;
        std::optional<std::string> scanError;
        bool cardHeld = false;
    };

    [[nodiscard]] Loaded read(const std::stop_token& token) const;
    void beginLoad();
    void endLoad();
    void show(Loaded loaded);
    void runApply(std::vector<std::string> chosen, const std::stop_token& token);
    ApplyResult applyEdits(const std::vector<EditEntry>& run, LiveCheckSnapshot snapshot,
                           const std::stop_token& token);
    void finishApply(Loaded loaded, std::optional<ApplyResult> result);
    void loadAfter(std::function<void()> change);
    void setLoadError(std::optional<std::string> error);
    void setCanApply(bool canApply);
    void followLock();

    Dependencies dependencies_;
    std::vector<EditEntry> edits_;
    std::optional<EditLiveCheck> liveCheck_;
    std::optional<std::string> loadError_;
    std::optional<std::string> scanError_;
    int loadsRunning_ = 0;
    std::uint64_t loadGeneration_ = 0;
    bool isApplying_ = false;
    bool canApply_ = false;
    std::map<std::string, ApplyProgress> perEditProgress_;
    std::set<std::string> selection_;
    std::set<std::string> shownIDs_;  // the edits of the last load
    std::optional<ApplyResult> lastApplyResult_;
    std::optional<OperationLock::ObserverToken> lockObserver_;
    std::optional<BackgroundTasks::Id> applyTask_;
    BackgroundWork work_;  // last: gone first, with its tasks stopped
};

}  // namespace tapekeep
