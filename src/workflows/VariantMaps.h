#pragma once

// How the per-card values of the controllers reach QML: maps keyed by the card's UUID.

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <chrono>
#include <map>
#include <set>
#include <string>

#include "core/Timestamp.h"

namespace tapekeep {

inline QString toQString(const std::string& value) {
    return QString::fromStdString(value);
}

inline qint64 toEpochMilliseconds(Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

// Each card's value, converted.
template <typename Value, typename Convert>
QVariantMap toVariantMap(const std::map<std::string, Value>& values, Convert convert) {
    QVariantMap result;
    for (const auto& [uuid, value] : values) result.insert(toQString(uuid), convert(value));
    return result;
}

inline QStringList toStringList(const std::set<std::string>& uuids) {
    QStringList list;
    for (const auto& uuid : uuids) list.push_back(toQString(uuid));
    return list;
}

}  // namespace tapekeep
