#include "core/FileReading.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "TempDir.h"
#include "core/FileDescriptor.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using test::writeFile;

// The errno of a refused read, or nothing when the file was read.
std::optional<int> refusal(const fs::path& file, const FileReadOptions& options) {
    try {
        (void)readWholeFile(file, options);
        return std::nullopt;
    } catch (const PosixError& error) {
        return error.code();
    }
}

TEST(FileReadingTest, ReadsWholeFilesAndRefusesWhatTheOptionsExclude) {
    TempDir temp;
    std::string song(110566, '\0');
    for (std::size_t index = 0; index < song.size(); index += 7) song[index] = static_cast<char>(index);
    writeFile(temp / "song.m8s", song);
    fs::create_symlink(temp / "song.m8s", temp / "link.m8s");
    fs::create_directory(temp / "folder");
    ASSERT_EQ(::mkfifo((temp / "fifo").c_str(), 0600), 0);

    EXPECT_EQ(readWholeFile(temp / "link.m8s"), song);
    const auto bytes =
        readWholeFileBytes(temp / "song.m8s", {.regularFileOnly = true, .largestSize = song.size()});
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), song);
    EXPECT_EQ(bytes.capacity(), song.size()) << "room past the end would hide an overread from a sanitizer";

    const struct {
        const char* name;
        FileReadOptions options;
        int error;
    } refused[] = {
        {"link.m8s", {.followSymbolicLinks = false}, ELOOP},   {"folder", {.regularFileOnly = true}, EISDIR},
        {"fifo", {.regularFileOnly = true}, EINVAL},  // refused without waiting for a writer
        {"song.m8s", {.largestSize = song.size() - 1}, EFBIG}, {"missing", {}, ENOENT},
    };
    for (const auto& [name, options, error] : refused)
        EXPECT_EQ(refusal(temp / name, options), error) << name;
}

TEST(FileReadingTest, FilesWithoutAReportedSizeAreReadToTheirEnd) {
    const std::string table = readWholeFile("/proc/self/mountinfo");
    ASSERT_GT(table.size(), 0U);
    EXPECT_EQ(table.back(), '\n');
    EXPECT_EQ(refusal("/proc/self/mountinfo", {.largestSize = table.size() / 2}), EFBIG);

    TempDir temp;
    writeFile(temp / "note", "0123456789");
    const FileDescriptor file = FileDescriptor::checked(::open((temp / "note").c_str(), O_RDONLY), "note");
    ASSERT_EQ(::lseek(file.get(), 4, SEEK_SET), 4);
    EXPECT_EQ(readToEnd(file.get(), "note"), "456789");
}

}  // namespace
}  // namespace tapekeep
