#include "backup/ZipArchive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "backup/ZipExporterError.h"
#include "core/Cancelled.h"
#include "core/FileDescriptor.h"
#include "core/FileReading.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"
#include "core/TestPause.h"
#include "core/Utf8.h"
#include "core/Utf8ThreadLocale.h"

namespace tapekeep::ZipArchive {
namespace fs = std::filesystem;

namespace {

// A file is read and compressed this much at a time: the memory an export needs, whatever its size.
constexpr std::size_t blockSize = 1024 * 1024;

[[noreturn]] void fail(const ZipExporter::Handlers& handlers, const std::string& reason) {
    if (handlers.outputLine) handlers.outputLine(reason);
    throw ZipExporterError::commandFailed(writeFailureStatus);
}

// ---- the walk ---------------------------------------------------------------------------------

class Walk {
public:
    Walk(const std::stop_token& token, const ZipExporter::Handlers& handlers)
        : token_(token), handlers_(handlers) {}

    // Archive names are UTF-8: a name that is not gets U+FFFD for each bad byte.
    void add(const fs::path& path, const std::string& name) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) fail(handlers_, path.string() + ": " + errnoText(errno));
        Entry entry{path, repairUtf8(name), Entry::Kind::file, 0};
        if (S_ISDIR(status.st_mode)) {
            entry.kind = Entry::Kind::folder;
            entries_.push_back(std::move(entry));
            addChildren(path, name);
        } else if (S_ISREG(status.st_mode)) {
            entry.size = static_cast<std::uint64_t>(status.st_size);
            entries_.push_back(std::move(entry));
        } else if (S_ISLNK(status.st_mode)) {
            entry.kind = Entry::Kind::link;
            entries_.push_back(std::move(entry));
        } else if (handlers_.outputLine) {
            handlers_.outputLine("Skipped " + path.string() + ": not a file, folder or link.");
        }
    }

    std::vector<Entry> take() { return std::move(entries_); }

private:
    void addChildren(const fs::path& folder, const std::string& name) {
        std::vector<fs::path> children;
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
            children.push_back(it->path());
        if (error) fail(handlers_, folder.string() + ": " + error.message());
        std::sort(children.begin(), children.end());
        for (const auto& child : children) {
            throwIfCancelled(token_);
            add(child, name + "/" + child.filename().string());
        }
    }

    const std::stop_token& token_;
    const ZipExporter::Handlers& handlers_;
    std::vector<Entry> entries_;
};

// ---- the writer -------------------------------------------------------------------------------

struct WriterRelease {
    // A writer that did not finish must not add a central directory to a half-written archive.
    void operator()(archive* writer) const {
        archive_write_fail(writer);
        archive_write_free(writer);
    }
};
struct EntryRelease {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using EntryHandle = std::unique_ptr<archive_entry, EntryRelease>;

class ArchiveWriter {
public:
    ArchiveWriter(const fs::path& archive, std::uint64_t totalBytes, std::size_t totalEntries,
                  const std::stop_token& token, const ZipExporter::Handlers& handlers)
        : token_(token), handlers_(handlers), buffer_(blockSize) {
        progress_.totalBytes = totalBytes;
        progress_.totalEntries = totalEntries;
        output_ = FileDescriptor(retryingInterrupts(
            [&] { return ::open(archive.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644); }));
        if (!output_.isOpen()) fail(handlers_, archive.string() + ": " + errnoText(errno));
        check(archive_write_set_format_zip(writer_.get()));
        check(archive_write_open_fd(writer_.get(), output_.get()));
    }

    void add(const Entry& entry) {
        throwIfCancelled(token_);
        if (entry.kind == Entry::Kind::file)
            addFile(entry);
        else
            addOther(entry);
        ++progress_.entriesWritten;
        report();
    }

    void finish() { check(archive_write_close(writer_.get())); }

private:
    // libarchive's warnings (a name it could not convert) are passed on; its failures end the export.
    void check(int result) {
        if (result == ARCHIVE_OK) return;
        const char* text = archive_error_string(writer_.get());
        std::string reason = text != nullptr ? text : "The archive could not be written";
        if (const int code = archive_errno(writer_.get());
            code > 0 && reason.find(errnoText(code)) == std::string::npos)
            reason += ": " + errnoText(code);
        if (result == ARCHIVE_WARN) {
            if (handlers_.outputLine) handlers_.outputLine(reason);
            return;
        }
        fail(handlers_, reason);
    }

