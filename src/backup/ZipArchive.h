#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "backup/ZipExporter.h"

// The parts of a ZIP export below ZipExporter: which entries a folder gives, writing them with
// libarchive, and reading the archive back. Stateless; any thread; each checks the token between
// entries and between blocks.
namespace tapekeep::ZipArchive {

// One entry as the archive holds it.
struct Entry {
    enum class Kind { folder, file, link };

    std::filesystem::path source;  // on disk
    std::string name;              // in the archive: "{top folder}/…", "/"-separated, no trailing "/"
    Kind kind = Kind::file;
    std::uint64_t size = 0;  // a file's bytes when it was listed; 0 for the others
};

// The status that stands for any failure to read the folder or write the archive.
inline constexpr std::int32_t writeFailureStatus = 1;
// The status of an archive that does not read back: a ZIP format error, as unzip reports it.
inline constexpr std::int32_t checkFailureStatus = 2;

// The folder itself, then everything below it, each folder's names in byte order, a folder before
// its content. Links are listed, not followed; FIFOs, sockets and devices hold no data to archive
// and are left out with a line to the handler. A folder that cannot be listed fails as write() does.
std::vector<Entry> entriesOf(const std::filesystem::path& folder, const std::stop_token& token,
                             const ZipExporter::Handlers& handlers);

// Writes the entries to a new file at `archive` (which must not exist). A failure hands the reason
// to the output-line handler and throws ZipExporterError commandFailed(writeFailureStatus); also
// throws Cancelled.
void write(const std::vector<Entry>& entries, const std::filesystem::path& archive,
           const std::stop_token& token, const ZipExporter::Handlers& handlers);

// Reads the archive back whole: the same entries in the same order, every file's data read to its end
// and its size and CRC checked. Throws ProcessExitError(checkFailureStatus, what was wrong), or
// Cancelled.
void check(const std::filesystem::path& archive, const std::vector<Entry>& entries,
           const std::stop_token& token);

}  // namespace tapekeep::ZipArchive
