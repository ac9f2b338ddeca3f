// A stand-in for the desktop application in the single-instance tests: it enforces the guard as the
// application does, prints "running" when it may go on, and "activated" each time another copy asks
// it to come forward. Ends with status 0 when it gives way, and otherwise runs until killed.

#include <QCoreApplication>
#include <QProcessEnvironment>

#include <iostream>

#include "app/SingleInstanceGuard.h"

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    auto guard = tapekeep::SingleInstanceGuard::enforce(QProcessEnvironment::systemEnvironment());
    if (!guard) return 0;
    QObject::connect(guard.get(), &tapekeep::SingleInstanceGuard::activateRequested,
                     [] { std::cout << "activated" << std::endl; });
    std::cout << "running" << std::endl;
    return QCoreApplication::exec();
}
