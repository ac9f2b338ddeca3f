#include "cli/EjectCommand.h"

#include <nlohmann/json.hpp>

#include "cli/CliError.h"
#include "cli/ControllerSession.h"
#include "cli/Output.h"

namespace tapekeep::cli {

int EjectCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(1, 1, usage());
    BackupViewModel::Dependencies dependencies;
    dependencies.watchCards = false;
    dependencies.followCardContent = false;  // a one-off call has no card view to keep fresh
    ControllerSession session(context, std::move(dependencies), false);
    session.scan();
    const SDCard card = session.card(operands.front());
    std::optional<std::string> failure;
    QObject guard;
    QObject::connect(&session.viewModel(), &BackupViewModel::ejectFinished, &guard,
                     [&](const QString& uuid, const QString& error) {
                         if (uuid.toStdString() == card.diskUtilUUID) failure = error.toStdString();
                     });
    session.viewModel().ejectCard(card);
    session.runUntil([&] { return failure.has_value(); });
    if (!failure->empty()) throw Error(*failure);
    if (context.json())
        context.out() << Output::jsonText({{"ejected", true}}, -1) << '\n';
    else
        context.out() << Output::plainText(card.volumeName) << " ejected.\n";
    return ExitCode::done;
}

}  // namespace tapekeep::cli
