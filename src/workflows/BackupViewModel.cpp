#include "workflows/BackupViewModel.h"

#include <QMetaProperty>

#include "app/AppSettings.h"
#include "cards/OperationLock.h"
#include "platform/MountMonitor.h"
#include "platform/VolumeEjector.h"
#include "workflows/BackupRequestFactory.h"
#include "workflows/BackupVolumeCheck.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// The system's scanner and eject, unless a front end or a test brings its own.
BackupViewModel::Dependencies withDefaults(BackupViewModel::Dependencies dependencies,
                                           AppSettings& settings) {
    if (!dependencies.makeScanner)
        dependencies.makeScanner = [roots = dependencies.volumeRoots, store = &settings.store()] {
            return std::make_unique<VolumeScanner>(roots, store);
        };
    if (!dependencies.ejectVolume) dependencies.ejectVolume = VolumeEjector::ejectVolume;
    return dependencies;
}

}  // namespace

BackupViewModel::BackupViewModel(AppSettings& settings, Dependencies dependencies, QObject* parent)
    : QObject(parent),
      settings_(settings),
      dependencies_(withDefaults(std::move(dependencies), settings)),
      poster_(std::make_shared<MainThreadPoster>(this)),
      output_(dependencies_.flushDelay),
      ejector_({makeVolumeValidator(dependencies_.makeScanner), dependencies_.ejectVolume,
                dependencies_.ejectWaits}),
      freshness_(dependencies_.makeScanner),
      content_(dependencies_.makeScanner, dependencies_.store),
      changes_(dependencies_.freshnessQuietTime),
      countdown_(settings_, states_, dependencies_.autoBackupOnConnectOverride,
                 [this](const std::string& uuid) { return runner_.isRunning(uuid); }),
      runner_(settings_, states_, output_, ejector_,
              {dependencies_.runRsync, dependencies_.environment,
               makeVolumeValidator(dependencies_.makeScanner), dependencies_.feedback}),
      cards_(dependencies_.makeScanner, [this](const std::string& uuid) {
          return states_.state(uuid).kind == CardState::Kind::running;
      }) {
    forwardSettingsChanges();
    forwardCollaboratorSignals();
    connectCollaborators();
}

// Every change of a setting reaches this object's observers as settingsChanged.
void BackupViewModel::forwardSettingsChanges() {
    const QMetaMethod forward = QMetaMethod::fromSignal(&BackupViewModel::settingsChanged);
    const QMetaObject* meta = settings_.metaObject();
    for (int index = meta->propertyOffset(); index < meta->propertyCount(); ++index) {
        const QMetaProperty property = meta->property(index);
        if (property.hasNotifySignal())
            settingsCancellable_.push_back(connect(&settings_, property.notifySignal(), this, forward));
    }
}

// The collaborators' properties are this object's.
void BackupViewModel::forwardCollaboratorSignals() {
    connect(&cards_, &DetectedCardList::cardsChanged, this, &BackupViewModel::detectedCardsChanged);
    connect(&cards_, &DetectedCardList::isScanningChanged, this, &BackupViewModel::isScanningChanged);
    connect(&cards_, &DetectedCardList::scanErrorChanged, this, &BackupViewModel::scanErrorChanged);
    connect(&cards_, &DetectedCardList::scannerStatusChanged, this, &BackupViewModel::scannerStatusChanged);
    connect(&output_, &RunOutputCoalescer::logsChanged, this, &BackupViewModel::cardLogsChanged);
    connect(&output_, &RunOutputCoalescer::progressChanged, this, &BackupViewModel::cardProgressChanged);
    connect(&output_, &RunOutputCoalescer::filesRemainingChanged, this,
            &BackupViewModel::cardFilesRemainingChanged);
    connect(&runner_, &BackupRunner::startTimeChanged, this, &BackupViewModel::cardStartTimeChanged);
    connect(&facts_, &BackupSetFacts::infoChanged, this, &BackupViewModel::cardBackupInfoChanged);
    connect(&facts_, &BackupSetFacts::latestNotesChanged, this, &BackupViewModel::latestNotesChanged);
    connect(&content_, &ContentSummaries::summaryChanged, this, &BackupViewModel::cardContentSummaryChanged);
    connect(&content_, &ContentSummaries::scanProgressChanged, this,
            &BackupViewModel::cardContentScanProgressChanged);
    connect(&content_, &ContentSummaries::labelChanged, this, &BackupViewModel::cardContentLabelChanged);
    connect(&options_, &BackupOptionsSheet::foldersChanged, this, &BackupViewModel::cardFoldersChanged);
    connect(&options_, &BackupOptionsSheet::songsChanged, this, &BackupViewModel::cardSongsChanged);
    connect(&options_, &BackupOptionsSheet::sizesLoadedChanged, this,
            &BackupViewModel::folderSizesLoadedChanged);
    connect(&options_, &BackupOptionsSheet::destinationOverrideChanged, this,
            &BackupViewModel::destinationOverrideChanged);
    connect(&freshness_, &FreshnessTracker::freshnessChanged, this, &BackupViewModel::cardFreshnessChanged);
    connect(&freshness_, &FreshnessTracker::diffSummaryChanged, this,
            &BackupViewModel::cardDiffSummaryChanged);
    connect(&freshness_, &FreshnessTracker::diffLoadingChanged, this,
            &BackupViewModel::cardDiffLoadingChanged);
    connect(&ejector_, &CardEjector::ejectFinished, this, &BackupViewModel::ejectFinished);
}

