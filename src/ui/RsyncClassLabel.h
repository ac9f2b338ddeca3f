#pragma once

#include <QtQml/qqmlregistration.h>
#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>

#include "workflows/BackgroundWork.h"

namespace tapekeep {

// The class of the rsync at `path`, as the settings show it ("rsync 3.2 – 3.5", "openrsync /
// Samba 2.6.9", "unsupported", …). Running "rsync --version" can take a while, so each path is
// classified on a background thread; a newer path cancels the older run and its answer is dropped.
// A path that cannot be run reads "unsupported", with the reason in `problem`. GUI thread only.
class RsyncClassLabel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString path READ path WRITE setPath NOTIFY pathChanged)
    Q_PROPERTY(QString label READ label NOTIFY resultChanged)
    Q_PROPERTY(QString problem READ problem NOTIFY resultChanged)
    Q_PROPERTY(bool isDetecting READ isDetecting NOTIFY isDetectingChanged)
    Q_PROPERTY(QStringList installed READ installed NOTIFY resultChanged)

public:
    explicit RsyncClassLabel(QObject* parent = nullptr);

    [[nodiscard]] QString path() const { return path_; }
    void setPath(const QString& path);
    [[nodiscard]] QString label() const { return label_; }  // empty until the first answer
    [[nodiscard]] QString problem() const { return problem_; }
    [[nodiscard]] bool isDetecting() const { return isDetecting_; }
    // The rsync builds found in their usual places, best first, looked for with each detection.
    [[nodiscard]] QStringList installed() const { return installed_; }

signals:
    void pathChanged();
    void resultChanged();
    void isDetectingChanged();

private:
    void detect();
    struct Result {
        QString label;
        QString problem;
        QStringList installed;
    };
    void applyResult(std::uint64_t generation, const Result& result);
    void setDetecting(bool detecting);

    QString path_;
    QString label_;
    QString problem_;
    QStringList installed_;
    bool isDetecting_ = false;
    std::uint64_t generation_ = 0;
    BackgroundTasks::Id running_ = 0;
    BackgroundWork background_{this};  // after what its tasks use
};

}  // namespace tapekeep
