// The stage sheet's controller over a real backup version (sox audio, songs that name their
// samples) and a real edit store: the sheet's texts in the states that state them, the target
// rules as the user types, staging and replacing pending edits, and that a refusal or a
// cancellation stages nothing and leaves no rendered file behind.

#include "workflows/StageSheetViewModel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EventLoop.h"
#include "FileContent.h"
#include "M8Files.h"
#include "SoxAudio.h"
#include "TempDir.h"
#include "edits/EditManifestStore.h"
#include "edits/EditStagingService.h"
#include "edits/StageSheetTexts.h"
#include "edits/StagingSource.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using ViewModel = StageSheetViewModel;

QString text(std::string_view value) {
    return QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size()));
}

class StageSheetViewModelTest : public ::testing::Test {
protected:
    static constexpr const char* root = "M8_4C3C645B";

    void SetUp() override {
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
        test::startApplication();
        fs::create_directories(version_ / "Samples");
        test::makeAudio(version_ / "Samples/kick.wav", {"-r", "44100", "-c", "1", "-b", "16"}, 1.0);
        test::makeAudio(version_ / "Samples/snare.wav", {"-r", "44100", "-c", "1", "-b", "16"}, 0.5);
        test::makeAudio(version_ / "Samples/pad.aiff", {"-r", "44100", "-c", "1", "-b", "16"}, 0.5);
        test::writeFile(version_ / "Songs/BEAT.m8s", test::songWithSamples({"/Samples/kick.wav"}));
        // Staging renders into the system's temporary folder; this test's own, so that what it
        // leaves there shows.
        if (const char* previous = std::getenv("TMPDIR")) previousTemporary_ = previous;
        fs::create_directories(temporary_);
        ::setenv("TMPDIR", temporary_.c_str(), 1);
    }
    void TearDown() override {
        if (previousTemporary_)
            ::setenv("TMPDIR", previousTemporary_->c_str(), 1);
        else
            ::unsetenv("TMPDIR");
    }

    // A sheet over the sample, read to the end.
    std::unique_ptr<ViewModel> open(const std::string& sample, EditStagingService::RenderHook hook = {}) {
        ViewModel::Dependencies dependencies;
        dependencies.store = store_;
        dependencies.backupRootName = root;
        dependencies.versionRoot = version_;
        dependencies.samplePath = sample;
        dependencies.waveformBins = 64;
        dependencies.afterRender = std::move(hook);
        auto sheet = std::make_unique<ViewModel>(std::move(dependencies));
        int finished = 0;
        QObject::connect(sheet.get(), &ViewModel::loadFinished, [&finished] { ++finished; });
        sheet->load();
        EXPECT_TRUE(sheet->isLoading());
        EXPECT_EQ(sheet->loadMessage(), text(StageSheetTexts::checkingReferences));
        EXPECT_TRUE(test::waitFor([&] { return finished > 0; }));
        return sheet;
    }

    // Stages and waits for the outcome: the new edit's id, or "" after a refusal or cancellation.
    static QString stage(ViewModel& sheet) {
        QString id;
        const auto connection =
            QObject::connect(&sheet, &ViewModel::staged, [&id](const QString& staged) { id = staged; });
        sheet.stage();
        EXPECT_TRUE(test::waitFor([&] { return !sheet.isStaging(); }));
        QObject::disconnect(connection);
        return id;
    }

    std::vector<EditEntry> pending() { return store_->pendingEdits(root); }

    [[nodiscard]] std::vector<std::string> renderedFilesLeft() const {
        std::vector<std::string> left;
        for (const auto& name : test::namesIn(temporary_))
            if (name.starts_with("m8-edit-")) left.push_back(name);
        return left;
    }

    test::TempDir temp_;
    const fs::path base_ = temp_ / "base";
    const fs::path version_ = base_ / root / "backup-2025-01-31-120000";
    const fs::path temporary_ = temp_ / "tmp";
    std::shared_ptr<EditManifestStore> store_ = std::make_shared<EditManifestStore>(base_);

private:
    std::optional<std::string> previousTemporary_;
};

