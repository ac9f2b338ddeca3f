#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "core/SDCard.h"

namespace tapekeep {

class EditManifestStoreBox;
class EditQueueViewModel;
class StageSheetViewModel;

// What the BROWSE screen's edit sheets work with: the stage sheet of one sample and the pending
// edits sheet of one set, each made afresh when it opens (with the store of the backup folder in
// use then, the detected card of the set and the rsync of the settings) and gone when it closes.
// A staged trim closes its sheet and refreshes the pending edits sheet of its set. GUI thread only.
class EditSheets : public QObject {
    Q_OBJECT
    // The open stage sheet's StageSheetViewModel; null while it is closed.
    Q_PROPERTY(QObject* stageSheet READ stageSheetObject NOTIFY stageSheetChanged)
    // The open pending edits sheet's EditQueueViewModel; null while it is closed.
    Q_PROPERTY(QObject* pendingEdits READ pendingEditsObject NOTIFY pendingEditsChanged)
    Q_PROPERTY(QString pendingEditsSet READ pendingEditsSet NOTIFY pendingEditsChanged)
    // The sheets' fixed texts that no controller state carries: the confirmations' titles and texts.
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)

public:
    struct Dependencies {
        std::function<std::filesystem::path()> baseFolder;
        EditManifestStoreBox* stores = nullptr;  // kept on the base folder at each opening
        std::function<std::vector<SDCard>()> detectedCards;
        std::function<std::string()> rsyncPath;
        // Throws when the card is not, or no longer, the mounted volume it was.
        std::function<void(const SDCard& card, std::stop_token token)> revalidateCard;
    };

    explicit EditSheets(Dependencies dependencies, QObject* parent = nullptr);
    ~EditSheets() override;

    // The stage sheet of a sample of a version: `versionPath` is the version folder, absolute or
    // by its name in the set; `sampleCardPath` the sample's card path ("/Samples/kick.wav").
    Q_INVOKABLE void openStageSheet(const QString& setFolder, const QString& versionPath,
                                    const QString& sampleCardPath);
    Q_INVOKABLE void closeStageSheet();
    // The pending edits sheet of the set, by its folder name, loading as it opens.
    Q_INVOKABLE void openPendingEdits(const QString& setFolder);
    // Closes the sheet; an apply under way is stopped.
    Q_INVOKABLE void closePendingEdits();
    // The folder name of the set that holds a version folder.
    Q_INVOKABLE static QString setFolderOf(const QString& versionPath);

    [[nodiscard]] StageSheetViewModel* stageSheet() const { return stageSheet_; }
    [[nodiscard]] EditQueueViewModel* pendingEdits() const { return pendingEdits_; }
    [[nodiscard]] QObject* stageSheetObject() const;
    [[nodiscard]] QObject* pendingEditsObject() const;
    [[nodiscard]] QString pendingEditsSet() const { return pendingEditsSet_; }
    [[nodiscard]] static QVariantMap texts();

signals:
    void stageSheetChanged();
    void pendingEditsChanged();
    // A trim of the set became a pending edit.
    void editStaged(const QString& setFolder, const QString& editID);

private:
    [[nodiscard]] std::optional<SDCard> cardOfSet(const std::string& setFolder) const;
    void replaceStageSheet(StageSheetViewModel* next);
    void replacePendingEdits(EditQueueViewModel* next, const QString& setFolder);

    Dependencies dependencies_;
    StageSheetViewModel* stageSheet_ = nullptr;   // a child; QML may still read the last one
    EditQueueViewModel* pendingEdits_ = nullptr;  // until the event loop deletes it
    QString pendingEditsSet_;
};

}  // namespace tapekeep
