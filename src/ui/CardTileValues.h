#pragma once

#include <QString>
#include <QVariant>
#include <QVariantList>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "content/ContentCount.h"
#include "workflows/BackupFreshness.h"
#include "workflows/DiffSummary.h"
#include "workflows/FolderSelection.h"
#include "workflows/SongItem.h"

// What a card tile shows, in the shapes QML reads: each a plain conversion of one typed value of
// the backup controller. Any thread.
namespace tapekeep::CardTileValues {

// The last eight characters of the UUID, or all of a shorter one.
QString shortUuid(const std::string& uuid);
// [{label, count}]
QVariantList contentRows(const std::optional<ContentCounts>& counts);
// "checking", "noBackup", "upToDate", "changes", or "" when there is none yet.
QString freshnessKind(const std::optional<BackupFreshness>& freshness);
QString freshnessLabel(const std::optional<BackupFreshness>& freshness);
// [{name, added, modified, deleted}]; files at the card's root under "/".
QVariantList diffRows(const std::optional<DiffSummary>& summary);
// [{id, name, sizeText, selected, locked}]; sizeText is "" until the size is known.
QVariantList folderRows(const std::vector<FolderSelection>& folders);
// [{name, relativePath, sizeText, selected}]
QVariantList songRows(const std::vector<SongItem>& songs);
// Songs are offered one by one when the Songs folder as a whole is not chosen.
bool songsPartlyChosen(const std::vector<FolderSelection>& folders);
// null when absent.
QVariant fraction(const std::optional<double>& value);
// The fraction as a whole percentage from 0 to 100, rounded down; null when absent.
QVariant percent(const std::optional<double>& value);
QVariant epochMilliseconds(const std::optional<std::chrono::system_clock::time_point>& time);
// "" when absent.
QString pathText(const std::optional<std::filesystem::path>& path);
// "" for an unknown size.
QString sizeText(const std::optional<std::int64_t>& bytes);
// The last count lines, oldest first.
QStringList lastLines(const std::vector<std::string>& lines, std::size_t count);
// The whole seconds left until end, rounded up, never below zero.
int secondsLeft(std::chrono::system_clock::time_point now, std::chrono::system_clock::time_point end);

}  // namespace tapekeep::CardTileValues
