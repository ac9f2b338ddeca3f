#pragma once

#include <QObject>
#include <QVariantMap>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "cards/VolumeScanner.h"
#include "content/ContentCount.h"
#include "core/SDCard.h"
#include "core/Timestamp.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"
#include "workflows/CardTasks.h"
#include "workflows/PerCard.h"

namespace tapekeep {

class SettingsStore;

// What each card holds, counted in the background: the counts so far while counting, then the
// summary, which the settings store remembers so that it shows at once while the card is counted
// anew. At most one count runs per card. A count publishes and caches nothing unless the card is
// still mounted under its UUID at its mount path before and after reading it: the folder left
// where an ejected card was mounted is not the card.
//
// Lives on the controller's thread and is used only there.
class ContentSummaries : public QObject {
    Q_OBJECT

public:
    // store: not owned; where summaries are remembered, if anywhere.
    ContentSummaries(std::function<std::unique_ptr<VolumeScanner>()> makeScanner, SettingsStore* store,
                     QObject* parent = nullptr);

    // Counts the card, unless a count of it runs already.
    void scan(const SDCard& card);
    // Cancels the card's count; what it would still deliver is dropped.
    void stop(const std::string& uuid);
    void forgetSummary(const std::string& uuid);

    // "Scanning" while the card is being counted, "No M8 files" when the count found none; nothing
    // otherwise.
    [[nodiscard]] std::optional<std::string> label(const std::string& uuid) const;
    [[nodiscard]] std::optional<ContentCounts> summary(const std::string& uuid) const {
        return cardContentSummary_.value(uuid);
    }

    [[nodiscard]] QVariantMap summaryVariant() const;
    [[nodiscard]] QVariantMap scanProgressVariant() const;

signals:
    void summaryChanged();
    void scanProgressChanged();
    void labelChanged();

private:
    void showCachedSummary(const std::string& uuid);
    void applyCounts(const std::string& uuid, const ContentCounts& counts);

    const std::function<std::unique_ptr<VolumeScanner>()> makeScanner_;
    SettingsStore* const store_;
    PerCard<ContentCounts> cardContentSummary_{[this] { emit summaryChanged(); }};
    PerCard<ContentCounts> cardContentScanProgress_{[this] { emit scanProgressChanged(); }};
    std::map<std::string, Clock::time_point> contentScanFinishedAt_;
    BackgroundWork background_{this};  // after what its tasks use
    CardTasks contentScanTasks_{background_.tasks()};
};

}  // namespace tapekeep
