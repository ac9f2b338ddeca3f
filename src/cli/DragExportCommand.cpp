#include "cli/DragExportCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "cli/CliError.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "cli/TreePlacement.h"
#include "content/BrowseFileError.h"
#include "content/DragExport.h"
#include "content/SampleReferences.h"
#include "platform/ExclusiveCopy.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

// One file to place: where it is now (absolute, without links) and its path below the version.
struct ExportedFile {
    fs::path source;
    std::string relative;
};

fs::path destinationFolder(const std::string& operand) {
    if (operand.empty()) throw UsageError("Name the folder to write into.");
    const fs::path folder = fs::absolute(operand).lexically_normal();
    std::error_code error;
    if (!fs::is_directory(folder, error))
        throw UsageError("There is no folder " + folder.string() + " to write into.");
    return folder;
}

// The path of a regular file below the version, links inside it resolved; never one outside it.
// Card paths may be written with a leading "/".
std::string songPathIn(const fs::path& version, std::string path) {
    path.erase(0, path.find_first_not_of('/'));
    const std::string relative = BrowseFileService::relativePath(version / path, version);
    std::error_code error;
    if (!fs::is_regular_file(fs::symlink_status(version / relative, error)))
        throw BrowseFileError::unsupportedSource(version / relative);
    return relative;
}

// The files of a prepared drag folder: the song first, then its samples by path.
std::vector<ExportedFile> preparedFiles(const fs::path& folder, const fs::path& song) {
    std::vector<ExportedFile> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path() != song)
            files.push_back({entry.path(), entry.path().lexically_relative(folder).string()});
    }
    std::sort(files.begin(), files.end(),
              [](const ExportedFile& a, const ExportedFile& b) { return a.relative < b.relative; });
    files.insert(files.begin(), {song, song.lexically_relative(folder).string()});
    return files;
}

std::vector<fs::path> placeAll(const std::vector<ExportedFile>& files, const fs::path& destination,
                               const std::stop_token& token) {
    TreePlacement placement(destination);
    for (const auto& file : files)
        placement.place(ExclusiveCopy::openRegularFileWithoutLinks(file.source).get(), file.relative, token);
    placement.keep();
    return placement.written();
}

// The song and its samples, prepared in a drag folder of their own and placed from there; the drag
// folder goes once they are placed, or could not be.
std::vector<fs::path> exportPrepared(const DragOffer& offer, const fs::path& version,
                                     const fs::path& destination, const std::stop_token& token) {
    const fs::path temporary = DragExport::defaultTemporaryFolder();
    const fs::path song = DragExport::deliver(offer, version, temporary, token);
    const fs::path folder = temporary / *song.lexically_relative(temporary).begin();
    const auto removeFolder = [&] {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    };
    try {
        auto written = placeAll(preparedFiles(folder, song), destination, token);
        removeFolder();
        return written;
    } catch (...) {
        removeFolder();
        throw;
    }
}

void print(CliContext& context, const std::vector<fs::path>& written) {
    if (context.json()) {
        auto files = nlohmann::json::array();
        for (const auto& file : written) files.push_back(file.string());
        context.out() << Output::jsonText({{"files", files}}) << '\n';
        return;
    }
    for (const auto& file : written) context.out() << Output::plainText(file.string()) << '\n';
}

}  // namespace

int DragExportCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(4, 4, usage());
    const fs::path version =
        fs::canonical(context.resolveVersion(context.resolveSet(operands[0]), operands[1]));
    const std::string songPath = songPathIn(version, operands[2]);
    const fs::path destination = destinationFolder(operands[3]);
    const auto token = SignalCancellation::token();
    const DragOffer offer = DragExport::offerFor(version / songPath);
    const auto written = offer.needsPreparation()
                             ? exportPrepared(offer, version, destination, token)
                             : placeAll({{version / songPath, songPath}}, destination, token);
    print(context, written);
    return 0;
}

}  // namespace tapekeep::cli
