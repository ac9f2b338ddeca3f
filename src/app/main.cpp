// tapekeep: the desktop application.

#include <QApplication>
#include <QQuickStyle>

#include <cstring>
#include <iostream>

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
        tapekeep::DesktopApplication desktop(options);
        if (!desktop.showWindow()) return 1;
        return QApplication::exec();
    } catch (const std::exception& error) {
        std::cerr << "tapekeep: " << tapekeep::describe(error) << '\n';
        return 1;
    }
}
