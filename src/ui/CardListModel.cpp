#include "ui/CardListModel.h"

#include <QQmlEngine>
#include <QUrl>

#include <algorithm>
#include <array>

#include "core/Formatting.h"
#include "ui/CardLogModel.h"
#include "ui/CardTileValues.h"
#include "workflows/BackupViewModel.h"
#include "workflows/QmlValues.h"

namespace tapekeep {

namespace {

using QmlValues::text;

const QList<int> stateRoles{CardListModel::StateRole, CardListModel::StateMessageRole,
                            CardListModel::SecondsLeftRole, CardListModel::ElapsedRole};
const QList<int> clockRoles{CardListModel::ElapsedRole, CardListModel::SecondsLeftRole};

QString rawState(const CardState& state) {
    return QString::fromLatin1(CardState::rawValue(state.kind));
}

bool isFinished(CardState::Kind kind) {
    return kind == CardState::Kind::success || kind == CardState::Kind::failed;
}

int secondsLeft(const CardState& state) {
    if (state.kind != CardState::Kind::autoBackupCountdown) return 0;
    return CardTileValues::secondsLeft(Clock::now(), state.end);
}

// How each role is named in QML and read for one card.
struct RoleReader {
    CardListModel::Role role;
    const char* name;
    QVariant (*read)(const CardListModel& model, const std::string& uuid, const SDCard& card);
};

const BackupViewModel& controller(const CardListModel& model) {
    return model.backup();
}

const std::array<RoleReader, 28> roleReaders{{
    {CardListModel::UuidRole, "uuid",
     [](const CardListModel&, const std::string& uuid, const SDCard&) -> QVariant { return text(uuid); }},
    {CardListModel::VolumeNameRole, "volumeName",
     [](const CardListModel&, const std::string&, const SDCard& card) -> QVariant {
         return text(card.volumeName);
     }},
    {CardListModel::ShortUuidRole, "shortUuid",
     [](const CardListModel&, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::shortUuid(uuid);
     }},
    {CardListModel::MountPathRole, "mountPath",
     [](const CardListModel&, const std::string&, const SDCard& card) -> QVariant {
         return text(card.mountPath.string());
     }},
    // "state" is every item's own property in QML.
    {CardListModel::StateRole, "cardState",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return rawState(controller(model).cardState(uuid));
     }},
    {CardListModel::StateMessageRole, "stateMessage",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return text(controller(model).cardState(uuid).message);
     }},
    {CardListModel::SecondsLeftRole, "secondsLeft",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return secondsLeft(controller(model).cardState(uuid));
     }},
    {CardListModel::ProgressRole, "progress",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::fraction(controller(model).cardProgress(uuid));
     }},
    {CardListModel::PercentRole, "percent",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::percent(controller(model).cardProgress(uuid));
     }},
    {CardListModel::FilesRemainingRole, "filesRemaining",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return QmlValues::optionalNumber(controller(model).cardFilesRemaining(uuid));
     }},
    {CardListModel::StartTimeRole, "startTime",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::epochMilliseconds(controller(model).cardStartTime(uuid));
     }},
    {CardListModel::ElapsedRole, "elapsed",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return model.elapsedText(uuid);
     }},
    {CardListModel::RecentLogRole, "recentLog",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::lastLines(controller(model).cardLog(uuid), CardListModel::recentLogLines);
     }},
    {CardListModel::LogLineCountRole, "logLineCount",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return static_cast<int>(controller(model).cardLog(uuid).size());
     }},
    {CardListModel::ContentSummaryRole, "contentSummary",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::contentRows(controller(model).cardContentSummary(uuid));
     }},
    {CardListModel::ContentLabelRole, "contentLabel",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return text(controller(model).cardContentLabel(uuid).value_or(""));
     }},
    {CardListModel::FreshnessRole, "freshness",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::freshnessLabel(controller(model).cardFreshness(uuid));
     }},
    {CardListModel::FreshnessKindRole, "freshnessKind",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::freshnessKind(controller(model).cardFreshness(uuid));
     }},
    {CardListModel::DiffSummaryRole, "diffSummary",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::diffRows(controller(model).cardDiffSummary(uuid));
     }},
    {CardListModel::DiffLoadingRole, "diffLoading",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return controller(model).isDiffLoading(uuid);
     }},
    {CardListModel::VersionsRole, "versions",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return controller(model).cardBackupInfo(uuid).value_or(BackupInfo{}).versions;
     }},
    {CardListModel::TotalSizeRole, "totalSize",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::sizeText(
             controller(model).cardBackupInfo(uuid).value_or(BackupInfo{}).totalSize);
     }},
    {CardListModel::LatestNoteRole, "latestNote",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return text(controller(model).latestNote(uuid).value_or(""));
     }},
    {CardListModel::FoldersRole, "folders",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::folderRows(controller(model).cardFolders(uuid));
     }},
    {CardListModel::SongsRole, "songs",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::songRows(controller(model).cardSongs(uuid));
     }},
    {CardListModel::SongsPartlyChosenRole, "songsPartlyChosen",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::songsPartlyChosen(controller(model).cardFolders(uuid));
     }},
    {CardListModel::SizesLoadedRole, "sizesLoaded",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return controller(model).folderSizesLoaded(uuid);
     }},
    {CardListModel::DestinationOverrideRole, "destinationOverride",
     [](const CardListModel& model, const std::string& uuid, const SDCard&) -> QVariant {
         return CardTileValues::pathText(controller(model).destinationOverride(uuid));
     }},
}};

}  // namespace

