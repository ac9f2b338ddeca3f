#include "backup/ZipExporter.h"

#include "backup/AtomicFileExport.h"
#include "backup/ZipArchive.h"
#include "backup/ZipExporterError.h"
#include "content/SampleReferences.h"

namespace tapekeep::ZipExporter {
namespace fs = std::filesystem;

namespace {

// The path with every link resolved; for a name that does not exist yet, its parent's resolved path
// with the name appended.
fs::path resolved(const fs::path& path) {
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error).lexically_normal();
    if (auto whole = fs::canonical(absolute, error); !error) return whole;
    const fs::path name = absolute.has_filename() ? absolute : absolute.parent_path();
    if (auto parent = fs::weakly_canonical(name.parent_path(), error); !error)
        return parent / name.filename();
    return absolute;
}

}  // namespace

bool isDestinationInsideSource(const fs::path& source, const fs::path& destination) {
    return BrowseFileService::isInside(resolved(destination), resolved(source));
}

std::int32_t exportFolder(const fs::path& source, const fs::path& destination, const std::stop_token& token,
                          const Handlers& handlers) {
    if (isDestinationInsideSource(source, destination)) throw ZipExporterError::destinationInsideSource();
    try {
        AtomicFileExport::exportFile(
            source, destination,
            [&](const fs::path& temporary) {
                const auto entries = ZipArchive::entriesOf(source, token, handlers);
                ZipArchive::write(entries, temporary, token, handlers);
                ZipArchive::check(temporary, entries, token);
            },
            token);
    } catch (const ZipExporterError& error) {
        if (error.kind() != ZipExporterError::Kind::commandFailed) throw;
        return error.status();  // the caller words this failure itself
    }
    return 0;
}

}  // namespace tapekeep::ZipExporter
