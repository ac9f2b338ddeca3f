#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "cli/CliContext.h"
#include "cli/CliFeedback.h"
#include "cli/SignalCancellation.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep::cli {

// The backup controller as the CLI drives it: the same controller the desktop application uses,
// over this call's options, with the event loop run until what the command waits for happens.
// SIGINT and SIGTERM cancel every operation through the controller's own cancellation path.
class ControllerSession {
public:
    // needsStore: the command reads or writes backups, so a base folder must be set.
    ControllerSession(CliContext& context, BackupViewModel::Dependencies dependencies,
                      bool needsStore = true);

    BackupViewModel& viewModel() { return *viewModel_; }
    [[nodiscard]] static bool interrupted() { return SignalCancellation::signalled(); }

    // Scans once and waits for the result; throws an Error with the scan's error text.
    void scan();
    [[nodiscard]] SDCard card(const std::string& text) const;
    // Runs the event loop until done() holds (checked after every event batch).
    void runUntil(const std::function<bool()>& done);

    // One backup of the card, with rsync's log lines (and a progress bar on a terminal) on
    // standard error. Returns once its run has ended.
    CardState backup(const SDCard& card);

private:
    CliContext& context_;
    CliFeedback feedback_;
    std::unique_ptr<BackupViewModel> viewModel_;
};

}  // namespace tapekeep::cli
