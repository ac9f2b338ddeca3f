#include "workflows/QmlValues.h"

#include <QVariantList>

#include <chrono>

#include "core/Formatting.h"

namespace tapekeep::QmlValues {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

QVariant optionalText(const std::optional<std::string>& value) {
    return value ? QVariant(text(*value)) : QVariant();
}

QVariant optionalNumber(const std::optional<std::int64_t>& value) {
    return value ? QVariant(qint64(*value)) : QVariant();
}

qint64 epochMilliseconds(Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

QVariantMap card(const SDCard& card) {
    return {{"volumeName", text(card.volumeName)},
            {"uuid", text(card.diskUtilUUID)},
            {"mountPath", text(card.mountPath.string())}};
}

QVariantMap version(const BackupVersion& version) {
    return {{"folderName", text(version.folderName)},
            {"path", text(version.url.string())},
            {"isLatest", version.isLatest},
            {"date", version.date ? QVariant(epochMilliseconds(*version.date)) : QVariant()}};
}

QVariantMap backupSet(const BackupSet& set) {
    return {{"folderName", text(set.folderName)},
            {"volumeName", text(set.volumeName)},
            {"path", text(set.rootURL.string())},
            {"versions", listOf(set.versions, version)}};
}

QVariantMap fileNode(const FileNode& node) {
    return {{"name", text(node.name)},
            {"path", text(node.url.string())},
            {"isDirectory", node.isDirectory},
            {"size", node.fileSize ? QVariant(static_cast<qint64>(*node.fileSize)) : QVariant()},
            {"sizeText",
             node.fileSize ? text(formatByteCount(static_cast<std::int64_t>(*node.fileSize))) : QString()}};
}

QVariant diffRows(const std::optional<std::vector<FileDiff>>& rows) {
    if (!rows) return {};
    return listOf(*rows, [](const FileDiff& difference) {
        return QVariantMap{{"path", text(difference.path)}, {"kind", FileDiff::rawValue(difference.kind)}};
    });
}

}  // namespace tapekeep::QmlValues
