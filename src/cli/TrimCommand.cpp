#include "cli/TrimCommand.h"

#include <charconv>
#include <cmath>

#include "cli/CliError.h"
#include "cli/ExportDestination.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "edits/SampleTrimmer.h"
#include "edits/TrimSaveName.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

double secondsOption(Arguments& arguments, const std::string& option, const std::string& usage) {
    const auto text = arguments.takeValue(option);
    if (!text) throw UsageError(option + " is required. Usage: " + usage);
    double seconds = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), seconds);
    if (error != std::errc() || end != text->data() + text->size() || !std::isfinite(seconds))
        throw UsageError(option + " takes a number of seconds, not \"" + *text + "\".");
    return seconds;
}

}  // namespace

int TrimCommand::run(CliContext& context, Arguments arguments) {
    const double from = secondsOption(arguments, "--from", usage());
    const double to = secondsOption(arguments, "--to", usage());
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
