#include "cli/WatchCommand.h"

#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "app/AppSettings.h"
#include "cli/CliError.h"
#include "cli/ControllerSession.h"
#include "cli/Output.h"

namespace tapekeep::cli {

namespace {

// Prints a line for every card whose state, message or freshness differs from what it last printed.
class CardReporter {
public:
    CardReporter(CliContext& context, BackupViewModel& viewModel)
        : context_(context), viewModel_(viewModel) {}

    void report() {
        for (const auto& card : viewModel_.detectedCards()) known_[card.diskUtilUUID] = card;
        for (const auto& [uuid, card] : known_) reportCard(card);
    }

    void printNewLogLines() {
        for (const auto& [uuid, card] : known_) {
            const auto log = viewModel_.cardLog(uuid);
            auto& printed = printedLines_[uuid];
            if (log.size() < printed) printed = 0;  // a new run starts a new log
            for (; printed < log.size(); ++printed)
                context_.err() << Output::plainText(card.volumeName + ": " + log[printed]) << '\n';
        }
    }

private:
    void reportCard(const SDCard& card) {
        const CardState state = viewModel_.cardState(card.diskUtilUUID);
        const auto freshness = viewModel_.cardFreshness(card.diskUtilUUID);
        const std::string freshnessLabel = freshness ? freshness->label() : "";
        auto current =
            std::make_tuple(std::string(CardState::rawValue(state.kind)), state.message, freshnessLabel);
        auto& last = lastPrinted_[card.diskUtilUUID];
        if (last == current) return;
        last = current;
        if (context_.json()) {
            context_.out() << Output::jsonText({{"uuid", card.diskUtilUUID},
                                                {"volumeName", card.volumeName},
                                                {"state", std::get<0>(current)},
                                                {"message", state.message},
                                                {"freshness", freshness ? nlohmann::json(freshnessLabel)
                                                                        : nlohmann::json(nullptr)}},
                                               -1)
                           << std::endl;
            return;
        }
        context_.out() << Output::plainText(card.volumeName) << '\t' << std::get<0>(current) << '\t'
                       << Output::plainText(freshnessLabel)
                       << (state.message.empty() ? "" : "\t" + Output::plainText(state.message)) << std::endl;
    }

    CliContext& context_;
    BackupViewModel& viewModel_;
    std::map<std::string, SDCard> known_;
    std::map<std::string, std::tuple<std::string, std::string, std::string>> lastPrinted_;
    std::map<std::string, std::size_t> printedLines_;
};

}  // namespace

int WatchCommand::run(CliContext& context, Arguments arguments) {
    const bool automatic = arguments.takeFlag("--auto");
    arguments.operands(0, 0, usage());
    if (automatic || context.settings().autoBackupOnConnect()) context.refuseUnusableKeepCount();
    BackupViewModel::Dependencies dependencies;
    if (automatic) dependencies.autoBackupOnConnectOverride = true;
    ControllerSession session(context, std::move(dependencies));
    BackupViewModel& viewModel = session.viewModel();
    CardReporter reporter(context, viewModel);
    QObject guard;
    for (auto changed : {&BackupViewModel::cardStatesChanged, &BackupViewModel::cardFreshnessChanged,
                         &BackupViewModel::detectedCardsChanged})
        QObject::connect(&viewModel, changed, &guard, [&reporter] { reporter.report(); });
    QObject::connect(&viewModel, &BackupViewModel::cardLogsChanged, &guard,
                     [&reporter] { reporter.printNewLogLines(); });
    viewModel.startObserving();
    viewModel.scanForCards();
    bool cancelledARun = false;
    session.runUntil([&] {
        if (!session.interrupted()) return false;
        for (const auto& card : viewModel.detectedCards()) {
            if (viewModel.isRunning(card.diskUtilUUID)) {
                cancelledARun = true;
                return false;
            }
        }
        return true;
    });
    reporter.printNewLogLines();
    return cancelledARun ? ExitCode::cancelled : ExitCode::done;
}

}  // namespace tapekeep::cli
