#include "workflows/QmlValues.h"

#include <QVariantList>

namespace tapekeep::QmlValues {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

QVariant optionalText(const std::optional<std::string>& value) {
    return value ? QVariant(text(*value)) : QVariant();
}

QVariantMap card(const SDCard& card) {
    return {{"volumeName", text(card.volumeName)},
            {"uuid", text(card.diskUtilUUID)},
            {"mountPath", text(card.mountPath.string())}};
}

QVariantMap version(const BackupVersion& version) {
    return {{"folderName", text(version.folderName)},
            {"path", text(version.url.string())},
            {"isLatest", version.isLatest}};
}

QVariant diffRows(const std::optional<std::vector<FileDiff>>& rows) {
    if (!rows) return {};
    return listOf(*rows, [](const FileDiff& difference) {
        return QVariantMap{{"path", text(difference.path)}, {"kind", FileDiff::rawValue(difference.kind)}};
    });
}

}  // namespace tapekeep::QmlValues
