#include "cli/TrimCommand.h"

#include "cli/CliError.h"
#include "cli/ExportDestination.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "edits/SampleTrimmer.h"
#include "edits/TrimSaveName.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

int TrimCommand::run(CliContext& context, Arguments arguments) {
    const double from = requiredSeconds(takeSeconds(arguments, "--from"), "--from", usage());
    const double to = requiredSeconds(takeSeconds(arguments, "--to"), "--to", usage());
    const auto operands = arguments.operands(2, 2, usage());
    const fs::path source = fs::absolute(operands[0]).lexically_normal();
    const fs::path destination = TrimSaveName::savePath(source, exportDestination(operands[1]));
    const auto frames = SampleTrimmer::trim(source, destination, from, to, SignalCancellation::token());
    if (context.json())
        context.out() << Output::jsonText({{"file", destination.string()}, {"frames", frames}}) << '\n';
    else
        context.out() << Output::plainText(destination.string()) << " (" << frames << " frames)\n";
    return 0;
}

}  // namespace tapekeep::cli
