#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>

// A ZIP archive of one folder, with the folder itself as the archive's top entry, written
// in-process with libarchive through AtomicFileExport: it reaches its name only once it was read
// back whole, every entry's data and CRC checked. Files are streamed in blocks, so memory does not
// grow with the archive. Symbolic links are stored as links, never followed.
//
// Stateless; any thread; the work runs on the caller's thread, and a stop request ends it at the
// next block with Cancelled, leaving no temporary file.
namespace tapekeep::ZipExporter {

struct Progress {
    std::uint64_t bytesWritten = 0;  // of the files' data, before compression
    std::uint64_t totalBytes = 0;
    std::size_t entriesWritten = 0;
    std::size_t totalEntries = 0;
};

struct Handlers {
    std::function<void(const std::string&)> outputLine;  // what went wrong, in the archiver's words
    std::function<void(const Progress&)> progress;       // after each block and each entry
};

// Writes the archive of `source` to `destination`, replacing a file already there. Returns 0, or
// the archiver's status when it could not write the archive (the caller words that failure; the
// handler has had the archiver's own words). Throws ZipExporterError destinationInsideSource before
// anything is written, ProcessExitError when the archive does not read back, AtomicFileExportError
// (the folder changed while it was archived, or the destination is the folder), PosixError, or
// Cancelled. ("export" is a C++ keyword, hence exportFolder.)
std::int32_t exportFolder(const std::filesystem::path& source, const std::filesystem::path& destination,
                          const std::stop_token& token, const Handlers& handlers = {});

// Whether the destination is the folder or lies inside it, with links resolved: a name that does
// not exist yet is taken in its parent folder's resolved path.
bool isDestinationInsideSource(const std::filesystem::path& source, const std::filesystem::path& destination);

}  // namespace tapekeep::ZipExporter
