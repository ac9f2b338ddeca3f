// tapekeep: the desktop application.

#include <QApplication>
#include <QProcessEnvironment>
#include <QQuickStyle>

#include <cstring>
#include <iostream>

#include "app/SingleInstanceGuard.h"
#include "core/Error.h"
#include "ui/DesktopApplication.h"

namespace {

void printUsage() {
    std::cout << "Usage: tapekeep [--demo]\n"
                 "  --demo  show the built-in demo card instead of the mounted volumes\n";
}

}  // namespace

int main(int argc, char** argv) {
    tapekeep::DesktopApplication::Options options;
    for (int index = 1; index < argc; ++index) {
        if (std::strcmp(argv[index], "--demo") == 0) {
            options.demo = true;
        } else if (std::strcmp(argv[index], "--help") == 0) {
            printUsage();
            return 0;
        } else {
            std::cerr << "tapekeep: unknown option " << argv[index] << '\n';
            printUsage();
            return 2;
        }
    }
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tapekeep"));
    QApplication::setOrganizationDomain(QStringLiteral("tapekeep.org"));
    QApplication::setDesktopFileName(QStringLiteral("org.tapekeep.Tapekeep"));
    // The M8 controls draw themselves; the Basic style only supplies the templates' behaviour.
    QQuickStyle::setStyle(QStringLiteral("Basic"));
    try {
        // Start-up step 1: one copy per user. A later copy brings the running one forward and ends.
        const auto guard = tapekeep::SingleInstanceGuard::enforce(QProcessEnvironment::systemEnvironment());
        if (!guard) {
            std::cout << "Tapekeep is already running; its window was brought forward.\n";
            return 0;
        }
        tapekeep::DesktopApplication desktop(options);
        QObject::connect(guard.get(), &tapekeep::SingleInstanceGuard::activateRequested, &desktop,
                         &tapekeep::DesktopApplication::bringForward);
        if (!desktop.showWindow()) return 1;
        return QApplication::exec();
    } catch (const std::exception& error) {
        std::cerr << "tapekeep: " << tapekeep::describe(error) << '\n';
        return 1;
    }
}
