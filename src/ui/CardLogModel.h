#pragma once

#include <QAbstractListModel>
#include <QStringList>

#include <string>

namespace tapekeep {

class BackupViewModel;

// The whole log of one card as a list model. Lines that arrive are inserted at the end, so that a
// view keeps its place while it grows; a log that starts over (a new run) is reset.
//
// GUI thread only, like the controller it follows.
class CardLogModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role { LineRole = Qt::UserRole + 1 };

    CardLogModel(BackupViewModel& backup, std::string uuid, QObject* parent = nullptr);

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

private:
    void follow();
    [[nodiscard]] bool continuesShownLines(const std::vector<std::string>& log) const;

    BackupViewModel& backup_;
    const std::string uuid_;
    QStringList lines_;
};

}  // namespace tapekeep