    EntryHandle headerFor(const Entry& entry, const struct stat& status) {
        EntryHandle header(archive_entry_new());
        archive_entry_copy_stat(header.get(), &status);
        archive_entry_copy_pathname(header.get(), entry.name.c_str());
        return header;
    }

    void addOther(const Entry& entry) {
        struct stat status {};
        if (::lstat(entry.source.c_str(), &status) != 0)
            fail(handlers_, entry.source.string() + ": " + errnoText(errno));
        if (entry.kind == Entry::Kind::folder ? !S_ISDIR(status.st_mode) : !S_ISLNK(status.st_mode))
            fail(handlers_, entry.source.string() + ": changed while it was being archived.");
        auto header = headerFor(entry, status);
        if (entry.kind == Entry::Kind::link) {
            std::error_code error;
            const auto target = fs::read_symlink(entry.source, error);
            if (error) fail(handlers_, entry.source.string() + ": " + error.message());
            archive_entry_copy_symlink(header.get(), repairUtf8(target.native()).c_str());
        }
        check(archive_write_header(writer_.get(), header.get()));
        check(archive_write_finish_entry(writer_.get()));
    }

    void addFile(const Entry& entry) {
        const FileDescriptor input(retryingInterrupts(
            [&] { return ::open(entry.source.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
        struct stat status {};
        if (!input.isOpen() || ::fstat(input.get(), &status) != 0)
            fail(handlers_, entry.source.string() + ": " + errnoText(errno));
        if (!S_ISREG(status.st_mode))
            fail(handlers_, entry.source.string() + ": changed while it was being archived.");
        check(archive_write_header(writer_.get(), headerFor(entry, status).get()));
        copyData(input.get(), static_cast<std::uint64_t>(status.st_size), entry);
        check(archive_write_finish_entry(writer_.get()));
        TestPause::at("zip-entry", token_);
    }

    // Exactly the size the header promised: a file cut short while it is read fails the export.
    void copyData(int input, std::uint64_t size, const Entry& entry) {
        for (std::uint64_t left = size; left > 0;) {
            throwIfCancelled(token_);
            std::size_t count = 0;
            try {
                count = readFully(input, buffer_.data(), std::min<std::uint64_t>(left, buffer_.size()),
                                  entry.source.string());
            } catch (const PosixError& error) {
                fail(handlers_, error.what());
            }
            if (count == 0) fail(handlers_, entry.source.string() + ": changed while it was being archived.");
            writeData(count);
            left -= count;
            progress_.bytesWritten += count;
            report();
        }
    }

    void writeData(std::size_t count) {
        const la_ssize_t written = archive_write_data(writer_.get(), buffer_.data(), count);
        if (written < 0 || static_cast<std::size_t>(written) != count) check(ARCHIVE_FATAL);
    }

    void report() const {
        if (handlers_.progress) handlers_.progress(progress_);
    }

    const std::stop_token& token_;
    const ZipExporter::Handlers& handlers_;
    Utf8ThreadLocale utf8Names_;  // before the writer, whose name conversion follows the locale
    FileDescriptor output_;       // closed after the writer is freed
    std::unique_ptr<archive, WriterRelease> writer_{archive_write_new()};
    std::vector<char> buffer_;
    ZipExporter::Progress progress_;
};

}  // namespace

std::vector<Entry> entriesOf(const fs::path& folder, const std::stop_token& token,
                             const ZipExporter::Handlers& handlers) {
    std::error_code error;
    const fs::path top = fs::canonical(folder, error);
    if (error) fail(handlers, folder.string() + ": " + error.message());
    Walk walk(token, handlers);
    walk.add(top, top.filename().string());
    return walk.take();
}

void write(const std::vector<Entry>& entries, const fs::path& archive, const std::stop_token& token,
           const ZipExporter::Handlers& handlers) {
    std::uint64_t totalBytes = 0;
    for (const auto& entry : entries) totalBytes += entry.size;
    ArchiveWriter writer(archive, totalBytes, entries.size(), token, handlers);
    for (const auto& entry : entries) writer.add(entry);
    writer.finish();
}

}  // namespace tapekeep::ZipArchive
