#pragma once

#include <QObject>

#include <functional>

#include "workflows/ComparisonViewModel.h"

namespace tapekeep {

class RestoreViewModel;

// What the comparison sheet of the restore wizard works with: a comparison over the versions of the
// set chosen in the wizard, made afresh each time the sheet opens, so that its pickers offer what
// the set holds then. GUI thread only.
class VersionComparisonSheet : public QObject {
    Q_OBJECT
    // The open sheet's comparison, a ComparisonViewModel; null while the sheet is closed.
    Q_PROPERTY(QObject* comparison READ comparisonObject NOTIFY comparisonChanged)

public:
    // Called at each opening: the rsync and the log store of that moment.
    using DependenciesSource = std::function<ComparisonViewModel::Dependencies()>;

    VersionComparisonSheet(RestoreViewModel& restore, DependenciesSource dependencies,
                           QObject* parent = nullptr);

    // Opens the sheet over the wizard's set with these versions chosen, as indexes into its
    // versions (-1: none). Nothing without a chosen set.
    Q_INVOKABLE void open(int versionA, int versionB);
    // Closes the sheet; a comparison under way is stopped.
    Q_INVOKABLE void close();

    [[nodiscard]] ComparisonViewModel* comparison() const { return comparison_; }
    [[nodiscard]] QObject* comparisonObject() const { return comparison_; }

signals:
    void comparisonChanged();

private:
    void replace(ComparisonViewModel* next);

    RestoreViewModel& restore_;
    DependenciesSource dependencies_;
    ComparisonViewModel* comparison_ = nullptr;  // a child; QML may still read the last one until
                                                 // the event loop deletes it
};

}  // namespace tapekeep
