#include "cli/ControllerSession.h"

#include <unistd.h>

#include "app/AppSettings.h"
#include "cli/CliError.h"
#include "cli/EventLoop.h"
#include "cli/Output.h"
#include "cli/ProgressBar.h"
#include "core/Cancelled.h"

namespace tapekeep::cli {

ControllerSession::ControllerSession(CliContext& context, BackupViewModel::Dependencies dependencies,
                                     bool needsStore)
    : context_(context), feedback_(context.err()) {
    dependencies.makeScanner = [&context] { return context.makeScanner(); };
    dependencies.feedback = &feedback_;
    dependencies.store = &context.store();
    if (needsStore) {
        dependencies.baseFolderOverride = context.baseFolder();
        dependencies.rsyncPathOverride = context.rsyncPath();
    }
    viewModel_ = std::make_unique<BackupViewModel>(context.settings(), std::move(dependencies));
}

void ControllerSession::runUntil(const std::function<bool()>& done) {
    runEventsUntil(done, [this] { viewModel_->cancelAllOperations(); });
}

void ControllerSession::scan() {
    bool finished = false;
    auto connection =
        QObject::connect(viewModel_.get(), &BackupViewModel::scanFinished, [&finished] { finished = true; });
    viewModel_->scanForCards();
    runUntil([&] { return finished || interrupted(); });
    QObject::disconnect(connection);
    if (!finished) throw Cancelled();
    if (viewModel_->scanError()) throw Error(*viewModel_->scanError());
}

SDCard ControllerSession::card(const std::string& text) const {
    return CliContext::pickCard(viewModel_->detectedCards(), text);
}

CardState ControllerSession::backup(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    ProgressBar bar(context_.err(), ::isatty(STDERR_FILENO) == 1);
    std::size_t printed = 0;
    auto printLog = [&] {
        const auto log = viewModel_->cardLog(uuid);
        for (; printed < log.size(); ++printed) bar.printLine(Output::plainText(log[printed]));
    };
    auto showProgress = [&] {
        if (auto progress = viewModel_->cardProgress(uuid))
            bar.update(*progress, viewModel_->cardFilesRemaining(uuid));
    };
    QObject guard;  // the connections below end with this function
    QObject::connect(viewModel_.get(), &BackupViewModel::cardLogsChanged, &guard, printLog);
    QObject::connect(viewModel_.get(), &BackupViewModel::cardProgressChanged, &guard, showProgress);
    QObject::connect(viewModel_.get(), &BackupViewModel::cardFilesRemainingChanged, &guard, showProgress);
    bool finished = false;
    QObject::connect(viewModel_.get(), &BackupViewModel::backupFinished, &guard,
                     [&](const QString& done) { finished = finished || done.toStdString() == uuid; });
    viewModel_->startBackup(card);
    runUntil([&] { return finished || !viewModel_->isRunning(uuid); });
    printLog();
    bar.clear();
    return viewModel_->cardState(uuid);
}

}  // namespace tapekeep::cli
