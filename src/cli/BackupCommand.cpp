#include "cli/BackupCommand.h"

#include <nlohmann/json.hpp>

#include "cli/CliError.h"
#include "cli/ControllerSession.h"
#include "cli/Output.h"
#include "core/Cancelled.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

// This call's choices, on top of the settings.
struct BackupOptions {
    std::optional<fs::path> destination;
    std::optional<int> keep;
    bool noRotate = false;
    std::vector<std::string> folders;
    std::vector<std::string> songs;
    bool verify = false;
    std::optional<std::string> mismatchAction;
    bool all = false;
};

BackupOptions takeOptions(Arguments& arguments) {
    BackupOptions options;
    if (auto destination = arguments.takeValue("--dest")) options.destination = fs::absolute(*destination);
    if (auto keep = arguments.takeValue("--keep")) options.keep = parseCount(*keep, "--keep", 1);
    options.noRotate = arguments.takeFlag("--no-rotate");
    options.folders = arguments.takeList("--folders");
    options.songs = arguments.takeList("--songs");
    options.verify = arguments.takeFlag("--verify");
    options.mismatchAction = arguments.takeValue("--mismatch");
    options.all = arguments.takeFlag("--all");
    if (options.mismatchAction && *options.mismatchAction != "retry" && *options.mismatchAction != "flag" &&
        *options.mismatchAction != "abort")
        throw UsageError("--mismatch takes retry, flag or abort, not \"" + *options.mismatchAction + "\".");
    return options;
}

BackupViewModel::Dependencies dependenciesFor(const BackupOptions& options) {
    BackupViewModel::Dependencies dependencies;
    dependencies.watchCards = false;
    dependencies.followCardContent = false;  // a one-off call has no card view to keep fresh
    dependencies.adjustRequest = [options](BackupRequest& request) {
        if (options.keep) request.keepCount = *options.keep;
        if (options.noRotate) request.rotate = false;
        if (options.verify) request.verify = true;
        if (options.mismatchAction) request.mismatchAction = *options.mismatchAction;
        if (!options.folders.empty() || !options.songs.empty()) {
            request.selectedFolders = options.folders;
            request.selectedSongs = options.songs;
            request.selective = true;
        }
    };
    return dependencies;
}

nlohmann::json textOrNull(const std::optional<std::string>& text) {
    return text ? nlohmann::json(*text) : nlohmann::json(nullptr);
}

// One card's run, as the output and the exit code report it.
struct CardResult {
    std::string uuid;
    std::optional<std::string> version, warning, error;
    bool cancelled = false;
};

CardResult backUp(ControllerSession& session, const SDCard& card, const BackupOptions& options) {
    if (options.destination) session.viewModel().prepareBackup(card, options.destination);
    const CardState state = session.backup(card);
    CardResult result{card.diskUtilUUID, {}, {}, {}, false};
    if (state.kind == CardState::Kind::success) {
        const auto outcome = session.viewModel().lastOutcome(card.diskUtilUUID);
        if (outcome) result.version = outcome->versionURL.string();
        if (outcome) result.warning = outcome->warning;
    } else {
        result.error = state.message;
        result.cancelled = state.message == "Backup was cancelled.";
    }
    return result;
}

int reportOne(CliContext& context, const CardResult& result) {
    if (result.error) {
        context.err() << Output::plainText(*result.error) << '\n';
        return result.cancelled ? ExitCode::cancelled : ExitCode::failed;
    }
    if (context.json())
        context.out() << Output::jsonText({{"version", textOrNull(result.version)},
                                           {"warning", textOrNull(result.warning)}})
                      << '\n';
    else
        context.out() << Output::plainText(result.version.value_or("")) << '\n';
    return ExitCode::done;
}

int reportAll(CliContext& context, const std::vector<CardResult>& results) {
    int code = ExitCode::done;
    auto list = nlohmann::json::array();
    for (const auto& result : results) {
        list.push_back({{"uuid", result.uuid},
                        {"version", textOrNull(result.version)},
                        {"warning", textOrNull(result.warning)},
                        {"error", textOrNull(result.error)}});
        if (result.cancelled)
            code = ExitCode::cancelled;
        else if (result.error && code == ExitCode::done)
            code = ExitCode::failed;
        if (!context.json())
            context.out() << Output::plainText(result.uuid) << '\t'
                          << Output::plainText(result.error ? "failed: " + *result.error : *result.version)
                          << '\n';
    }
    if (context.json()) context.out() << Output::jsonText({{"results", list}}) << '\n';
    return code;
}

}  // namespace

int BackupCommand::run(CliContext& context, Arguments arguments) {
    const BackupOptions options = takeOptions(arguments);
    const auto operands = arguments.operands(options.all ? 0 : 1, options.all ? 0 : 1, usage());
    if (!options.keep && !options.noRotate) context.refuseUnusableKeepCount();
    ControllerSession session(context, dependenciesFor(options));
    session.scan();
    if (!options.all) return reportOne(context, backUp(session, session.card(operands.front()), options));
    std::vector<CardResult> results;
    for (const auto& card : session.viewModel().detectedCards()) {
        if (session.interrupted()) break;
        results.push_back(backUp(session, card, options));
    }
    return reportAll(context, results);
}

}  // namespace tapekeep::cli
