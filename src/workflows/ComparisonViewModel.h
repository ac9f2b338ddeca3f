#pragma once

#include <QObject>
#include <QString>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backup/RsyncLogStore.h"
#include "core/BackupVersion.h"
#include "core/FileDiff.h"
#include "workflows/BackgroundWork.h"
#include "workflows/FeatureAccessAdmission.h"

namespace tapekeep {

// The controller of the comparison of two versions of a set. rsync computes the answer: a dry
// run with checksums from version A to version B, whose itemised lines become the differences.
// No file is changed and no card is involved, so no lease is taken.
//
// Lives on the GUI thread; rsync runs on a background task and the result comes back as a queued
// call. A second compare() while one runs is allowed; the later result is the one that stays.
class ComparisonViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList versions READ versionsVariant CONSTANT)
    Q_PROPERTY(int versionA READ versionAIndex WRITE chooseVersionA NOTIFY versionAChanged)
    Q_PROPERTY(int versionB READ versionBIndex WRITE chooseVersionB NOTIFY versionBChanged)
    Q_PROPERTY(QVariant diffResult READ diffResultVariant NOTIFY diffResultChanged)
    Q_PROPERTY(bool isComparing READ isComparing NOTIFY isComparingChanged)
    Q_PROPERTY(QVariant errorMessage READ errorMessageVariant NOTIFY errorMessageChanged)

public:
    struct Dependencies {
        std::string rsyncPath = "rsync";
        // Where output that cannot be trusted is kept for diagnosis.
        RsyncLogStore logStore = RsyncLogStore::shared();
        FeatureAccessAdmission featureAccess;
    };

    ComparisonViewModel(std::vector<BackupVersion> versions, Dependencies dependencies,
                        QObject* parent = nullptr);

    // Indexes into versions(); -1 (or any index out of range) clears the choice.
    void chooseVersionA(int index);
    void chooseVersionB(int index);
    void setVersionA(std::optional<BackupVersion> version);
    void setVersionB(std::optional<BackupVersion> version);
    Q_INVOKABLE void compare();

    [[nodiscard]] const std::vector<BackupVersion>& versions() const { return versions_; }
    [[nodiscard]] const std::optional<BackupVersion>& versionA() const { return versionA_; }
    [[nodiscard]] const std::optional<BackupVersion>& versionB() const { return versionB_; }
    // Absent before a result and after any failure; empty when the versions match.
    [[nodiscard]] const std::optional<std::vector<FileDiff>>& diffResult() const { return diffResult_; }
    [[nodiscard]] bool isComparing() const { return isComparing_; }
    [[nodiscard]] const std::optional<std::string>& errorMessage() const { return errorMessage_; }

    [[nodiscard]] QVariantList versionsVariant() const;
    [[nodiscard]] int versionAIndex() const { return indexOf(versionA_); }
    [[nodiscard]] int versionBIndex() const { return indexOf(versionB_); }
    // null, or a list of {"path", "kind"} maps.
    [[nodiscard]] QVariant diffResultVariant() const;
    [[nodiscard]] QVariant errorMessageVariant() const;

signals:
    void versionAChanged();
    void versionBChanged();
    void diffResultChanged();
    void isComparingChanged();
    void errorMessageChanged();
    // Not a property: the moment a started comparison has ended, either way.
    void comparisonFinished();

private:
    struct Outcome {
        std::optional<std::vector<FileDiff>> differences;
        std::string error;  // when there are no differences to show
    };

    static Outcome run(const BackupVersion& a, const BackupVersion& b, const std::string& rsyncPath,
                       const RsyncLogStore& logStore, std::stop_token token);
    void finish(Outcome outcome);
    void setError(std::optional<std::string> message);
    void setDiffResult(std::optional<std::vector<FileDiff>> result);
    void setComparing(bool comparing);
    [[nodiscard]] int indexOf(const std::optional<BackupVersion>& version) const;

    std::vector<BackupVersion> versions_;
    Dependencies dependencies_;

    std::optional<BackupVersion> versionA_;
    std::optional<BackupVersion> versionB_;
    std::optional<std::vector<FileDiff>> diffResult_;
    bool isComparing_ = false;
    std::optional<std::string> errorMessage_;
    BackgroundWork work_;  // last: gone first, with its tasks stopped
};

}  // namespace tapekeep
