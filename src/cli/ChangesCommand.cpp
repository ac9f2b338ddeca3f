#include "cli/ChangesCommand.h"

#include <nlohmann/json.hpp>

#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "workflows/CardComparison.h"

namespace tapekeep::cli {

int ChangesCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(1, 1, usage());
    const SDCard card = context.resolveCard(operands.front(), SignalCancellation::token());
    const auto comparison = CardComparison::compare(card, context.baseFolder(), SignalCancellation::token());
    std::map<FileDiff::Kind, std::vector<std::string>> paths;
    for (const auto& difference : comparison.differences) paths[difference.kind].push_back(difference.path);
    if (context.json()) {
        context.out() << Output::jsonText({{"freshness", comparison.freshness.label()},
                                           {"added", paths[FileDiff::Kind::added]},
                                           {"modified", paths[FileDiff::Kind::modified]},
                                           {"deleted", paths[FileDiff::Kind::deleted]}})
                      << '\n';
        return 0;
    }
    context.out() << Output::plainText(comparison.freshness.label()) << '\n';
    for (const auto& difference : comparison.differences)
        context.out() << FileDiff::rawValue(difference.kind) << '\t' << Output::plainText(difference.path)
                      << '\n';
    return 0;
}

}  // namespace tapekeep::cli
