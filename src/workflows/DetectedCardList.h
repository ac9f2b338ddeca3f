#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cards/VolumeScanner.h"
#include "core/SDCard.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"

namespace tapekeep {

// The cards that the scans find. Scans may overlap and need no queue: each has a generation, only
// the one started last may change anything, and the results of older ones vanish. A failed scan
// keeps the list and shows its error. A card that the volumes no longer show stays listed while
// keepsListed says so (while it is being backed up: its own run ends it).
//
// Lives on the controller's thread and is used only there.
class DetectedCardList : public QObject {
    Q_OBJECT

public:
    DetectedCardList(std::function<std::unique_ptr<VolumeScanner>()> makeScanner,
                     std::function<bool(const std::string& uuid)> keepsListed, QObject* parent = nullptr);

    void scan();

    [[nodiscard]] const std::vector<SDCard>& cards() const { return detectedCards_; }
    // The listed card with this UUID, or null.
    [[nodiscard]] const SDCard* find(const std::string& uuid) const;
    [[nodiscard]] bool isScanning() const { return isScanning_; }
    [[nodiscard]] const std::optional<std::string>& scanError() const { return scanError_; }
    // Set when a scan found no card but examined volumes.
    [[nodiscard]] const std::optional<VolumeScanner::ScanResult>& scannerStatus() const {
        return scannerStatus_;
    }

    [[nodiscard]] QVariantList cardsVariant() const;
    [[nodiscard]] QString scanErrorText() const;
    [[nodiscard]] QVariantMap scannerStatusVariant() const;

signals:
    void cardsChanged();
    void isScanningChanged();
    void scanErrorChanged();
    void scannerStatusChanged();
    // In the order of a successful scan's application: each card that left the list (while it is
    // still listed), then cardsApplied once the list and the status are the scan's, then (with
    // isScanning false) scanFinished. A failed scan reports only scanFinished.
    void cardLeft(const std::string& uuid);
    void cardsApplied();
    void scanFinished();

private:
    void applyScan(const std::string& generation, const VolumeScanner::ScanResult& result);
    void applyScanError(const std::string& generation, const std::string& error);
    void applyStatus(const std::optional<VolumeScanner::ScanResult>& status);
    void finishScanning();

    const std::function<std::unique_ptr<VolumeScanner>()> makeScanner_;
    const std::function<bool(const std::string& uuid)> keepsListed_;
    std::vector<SDCard> detectedCards_;
    bool isScanning_ = false;
    std::optional<std::string> scanError_;
    std::optional<VolumeScanner::ScanResult> scannerStatus_;
    std::string scanGeneration_;
    BackgroundWork background_{this};  // after what its tasks use
};

}  // namespace tapekeep
