#include "ui/CardLogModel.h"

#include "workflows/BackupViewModel.h"
#include "workflows/QmlValues.h"

namespace tapekeep {

CardLogModel::CardLogModel(BackupViewModel& backup, std::string uuid, QObject* parent)
    : QAbstractListModel(parent), backup_(backup), uuid_(std::move(uuid)) {
    lines_ = QmlValues::textList(backup_.cardLog(uuid_));
    connect(&backup_, &BackupViewModel::cardLogsChanged, this, &CardLogModel::follow);
}

int CardLogModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(lines_.size());
}

QVariant CardLogModel::data(const QModelIndex& index, int role) const {
    if (role != LineRole && role != Qt::DisplayRole) return {};
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
    return lines_.at(index.row());
}

QHash<int, QByteArray> CardLogModel::roleNames() const {
    return {{LineRole, "line"}};
}

void CardLogModel::follow() {
    const std::vector<std::string> log = backup_.cardLog(uuid_);
    if (!continuesShownLines(log)) {
        beginResetModel();
        lines_ = QmlValues::textList(log);
        endResetModel();
        return;
    }
    const auto shown = static_cast<std::size_t>(lines_.size());
    if (log.size() == shown) return;
    beginInsertRows({}, static_cast<int>(shown), static_cast<int>(log.size()) - 1);
    for (std::size_t index = shown; index < log.size(); ++index)
        lines_.push_back(QmlValues::text(log[index]));
    endInsertRows();
}

// Whether the log is what is shown with lines added at the end. A log only grows during a run and
// starts over empty with the next, so its first and last shown lines are enough to tell the two apart.
bool CardLogModel::continuesShownLines(const std::vector<std::string>& log) const {
    const auto shown = static_cast<std::size_t>(lines_.size());
    if (log.size() < shown) return false;
    return shown == 0 || (QmlValues::text(log.front()) == lines_.front() &&
                          QmlValues::text(log[shown - 1]) == lines_.back());
}

}  // namespace tapekeep
