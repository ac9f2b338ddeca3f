#include "cli/CardsCommand.h"

#include <nlohmann/json.hpp>

#include "cards/VolumeScanner.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"

namespace tapekeep::cli {

int CardsCommand::run(CliContext& context, Arguments arguments) {
    arguments.operands(0, 0, usage());
    const auto result = context.makeScanner()->scan(SignalCancellation::token());
    if (context.json()) {
        auto cards = nlohmann::json::array();
        for (const auto& card : result.cards)
            cards.push_back({{"volumeName", card.volumeName},
                             {"uuid", card.diskUtilUUID},
                             {"mountPath", card.mountPath.string()}});
        context.out() << Output::jsonText({{"cards", cards},
                                           {"examinedCount", result.examinedCount},
                                           {"excludedCount", result.excludedCount}})
                      << '\n';
        return 0;
    }
    if (result.cards.empty()) {
        context.out() << "No M8 card found (" << result.examinedCount << " volume(s) examined, "
                      << result.excludedCount << " not an M8 card).\n";
        return 0;
    }
    for (const auto& card : result.cards)
        context.out() << Output::plainText(card.volumeName) << '\t' << Output::plainText(card.diskUtilUUID)
                      << '\t' << Output::plainText(card.mountPath.string()) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
