#include "cli/CliContext.h"

#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "cards/DemoCard.h"
#include "cards/VolumeScanner.h"
#include "cli/CliError.h"
#include "platform/UserFolders.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

CliContext::CliContext(GlobalOptions options, std::ostream& out, std::ostream& err)
    : options_(std::move(options)), out_(out), err_(err), store_(UserFolders::settingsFile()) {
    if (options_.demo) {
        demoRoot_ = DemoCard::demoRoot();
        DemoCard::ensureCreated(*demoRoot_);
    }
}

CliContext::~CliContext() = default;

AppSettings& CliContext::settings() {
    if (!settings_) settings_ = std::make_unique<AppSettings>(store_);
    return *settings_;
}

fs::path CliContext::baseFolder() {
    if (options_.base) return fs::absolute(*options_.base).lexically_normal();
    if (demoRoot_) return DemoCard::baseFolder(*demoRoot_);
    const std::string configured = settings().backupBaseDirPath().toStdString();
    if (configured.empty())
        throw UsageError(
            "No backup folder is set. Pass --base DIR, or set one with: tapekeep-cli settings set "
            "backupBaseDirPath DIR");
    return fs::path(configured).lexically_normal();
}

std::string CliContext::rsyncPath() {
    if (options_.rsync) return *options_.rsync;
    return settings().rsyncPath().toStdString();
}

void CliContext::refuseUnusableKeepCount() {
    if (!settings().rotateBackups()) return;
    const int keepCount = settings().keepCount();
    if (keepCount < 1)
        throw UsageError("The setting keepCount is " + std::to_string(keepCount) +
                         ", but at least 1 version must be kept. Pass --keep N, or set it with: tapekeep-cli "
                         "settings set keepCount N");
}

std::unique_ptr<VolumeScanner> CliContext::makeScanner() {
    VolumeScanner::Configuration configuration;
    if (!options_.volumeRoots.empty()) configuration.volumeRoots = options_.volumeRoots;
    configuration.settings = &store_;
    if (demoRoot_) {
        configuration.volumesProvider = DemoCard::volumesProvider(*demoRoot_);
        configuration.diskInfoProvider = DemoCard::diskInfoProvider();
    }
    return std::make_unique<VolumeScanner>(std::move(configuration));
}

SDCard CliContext::resolveCard(const std::string& text, std::stop_token token) {
    return pickCard(makeScanner()->scan(token).cards, text);
}

SDCard CliContext::pickCard(const std::vector<SDCard>& cards, const std::string& text) {
    for (const auto& card : cards)
        if (card.diskUtilUUID == text) return card;
    std::vector<SDCard> named;
    for (const auto& card : cards)
        if (card.volumeName == text) named.push_back(card);
    if (named.size() == 1) return named.front();
    if (named.size() > 1)
        throw UsageError("More than one card is named \"" + text + "\". Name the card by its UUID.");
    throw UsageError("No M8 card \"" + text + "\" was found. Run tapekeep-cli cards to list the cards.");
}

namespace {

bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

}  // namespace

fs::path CliContext::resolveSet(const std::string& name) {
    const fs::path folder = baseFolder() / name;
    if (!isPlainName(name) || !BackupRepository::isRealDirectory(folder))
        throw UsageError("Unknown backup set \"" + name + "\".");
    return folder;
}

fs::path CliContext::resolveVersion(const fs::path& set, const std::string& name) {
    if (name == "latest") {
        if (auto latest = BackupRepository::resolvePreviousVersion(set)) return *latest;
        throw UsageError("The backup set " + set.filename().string() + " has no latest version.");
    }
    const fs::path folder = set / name;
    if (!isPlainName(name) || !name.starts_with("backup-") || !BackupRepository::isRealDirectory(folder))
        throw UsageError("Unknown version \"" + name + "\" in " + set.filename().string() + ".");
    return folder;
}

}  // namespace tapekeep::cli