CardListModel::CardListModel(BackupViewModel& backup, QObject* parent)
    : QAbstractListModel(parent), backup_(backup) {
    ticker_.setInterval(1000);
    connect(&ticker_, &QTimer::timeout, this, &CardListModel::tick);
    connectController();
    syncRows();
}

CardListModel::~CardListModel() = default;

void CardListModel::connectController() {
    connect(&backup_, &BackupViewModel::detectedCardsChanged, this, &CardListModel::syncRows);
    connect(&backup_, &BackupViewModel::cardStatesChanged, this, [this] {
        noteFinishedRuns();
        refreshRoles(stateRoles);
        updateTicking();
    });
    followSignal(&BackupViewModel::cardLogsChanged, {RecentLogRole, LogLineCountRole});
    followSignal(&BackupViewModel::cardStartTimeChanged, {StartTimeRole, ElapsedRole});
    followSignal(&BackupViewModel::cardBackupInfoChanged, {VersionsRole, TotalSizeRole});
    followSignal(&BackupViewModel::cardProgressChanged, {ProgressRole, PercentRole});
    followSignal(&BackupViewModel::cardFilesRemainingChanged, {FilesRemainingRole});
    followSignal(&BackupViewModel::cardContentSummaryChanged, {ContentSummaryRole});
    followSignal(&BackupViewModel::cardContentLabelChanged, {ContentLabelRole});
    followSignal(&BackupViewModel::latestNotesChanged, {LatestNoteRole});
    followSignal(&BackupViewModel::cardFoldersChanged, {FoldersRole, SongsPartlyChosenRole});
    followSignal(&BackupViewModel::cardSongsChanged, {SongsRole});
    followSignal(&BackupViewModel::folderSizesLoadedChanged, {SizesLoadedRole});
    followSignal(&BackupViewModel::cardFreshnessChanged, {FreshnessRole, FreshnessKindRole});
    followSignal(&BackupViewModel::cardDiffSummaryChanged, {DiffSummaryRole});
    followSignal(&BackupViewModel::cardDiffLoadingChanged, {DiffLoadingRole});
    followSignal(&BackupViewModel::destinationOverrideChanged, {DestinationOverrideRole});
}

void CardListModel::followSignal(void (BackupViewModel::*signal)(), QList<int> roles) {
    connect(&backup_, signal, this, [this, roles = std::move(roles)] { refreshRoles(roles); });
}

int CardListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant CardListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
    if (role == Qt::DisplayRole) role = VolumeNameRole;
    return rows_[static_cast<std::size_t>(index.row())].values.value(role);
}

