#include "app/AppSettings.h"

#include "app/AutostartEntry.h"
#include "app/BackupSetLabels.h"
#include "app/SettingsKeys.h"
#include "backup/RsyncFinder.h"
#include "core/Log.h"
#include "core/SettingsStoreError.h"

namespace tapekeep {
namespace {

const Log logger("AppSettings");

constexpr const char* fallbackRsync = "/usr/bin/rsync";

nlohmann::json readValue(const SettingsStore& store, const char* key) {
    return SettingsKeys::read(store, *SettingsKeys::find(key));
}

// The desktop application is launched at login, even when the CLI turns the switch on: prefer the
// `tapekeep` beside the running program, else the one on the PATH.
std::string desktopExecutable() {
    std::error_code error;
    auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        auto sibling = self.parent_path() / "tapekeep";
        if (isExecutableFile(sibling.string())) return sibling.string();
    }
    return "tapekeep";
}

}  // namespace

AppSettings::AppSettings(SettingsStore& store, QObject* parent)
    : AppSettings(
          store, [] { return findBestRsync(); }, parent) {}

AppSettings::AppSettings(SettingsStore& store, RsyncFinder findRsync, QObject* parent)
    : QObject(parent), store_(store) {
    migrateLegacyAutoEject();
    repairRsyncPath(findRsync);
    recheckStore();
}

void AppSettings::migrateLegacyAutoEject() {
    if (store_.contains(SettingsKeys::autoEjectOnCompletion)) return;
    auto legacy = store_.value(SettingsKeys::legacyAutoEjectAfterBackup);
    if (legacy && legacy->is_boolean()) storeValue(SettingsKeys::autoEjectOnCompletion, *legacy);
}

// A path the user chose survives as long as it is executable; a vanished one is replaced.
void AppSettings::repairRsyncPath(const RsyncFinder& findRsync) {
    auto current = readValue(store_, SettingsKeys::rsyncPath).get<std::string>();
    if (!current.empty() && isExecutableFile(current)) return;
    auto found = findRsync ? findRsync() : std::nullopt;
    auto repaired = found && !found->empty() ? *found : std::string(fallbackRsync);
    logger.info("rsync path \"" + current + "\" is not an executable; using " + repaired);
    // A damaged file cannot take the repair, and has said why already: this process uses it unstored.
    if (store_.damage()) {
        unstoredRsyncPath_ = QString::fromStdString(repaired);
        return;
    }
    storeValue(SettingsKeys::rsyncPath, repaired);
}

QString AppSettings::readString(const char* key) const {
    return QString::fromStdString(readValue(store_, key).get<std::string>());
}

int AppSettings::readInt(const char* key) const {
    return readValue(store_, key).get<int>();
}

double AppSettings::readDouble(const char* key) const {
    return readValue(store_, key).get<double>();
}

bool AppSettings::readBool(const char* key) const {
    return readValue(store_, key).get<bool>();
}

template <typename Value>
void AppSettings::write(const char* key, const Value& value, void (AppSettings::*changed)()) {
    const auto* definition = SettingsKeys::find(key);
    nlohmann::json wanted = value;
    if (!SettingsKeys::allowsWriting(*definition, wanted)) {
        logger.error(std::string("refused value ") +
                     wanted.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + " for " + key);
        return;
    }
    if (SettingsKeys::read(store_, *definition) == wanted) return;
    if (storeValue(key, wanted)) Q_EMIT(this->*changed)();
}

bool AppSettings::storeValue(const char* key, const nlohmann::json& value) {
    try {
        store_.setValue(key, value);
        setStoreProblem({}, {});
        return true;
    } catch (const SettingsStoreError& error) {
        logger.error(std::string("cannot store ") + key + ": " + error.what());
        setStoreProblem(QString::fromStdString(error.description()), writeFailure_);
    } catch (const std::exception& error) {
        logger.error(std::string("cannot store ") + key + ": " + error.what());
        setStoreProblem(damage_, QStringLiteral("Settings could not be saved to %1: %2")
                                     .arg(QString::fromStdString(store_.file().string()),
                                          QString::fromUtf8(error.what())));
    }
    return false;
}

void AppSettings::recheckStore() {
    const auto damage = store_.damage();
    setStoreProblem(damage ? QString::fromStdString(*damage) : QString(), writeFailure_);
}

void AppSettings::setStoreProblem(QString damage, QString writeFailure) {
    const QString before = storeProblem();
    damage_ = std::move(damage);
    writeFailure_ = std::move(writeFailure);
    if (storeProblem() != before) Q_EMIT storeProblemChanged();
}

