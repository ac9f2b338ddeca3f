#include "cli/EditsCommand.h"

#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "cards/VolumeScanner.h"
#include "cli/CliError.h"
#include "cli/EventLoop.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "cli/StagedTrim.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "edits/EditManifestStore.h"
#include "edits/EditQueueTexts.h"
#include "workflows/EditQueueViewModel.h"
#include "workflows/RestoreOperation.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

const char* modeName(EditMode mode) {
    return mode == EditMode::overwrite ? "overwrite" : "saveAsNew";
}

const char* stateName(const EditEntry& edit) {
    return edit.isPending() ? "pending" : "applied";
}

void printList(CliContext& context, const EditManifest& manifest) {
    if (context.json()) {
        auto list = nlohmann::json::array();
        for (const auto& edit : manifest.edits)
            list.push_back({{"id", edit.id},
                            {"mode", modeName(edit.mode)},
                            {"target", edit.targetRelativePath},
                            {"state", stateName(edit)}});
        context.out() << Output::jsonText({{"edits", list}}) << '\n';
        return;
    }
    if (manifest.edits.empty())
        context.out() << "No edits in " << Output::plainText(manifest.backupRootName) << ".\n";
    for (const auto& edit : manifest.edits)
        context.out() << edit.id << '\t' << modeName(edit.mode) << '\t'
                      << Output::plainText(edit.targetRelativePath) << '\t' << stateName(edit) << '\n';
}

// The queue of the set as the pending edits sheet drives it, on this call's card (if any).
class QueueSession {
public:
    QueueSession(CliContext& context, const std::string& root, std::optional<SDCard> card) {
        EditQueueViewModel::Dependencies dependencies;
        dependencies.store = std::make_shared<EditManifestStore>(context.baseFolder());
        dependencies.backupRootName = root;
        dependencies.card = card;
        dependencies.rsyncPath = context.rsyncPath();
        // One scanner for every check of the run; it serves one caller at a time from any thread.
        std::shared_ptr<const VolumeScanner> scanner = context.makeScanner();
        dependencies.applier = EditApplier::standardDependencies(
            RestoreOperation::mountedCheck([scanner](const std::string& uuid, std::stop_token token) {
                return scanner->validate(uuid, token);
            }));
        queue_ = std::make_unique<EditQueueViewModel>(std::move(dependencies));
        QObject::connect(queue_.get(), &EditQueueViewModel::loadFinished, [this] { ++loads_; });
        QObject::connect(queue_.get(), &EditQueueViewModel::applyFinished, [this] { applied_ = true; });
    }

    EditQueueViewModel& queue() { return *queue_; }

    // Loads (or waits for the load that a change started) and throws the load's error.
    void waitForLoad(bool start = true) {
        const int before = loads_;
        if (start) queue_->load();
        runEventsUntil([&] { return loads_ > before && !queue_->isLoading(); });
        if (queue_->loadError()) throw Error(*queue_->loadError());
    }

    void waitForApply() {
        runEventsUntil([&] { return applied_; }, [&] { queue_->cancel(); });
    }

    // Every id must name a pending edit of the set.
    void requireKnown(const std::vector<std::string>& ids) const {
        for (const auto& id : ids)
            if (std::ranges::none_of(queue_->edits(), [&](const EditEntry& edit) { return edit.id == id; }))
                throw UsageError("No pending edit " + id + " in this set.");
    }

private:
    std::unique_ptr<EditQueueViewModel> queue_;
    int loads_ = 0;
    bool applied_ = false;
};

nlohmann::json resultOf(const EditQueueViewModel& queue, const EditEntry& edit) {
    const auto progress = queue.perEditProgress().find(edit.id);
    const bool applied =
        progress != queue.perEditProgress().end() && progress->second.phase == ApplyProgress::Phase::done;
    std::optional<std::string> error;
    if (!applied)
        error =
            progress == queue.perEditProgress().end() ? EditQueueTexts::noResult : progress->second.message;
    return {
        {"id", edit.id}, {"applied", applied}, {"error", error ? nlohmann::json(*error) : nlohmann::json()}};
}

