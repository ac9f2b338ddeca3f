#include "cli/ChangesCommand.h"

#include "cli/DifferenceListing.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "workflows/CardComparison.h"

namespace tapekeep::cli {

int ChangesCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(1, 1, usage());
    const SDCard card = context.resolveCard(operands.front(), SignalCancellation::token());
    const auto comparison = CardComparison::compare(card, context.baseFolder(), SignalCancellation::token());
    if (context.json()) {
        auto listing = DifferenceListing::json(comparison.differences);
        listing["freshness"] = comparison.freshness.label();
        context.out() << Output::jsonText(listing) << '\n';
        return 0;
    }
    context.out() << Output::plainText(comparison.freshness.label()) << '\n';
    DifferenceListing::print(context.out(), comparison.differences);
    return 0;
}

}  // namespace tapekeep::cli
