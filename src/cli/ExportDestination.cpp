#include "cli/ExportDestination.h"

#include "cli/CliError.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

fs::path exportDestination(const std::string& operand) {
    if (operand.empty()) throw UsageError("Name the file to write.");
    const fs::path destination = fs::absolute(operand).lexically_normal();
    std::error_code error;
    if (fs::is_directory(destination, error)) {
        const fs::path folder = destination.has_filename() ? destination : destination.parent_path();
        throw UsageError(folder.string() + " is a folder. Name the file to write in it.");
    }
    const fs::path folder = destination.parent_path();
    if (!destination.has_filename() || !fs::is_directory(folder, error))
        throw UsageError("There is no folder " + folder.string() + " to write into.");
    return destination;
}

}  // namespace tapekeep::cli
