// A version exported as a ZIP archive from the restore wizard, with the real archiver: the log says
// how it went, the progress follows it, and a refused or cancelled export writes nothing.

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "FatCard.h"
#include "FileContent.h"
#include "RestoreViewModelFixture.h"
#include "core/Formatting.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::waitFor;
using test::writeFile;

using Lines = std::vector<std::string>;

class RestoreViewModelExportTest : public test::RestoreWizardFixture {
protected:
    RestoreViewModelExportTest() {
        fs::create_directories(out);
        QObject::connect(&model, &RestoreViewModel::exportFinished, [this] { ++finished; });
    }

    // The archive's names, as unzip lists them.
    static Lines namesInArchive(const fs::path& archive) {
        std::string listing;
        EXPECT_EQ(test::runShell("unzip -Z1 " + test::shellQuote(archive.string()), &listing), 0) << listing;
        Lines names;
        std::istringstream stream(listing);
        for (std::string line; std::getline(stream, line);) names.push_back(line);
        return names;
    }

    // Holds the export at its first progress report until it is cancelled.
    void holdTheExportUntilCancelled() {
        watchExport = [this](const ZipExporter::Progress&, const std::stop_token& token) {
            held = true;
            while (!token.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        };
    }

    BackupVersion theVersion() const {
        return BackupVersion{version, version.filename().string(), std::nullopt, true};
    }

    fs::path out = temp / "out";
    std::atomic<bool> held{false};
    int finished = 0;
};

TEST_F(RestoreViewModelExportTest, TheSelectedVersionBecomesAZipWithTheVersionFolderOnTop) {
    for (int i = 0; i < 300; ++i)
        writeFile(version / "Samples/Kit" / ("hit" + std::to_string(i) + ".wav"), "hit");
    chooseVersion();
    std::vector<bool> exporting;
    std::vector<int> percents;
    int progressChanges = 0;
    QObject::connect(&model, &RestoreViewModel::isExportingChanged,
                     [&] { exporting.push_back(model.isExporting()); });
    QObject::connect(&model, &RestoreViewModel::exportPercentChanged,
                     [&] { percents.push_back(model.exportPercent()); });
    QObject::connect(&model, &RestoreViewModel::exportProgressChanged, [&] { ++progressChanges; });
    const fs::path archive = out / "gig.zip";

    model.exportSelectedVersion(QString::fromStdString(archive.string()));
    ASSERT_TRUE(waitFor([&] { return finished == 1; }));

    ASSERT_TRUE(fs::exists(archive));
    EXPECT_EQ(model.logLines(),
              (Lines{"Calculating size…",
                     "Export complete! (" +
                         formatByteCount(static_cast<std::int64_t>(fs::file_size(archive))) + ")"}));
    const Lines names = namesInArchive(archive);
    EXPECT_EQ(names.size(), 1u + 3 + 2 + 300);  // the version, its folders and its files
    EXPECT_EQ(names.front(), "backup-2026-01-01-100000/");
    for (const auto& name : names) EXPECT_TRUE(name.starts_with("backup-2026-01-01-100000/")) << name;
    EXPECT_NE(std::find(names.begin(), names.end(), "backup-2026-01-01-100000/Songs/LIVE.m8s"), names.end());
    EXPECT_EQ(test::namesIn(out), Lines{"gig.zip"});

    EXPECT_EQ(exporting, (std::vector<bool>{true, false}));
    ASSERT_FALSE(percents.empty());
    EXPECT_EQ(percents.back(), 100);
    EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
    EXPECT_DOUBLE_EQ(model.exportProgress(), 1.0);
    // Over three hundred reports of the archiver, the screen hears of a change of the percent only.
    EXPECT_LE(progressChanges, 101);
}

TEST_F(RestoreViewModelExportTest, AnArchiveInsideTheVersionIsRefusedAndNothingIsWritten) {
    const auto before = test::treeOf(version.parent_path());
    model.exportVersion(theVersion(), version / "Songs/gig.zip");
    ASSERT_TRUE(waitFor([&] { return finished == 1; }));
    EXPECT_EQ(model.logLines(),
              (Lines{"Calculating size…",
                     "Export failed: Choose a ZIP destination outside the folder being exported."}));
    EXPECT_EQ(test::treeOf(version.parent_path()), before);
    EXPECT_FALSE(model.isExporting());
    EXPECT_EQ(model.exportPercent(), 0);
}

TEST_F(RestoreViewModelExportTest, WithoutItsVersionAnExportIsUnavailable) {
    model.exportSelectedVersion(QString::fromStdString((out / "gig.zip").string()));
    fs::remove_all(version);
    model.exportVersion(theVersion(), out / "gig.zip");
    EXPECT_EQ(model.logLines(), (Lines{"Export unavailable: No backup version is selected.",
                                       "Export unavailable: Backup source no longer exists on disk."}));
    EXPECT_FALSE(model.isExporting());
    EXPECT_EQ(finished, 0);
    EXPECT_TRUE(test::namesIn(out).empty());
}

// One export at a time; a cancelled one ends quietly, leaving neither the archive nor the hidden
// file it was written to.
TEST_F(RestoreViewModelExportTest, ACancelledExportLeavesNoFileAndNoFailure) {
    writeFile(version / "Samples/pad.wav", test::pseudoRandomBytes(2'500'000, 1));
    holdTheExportUntilCancelled();
    model.exportVersion(theVersion(), out / "gig.zip");
    ASSERT_TRUE(waitFor([&] { return held.load(); }));
    EXPECT_TRUE(model.isExporting());
    EXPECT_FALSE(test::exportTemporariesBelow(out).empty()) << "the archive is being written";
    model.exportVersion(theVersion(), out / "other.zip");

    model.cancelExport();
    ASSERT_TRUE(waitFor([&] { return finished == 1; }));
    EXPECT_FALSE(model.isExporting());
    EXPECT_EQ(model.logLines(),
              (Lines{"Calculating size…", "Export unavailable: An export is already running."}));
    EXPECT_TRUE(test::namesIn(out).empty());
}

TEST_F(RestoreViewModelExportTest, TheEndOfTheControllerStopsItsExport) {
    holdTheExportUntilCancelled();
    auto other = std::make_unique<RestoreViewModel>(settings, dependencies());
    other->exportVersion(theVersion(), out / "gig.zip");
    ASSERT_TRUE(waitFor([&] { return held.load(); }));
    ASSERT_FALSE(test::namesIn(out).empty());
    other.reset();
    EXPECT_TRUE(test::namesIn(out).empty());
}

}  // namespace
}  // namespace tapekeep
