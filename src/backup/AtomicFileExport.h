#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>

// Every file the user saves out of Tapekeep reaches its final name complete or not at all: it is
// written to a hidden neighbour of the destination, in the same folder so that one rename publishes
// it, and that temporary file never outlives a failure or a cancellation. A previous file at the
// destination survives every failure. The source is watched while it is read, because versions are
// hard-linked and a change in one place reaches the others: it must be the same file, unchanged, at
// the end as at the start, and never the destination itself.
//
// ("export" is a C++ keyword, hence exportFile.) Stateless; any thread; the work runs on the
// caller's thread and ends with Cancelled at the first check after the token stops.
namespace tapekeep::AtomicFileExport {

// Writes the whole output to the temporary path it is given; may throw.
using Writer = std::function<void(const std::filesystem::path& temporary)>;

// ".{name without extension}-export-{UUID}.tmp{.extension}" beside the destination: the extension
// stays last because a tool that writes the file may judge the format by it, and the leading dot
// keeps the file out of rsync's and the scanner's walks.
std::filesystem::path temporaryPath(const std::filesystem::path& destination);

// Publishes what the writer makes over the destination, replacing a file already there. With a
// source, refuses (AtomicFileExportError) to write over it, through a link or a hard link, and to
// publish when its fingerprint changed while the writer ran. Throws AtomicFileExportError,
// PosixError, the writer's own error, or Cancelled.
void exportFile(const std::optional<std::filesystem::path>& source, const std::filesystem::path& destination,
                const Writer& writer, const std::stop_token& token);

// Exports a copy of one file, with its permissions and modification time; cancellation is seen
// between blocks.
void copy(const std::filesystem::path& source, const std::filesystem::path& destination,
          const std::stop_token& token);

}  // namespace tapekeep::AtomicFileExport