TEST_F(StageSheetViewModelTest, AUsedSampleOpensWithItsWaveformUsersAndSuggestedTarget) {
    const auto sheet = open("/Samples/kick.wav");

    EXPECT_FALSE(sheet->isLoading());
    EXPECT_EQ(sheet->loadMessage(), QString());
    EXPECT_NEAR(sheet->duration(), 1.0, 0.001);
    EXPECT_EQ(sheet->peaksVariant().size(), 64);
    EXPECT_EQ(sheet->waveformErrorText(), QString());
    EXPECT_EQ(sheet->low(), 0.0);
    EXPECT_NEAR(sheet->high(), 1.0, 0.001);
    EXPECT_EQ(sheet->modeLabel(), "+ NEW");
    EXPECT_EQ(sheet->targetText(), "/Samples/kick_trim.wav");
    EXPECT_EQ(sheet->targetMessage(), QString());
    EXPECT_EQ(sheet->usersHeading(), text(StageSheetTexts::usersHeading));
    EXPECT_EQ(sheet->usersList(), QStringList{"/Songs/BEAT.m8s"});
    EXPECT_EQ(sheet->pendingEditNotice(), QString());
    EXPECT_EQ(sheet->sourceFormatWarning(), QString());
    EXPECT_EQ(sheet->replaceQuestion(), QString());
    EXPECT_TRUE(sheet->canStage());

    sheet->setModeLabel("REPLACE");
    EXPECT_EQ(sheet->modeLabel(), "REPLACE");
    EXPECT_EQ(sheet->targetText(), "/Samples/kick.wav");
    EXPECT_TRUE(sheet->replaceQuestion().startsWith("Really replace "));
    EXPECT_TRUE(sheet->replaceQuestion().contains("may break if the original is replaced."));
    EXPECT_TRUE(sheet->canStage());
}

TEST_F(StageSheetViewModelTest, AnUnusedSampleIsSafeToReplace) {
    const auto sheet = open("Samples/snare.wav");

    EXPECT_EQ(sheet->usersHeading(), text(StageSheetTexts::noUsers));
    EXPECT_EQ(sheet->usersList(), QStringList());
    EXPECT_EQ(sheet->sourceText(), "Samples/snare.wav");
    EXPECT_EQ(sheet->targetText(), "/Samples/snare_trim.wav");
}

TEST_F(StageSheetViewModelTest, TheRangeStaysInsideTheSampleAndInOrder) {
    const auto sheet = open("/Samples/kick.wav");

    sheet->setLow(-1);
    sheet->setHigh(5);
    EXPECT_EQ(sheet->low(), 0.0);
    EXPECT_NEAR(sheet->high(), 1.0, 0.001);
    sheet->setHigh(0.75);
    sheet->setLow(0.9);
    EXPECT_LT(sheet->low(), sheet->high());
    sheet->setLow(0.25);
    EXPECT_EQ(sheet->lowText(), "0:00.250");
    EXPECT_EQ(sheet->highText(), "0:00.750");
    EXPECT_EQ(sheet->keptText(), "0:00.500");
}

TEST_F(StageSheetViewModelTest, TypedTargetsAreCheckedAsTheyChange) {
    const auto sheet = open("/Samples/kick.wav");
    const struct {
        std::string target;
        QString message;
    } cases[] = {
        {"/Songs/kick_trim.wav", "Must start with /Samples/"},
        {"Samples/kick_trim.wav", "Must start with /Samples/"},
        {"/samples/KICK.wav", "SOURCE = TARGET"},
        {"/Samples/snare.wav", "A file with this path already exists in the backup."},
        {"/Samples/kick_trim.aif", "Choose a .wav filename inside /Samples/."},
        {"/Samples//kick_trim.wav", "Path has empty component (e.g. //): /Samples//kick_trim.wav"},
        {"/Samples/Drums/kick short.WAV", ""},
    };
    for (const auto& example : cases) {
        sheet->setTarget(example.target);
        EXPECT_EQ(sheet->targetMessage(), example.message) << example.target;
        EXPECT_EQ(sheet->canStage(), example.message.isEmpty()) << example.target;
    }
}

