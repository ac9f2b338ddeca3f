#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "content/FileNode.h"
#include "core/BackupSet.h"
#include "core/BackupVersion.h"
#include "core/FileDiff.h"
#include "core/SDCard.h"
#include "core/Timestamp.h"

// The records that several controllers show, in the one shape QML reads them in. Any thread.
namespace tapekeep::QmlValues {

QString text(const std::string& value);
// null when absent.
QVariant optionalText(const std::optional<std::string>& value);

template <typename Strings>
QStringList textList(const Strings& values) {
    QStringList list;
    for (const auto& value : values) list.push_back(text(value));
    return list;
}

// Each item as convert makes it, in order.
template <typename Items, typename Convert>
QVariantList listOf(const Items& items, Convert convert) {
    QVariantList list;
    for (const auto& item : items) list.push_back(convert(item));
    return list;
}

// Each value as convert makes it, under its key: the per-card maps, keyed by the card's UUID.
template <typename Value, typename Convert>
QVariantMap mapOf(const std::map<std::string, Value>& values, Convert convert) {
    QVariantMap map;
    for (const auto& [key, value] : values) map.insert(text(key), convert(value));
    return map;
}

// null when absent.
QVariant optionalNumber(const std::optional<std::int64_t>& value);
qint64 epochMilliseconds(Clock::time_point time);

// {"volumeName", "uuid", "mountPath"}
QVariantMap card(const SDCard& card);
// {"folderName", "path", "isLatest", "date"}; date in milliseconds since the epoch, null when the
// folder name gives none.
QVariantMap version(const BackupVersion& version);
// {"folderName", "volumeName", "path", "versions"}
QVariantMap backupSet(const BackupSet& set);
// {"name", "path", "isDirectory", "size", "sizeText"}; size is null and sizeText empty for a folder.
QVariantMap fileNode(const FileNode& node);
// null, or a list of {"path", "kind"}.
QVariant diffRows(const std::optional<std::vector<FileDiff>>& rows);

}  // namespace tapekeep::QmlValues
