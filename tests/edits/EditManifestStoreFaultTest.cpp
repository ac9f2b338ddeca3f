#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ChildReport.h"
#include "EditRecords.h"
#include "TempDir.h"
#include "core/FileReading.h"
#include "core/PosixError.h"
#include "edits/EditManifestStore.h"
#include "edits/EditManifestStoreError.h"

// Crash safety by fault injection: every operation of the store is stopped at each of its steps,
// by an error there (as a full disk or a failing file system raises it), by the process dying
// there, and by a really full disk, and what is left on disk must load and be a state that the
// design names.
namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::writeFile;

constexpr const char* root = "M8_4C3C645B";

// The edits of one run and the storage they live in.
struct Scene {
    fs::path base;
    fs::path rendered;  // the trimmer's output, for the operations that stage one
    EditEntry kept = test::newFileEdit("/Samples/kept.wav");
    EditEntry added = test::newFileEdit("/Samples/added.wav");

    [[nodiscard]] fs::path storage() const { return base / ".edits" / root; }
    [[nodiscard]] fs::path staged(const EditEntry& edit) const {
        return storage() / "staged" / edit.stagedFileName;
    }
    [[nodiscard]] fs::path marker(const EditEntry& edit) const {
        return storage() / "commit-pending" / (edit.id + ".json");
    }
};

using Work = std::function<void(EditManifestStore&, const Scene&)>;

// One operation: the state before it, and the operation itself.
struct Scenario {
    std::string name;
    Work arrange;
    Work act;
};

void stageKept(EditManifestStore& store, const Scene& scene) {
    writeFile(scene.base / "render-kept.wav", "kept audio");
    store.addEdit(scene.kept, scene.base / "render-kept.wav", root);
}

void stageKeptWithMarker(EditManifestStore& store, const Scene& scene) {
    stageKept(store, scene);
    store.writeCommitMarker(scene.kept.id, root);
}

std::vector<Scenario> scenarios() {
    return {
        {"addEdit", stageKept,
         [](auto& store, auto& scene) { store.addEdit(scene.added, scene.rendered, root); }},
        {"replaceEdit", stageKeptWithMarker,
         [](auto& store, auto& scene) {
             store.replaceEdit(scene.kept.id, scene.added, scene.rendered, root);
         }},
        {"renameEditTarget", stageKeptWithMarker,
         [](auto& store, auto& scene) {
             store.renameEditTarget(scene.kept.id, "/Samples/renamed.wav", root);
         }},
        {"discardEdit", stageKeptWithMarker,
         [](auto& store, auto& scene) { store.discardEdit(scene.kept.id, root); }},
        {"markApplied", stageKeptWithMarker,
         [](auto& store, auto& scene) { store.markApplied(scene.kept, root); }},
        {"recordApplyError", stageKept,
         [](auto& store, auto& scene) { store.recordApplyError(scene.kept.id, "The card is gone.", root); }},
        {"writeCommitMarker", stageKept,
         [](auto& store, auto& scene) { store.writeCommitMarker(scene.kept.id, root); }},
        {"cleanupOrphanedStagedFiles",
         [](auto& store, auto& scene) {
             stageKept(store, scene);
             writeFile(scene.storage() / "staged/orphan.wav", "from a crash");
         },
         [](auto& store, auto&) { store.cleanupOrphanedStagedFiles(root); }},
    };
}

// What a load shows of the manifest, enough to tell the state before an operation from the one after.
std::vector<std::string> summary(const EditManifest& manifest) {
    std::vector<std::string> lines;
    for (const auto& edit : manifest.edits)
        lines.push_back(edit.id + " " + edit.targetRelativePath + (edit.appliedAt ? " applied" : " pending") +
                        " " + edit.applyError.value_or("-"));
    return lines;
}

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        names.insert(entry->path().filename().string());
    return names;
}

bool hasNameLike(const fs::path& folder, const std::string& prefix, const std::string& suffix) {
    for (const auto& name : namesIn(folder))
        if (name.starts_with(prefix) && name.ends_with(suffix)) return true;
    return false;
}

class EditManifestStoreFaultTest : public ::testing::Test {
protected:
    // A fresh storage in a folder of its own, arranged for the scenario.
    Scene arranged(const Scenario& scenario, const std::string& run) {
        Scene scene = scene_;
        scene.base = temp_ / run;
        scene.rendered = scene.base / "render.wav";
        writeFile(scene.rendered, "added audio");
        EditManifestStore store(scene.base);
        scenario.arrange(store, scene);
        return scene;
    }

    static EditManifestStore::StepHook faultAt(std::size_t step, const std::function<void()>& fault) {
        return [step, fault, count = std::size_t{0}](std::string_view) mutable {
            if (count++ == step) fault();
        };
    }

