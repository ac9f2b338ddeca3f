#include "cli/ExportFileCommand.h"

#include <nlohmann/json.hpp>

#include "backup/AtomicFileExport.h"
#include "cli/ExportDestination.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "content/BrowseFileError.h"
#include "content/SampleReferences.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

// The file that PATH names in the version, links inside it resolved; never one outside it, nor a
// folder. Card paths may be written with a leading "/".
fs::path versionFile(const fs::path& version, std::string path) {
    path.erase(0, path.find_first_not_of('/'));
    const fs::path file = version / BrowseFileService::relativePath(version / path, version);
    std::error_code error;
    if (!fs::is_regular_file(fs::symlink_status(file, error))) throw BrowseFileError::unsupportedSource(file);
    return file;
}

}  // namespace

int ExportFileCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(4, 4, usage());
    const fs::path version = context.resolveVersion(context.resolveSet(operands[0]), operands[1]);
    const fs::path source = versionFile(version, operands[2]);
    const fs::path destination = exportDestination(operands[3]);
    AtomicFileExport::copy(source, destination, SignalCancellation::token());
    if (context.json())
        context.out() << Output::jsonText({{"file", destination.string()}}) << '\n';
    else
        context.out() << Output::plainText(destination.string()) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
