#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <stop_token>
#include <string>
#include <vector>

#include "core/SDCard.h"
#include "core/SettingsStore.h"

namespace tapekeep {
class AppSettings;
class VolumeScanner;
}  // namespace tapekeep

namespace tapekeep::cli {

// The options that stand before the command.
struct GlobalOptions {
    std::optional<std::filesystem::path> base;
    std::optional<std::string> rsync;
    std::vector<std::filesystem::path> volumeRoots;
    bool demo = false;
    bool json = false;
};

// What every command shares: the options, the output streams, the settings, and the way to the
// cards and the store. Created once per call on the main thread.
class CliContext {
public:
    CliContext(GlobalOptions options, std::ostream& out, std::ostream& err);
    ~CliContext();

    [[nodiscard]] const GlobalOptions& options() const { return options_; }
    [[nodiscard]] bool json() const { return options_.json; }
    std::ostream& out() { return out_; }
    std::ostream& err() { return err_; }

    SettingsStore& store() { return store_; }
    AppSettings& settings();

    // The backup base folder: --base, the demo's, or the setting. Throws when none is set.
    [[nodiscard]] std::filesystem::path baseFolder();
    [[nodiscard]] std::string rsyncPath();
    // Throws UsageError when backups rotate and the keepCount setting is below 1, which would keep
    // one version and delete every other.
    void refuseUnusableKeepCount();

    // A fresh scanner over the configured volume roots (or the demo card).
    [[nodiscard]] std::unique_ptr<VolumeScanner> makeScanner();
    // A card by UUID, or by a volume name that only one detected card has. Throws UsageError.
    SDCard resolveCard(const std::string& text, std::stop_token token);
    static SDCard pickCard(const std::vector<SDCard>& cards, const std::string& text);
    // A set by its folder name, and one of its versions by folder name or "latest": never a path
    // that leads anywhere else. Throw UsageError.
    std::filesystem::path resolveSet(const std::string& name);
    std::filesystem::path resolveVersion(const std::filesystem::path& set, const std::string& name);

private:
    GlobalOptions options_;
    std::ostream& out_;
    std::ostream& err_;
    SettingsStore store_;
    std::unique_ptr<AppSettings> settings_;
    std::optional<std::filesystem::path> demoRoot_;
};

}  // namespace tapekeep::cli