QHash<int, QByteArray> CardListModel::roleNames() const {
    QHash<int, QByteArray> names;
    for (const RoleReader& entry : roleReaders) names.insert(entry.role, entry.name);
    return names;
}

// The rows follow the controller's list: vanished cards go, then each card in turn is found in
// place, moved there, or inserted there. Cards that stay keep their row and only tell what changed.
void CardListModel::syncRows() {
    const std::vector<SDCard>& cards = backup_.detectedCards();
    const int before = rowCount();
    removeVanishedRows(cards);
    for (std::size_t position = 0; position < cards.size(); ++position)
        placeRow(static_cast<int>(position), cards[position]);
    refreshRoles({VolumeNameRole, MountPathRole});
    updateTicking();
    if (rowCount() != before) emit countChanged();
}

void CardListModel::removeVanishedRows(const std::vector<SDCard>& cards) {
    for (int row = rowCount() - 1; row >= 0; --row) {
        const std::string uuid = rows_[static_cast<std::size_t>(row)].card.diskUtilUUID;
        const bool stays = std::any_of(cards.begin(), cards.end(),
                                       [&](const SDCard& card) { return card.diskUtilUUID == uuid; });
        if (stays) continue;
        beginRemoveRows({}, row, row);
        rows_.erase(rows_.begin() + row);
        endRemoveRows();
        finishedAt_.erase(uuid);
        forgetLogModel(uuid);
    }
}

void CardListModel::placeRow(int position, const SDCard& card) {
    const int found = rowOf(card.diskUtilUUID);
    if (found == position) {
        rows_[static_cast<std::size_t>(position)].card = card;
        return;
    }
    if (found > position) {
        beginMoveRows({}, found, found, {}, position);
        std::rotate(rows_.begin() + position, rows_.begin() + found, rows_.begin() + found + 1);
        endMoveRows();
        rows_[static_cast<std::size_t>(position)].card = card;
        return;
    }
    beginInsertRows({}, position, position);
    rows_.insert(rows_.begin() + position, makeRow(card));
    endInsertRows();
}

CardListModel::Row CardListModel::makeRow(const SDCard& card) const {
    Row row{card, {}};
    for (const int role : roleNames().keys()) row.values.insert(role, value(card, role));
    return row;
}

void CardListModel::refreshRoles(const QList<int>& roles) {
    for (std::size_t row = 0; row < rows_.size(); ++row) {
        Row& current = rows_[row];
        QList<int> changed;
        for (const int role : roles) {
            QVariant now = value(current.card, role);
            auto& shown = current.values[role];
            if (shown == now) continue;
            shown = std::move(now);
            changed.push_back(role);
        }
        if (changed.isEmpty()) continue;
        const QModelIndex at = index(static_cast<int>(row));
        emit dataChanged(at, at, changed);
    }
}

// A run's elapsed time stops when the run ends; the moment is taken from the state shown before.
void CardListModel::noteFinishedRuns() {
    for (const Row& row : rows_) {
        const std::string& uuid = row.card.diskUtilUUID;
        const CardState::Kind kind = backup_.cardState(uuid).kind;
        const bool wasRunning = row.values.value(StateRole).toString() == QLatin1String("running");
        if (isFinished(kind) && wasRunning)
            finishedAt_[uuid] = Clock::now();
        else if (!isFinished(kind))
            finishedAt_.erase(uuid);
    }
}

void CardListModel::tick() {
    refreshRoles(clockRoles);
}

void CardListModel::updateTicking() {
    const bool counting = std::any_of(rows_.begin(), rows_.end(), [](const Row& row) {
        const QString state = row.values.value(StateRole).toString();
        return state == QLatin1String("running") || state == QLatin1String("autoBackupCountdown");
    });
    if (counting && !ticker_.isActive()) ticker_.start();
    if (!counting) ticker_.stop();
}

