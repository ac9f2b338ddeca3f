#pragma once

#include <QAbstractListModel>
#include <QHash>
#include <QList>
#include <QTimer>
#include <QUrl>
#include <QVariant>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/SDCard.h"
#include "core/Timestamp.h"

namespace tapekeep {

class BackupViewModel;
class CardLogModel;

// The BACKUP screen's cards as a list model: one row per detected card, in the scanner's order,
// with everything its tile shows as named roles. Each of the controller's change signals is turned
// into dataChanged for the rows whose values really changed, and for those roles only, so that one
// card's progress repaints one tile. Also the screen's actions, each for a card named by its UUID;
// a UUID that names no detected card is ignored.
//
// GUI thread only, like the controller it shows.
class CardListModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)

public:
    enum Role {
        UuidRole = Qt::UserRole + 1,
        VolumeNameRole,
        ShortUuidRole,
        MountPathRole,
        StateRole,  // the raw value: "idle", "confirming", "running", "success", "failed",
                    // "autoBackupCountdown"
        StateMessageRole,
        SecondsLeftRole,  // of the countdown to an automatic backup
        ProgressRole,     // 0 to 1, or null
        PercentRole,      // 0 to 100, or null
        FilesRemainingRole,
        StartTimeRole,  // epoch milliseconds, or null
        ElapsedRole,    // of the run so far, or of the finished run: "1:05"; or ""
        RecentLogRole,  // the last lines of the log
        LogLineCountRole,
        ContentSummaryRole,  // [{label, count}]
        ContentLabelRole,    // "Scanning", "No M8 files" or ""
        FreshnessRole,       // the badge's text, or ""
        FreshnessKindRole,   // "checking", "noBackup", "upToDate", "changes", or ""
        DiffSummaryRole,     // [{name, added, modified, deleted}]
        DiffLoadingRole,
        VersionsRole,
        TotalSizeRole,  // "1.5 MB", or "" while unknown
        LatestNoteRole,
        FoldersRole,  // [{id, name, sizeText, selected, locked}]
        SongsRole,    // [{name, relativePath, sizeText, selected}]
        SongsPartlyChosenRole,
        SizesLoadedRole,
        DestinationOverrideRole,  // a folder path, or ""
    };
    Q_ENUM(Role)

    static constexpr int recentLogLines = 4;

    explicit CardListModel(BackupViewModel& backup, QObject* parent = nullptr);
    ~CardListModel() override;

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QHash<int, QByteArray> roleNames() const override;
    [[nodiscard]] int count() const { return rowCount(); }
    [[nodiscard]] BackupViewModel& backup() const { return backup_; }
    // The card's run so far while it runs, or the length of its run once that has ended; "" else.
    [[nodiscard]] QString elapsedText(const std::string& uuid) const;

    // The whole log of a card, growing as lines arrive; owned by this model.
    Q_INVOKABLE QObject* logModel(const QString& uuid);

    Q_INVOKABLE void refresh();
    // Starts a run with what the options sheet chose, or the whole card when it was not opened.
    Q_INVOKABLE void backUp(const QString& uuid);
    Q_INVOKABLE void openOptions(const QString& uuid);
    // Opens the sheet again for a run to this folder instead of the usual store.
    Q_INVOKABLE void chooseDestination(const QString& uuid, const QUrl& folder);
    Q_INVOKABLE void cancelConfirmation(const QString& uuid);
    Q_INVOKABLE void cancelRun(const QString& uuid);
    Q_INVOKABLE void cancelCountdown(const QString& uuid);
    Q_INVOKABLE void eject(const QString& uuid);
    Q_INVOKABLE void showDiffSummary(const QString& uuid);
    Q_INVOKABLE void setFolderSelected(const QString& uuid, const QString& name, bool selected);
    Q_INVOKABLE void setSongSelected(const QString& uuid, const QString& relativePath, bool selected);

signals:
    void countChanged();

private:
    struct Row {
        SDCard card;
        QHash<int, QVariant> values;
    };

    void connectController();
    void followSignal(void (BackupViewModel::*signal)(), QList<int> roles);
    void syncRows();
    void removeVanishedRows(const std::vector<SDCard>& cards);
    void placeRow(int position, const SDCard& card);
    void forgetLogModel(const std::string& uuid);
    void refreshRoles(const QList<int>& roles);
    void noteFinishedRuns();
    void tick();
    void updateTicking();
    [[nodiscard]] Row makeRow(const SDCard& card) const;
    [[nodiscard]] QVariant value(const SDCard& card, int role) const;
    [[nodiscard]] int rowOf(const std::string& uuid) const;
    [[nodiscard]] const SDCard* cardOf(const QString& uuid) const;
    void onCard(const QString& uuid, void (BackupViewModel::*action)(const SDCard&));

    BackupViewModel& backup_;
    std::vector<Row> rows_;
    std::map<std::string, Clock::time_point> finishedAt_;  // when each card's last run was seen ending
    std::map<std::string, std::unique_ptr<CardLogModel>> logModels_;
    QTimer ticker_;  // while a run or a countdown shows its seconds
};

}  // namespace tapekeep