QString AppSettings::backupBaseDirPath() const {
    return readString(SettingsKeys::backupBaseDirPath);
}
int AppSettings::keepCount() const {
    return readInt(SettingsKeys::keepCount);
}
bool AppSettings::rotateBackups() const {
    return readBool(SettingsKeys::rotateBackups);
}
QString AppSettings::rsyncPath() const {
    QString stored = readString(SettingsKeys::rsyncPath);
    return stored.isEmpty() && unstoredRsyncPath_ ? *unstoredRsyncPath_ : stored;
}
QString AppSettings::appearance() const {
    return readString(SettingsKeys::appearance);
}
bool AppSettings::verifyAfterBackup() const {
    return readBool(SettingsKeys::verifyAfterBackup);
}
bool AppSettings::playSoundOnCompletion() const {
    return readBool(SettingsKeys::playSoundOnCompletion);
}
QString AppSettings::completionSoundName() const {
    return readString(SettingsKeys::completionSoundName);
}
QString AppSettings::excludedVolumes() const {
    return readString(SettingsKeys::excludedVolumes);
}
bool AppSettings::notifyOnCompletion() const {
    return readBool(SettingsKeys::notifyOnCompletion);
}
bool AppSettings::autoBackupOnConnect() const {
    return readBool(SettingsKeys::autoBackupOnConnect);
}
int AppSettings::autoBackupDelaySeconds() const {
    return readInt(SettingsKeys::autoBackupDelaySeconds);
}
QString AppSettings::backupSetLabelsJSON() const {
    return readString(SettingsKeys::backupSetLabelsJSON);
}
bool AppSettings::menuBarMode() const {
    return readBool(SettingsKeys::menuBarMode);
}
bool AppSettings::askToEjectOnQuit() const {
    return readBool(SettingsKeys::askToEjectOnQuit);
}
QString AppSettings::m8Accent() const {
    return readString(SettingsKeys::m8Accent);
}
QString AppSettings::m8TypeMode() const {
    return readString(SettingsKeys::m8TypeMode);
}
QString AppSettings::m8TypeScale() const {
    return readString(SettingsKeys::m8TypeScale);
}
QString AppSettings::mainTab() const {
    return readString(SettingsKeys::mainTab);
}
bool AppSettings::launchOnLogin() const {
    return readBool(SettingsKeys::launchOnLogin);
}
bool AppSettings::autoEjectOnCompletion() const {
    return readBool(SettingsKeys::autoEjectOnCompletion);
}
QString AppSettings::verifyMismatchActionRaw() const {
    return readString(SettingsKeys::verifyMismatchActionRaw);
}
bool AppSettings::notifyOnFailure() const {
    return readBool(SettingsKeys::notifyOnFailure);
}

bool AppSettings::backupBeforeRestore() const {
    return readBool(SettingsKeys::backupBeforeRestore);
}
double AppSettings::prereleaseBannerDismissedAt() const {
    return readDouble(SettingsKeys::prereleaseBannerDismissedAt);
}
double AppSettings::prereleaseBannerLastShownAt() const {
    return readDouble(SettingsKeys::prereleaseBannerLastShownAt);
}

void AppSettings::setBackupBaseDirPath(const QString& value) {
    write(SettingsKeys::backupBaseDirPath, value.toStdString(), &AppSettings::backupBaseDirPathChanged);
}

void AppSettings::setKeepCount(int value) {
    write(SettingsKeys::keepCount, value, &AppSettings::keepCountChanged);
}

void AppSettings::setRotateBackups(bool value) {
    write(SettingsKeys::rotateBackups, value, &AppSettings::rotateBackupsChanged);
}

void AppSettings::setRsyncPath(const QString& value) {
    write(SettingsKeys::rsyncPath, value.toStdString(), &AppSettings::rsyncPathChanged);
}

void AppSettings::setAppearance(const QString& value) {
    write(SettingsKeys::appearance, value.toStdString(), &AppSettings::appearanceChanged);
}

void AppSettings::setVerifyAfterBackup(bool value) {
    write(SettingsKeys::verifyAfterBackup, value, &AppSettings::verifyAfterBackupChanged);
}

void AppSettings::setPlaySoundOnCompletion(bool value) {
    write(SettingsKeys::playSoundOnCompletion, value, &AppSettings::playSoundOnCompletionChanged);
}

void AppSettings::setCompletionSoundName(const QString& value) {
    write(SettingsKeys::completionSoundName, value.toStdString(), &AppSettings::completionSoundNameChanged);
}

void AppSettings::setExcludedVolumes(const QString& value) {
    write(SettingsKeys::excludedVolumes, value.toStdString(), &AppSettings::excludedVolumesChanged);
}

void AppSettings::setNotifyOnCompletion(bool value) {
    write(SettingsKeys::notifyOnCompletion, value, &AppSettings::notifyOnCompletionChanged);
}

