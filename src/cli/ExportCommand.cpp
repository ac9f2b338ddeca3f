#include "cli/ExportCommand.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "backup/ZipExporter.h"
#include "backup/ZipExporterError.h"
#include "cli/ExportDestination.h"
#include "cli/Output.h"
#include "cli/ProgressBar.h"
#include "cli/SignalCancellation.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

ZipExporter::Handlers handlersShowing(ProgressBar& bar) {
    ZipExporter::Handlers handlers;
    handlers.outputLine = [&bar](const std::string& line) { bar.printLine(Output::plainText(line)); };
    handlers.progress = [&bar](const ZipExporter::Progress& progress) {
        const double fraction = progress.totalBytes == 0 ? 1.0
                                                         : static_cast<double>(progress.bytesWritten) /
                                                               static_cast<double>(progress.totalBytes);
        bar.update(fraction, static_cast<long long>(progress.totalEntries - progress.entriesWritten));
    };
    return handlers;
}

}  // namespace

int ExportCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(3, 3, usage());
    const fs::path version = context.resolveVersion(context.resolveSet(operands[0]), operands[1]);
    const fs::path destination = exportDestination(operands[2]);
    std::int32_t status = 0;
    {
        ProgressBar bar(context.err(), ::isatty(STDERR_FILENO) == 1);
        status = ZipExporter::exportFolder(version, destination, SignalCancellation::token(),
                                           handlersShowing(bar));
    }
    if (status != 0) throw ZipExporterError::commandFailed(status);
    if (context.json())
        context.out() << Output::jsonText({{"archive", destination.string()}}) << '\n';
    else
        context.out() << Output::plainText(destination.string()) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
