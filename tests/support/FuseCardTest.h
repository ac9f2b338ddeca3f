#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CliProcess.h"
#include "FatCard.h"
#include "TempDir.h"

namespace tapekeep::test {

// A test that drives the real tapekeep-cli against a real FAT card named "M8CARD", mounted through
// FUSE under a volume root of its own, and backs it up into a folder of its own. Skipped where such
// a card cannot be made.
class FuseCardTest : public ::testing::Test {
protected:
    // Skips, or prepares the volume root and inserts the card.
    void SetUp() override;

    // Skips the test where no FUSE card can be made, else makes the volume root. A fixture that
    // mounts cards of its own calls this instead of SetUp, and checks IsSkipped() after it.
    void prepareVolumes();
    // Mounts the card "M8CARD" from a fresh image under the volume root.
    void insertCard();

    // Where tapekeep-cli keeps its settings, state and runtime folders.
    [[nodiscard]] std::filesystem::path home() const { return temp_ / "home"; }

    // The arguments behind the options that point tapekeep-cli at the volume root and at the backup
    // folder: the test's own, or `base`.
    [[nodiscard]] std::vector<std::string> cliArguments(std::vector<std::string> arguments) const;
    [[nodiscard]] std::vector<std::string> cliArguments(std::vector<std::string> arguments,
                                                        const std::filesystem::path& base) const;

    // tapekeep-cli run to its end on the volume root and the backup folder.
    CliResult cli(const std::vector<std::string>& arguments,
                  const std::map<std::string, std::string>& extraEnvironment = {}) const;
    // tapekeep-cli started on the volume root and the backup folder, running while the test goes on.
    [[nodiscard]] std::unique_ptr<CliProcess> startCli(
        const std::vector<std::string>& arguments,
        const std::map<std::string, std::string>& extraEnvironment = {}) const;

    // tapekeep-cli started as startCli does, with the test hook holding it at the step until the
    // marker file is removed. Returns once it is held there (the marker exists) or has ended without
    // getting there, which the caller tells by the marker.
    [[nodiscard]] std::unique_ptr<CliProcess> startHeldAt(const std::string& step,
                                                          const std::filesystem::path& marker,
                                                          const std::vector<std::string>& arguments) const;

    // Kills the process outright (SIGKILL), as a crash would, and expects no rsync that mentions
    // the test's folder to outlive it.
    void killOutright(CliProcess& process) const;

    // Holds a backup of the card in its transfer pass in another process while `attempt` runs, and
    // expects the attempt refused with exit 1 and these words, printing nothing on standard output
    // and leaving the card as it was. Lets the backup finish after.
    void expectRefusedWhileABackupHoldsTheCard(const std::function<CliResult()>& attempt,
                                               const std::string& words);

    // `--json backup M8CARD` with the extra arguments, expected to succeed: the version it
    // published, or an empty path when it failed.
    std::filesystem::path backupOk(const std::vector<std::string>& extra = {}) const;
    // The version a `--json backup` published, or an empty path when it failed.
    static std::filesystem::path versionOf(const CliResult& result);

    // The entries of every backup set whose names start with the prefix ("backup-", ".incomplete-"):
    // none while there is no backup folder.
    [[nodiscard]] std::vector<std::filesystem::path> storeEntries(const std::string& prefix) const;

    // Declared first, so that it is removed after the cards made under it.
    TempDir temp_;
    std::filesystem::path volumes_ = temp_ / "volumes";
    std::filesystem::path base_ = temp_ / "backups";
    std::unique_ptr<FatCard> card_;
};

}  // namespace tapekeep::test