// What one collaborator's news asks of the others. The countdown learns of a finished scan before
// the front ends do.
void BackupViewModel::connectCollaborators() {
    connect(&cards_, &DetectedCardList::cardLeft, this, &BackupViewModel::forgetCard);
    connect(&cards_, &DetectedCardList::cardsApplied, this, &BackupViewModel::cardsApplied);
    connect(&cards_, &DetectedCardList::scanFinished, this, &BackupViewModel::scanFinishedForCountdown);
    connect(&cards_, &DetectedCardList::scanFinished, this, &BackupViewModel::scanFinished);
    connect(&runner_, &BackupRunner::published, this,
            [this](const SDCard& card, const fs::path& destination) { facts_.load(card, destination); });
    connect(&runner_, &BackupRunner::ejectStarting, this, &BackupViewModel::stopCardWorkForEject);
    connect(&runner_, &BackupRunner::cardReleased, this, &BackupViewModel::runReleased);
    connect(&runner_, &BackupRunner::backupFinished, this, &BackupViewModel::backupFinished);
    connect(&ejector_, &CardEjector::ejectStarting, this, &BackupViewModel::stopCardWorkForEject);
    connect(&countdown_, &AutoBackupCountdown::elapsed, this, &BackupViewModel::countdownElapsed);
    connect(&freshness_, &FreshnessTracker::comparisonWanted, this, [this](const std::string& uuid) {
        if (const SDCard* card = cards_.find(uuid)) refreshFreshness(*card);
    });
    connect(&changes_, &CardChangeFollower::changed, this, &BackupViewModel::onCardChanged);
    connect(&changes_, &CardChangeFollower::quiet, this, &BackupViewModel::recheckCard);
}

BackupViewModel::~BackupViewModel() {
    poster_->detach();
    for (const auto& connection : settingsCancellable_) disconnect(connection);
    for (auto token : observers_) NotificationCenter::defaultCenter().removeObserver(token);
    mountMonitor_.reset();
}

void BackupViewModel::startObserving() {
    for (auto token : observers_) NotificationCenter::defaultCenter().removeObserver(token);
    observers_.clear();
    auto& center = NotificationCenter::defaultCenter();
    observers_.push_back(center.addObserver(Notifications::backupsDidChange,
                                            [poster = poster_, this](const std::string& base) {
                                                poster->post([this, base] { onBackupsChanged(base); });
                                            }));
    observers_.push_back(center.addObserver(Notifications::cardContentMayHaveChanged,
                                            [poster = poster_, this](const std::string& uuid) {
                                                poster->post([this, uuid] { recheckCard(uuid); });
                                            }));
    mountMonitor_.reset();
    if (!dependencies_.followMounts) return;
    mountMonitor_ = std::make_unique<MountMonitor>([poster = poster_, this](const MountMonitor::Change&) {
        poster->post([this] { onMountsChanged(); });
    });
}

// ---- scanning -------------------------------------------------------------------------------

void BackupViewModel::scanForCards() {
    cards_.scan();
}

