#include "ui/CardListModel.h"

#include <QUrl>

#include <algorithm>
#include <cmath>

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
    return {{UuidRole, "uuid"},
            {VolumeNameRole, "volumeName"},
            {ShortUuidRole, "shortUuid"},
            {MountPathRole, "mountPath"},
            {StateRole, "cardState"},
            {StateMessageRole, "stateMessage"},
            {SecondsLeftRole, "secondsLeft"},
            {ProgressRole, "progress"},
            {PercentRole, "percent"},
            {FilesRemainingRole, "filesRemaining"},
            {StartTimeRole, "startTime"},
            {ElapsedRole, "elapsed"},
            {RecentLogRole, "recentLog"},
            {LogLineCountRole, "logLineCount"},
            {ContentSummaryRole, "contentSummary"},
            {ContentLabelRole, "contentLabel"},
            {FreshnessRole, "freshness"},
            {FreshnessKindRole, "freshnessKind"},
            {DiffSummaryRole, "diffSummary"},
            {DiffLoadingRole, "diffLoading"},
            {VersionsRole, "versions"},
            {TotalSizeRole, "totalSize"},
            {LatestNoteRole, "latestNote"},
            {FoldersRole, "folders"},
            {SongsRole, "songs"},
            {SongsPartlyChosenRole, "songsPartlyChosen"},
            {SizesLoadedRole, "sizesLoaded"},
            {DestinationOverrideRole, "destinationOverride"}};
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
        const std::string& uuid = rows_[static_cast<std::size_t>(row)].card.diskUtilUUID;
        const bool stays = std::any_of(cards.begin(), cards.end(),
                                       [&](const SDCard& card) { return card.diskUtilUUID == uuid; });
        if (stays) continue;
        beginRemoveRows({}, row, row);
        rows_.erase(rows_.begin() + row);
        endRemoveRows();
        finishedAt_.erase(uuid);
        logModels_.erase(uuid);
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
    const std::string& uuid = card.diskUtilUUID;
    switch (role) {
        case UuidRole:
            return text(uuid);
        case VolumeNameRole:
            return text(card.volumeName);
        case ShortUuidRole:
            return CardTileValues::shortUuid(uuid);
        case MountPathRole:
            return text(card.mountPath.string());
        case StateRole:
        case StateMessageRole:
        case SecondsLeftRole:
        case ElapsedRole:
            return stateValue(uuid, role);
        case ProgressRole:
        case PercentRole:
        case FilesRemainingRole:
        case StartTimeRole:
        case RecentLogRole:
        case LogLineCountRole:
            return runValue(uuid, role);
        case FoldersRole:
        case SongsRole:
        case SongsPartlyChosenRole:
        case SizesLoadedRole:
        case DestinationOverrideRole:
            return optionsValue(uuid, role);
        default:
            return factValue(uuid, role);
    }
}

QVariant CardListModel::stateValue(const std::string& uuid, int role) const {
    const CardState state = backup_.cardState(uuid);
    switch (role) {
        case StateRole:
            return rawState(state);
        case StateMessageRole:
            return text(state.message);
        case SecondsLeftRole:
            return state.kind == CardState::Kind::autoBackupCountdown
                       ? CardTileValues::secondsLeft(Clock::now(), state.end)
                       : 0;
        default:
            return elapsed(uuid);
    }
}

QVariant CardListModel::runValue(const std::string& uuid, int role) const {
    switch (role) {
        case ProgressRole: {
            const auto progress = backup_.cardProgress(uuid);
            return progress ? QVariant(*progress) : QVariant();
        }
        case PercentRole: {
            const auto progress = backup_.cardProgress(uuid);
            return progress ? QVariant(static_cast<int>(std::lround(std::clamp(*progress, 0.0, 1.0) * 100)))
                            : QVariant();
        }
        case FilesRemainingRole:
            return QmlValues::optionalNumber(backup_.cardFilesRemaining(uuid));
        case StartTimeRole: {
            const auto start = backup_.cardStartTime(uuid);
            return start ? QVariant(QmlValues::epochMilliseconds(*start)) : QVariant();
        }
        case RecentLogRole:
            return CardTileValues::lastLines(backup_.cardLog(uuid), recentLogLines);
        default:
            return static_cast<int>(backup_.cardLog(uuid).size());
    }
}

QVariant CardListModel::factValue(const std::string& uuid, int role) const {
    switch (role) {
        case ContentSummaryRole:
            return CardTileValues::contentRows(backup_.cardContentSummary(uuid));
        case ContentLabelRole:
            return text(backup_.cardContentLabel(uuid).value_or(""));
        case FreshnessRole:
            return CardTileValues::freshnessLabel(backup_.cardFreshness(uuid));
        case FreshnessKindRole:
            return CardTileValues::freshnessKind(backup_.cardFreshness(uuid));
        case DiffSummaryRole:
            return CardTileValues::diffRows(backup_.cardDiffSummary(uuid));
        case DiffLoadingRole:
            return backup_.isDiffLoading(uuid);
        case VersionsRole:
            return backup_.cardBackupInfo(uuid).value_or(BackupInfo{}).versions;
        case TotalSizeRole:
            return CardTileValues::sizeText(backup_.cardBackupInfo(uuid).value_or(BackupInfo{}).totalSize);
        case LatestNoteRole:
            return text(backup_.latestNote(uuid).value_or(""));
        default:
            return {};
    }
}

QVariant CardListModel::optionsValue(const std::string& uuid, int role) const {
    switch (role) {
        case FoldersRole:
            return CardTileValues::folderRows(backup_.cardFolders(uuid));
        case SongsRole:
            return CardTileValues::songRows(backup_.cardSongs(uuid));
        case SongsPartlyChosenRole:
            return CardTileValues::songsPartlyChosen(backup_.cardFolders(uuid));
        case SizesLoadedRole:
            return backup_.folderSizesLoaded(uuid);
        default: {
            const auto destination = backup_.destinationOverride(uuid);
            return destination ? text(destination->string()) : QString();
        }
    }
}

// While the card runs, the time so far; once its run has ended, the run's length.
QString CardListModel::elapsed(const std::string& uuid) const {
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
    if (!model) model = std::make_unique<CardLogModel>(backup_, key);
    return model.get();
}

void CardListModel::onCard(const QString& uuid, void (BackupViewModel::*action)(const SDCard&)) {
    if (const SDCard* card = cardOf(uuid)) (backup_.*action)(*card);
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
    backup_.prepareBackup(*card, std::filesystem::path(folder.toLocalFile().toStdString()));
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