    // The steps the operation passes on a clean run, and the state it leaves.
    std::vector<std::string> stepsOf(const Scenario& scenario, std::vector<std::string>& after) {
        auto scene = arranged(scenario, scenario.name + "-clean");
        before_ = summary(EditManifestStore(scene.base).load(root));
        std::vector<std::string> steps;
        EditManifestStore store(scene.base);
        store.setStepHook([&](std::string_view step) { steps.emplace_back(step); });
        scenario.act(store, scene);
        after = summary(EditManifestStore(scene.base).load(root));
        return steps;
    }

    // What every fault must leave: a manifest that loads, in the state before or after the operation,
    // with every pending edit's audio in place, and nothing that the sweep would not put right.
    void expectValidState(const Scene& scene, const std::vector<std::string>& after,
                          const std::string& where) {
        std::optional<EditManifest> manifest;
        ASSERT_NO_THROW(manifest = EditManifestStore(scene.base).load(root)) << where;
        const auto state = summary(*manifest);
        EXPECT_TRUE(state == before_ || state == after) << where;
        for (const auto& edit : manifest->edits)
            if (edit.isPending()) {
                EXPECT_TRUE(fs::is_regular_file(scene.staged(edit))) << where << " " << edit.id;
            }
        EditManifestStore(scene.base).cleanupOrphanedStagedFiles(root);
        std::set<std::string> named;
        for (const auto& edit : manifest->edits) named.insert(edit.stagedFileName);
        for (const auto& name : namesIn(scene.storage() / "staged"))
            EXPECT_TRUE(named.contains(name)) << where << " " << name;
    }

    // Every scenario stopped at each of its steps in turn, each on a storage of its own.
    using StepRun =
        std::function<void(const Scenario&, Scene& scene, std::size_t step, const std::string& name,
                           const std::vector<std::string>& after, const std::string& where)>;
    void forEveryStep(const std::string& fault, const StepRun& run) {
        for (const auto& scenario : scenarios()) {
            std::vector<std::string> after;
            const auto steps = stepsOf(scenario, after);
            for (std::size_t step = 0; step < steps.size(); ++step) {
                const auto where =
                    scenario.name + " " + fault + " at " + steps[step] + " (" + std::to_string(step) + ")";
                auto scene = arranged(scenario, scenario.name + "-" + fault + "-" + std::to_string(step));
                run(scenario, scene, step, steps[step], after, where);
            }
        }
    }

    test::TempDir temp_;
    Scene scene_;
    std::vector<std::string> before_;
};

TEST_F(EditManifestStoreFaultTest, AFailureAtAnyStepLeavesTheOldStateOrTheWholeNewOne) {
    forEveryStep("failing", [&](const Scenario& scenario, Scene& scene, std::size_t step, const std::string&,
                                const std::vector<std::string>& after, const std::string& where) {
        EditManifestStore store(scene.base);
        store.setStepHook(faultAt(step, [] { throw PosixError(ENOSPC, "No space left on device"); }));
        bool failed = false;
        try {
            scenario.act(store, scene);
        } catch (const std::exception&) {
            failed = true;
        }
        expectValidState(scene, after, where);
        const auto state = summary(EditManifestStore(scene.base).load(root));
        if (state == before_ && before_ != after) {
            EXPECT_TRUE(failed) << where << ": an operation that changed nothing must say so";
            EXPECT_TRUE(fs::exists(scene.rendered)) << where << ": the rendered file goes back to the caller";
        }
        EXPECT_FALSE(hasNameLike(scene.storage(), "manifest-", ".tmp")) << where;
        EXPECT_FALSE(hasNameLike(scene.storage() / "commit-pending", "marker-", ".tmp")) << where;
    });
}

TEST_F(EditManifestStoreFaultTest, AFailedRollbackSaysBothWhatFailedAndWhereTheFileIs) {
    const auto scenario = scenarios()[0];
    auto scene = arranged(scenario, "rollback");
    const auto before = summary(EditManifestStore(scene.base).load(root));
    EditManifestStore store(scene.base);
    store.setStepHook([](std::string_view step) {
        if (step == "save.replacing") throw PosixError(EIO, "Input/output error");
        if (step == "addEdit.movingBack") throw PosixError(EROFS, "Read-only file system");
    });
    try {
        scenario.act(store, scene);
        FAIL();
    } catch (const EditManifestStoreError& error) {
        EXPECT_EQ(
            error.description(),
            "I/O error: Manifest save failed (I/O error: Atomic replace failed: Input/output error); staged "
            "rollback also failed (Read-only file system).");
    }
    EXPECT_TRUE(fs::exists(scene.staged(scene.added))) << "not named, so the sweep takes it";
    EXPECT_EQ(summary(EditManifestStore(scene.base).load(root)), before);
}

