#include "ui/UpdaterController.h"

namespace tapekeep {

QString UpdaterController::title() {
    return QStringLiteral("Updates Come from Your Package Manager");
}

QString UpdaterController::message() {
    return QStringLiteral(
        "Tapekeep is updated by the package manager that installed it. Use it, or your software centre, to "
        "look for a newer version.");
}

void UpdaterController::checkForUpdates() {
    emit checked(title(), message());
}

}  // namespace tapekeep
