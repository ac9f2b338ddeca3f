#include "backup/ZipExporter.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "FatCard.h"
#include "FileContent.h"
#include "TempDir.h"
#include "backup/AtomicFileExportError.h"
#include "backup/ZipArchive.h"
#include "backup/ZipExporterError.h"
#include "core/Cancelled.h"
#include "platform/ProcessExitError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::namesIn;
using test::pseudoRandomBytes;
using test::readFile;
using test::runShell;
using test::shellQuote;
using test::TempDir;
using test::treeOf;
using test::writeFile;

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) result.push_back(line);
    return result;
}

ZipExporter::Handlers withProgress(std::function<void(const ZipExporter::Progress&)> progress) {
    ZipExporter::Handlers handlers;
    handlers.progress = std::move(progress);
    return handlers;
}

class ZipExporterTest : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(version_ / "Songs/DEMO.m8s", pseudoRandomBytes(110566, 1));
        writeFile(version_ / "Instruments/BASS.m8i", pseudoRandomBytes(400, 2));
        writeFile(version_ / "Samples/Drums/pad.wav", pseudoRandomBytes(2'500'000, 3));  // several blocks
        writeFile(version_ / "Samples/Drums/silence.wav", std::string(300'000, '\0'));
        writeFile(version_ / "Samples/Ünïcode é.wav", pseudoRandomBytes(1000, 4));
        writeFile(version_ / "Samples/empty.wav", "");
        writeFile(version_ / ".tapekeep-note", "before the gig");
        fs::create_directories(version_ / "Renders");
        // Stored as a link, never followed out of the version.
        fs::create_symlink("/etc", version_ / "Samples/outside");
        fs::create_directories(out_);
    }

    std::int32_t exportTo(const fs::path& destination, const ZipExporter::Handlers& handlers = {},
                          const std::stop_token& token = {}) {
        ZipExporter::Handlers counting = handlers;
        counting.outputLine = [&, forward = handlers.outputLine](const std::string& line) {
            output_.push_back(line);
            if (forward) forward(line);
        };
        return ZipExporter::exportFolder(version_, destination, token, counting);
    }

    std::optional<ZipExporterError::Kind> refusalFor(const fs::path& destination) {
        try {
            exportTo(destination);
        } catch (const ZipExporterError& error) {
            return error.kind();
        }
        return std::nullopt;
    }

    TempDir temp_;
    fs::path version_ = temp_ / "M8_1234ABCD/backup-2024-05-01-120000";
    fs::path out_ = temp_ / "out";
    std::vector<std::string> output_;
};

TEST_F(ZipExporterTest, TheArchiveHoldsTheVersionFolderAsItsTopEntryAndUnzipReadsItBack) {
    const fs::path archive = out_ / "gig.zip";
    ASSERT_EQ(exportTo(archive), 0) << testing::PrintToString(output_);

    std::string listing;
    ASSERT_EQ(runShell("unzip -Z1 " + shellQuote(archive.string()), &listing), 0) << listing;
    const auto names = lines(listing);
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names.front(), "backup-2024-05-01-120000/");
    for (const auto& name : names) EXPECT_TRUE(name.starts_with("backup-2024-05-01-120000/")) << name;
    std::string tested;
    EXPECT_EQ(runShell("unzip -tqq " + shellQuote(archive.string()), &tested), 0) << tested;

    // Unpacked, it is the version again: every name, byte and link, nothing followed.
    std::string unpacked;
    ASSERT_EQ(runShell("cd " + shellQuote(temp_.path().string()) + " && mkdir unpacked && cd unpacked && " +
                           "LC_ALL=C.UTF-8 bsdtar -xf " + shellQuote(archive.string()),
                       &unpacked),
              0)
        << unpacked;
    EXPECT_TRUE(treeOf(temp_ / "unpacked/backup-2024-05-01-120000") == treeOf(version_));
    EXPECT_TRUE(output_.empty()) << testing::PrintToString(output_);
    EXPECT_EQ(namesIn(out_), std::vector<std::string>{"gig.zip"});
}