void BackupViewModel::forgetCard(const std::string& uuid) {
    freshness_.stop(uuid);
    changes_.cancelQuietTime(uuid);
    options_.stopLoading(uuid);
    if (countdown_.cancel(uuid)) states_.set(uuid, CardState::idle());
    content_.stop(uuid);
}

// Each listed card gets a state, a log, its store's facts and, unless it is being backed up, a
// comparison and a count of its content.
void BackupViewModel::cardsApplied() {
    changes_.follow(dependencies_.watchCards ? cards_.cards() : std::vector<SDCard>{});
    for (const auto& card : cards_.cards()) {
        if (!states_.contains(card.diskUtilUUID)) states_.set(card.diskUtilUUID, CardState::idle());
        output_.ensureLog(card.diskUtilUUID);
        facts_.load(card, baseFolder());
        if (!runner_.isRunning(card.diskUtilUUID)) {
            refreshFreshness(card);
            scanContent(card);
        }
    }
}

void BackupViewModel::scanFinishedForCountdown() {
    if (cards_.scanError())
        countdown_.scanFailed();
    else
        countdown_.scanSucceeded(cards_.cards());
}

void BackupViewModel::onMountsChanged() {
    countdown_.mountsChanged(cards_.cards());
    scanForCards();
}

// ---- the options sheet ----------------------------------------------------------------------

void BackupViewModel::prepareBackup(const SDCard& card, const std::optional<fs::path>& destination) {
    if (auto refusal = featureAccess_.refusal("backup"))
        return states_.set(card.diskUtilUUID, CardState::failed(*refusal));
    if (OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID})) return;
    options_.open(card, destination);
    states_.set(card.diskUtilUUID, CardState::confirming());
}

void BackupViewModel::chooseDestination(const SDCard& card, const std::optional<fs::path>& destination) {
    if (states_.state(card.diskUtilUUID).kind != CardState::Kind::confirming) return;
    options_.setDestination(card.diskUtilUUID, destination);
}

void BackupViewModel::cancelConfirmation(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (OperationLock::shared().isActive(VolumeUUID{uuid})) return;
    options_.close(uuid);
    states_.set(uuid, CardState::idle());
}

void BackupViewModel::setFolderSelected(const std::string& uuid, const std::string& name, bool selected) {
    options_.setFolderSelected(uuid, name, selected);
}

void BackupViewModel::setSongSelected(const std::string& uuid, const std::string& relativePath,
                                      bool selected) {
    options_.setSongSelected(uuid, relativePath, selected);
}

// ---- runs -----------------------------------------------------------------------------------

void BackupViewModel::startBackup(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (auto refusal = featureAccess_.refusal("backup"))
        return states_.set(uuid, CardState::failed(*refusal));
    if (runner_.isRunning(uuid)) return;
    if (OperationLock::shared().isActive(VolumeUUID{uuid})) return;
    freshness_.clearDiffSummary(uuid);
    runBackup(card);
}

void BackupViewModel::runBackup(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    // A one-shot destination is for the run that the options sheet starts, never for a later one.
    const auto destination = options_.takeDestinationOverride(uuid);
    if (auto refusal = featureAccess_.refusal("backup"))
        return states_.set(uuid, CardState::failed(*refusal));
    if (runner_.start(card, planFor(card, destination)))
        options_.stopLoading(uuid);  // the sheet is done: what it chose is in the request
}

// The request as the settings, the one-shot destination and the options sheet say.
BackupRunner::Plan BackupViewModel::planFor(const SDCard& card,
                                            const std::optional<fs::path>& destination) const {
    BackupChoice choice = options_.choice(card.diskUtilUUID);
    choice.destinationOverride = destination;
    BackupRequest request = makeBackupRequest(card, settings_, choice, baseFolder());
    if (dependencies_.rsyncPathOverride) request.rsyncPath = *dependencies_.rsyncPathOverride;
    if (dependencies_.adjustRequest) dependencies_.adjustRequest(request);
    if (!options_.hasSelection(card.diskUtilUUID)) return {request, "Nothing selected to back up."};
    return {request, keepCountRefusal(request)};
}

// Only now, with the run gone, may the card be compared again: the comparisons asked for during
// the run (its own publication among them) were turned away while it ran.
void BackupViewModel::runReleased(const std::string& uuid) {
    std::error_code error;
    if (const SDCard* present = cards_.find(uuid); present && fs::exists(present->mountPath, error))
        refreshFreshness(*present);
}