void AppSettings::setAutoBackupOnConnect(bool value) {
    write(SettingsKeys::autoBackupOnConnect, value, &AppSettings::autoBackupOnConnectChanged);
}

void AppSettings::setAutoBackupDelaySeconds(int value) {
    write(SettingsKeys::autoBackupDelaySeconds, value, &AppSettings::autoBackupDelaySecondsChanged);
}

void AppSettings::setBackupSetLabelsJSON(const QString& value) {
    write(SettingsKeys::backupSetLabelsJSON, value.toStdString(), &AppSettings::backupSetLabelsJSONChanged);
}

void AppSettings::setMenuBarMode(bool value) {
    write(SettingsKeys::menuBarMode, value, &AppSettings::menuBarModeChanged);
}

void AppSettings::setAskToEjectOnQuit(bool value) {
    write(SettingsKeys::askToEjectOnQuit, value, &AppSettings::askToEjectOnQuitChanged);
}

void AppSettings::setM8Accent(const QString& value) {
    write(SettingsKeys::m8Accent, value.toStdString(), &AppSettings::m8AccentChanged);
}

void AppSettings::setM8TypeMode(const QString& value) {
    write(SettingsKeys::m8TypeMode, value.toStdString(), &AppSettings::m8TypeModeChanged);
}

void AppSettings::setM8TypeScale(const QString& value) {
    write(SettingsKeys::m8TypeScale, value.toStdString(), &AppSettings::m8TypeScaleChanged);
}

void AppSettings::setMainTab(const QString& value) {
    write(SettingsKeys::mainTab, value.toStdString(), &AppSettings::mainTabChanged);
}

void AppSettings::setLaunchOnLogin(bool value) {
    write(SettingsKeys::launchOnLogin, value, &AppSettings::launchOnLoginChanged);
}

void AppSettings::setAutoEjectOnCompletion(bool value) {
    write(SettingsKeys::autoEjectOnCompletion, value, &AppSettings::autoEjectOnCompletionChanged);
}

void AppSettings::setVerifyMismatchActionRaw(const QString& value) {
    write(SettingsKeys::verifyMismatchActionRaw, value.toStdString(),
          &AppSettings::verifyMismatchActionRawChanged);
}

void AppSettings::setBackupBeforeRestore(bool value) {
    write(SettingsKeys::backupBeforeRestore, value, &AppSettings::backupBeforeRestoreChanged);
}

void AppSettings::setNotifyOnFailure(bool value) {
    write(SettingsKeys::notifyOnFailure, value, &AppSettings::notifyOnFailureChanged);
}

void AppSettings::setPrereleaseBannerDismissedAt(double value) {
    write(SettingsKeys::prereleaseBannerDismissedAt, value, &AppSettings::prereleaseBannerDismissedAtChanged);
}

void AppSettings::setPrereleaseBannerLastShownAt(double value) {
    write(SettingsKeys::prereleaseBannerLastShownAt, value, &AppSettings::prereleaseBannerLastShownAtChanged);
}

std::optional<std::filesystem::path> AppSettings::chooseBaseDirectory(const FolderChooser& choose) {
    auto chosen =
        choose(FolderChoice{"Choose Backup Folder", "Select where M8 backups should be stored", true});
    if (chosen) setBackupBaseDirPath(QString::fromStdString(chosen->string()));
    return chosen;
}

std::optional<std::string> AppSettings::label(const std::string& folderName) const {
    auto all = labels();
    auto found = all.find(folderName);
    if (found == all.end() || found->second.empty()) return std::nullopt;
    return found->second;
}

std::map<std::string, std::string> AppSettings::labels() const {
    auto text = readValue(store_, SettingsKeys::backupSetLabelsJSON).get<std::string>();
    return BackupSetLabels::decode(text).value_or(BackupSetLabels::Labels{});
}

void AppSettings::setLabels(const std::map<std::string, std::string>& labels) {
    write(SettingsKeys::backupSetLabelsJSON, BackupSetLabels::encode(labels),
          &AppSettings::backupSetLabelsJSONChanged);
}

std::filesystem::path AppSettings::autostartEntry() {
    return AutostartEntry::defaultFile();
}

void AppSettings::applyLaunchOnLogin() {
    const AutostartEntry entry;
    try {
        const bool wanted = launchOnLogin();
        const bool applied = wanted ? entry.install(desktopExecutable()) : entry.remove();
        if (applied) return;
        logger.error("launch at login: " + entry.file().string() +
                     " belongs to another program and is left as it is");
    } catch (const std::exception& error) {
        logger.error("launch at login: " + std::string(error.what()));
    }
    setLaunchOnLogin(entry.isInstalled());
}

}  // namespace tapekeep