TEST_F(StageSheetViewModelTest, StagingMakesAPendingEditOfTheChosenRange) {
    const auto sheet = open("/Samples/kick.wav");
    sheet->setHigh(0.75);
    sheet->setLow(0.25);
    sheet->setTarget("/Samples/kick short.wav");

    const QString id = stage(*sheet);

    ASSERT_FALSE(id.isEmpty()) << sheet->stageErrorText().toStdString();
    const auto edits = pending();
    ASSERT_EQ(edits.size(), 1u);
    EXPECT_EQ(edits[0].id, id.toStdString());
    EXPECT_EQ(edits[0].mode, EditMode::saveAsNew);
    EXPECT_EQ(edits[0].sourceRelativePath, "/Samples/kick.wav");
    EXPECT_EQ(edits[0].targetRelativePath, "/Samples/kick short.wav");
    EXPECT_EQ(edits[0].sourceVersionFolder, "backup-2025-01-31-120000");
    EXPECT_NEAR(edits[0].parameters.sampleTrim.start, 0.25, 1e-9);
    EXPECT_NEAR(edits[0].parameters.sampleTrim.end, 0.75, 1e-9);
    EXPECT_TRUE(fs::exists(store_->stagedURL(edits[0], root)));
    EXPECT_EQ(sheet->stageErrorText(), QString());
    EXPECT_EQ(renderedFilesLeft(), std::vector<std::string>{});
}

TEST_F(StageSheetViewModelTest, AReplaceNamesTheSongsThatUseTheSample) {
    const auto sheet = open("/Samples/kick.wav");
    sheet->setModeLabel("REPLACE");

    ASSERT_FALSE(stage(*sheet).isEmpty()) << sheet->stageErrorText().toStdString();

    const auto edits = pending();
    ASSERT_EQ(edits.size(), 1u);
    EXPECT_EQ(edits[0].mode, EditMode::overwrite);
    EXPECT_EQ(edits[0].targetRelativePath, "/Samples/kick.wav");
    EXPECT_EQ(edits[0].affectedSongs, std::vector<std::string>{"/Songs/BEAT.m8s"});
}

TEST_F(StageSheetViewModelTest, ARefusedTargetStagesNothingAndSaysWhy) {
    const auto sheet = open("/Samples/kick.wav");
    sheet->setTarget("/Samples/snare.wav");

    EXPECT_EQ(stage(*sheet), QString());
    EXPECT_EQ(sheet->stageErrorText(), "A file with this path already exists in the backup.");

    // Another stager took the suggested target after the sheet had read the pending edits: the
    // staging service's own check refuses it.
    sheet->setTarget("/Samples/kick_trim.wav");
    EXPECT_EQ(sheet->stageErrorText(), QString());
    const auto source = StagingSource::read(version_, "/Samples/kick.wav", {});
    const auto other = EditStagingService(store_).stage(
        source.request(EditMode::saveAsNew, 0, 0.5, "/Samples/kick_trim.wav", root, {}));
    EXPECT_EQ(stage(*sheet), QString());
    EXPECT_EQ(sheet->stageErrorText(), "A pending edit already targets this path.");

    const auto edits = pending();
    ASSERT_EQ(edits.size(), 1u);
    EXPECT_EQ(edits[0].id, other.id);
    EXPECT_EQ(renderedFilesLeft(), std::vector<std::string>{});
}

