#include "ui/VersionComparisonSheet.h"

#include "ui/ReplacedChild.h"
#include "workflows/RestoreViewModel.h"

namespace tapekeep {

VersionComparisonSheet::VersionComparisonSheet(RestoreViewModel& restore, DependenciesSource dependencies,
                                               QObject* parent)
    : QObject(parent), restore_(restore), dependencies_(std::move(dependencies)) {}

void VersionComparisonSheet::open(int versionA, int versionB) {
    if (!restore_.selectedSet()) return;
    auto* comparison = new ComparisonViewModel(restore_.selectedSet()->versions, dependencies_(), this);
    comparison->chooseVersionA(versionA);
    comparison->chooseVersionB(versionB);
    replace(comparison);
}

void VersionComparisonSheet::close() {
    replace(nullptr);
}

void VersionComparisonSheet::replace(ComparisonViewModel* next) {
    replaceChild(comparison_, next, [this] { emit comparisonChanged(); });
}

}  // namespace tapekeep