int apply(CliContext& context, const std::string& root, const std::vector<std::string>& operands) {
    if (operands.empty()) throw UsageError("Name the card to apply the edits to.");
    const SDCard card = context.resolveCard(operands[0], SignalCancellation::token());
    QueueSession session(context, root, card);
    auto& queue = session.queue();
    session.waitForLoad();
    const std::vector<std::string> ids(operands.begin() + 1, operands.end());
    session.requireKnown(ids);
    if (!ids.empty()) queue.select({ids.begin(), ids.end()});
    // The chosen edits as they were before the run: applied ones leave the pending list.
    std::vector<EditEntry> chosen;
    for (const auto& edit : queue.edits())
        if (queue.selection().contains(edit.id)) chosen.push_back(edit);
    // Left out of the run, as the live check found the card, with the apply's own words for why.
    std::map<std::string, std::string> blocked;
    for (const auto& edit : chosen)
        if (auto reason = queue.blockReason(edit)) blocked.emplace(edit.id, *reason);
    queue.apply();
    session.waitForApply();
    if (SignalCancellation::signalled()) throw Cancelled();
    if (!queue.lastApplyResult()) throw Error(queue.loadError().value_or(EditQueueTexts::noResult));

    auto results = nlohmann::json::array();
    std::optional<std::string> firstFailure;
    for (const auto& edit : chosen) {
        auto result = resultOf(queue, edit);
        if (const auto reason = blocked.find(edit.id); reason != blocked.end())
            result["error"] = reason->second;
        if (!result["applied"].get<bool>() && !firstFailure)
            firstFailure = result["error"].get<std::string>();
        results.push_back(result);
    }
    if (context.json()) {
        context.out() << Output::jsonText({{"results", results}}) << '\n';
    } else {
        for (const auto& result : results)
            context.out() << result["id"].get<std::string>() << '\t'
                          << (result["applied"].get<bool>()
                                  ? "applied"
                                  : Output::plainText(result["error"].get<std::string>()))
                          << '\n';
    }
    if (firstFailure) throw Error(*firstFailure);
    return 0;
}

int discard(CliContext& context, const std::string& root, const std::vector<std::string>& ids) {
    if (ids.empty()) throw UsageError("Name the edits to discard.");
    QueueSession session(context, root, std::nullopt);
    session.waitForLoad();
    session.requireKnown(ids);
    session.queue().discard(ids);
    session.waitForLoad(false);
    printList(context, EditManifestStore(context.baseFolder()).load(root));
    return 0;
}

int rename(CliContext& context, const std::string& root, const std::vector<std::string>& operands) {
    if (operands.size() != 2) throw UsageError("Name the edit and its new target path.");
    QueueSession session(context, root, std::nullopt);
    session.waitForLoad();
    session.requireKnown({operands[0]});
    session.queue().rename(QString::fromStdString(operands[0]), QString::fromStdString(operands[1]));
    session.waitForLoad(false);
    printList(context, EditManifestStore(context.baseFolder()).load(root));
    return 0;
}

}  // namespace

int EditsCommand::run(CliContext& context, Arguments arguments) {
    const auto stageOptions = StagedTrim::takeOptions(arguments);
    const auto operands = arguments.operands(2, 64, usage());
    const fs::path set = context.resolveSet(operands[0]);
    const std::string root = set.filename().string();
    const std::string& action = operands[1];
    const std::vector<std::string> rest(operands.begin() + 2, operands.end());
    if (action != "stage" && stageOptions.given())
        throw UsageError("--from, --to, --as and --overwrite belong to \"edits SET stage\".");
    if (action == "list") {
        if (!rest.empty()) throw UsageError(usage());
        printList(context, EditManifestStore(context.baseFolder()).load(root));
        return 0;
    }
    if (action == "stage") return StagedTrim::stage(context, set, rest, stageOptions, usage());
    if (action == "apply") return apply(context, root, rest);
    if (action == "discard") return discard(context, root, rest);
    if (action == "rename") return rename(context, root, rest);
    throw UsageError("Unknown edits action \"" + action + "\". " + usage());
}

}  // namespace tapekeep::cli