TEST_F(StageSheetViewModelTest, ANonWavSourceIsOnlySavedAsANewWavFile) {
    const auto sheet = open("/Samples/pad.aiff");

    EXPECT_EQ(sheet->sourceFormatWarning(), text(StageSheetTexts::nonWavSource));
    EXPECT_FALSE(sheet->canReplace());
    sheet->setModeLabel("REPLACE");
    EXPECT_EQ(sheet->modeLabel(), "+ NEW");
    EXPECT_EQ(sheet->targetText(), "/Samples/pad_trim.wav");

    ASSERT_FALSE(stage(*sheet).isEmpty()) << sheet->stageErrorText().toStdString();
    ASSERT_EQ(pending().size(), 1u);
    EXPECT_EQ(pending()[0].targetRelativePath, "/Samples/pad_trim.wav");
}

TEST_F(StageSheetViewModelTest, APendingEditOfTheSampleIsOfferedForReplacement) {
    const auto first = open("/Samples/kick.wav");
    const QString firstID = stage(*first);
    ASSERT_FALSE(firstID.isEmpty()) << first->stageErrorText().toStdString();

    const auto sheet = open("/Samples/kick.wav");
    EXPECT_EQ(sheet->pendingEditNotice(), text(StageSheetTexts::pendingEditExists));
    EXPECT_TRUE(sheet->replacesPendingEdit());
    EXPECT_EQ(sheet->targetText(), "/Samples/kick_trim.wav");
    EXPECT_EQ(sheet->targetMessage(), QString());

    sheet->setReplacesPendingEdit(false);
    EXPECT_EQ(sheet->targetMessage(), "A pending edit already targets this path.");
    EXPECT_FALSE(sheet->canStage());

    sheet->setReplacesPendingEdit(true);
    sheet->setLow(0.5);
    const QString secondID = stage(*sheet);
    ASSERT_FALSE(secondID.isEmpty()) << sheet->stageErrorText().toStdString();
    const auto edits = pending();
    ASSERT_EQ(edits.size(), 1u);
    EXPECT_EQ(edits[0].id, secondID.toStdString());
    EXPECT_NE(secondID, firstID);
    EXPECT_NEAR(edits[0].parameters.sampleTrim.start, 0.5, 1e-9);
}

TEST_F(StageSheetViewModelTest, ASampleThatCannotBeReadMakesStagingUnavailable) {
    test::writeFile(version_ / "Samples/broken.wav", "not audio");
    for (const std::string sample : {"/Samples/broken.wav", "/Samples/missing.wav"}) {
        const auto sheet = open(sample);

        EXPECT_EQ(sheet->loadMessage(), text(StageSheetTexts::referencesUnavailable)) << sample;
        EXPECT_NE(sheet->loadErrorText(), QString()) << sample;
        EXPECT_FALSE(sheet->isLoaded()) << sample;
        EXPECT_FALSE(sheet->canStage()) << sample;
        EXPECT_EQ(stage(*sheet), QString()) << sample;
    }
    EXPECT_EQ(pending(), std::vector<EditEntry>{});
}

TEST_F(StageSheetViewModelTest, CancellingAfterTheRenderLeavesNoRenderedFile) {
    std::atomic<bool> rendered = false;
    std::promise<void> release;
    auto released = release.get_future().share();
    const auto sheet = open("/Samples/kick.wav", [&rendered, released](const fs::path&) {
        rendered = true;
        released.wait();
    });
    int staged = 0;
    QObject::connect(sheet.get(), &ViewModel::staged, [&staged] { ++staged; });

    sheet->stage();
    EXPECT_TRUE(sheet->isStaging());
    EXPECT_FALSE(sheet->canStage());
    ASSERT_TRUE(test::waitFor([&] { return rendered.load(); }));
    sheet->cancel();
    release.set_value();
    ASSERT_TRUE(test::waitFor([&] { return !sheet->isStaging(); }));

    EXPECT_EQ(staged, 0);
    EXPECT_EQ(sheet->stageErrorText(), QString());
    EXPECT_TRUE(sheet->canStage());
    EXPECT_EQ(pending(), std::vector<EditEntry>{});
    EXPECT_EQ(renderedFilesLeft(), std::vector<std::string>{});
}

}  // namespace
}  // namespace tapekeep