// The process killed between two steps: the design's table of what is left and what repairs it.
TEST_F(EditManifestStoreFaultTest, AProcessKilledBetweenAnyTwoStepsLeavesAStateTheDesignNames) {
    forEveryStep("killed", [&](const Scenario& scenario, Scene& scene, std::size_t step,
                               const std::string& name, const std::vector<std::string>& after,
                               const std::string& where) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            EditManifestStore store(scene.base);
            store.setStepHook(faultAt(step, [] { ::_exit(0); }));
            try {
                scenario.act(store, scene);
            } catch (...) {
            }
            ::_exit(1);  // the step was never reached
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << where;

        const auto state = summary(EditManifestStore(scene.base).load(root));
        const auto staged = namesIn(scene.storage() / "staged");
        if (name == "save.tempWritten") {
            EXPECT_EQ(state, before_) << where;
            EXPECT_TRUE(hasNameLike(scene.storage(), "manifest-", ".tmp"))
                << where << ": the temp file stays";
        } else if (name == "addEdit.fileMoved") {
            EXPECT_EQ(state, before_) << where;
            EXPECT_TRUE(staged.contains(scene.added.stagedFileName)) << where << ": an orphan";
        } else if (name == "replaceEdit.saved") {
            EXPECT_EQ(state, after) << where;
            EXPECT_TRUE(staged.contains(scene.kept.stagedFileName)) << where << ": the old file, orphaned";
        } else if (name == "discardEdit.saved") {
            EXPECT_EQ(state, after) << where;
            EXPECT_TRUE(staged.contains(scene.kept.stagedFileName)) << where;
            EXPECT_TRUE(fs::exists(scene.marker(scene.kept))) << where << ": a marker of no edit";
        } else if (name == "markApplied.saved") {
            EXPECT_EQ(state, after) << where;
            EXPECT_TRUE(staged.contains(scene.kept.stagedFileName)) << where << ": kept by the sweep";
        } else if (name == "markApplied.fileRemoved") {
            EXPECT_EQ(state, after) << where;
            EXPECT_TRUE(fs::exists(scene.marker(scene.kept))) << where << ": a marker of an applied edit";
            EXPECT_TRUE(EditManifestStore(scene.base).editsWithCommitMarkers(root).empty()) << where;
        } else if (name == "writeCommitMarker.tempWritten") {
            EXPECT_EQ(state, before_) << where;
            EXPECT_TRUE(hasNameLike(scene.storage() / "commit-pending", "marker-", ".tmp")) << where;
            EXPECT_TRUE(EditManifestStore(scene.base).editsWithCommitMarkers(root).empty()) << where;
        }
        expectValidState(scene, after, where);
        if (name == "markApplied.saved") {
            EXPECT_TRUE(namesIn(scene.storage() / "staged").contains(scene.kept.stagedFileName)) << where;
        }
    });
}

// A really full disk: a small tmpfs of a mount namespace of the child's own, filled to the last
// block before the operation runs. The child checks and reports what it found.
TEST_F(EditManifestStoreFaultTest, AFullDiskFailsEveryWritingOperationWithNothingChanged) {
    for (const auto& scenario : scenarios()) {
        if (scenario.name == "cleanupOrphanedStagedFiles") continue;  // removes only
        const auto childReport =
            test::ChildReport([&] {
                std::string report;
                const auto folder = temp_ / (scenario.name + "-full");
                fs::create_directories(folder);
                if (::unshare(CLONE_NEWNS) != 0 ||
                    ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                    ::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=256k") != 0) {
                    report = "skip";
                } else {
                    auto scene = arranged(scenario, scenario.name + "-full");
                    const auto before = summary(EditManifestStore(scene.base).load(root));
                    try {
                        writeFile(scene.base / "filler", std::string(512 * 1024, 'x'));
                    } catch (...) {
                    }
                    std::string failure;
                    try {
                        EditManifestStore store(scene.base);
                        scenario.act(store, scene);
                    } catch (const std::exception& error) {
                        failure = error.what();
                    }
                    if (failure.find("No space left on device") == std::string::npos)
                        report += "unexpected outcome: '" + failure + "'\n";
                    fs::remove(scene.base / "filler");
                    try {
                        if (summary(EditManifestStore(scene.base).load(root)) != before)
                            report += "state changed\n";
                    } catch (const std::exception& error) {
                        report += std::string("no longer loads: ") + error.what() + "\n";
                    }
                    if (hasNameLike(scene.storage(), "manifest-", ".tmp") ||
                        hasNameLike(scene.storage() / "commit-pending", "marker-", ".tmp"))
                        report += "a temporary file stayed\n";
                    if (!fs::exists(scene.rendered) &&
                        (scenario.name == "addEdit" || scenario.name == "replaceEdit"))
                        report += "the rendered file is lost\n";
                }
                return report;
            }).wait();
        if (childReport == "skip") GTEST_SKIP() << "no tmpfs can be mounted here";
        EXPECT_EQ(childReport, "") << scenario.name;
    }
}

}  // namespace
}  // namespace tapekeep
