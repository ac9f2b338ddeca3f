#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <optional>
#include <string>
#include <vector>

#include "core/BackupVersion.h"
#include "core/FileDiff.h"
#include "core/SDCard.h"

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

// {"volumeName", "uuid", "mountPath"}
QVariantMap card(const SDCard& card);
// {"folderName", "path", "isLatest"}
QVariantMap version(const BackupVersion& version);
// null, or a list of {"path", "kind"}.
QVariant diffRows(const std::optional<std::vector<FileDiff>>& rows);

}  // namespace tapekeep::QmlValues
