#include "ui/CardTileValues.h"

#include <QVariantMap>

#include <algorithm>
#include <cmath>

#include "core/Formatting.h"
#include "workflows/QmlValues.h"

namespace tapekeep::CardTileValues {

using QmlValues::text;

QString shortUuid(const std::string& uuid) {
    return text(uuid.size() > 8 ? uuid.substr(uuid.size() - 8) : uuid);
}

QVariantList contentRows(const std::optional<ContentCounts>& counts) {
    if (!counts) return {};
    return QmlValues::listOf(*counts, [](const ContentCount& row) {
        return QVariantMap{{"label", text(row.label)}, {"count", row.count}};
    });
}

QString freshnessKind(const std::optional<BackupFreshness>& freshness) {
    if (!freshness) return {};
    switch (freshness->kind) {
        case BackupFreshness::Kind::checking:
            return QStringLiteral("checking");
        case BackupFreshness::Kind::noBackup:
            return QStringLiteral("noBackup");
        case BackupFreshness::Kind::upToDate:
            return QStringLiteral("upToDate");
        case BackupFreshness::Kind::changes:
            return QStringLiteral("changes");
    }
    return {};
}

QString freshnessLabel(const std::optional<BackupFreshness>& freshness) {
    return freshness ? text(freshness->label()) : QString();
}

QVariantList diffRows(const std::optional<DiffSummary>& summary) {
    if (!summary) return {};
    return QmlValues::listOf(summary->folders, [](const FolderDiff& folder) {
        return QVariantMap{{"name", folder.name.empty() ? QStringLiteral("/") : text(folder.name)},
                           {"added", folder.added},
                           {"modified", folder.modified},
                           {"deleted", folder.deleted}};
    });
}

namespace {

// What every line of the options sheet that can be ticked has.
QVariantMap choiceRow(const std::string& name, const std::optional<std::int64_t>& size, bool selected) {
    return {{"name", text(name)}, {"sizeText", sizeText(size)}, {"selected", selected}};
}

}  // namespace

QVariantList folderRows(const std::vector<FolderSelection>& folders) {
    return QmlValues::listOf(folders, [](const FolderSelection& folder) {
        QVariantMap row = choiceRow(folder.name, folder.size, folder.selected);
        row.insert("id", text(folder.id));
        row.insert("locked", folder.locked);
        return row;
    });
}

QVariantList songRows(const std::vector<SongItem>& songs) {
    return QmlValues::listOf(songs, [](const SongItem& song) {
        QVariantMap row = choiceRow(song.name, song.size, song.selected);
        row.insert("relativePath", text(song.relativePath));
        return row;
    });
}

bool songsPartlyChosen(const std::vector<FolderSelection>& folders) {
    return std::any_of(folders.begin(), folders.end(), [](const FolderSelection& folder) {
        return folder.name == "Songs" && !folder.selected;
    });
}

QVariant fraction(const std::optional<double>& value) {
    return value ? QVariant(*value) : QVariant();
}

QVariant percent(const std::optional<double>& value) {
    if (!value) return {};
    // Rounded down, so that 100% is shown only when the work is done.
    return static_cast<int>(std::floor(std::clamp(*value, 0.0, 1.0) * 100));
}

QVariant epochMilliseconds(const std::optional<std::chrono::system_clock::time_point>& time) {
    return time ? QVariant(QmlValues::epochMilliseconds(*time)) : QVariant();
}

QString pathText(const std::optional<std::filesystem::path>& path) {
    return path ? text(path->string()) : QString();
}

QString sizeText(const std::optional<std::int64_t>& bytes) {
    return bytes ? text(formatByteCount(*bytes)) : QString();
}

QStringList lastLines(const std::vector<std::string>& lines, std::size_t count) {
    const std::size_t first = lines.size() > count ? lines.size() - count : 0;
    QStringList result;
    for (std::size_t index = first; index < lines.size(); ++index) result.push_back(text(lines[index]));
    return result;
}

int secondsLeft(std::chrono::system_clock::time_point now, std::chrono::system_clock::time_point end) {
    if (end <= now) return 0;
    const auto left = std::chrono::ceil<std::chrono::seconds>(end - now);
    return static_cast<int>(left.count());
}

}  // namespace tapekeep::CardTileValues