TEST_F(ZipExporterTest, ProgressCountsEveryByteAndEntryUpToTheTotals) {
    std::vector<ZipExporter::Progress> reports;
    ASSERT_EQ(exportTo(out_ / "gig.zip",
                       withProgress([&](const ZipExporter::Progress& p) { reports.push_back(p); })),
              0);
    ASSERT_FALSE(reports.empty());
    const auto& last = reports.back();
    EXPECT_EQ(last.totalBytes, 110566u + 400 + 2'500'000 + 300'000 + 1000 + 0 + 14);
    EXPECT_EQ(last.bytesWritten, last.totalBytes);
    EXPECT_EQ(last.totalEntries, 14u);  // 6 folders, 7 files, 1 link
    EXPECT_EQ(last.entriesWritten, last.totalEntries);
    for (std::size_t i = 1; i < reports.size(); ++i) {
        EXPECT_GE(reports[i].bytesWritten, reports[i - 1].bytesWritten);
        EXPECT_GE(reports[i].entriesWritten, reports[i - 1].entriesWritten);
    }
}

TEST_F(ZipExporterTest, ADestinationInsideTheFolderIsRefusedBeforeAnythingIsWritten) {
    fs::create_symlink(version_, out_ / "link to version");
    fs::create_symlink(version_.parent_path(), out_ / "link to set");
    const auto before = treeOf(version_.parent_path());
    for (const fs::path& destination :
         {version_ / "gig.zip", version_ / "Samples/Drums/gig.zip", version_ / "Songs/DEMO.m8s", version_,
          out_ / "link to version/gig.zip", out_ / "link to set/backup-2024-05-01-120000/Samples/gig.zip",
          out_ / "link to version"}) {
        bool reported = false;
        try {
            exportTo(destination, withProgress([&](const ZipExporter::Progress&) { reported = true; }));
            ADD_FAILURE() << destination << " was accepted";
        } catch (const ZipExporterError& error) {
            EXPECT_EQ(error.kind(), ZipExporterError::Kind::destinationInsideSource) << destination;
            EXPECT_EQ(error.description(), "Choose a ZIP destination outside the folder being exported.");
        }
        EXPECT_FALSE(reported) << destination;
    }
    EXPECT_TRUE(treeOf(version_.parent_path()) == before);
    EXPECT_TRUE(output_.empty());
    // Beside the folder, and in a folder whose name merely begins with the version's, is outside.
    EXPECT_EQ(refusalFor(version_.parent_path() / "backup-2024-05-01-120000.zip"), std::nullopt);
    fs::create_directories(version_.string() + "-zips");
    EXPECT_EQ(refusalFor(version_.string() + "-zips/gig.zip"), std::nullopt);
}

TEST_F(ZipExporterTest, AnArchiveThatCannotBeWrittenReturnsTheStatusAndLeavesTheOldFile) {
    writeFile(out_ / "gig.zip", "the old archive");
    // A file that goes while the archive is written: the walk listed it, the writer cannot open it.
    const auto removing = [&](const ZipExporter::Progress& progress) {
        if (progress.entriesWritten == 1) fs::remove(version_ / "Songs/DEMO.m8s");
    };
    EXPECT_EQ(exportTo(out_ / "gig.zip", withProgress(removing)), ZipArchive::writeFailureStatus);
    EXPECT_EQ(readFile(out_ / "gig.zip"), "the old archive");
    EXPECT_EQ(namesIn(out_), std::vector<std::string>{"gig.zip"});
    ASSERT_EQ(output_.size(), 1u);
    EXPECT_NE(output_.front().find("DEMO.m8s: No such file or directory"), std::string::npos)
        << output_.front();
    EXPECT_EQ(ZipExporterError::commandFailed(1).description(), "ZIP export failed (exit code 1).");

    output_.clear();
    EXPECT_EQ(exportTo(temp_ / "nowhere/gig.zip"), ZipArchive::writeFailureStatus);
    EXPECT_FALSE(fs::exists(temp_ / "nowhere"));
    ASSERT_EQ(output_.size(), 1u);
}

TEST_F(ZipExporterTest, AnEntryAddedToTheFolderMeanwhileLeavesTheOldArchive) {
    writeFile(out_ / "gig.zip", "the old archive");
    const auto adding = [&](const ZipExporter::Progress& progress) {
        if (progress.entriesWritten == 1 && !fs::exists(version_ / "late.wav"))
            writeFile(version_ / "late.wav", "x");
    };
    try {
        exportTo(out_ / "gig.zip", withProgress(adding));
        ADD_FAILURE() << "the changed folder was archived";
    } catch (const AtomicFileExportError& error) {
        EXPECT_EQ(error.kind(), AtomicFileExportError::Kind::sourceChangedDuringExport);
    }
    EXPECT_EQ(readFile(out_ / "gig.zip"), "the old archive");
    EXPECT_EQ(namesIn(out_), std::vector<std::string>{"gig.zip"});
}

TEST_F(ZipExporterTest, CancellationWithinAFileEndsItAtTheNextBlockLeavingTheOldArchive) {
    writeFile(out_ / "gig.zip", "the old archive");
    std::stop_source stop;
    int reportsAfterStop = 0;
    const auto cancelling = [&](const ZipExporter::Progress& progress) {
        if (stop.stop_requested()) ++reportsAfterStop;
        if (progress.bytesWritten >= 1024 * 1024) stop.request_stop();  // one block into pad.wav
    };
    EXPECT_THROW(exportTo(out_ / "gig.zip", withProgress(cancelling), stop.get_token()), Cancelled);
    EXPECT_TRUE(stop.stop_requested());
    EXPECT_EQ(reportsAfterStop, 0) << "the rest of the file was still archived";
    EXPECT_EQ(readFile(out_ / "gig.zip"), "the old archive");
    EXPECT_EQ(namesIn(out_), std::vector<std::string>{"gig.zip"});
}

// ---- the read-back ----------------------------------------------------------------------------

class ZipArchiveCheckTest : public ZipExporterTest {
protected:
    void SetUp() override {
        ZipExporterTest::SetUp();
        entries_ = ZipArchive::entriesOf(version_, {}, {});
        ZipArchive::write(entries_, archive_, {}, {});
        ZipArchive::check(archive_, entries_, {});  // a sound archive passes
    }

    // The status and text of the refusal, or nothing when the archive passed.
    std::optional<std::string> refusal(const std::vector<ZipArchive::Entry>& entries) {
        try {
            ZipArchive::check(archive_, entries, {});
        } catch (const ProcessExitError& error) {
            EXPECT_EQ(error.status(), ZipArchive::checkFailureStatus);
            return error.what();
        }
        return std::nullopt;
    }

    std::string bytes() { return readFile(archive_); }
    void replaceBytes(const std::string& content) { std::ofstream(archive_, std::ios::binary) << content; }

    std::vector<ZipArchive::Entry> entries_;
    fs::path archive_ = temp_ / "out/check.zip";
};

TEST_F(ZipArchiveCheckTest, ADamagedByteInAFilesDataIsFound) {
    std::string content = bytes();
    // Inside the data of pad.wav, which is stored at the size of its random bytes.
    const auto at = content.find("pad.wav");
    ASSERT_NE(at, std::string::npos);
    content[at + 200'000] = static_cast<char>(content[at + 200'000] ^ 0x5a);
    replaceBytes(content);
    const auto text = refusal(entries_);
    ASSERT_TRUE(text.has_value());
    EXPECT_NE(text->find("Samples/Drums/pad.wav"), std::string::npos) << *text;
}

TEST_F(ZipArchiveCheckTest, ACutShortArchiveAndOtherEntriesThanWrittenAreFound) {
    auto missing = entries_;
    missing.push_back({version_ / "x", "backup-2024-05-01-120000/x", ZipArchive::Entry::Kind::file, 1});
    EXPECT_TRUE(refusal(missing).has_value());
    auto fewer = entries_;
    fewer.pop_back();
    EXPECT_TRUE(refusal(fewer).has_value());
    auto resized = entries_;
    for (auto& entry : resized)
        if (entry.kind == ZipArchive::Entry::Kind::file && entry.size > 0) entry.size += 1;
    EXPECT_TRUE(refusal(resized).has_value());

    const std::string content = bytes();
    replaceBytes(content.substr(0, content.size() / 2));
    EXPECT_TRUE(refusal(entries_).has_value());
}

}  // namespace
}  // namespace tapekeep