QVariant CardListModel::value(const SDCard& card, int role) const {
    const auto* reader = std::find_if(roleReaders.begin(), roleReaders.end(),
                                      [role](const RoleReader& entry) { return entry.role == role; });
    return reader == roleReaders.end() ? QVariant() : reader->read(*this, card.diskUtilUUID, card);
}

// While the card runs, the time so far; once its run has ended, the run's length.
QString CardListModel::elapsedText(const std::string& uuid) const {
    const auto start = backup_.cardStartTime(uuid);
    if (!start) return {};
    const CardState::Kind kind = backup_.cardState(uuid).kind;
    const auto finished = finishedAt_.find(uuid);
    Clock::time_point end;
    if (kind == CardState::Kind::running)
        end = Clock::now();
    else if (finished != finishedAt_.end())
        end = finished->second;
    else
        return {};
    return text(formatElapsed(std::chrono::duration_cast<std::chrono::seconds>(end - *start).count()));
}

int CardListModel::rowOf(const std::string& uuid) const {
    const auto found = std::find_if(rows_.begin(), rows_.end(),
                                    [&](const Row& row) { return row.card.diskUtilUUID == uuid; });
    return found == rows_.end() ? -1 : static_cast<int>(found - rows_.begin());
}

const SDCard* CardListModel::cardOf(const QString& uuid) const {
    const int row = rowOf(uuid.toStdString());
    return row < 0 ? nullptr : &rows_[static_cast<std::size_t>(row)].card;
}

QObject* CardListModel::logModel(const QString& uuid) {
    const std::string key = uuid.toStdString();
    if (rowOf(key) < 0) return nullptr;
    auto& model = logModels_[key];
    if (!model) {
        model = std::make_unique<CardLogModel>(backup_, key);
        QQmlEngine::setObjectOwnership(model.get(), QQmlEngine::CppOwnership);  // not the caller's
    }
    return model.get();
}

void CardListModel::onCard(const QString& uuid, void (BackupViewModel::*action)(const SDCard&)) {
    if (const SDCard* card = cardOf(uuid)) (backup_.*action)(*card);
}

// A view may still hold the card's log while its tile goes, so the log goes once control returns.
void CardListModel::forgetLogModel(const std::string& uuid) {
    const auto found = logModels_.find(uuid);
    if (found == logModels_.end()) return;
    found->second.release()->deleteLater();
    logModels_.erase(found);
}

void CardListModel::refresh() {
    backup_.scanForCards();
}

void CardListModel::backUp(const QString& uuid) {
    onCard(uuid, &BackupViewModel::startBackup);
}

void CardListModel::openOptions(const QString& uuid) {
    if (const SDCard* card = cardOf(uuid)) backup_.prepareBackup(*card);
}

void CardListModel::chooseDestination(const QString& uuid, const QUrl& folder) {
    const SDCard* card = cardOf(uuid);
    if (card == nullptr || !folder.isLocalFile()) return;
    backup_.chooseDestination(*card, std::filesystem::path(folder.toLocalFile().toStdString()));
}

void CardListModel::cancelConfirmation(const QString& uuid) {
    onCard(uuid, &BackupViewModel::cancelConfirmation);
}

void CardListModel::cancelRun(const QString& uuid) {
    onCard(uuid, &BackupViewModel::cancelRun);
}

void CardListModel::cancelCountdown(const QString& uuid) {
    onCard(uuid, &BackupViewModel::cancelCountdown);
}

void CardListModel::eject(const QString& uuid) {
    onCard(uuid, &BackupViewModel::ejectCard);
}

void CardListModel::showDiffSummary(const QString& uuid) {
    onCard(uuid, &BackupViewModel::startDiffSummary);
}

void CardListModel::setFolderSelected(const QString& uuid, const QString& name, bool selected) {
    if (cardOf(uuid) != nullptr) backup_.setFolderSelected(uuid.toStdString(), name.toStdString(), selected);
}

void CardListModel::setSongSelected(const QString& uuid, const QString& relativePath, bool selected) {
    if (cardOf(uuid) != nullptr)
        backup_.setSongSelected(uuid.toStdString(), relativePath.toStdString(), selected);
}

}  // namespace tapekeep
