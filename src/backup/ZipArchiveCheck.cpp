#include <archive.h>
#include <archive_entry.h>

#include <memory>

#include "backup/ZipArchive.h"
#include "core/Cancelled.h"
#include "core/Utf8ThreadLocale.h"
#include "platform/ProcessExitError.h"

namespace tapekeep::ZipArchive {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t readBlockSize = 1024 * 1024;

struct ReaderRelease {
    void operator()(archive* reader) const { archive_read_free(reader); }
};

// Reads one archive from its first entry to its end, comparing it with the entries written.
class ArchiveReader {
public:
    ArchiveReader(const fs::path& archive, const std::stop_token& token) : archive_(archive), token_(token) {
        archive_read_support_format_zip(reader_.get());
        if (archive_read_open_filename(reader_.get(), archive.c_str(), readBlockSize) != ARCHIVE_OK)
            failWithLibraryError("cannot be opened");
    }

    void expect(const Entry& expected) {
        throwIfCancelled(token_);
        archive_entry* header = nullptr;
        if (archive_read_next_header(reader_.get(), &header) != ARCHIVE_OK)
            failWithLibraryError(expected.name + " cannot be read");
        const char* name = archive_entry_pathname(header);
        if (name == nullptr || withoutTrailingSlash(name) != expected.name)
            fail(expected.name + " is missing; found " + (name != nullptr ? name : "an unnamed entry"));
        if (archive_entry_filetype(header) != fileTypeOf(expected.kind))
            fail(expected.name + " has another type");
        if (expected.kind == Entry::Kind::file) expectData(expected);
    }

    void expectEnd() {
        archive_entry* header = nullptr;
        const int result = archive_read_next_header(reader_.get(), &header);
        if (result == ARCHIVE_EOF) return;
        if (result != ARCHIVE_OK) failWithLibraryError("the end cannot be read");
        fail("it holds more entries than were written");
    }

private:
    // Reading every block makes libarchive check the sizes and the CRC at the entry's end.
    void expectData(const Entry& expected) {
        std::uint64_t total = 0;
        for (;;) {
            throwIfCancelled(token_);
            const void* block = nullptr;
            std::size_t size = 0;
            la_int64_t offset = 0;
            const int result = archive_read_data_block(reader_.get(), &block, &size, &offset);
            if (result == ARCHIVE_EOF) break;
            if (result != ARCHIVE_OK) failWithLibraryError(expected.name + " is damaged");
            total += size;
        }
        if (total != expected.size)
            fail(expected.name + " holds " + std::to_string(total) + " bytes instead of " +
                 std::to_string(expected.size));
    }

    static std::string withoutTrailingSlash(std::string name) {
        while (name.size() > 1 && name.back() == '/') name.pop_back();
        return name;
    }

    static mode_t fileTypeOf(Entry::Kind kind) {
        switch (kind) {
            case Entry::Kind::folder:
                return AE_IFDIR;
            case Entry::Kind::link:
                return AE_IFLNK;
            case Entry::Kind::file:
                break;
        }
        return AE_IFREG;
    }

    [[noreturn]] void failWithLibraryError(const std::string& what) const {
        const char* reason = archive_error_string(reader_.get());
        fail(what + (reason != nullptr ? std::string(": ") + reason : std::string()));
    }

    // As a failed `unzip -t` reports it: its status and what it said.
    [[noreturn]] void fail(const std::string& what) const {
        throw ProcessExitError(checkFailureStatus, archive_.filename().string() + ": " + what + ".");
    }

    fs::path archive_;
    const std::stop_token& token_;
    Utf8ThreadLocale utf8Names_;  // before the reader, whose name conversion follows the locale
    std::unique_ptr<archive, ReaderRelease> reader_{archive_read_new()};
};

}  // namespace

void check(const fs::path& archive, const std::vector<Entry>& entries, const std::stop_token& token) {
    ArchiveReader reader(archive, token);
    for (const auto& entry : entries) reader.expect(entry);
    reader.expectEnd();
}

}  // namespace tapekeep::ZipArchive