void BackupViewModel::cancelRun(const SDCard& card) {
    runner_.cancel(card.diskUtilUUID);
}

void BackupViewModel::cancelAllOperations() {
    runner_.cancelAll();
    countdown_.cancelAll();
}

// ---- countdowns -----------------------------------------------------------------------------

// A countdown ends in a run only if the card is still detected and mounted and still counting
// down: an unmount in the meantime makes it leave the list, which cancels the countdown.
void BackupViewModel::countdownElapsed(const std::string& uuid) {
    const SDCard* card = cards_.find(uuid);
    const bool counting = states_.state(uuid).kind == CardState::Kind::autoBackupCountdown;
    std::error_code error;
    if (card != nullptr && fs::exists(card->mountPath, error) && counting) {
        options_.discardChoices(uuid);
        startBackup(*card);
        return;
    }
    if (counting) states_.set(uuid, CardState::idle());
}

void BackupViewModel::cancelCountdown(const SDCard& card) {
    countdown_.cancel(card.diskUtilUUID);
    states_.set(card.diskUtilUUID, CardState::idle());
}

// ---- ejects ---------------------------------------------------------------------------------

void BackupViewModel::ejectCard(const SDCard& card) {
    ejector_.eject(card);
}

void BackupViewModel::stopCardWorkForEject(const std::string& uuid) {
    countdown_.cancel(uuid);
    content_.stop(uuid);
    options_.stopLoading(uuid);
    changes_.stopWatching(uuid);
    content_.forgetSummary(uuid);
    if (states_.state(uuid).kind == CardState::Kind::autoBackupCountdown)
        states_.set(uuid, CardState::idle());
}

// ---- freshness and content ------------------------------------------------------------------

// No comparison runs while the card is being backed up: the run's end starts a fresh one.
void BackupViewModel::refreshFreshness(const SDCard& card) {
    if (!dependencies_.followCardContent || runner_.isRunning(card.diskUtilUUID)) return;
    freshness_.refresh(card, baseFolder());
}

void BackupViewModel::scanContent(const SDCard& card) {
    if (dependencies_.followCardContent) content_.scan(card);
}

void BackupViewModel::startDiffSummary(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (auto refusal = featureAccess_.refusal("diffSummary"))
        return states_.set(uuid, CardState::failed(*refusal));
    if (runner_.isRunning(uuid) || OperationLock::shared().isActive(VolumeUUID{uuid})) return;
    freshness_.requestDiffSummary(uuid);
    refreshFreshness(card);
}

// A card that changes shows "CHECKING" at once; its comparison and count wait until it has been
// quiet for a while, so that the change count appears a few seconds after the writes stop.
void BackupViewModel::onCardChanged(const std::string& uuid) {
    if (cards_.find(uuid) == nullptr || runner_.isRunning(uuid)) return;
    freshness_.markChecking(uuid);
    changes_.restartQuietTime(uuid);
}

// The card may hold something else now: compare it and count it again.
void BackupViewModel::recheckCard(const std::string& uuid) {
    if (const SDCard* card = cards_.find(uuid)) {
        refreshFreshness(*card);
        scanContent(*card);
    }
}

void BackupViewModel::onBackupsChanged(const std::string& base) {
    if (fs::path(base).lexically_normal() != baseFolder().lexically_normal()) return;
    for (const auto& card : cards_.cards()) {
        facts_.load(card, baseFolder());
        refreshFreshness(card);
    }
}

void BackupViewModel::appendOutput(const std::string& uuid, const std::string& line) {
    output_.appendOutput(uuid, line);
}

fs::path BackupViewModel::baseFolder() const {
    if (dependencies_.baseFolderOverride) return *dependencies_.baseFolderOverride;
    return fs::path(settings_.backupBaseDirPath().toStdString());
}

// ---- QML views ------------------------------------------------------------------------------

QVariantMap BackupViewModel::cardContentLabelVariant() const {
    QVariantMap result;
    for (const auto& card : cards_.cards())
        if (auto label = content_.label(card.diskUtilUUID))
            result.insert(QmlValues::text(card.diskUtilUUID), QmlValues::text(*label));
    return result;
}

}  // namespace tapekeep
