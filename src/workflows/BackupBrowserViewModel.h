#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "content/FileNode.h"
#include "content/M8SongMetadata.h"
#include "content/SampleReferences.h"
#include "content/UnusedSampleLookup.h"
#include "core/SDCard.h"
#include "workflows/BackgroundWork.h"
#include "workflows/BrowseCopyOperation.h"
#include "workflows/FeatureAccessAdmission.h"

namespace tapekeep {

// The controller of one open backup version: its file tree, the song or instrument under the
// cursor with which of its samples exist, which files use a sample, and the copy of a file or
// folder back to the card it came from.
//
// Lives on the GUI thread. Walks, parsing and the usage index run on background tasks over value
// copies; each result carries the generation it was started with and is dropped when the
// selection or the build has moved on since, so a slow song never shows over the one chosen after.
class BackupBrowserViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isLoadingTree READ isLoadingTree NOTIFY rootNodesChanged)
    Q_PROPERTY(QVariantMap selectedNode READ selectedNodeVariant NOTIFY selectedNodeChanged)
    Q_PROPERTY(QVariant songMetadata READ songMetadataVariant NOTIFY metadataChanged)
    Q_PROPERTY(QVariant metadataError READ metadataErrorVariant NOTIFY metadataChanged)
    Q_PROPERTY(bool isLoadingMetadata READ isLoadingMetadata NOTIFY metadataChanged)
    Q_PROPERTY(bool isBuildingSampleIndex READ isBuildingSampleIndex NOTIFY sampleIndexChanged)
    Q_PROPERTY(bool sampleIndexBuilt READ sampleIndexBuilt NOTIFY sampleIndexChanged)
    Q_PROPERTY(QVariant sampleIndexError READ sampleIndexErrorVariant NOTIFY sampleIndexChanged)
    Q_PROPERTY(QString selectedUsageLabel READ selectedUsageLabel NOTIFY selectedUsageChanged)
    Q_PROPERTY(QStringList selectedUsers READ selectedUsersVariant NOTIFY selectedUsageChanged)
    Q_PROPERTY(bool isCopying READ isCopying NOTIFY isCopyingChanged)
    Q_PROPERTY(QVariant copyStatus READ copyStatusVariant NOTIFY copyStatusChanged)

public:
    using TreeLoader =
        std::function<std::vector<FileNode>(const std::filesystem::path& root, std::stop_token)>;
    // The song or instrument of a file; nothing when it cannot be read.
    using MetadataLoader =
        std::function<std::optional<M8SongMetadata>(const std::filesystem::path& file, std::stop_token)>;
    using UsageIndexBuilder =
        std::function<BrowseFileService::SampleUsageIndex(const std::filesystem::path&, std::stop_token)>;

    struct Dependencies {
        TreeLoader loadTree;                // default: loadFileTree
        MetadataLoader loadMetadata;        // default: metadataOf
        UsageIndexBuilder buildUsageIndex;  // default: BrowseFileService::sampleUsageIndex
        BrowseCopyOperation::Dependencies copy;
        std::chrono::milliseconds copyStatusLifetime{3000};
        // Where songs dragged out are prepared with their samples. Default: the application's own.
        std::function<std::filesystem::path()> dragFolder;
        FeatureAccessAdmission featureAccess;
    };

    // Dependencies left empty take their defaults; copy's have none and must be given to copy.
    BackupBrowserViewModel(std::filesystem::path versionURL, std::string rsyncPath, Dependencies dependencies,
                           QObject* parent = nullptr);
    ~BackupBrowserViewModel() override;

    // The default metadata loader: a song as parsed; an instrument as a song of that one
    // instrument, named after it, so the preview shows its sample and whether it exists.
    static std::optional<M8SongMetadata> metadataOf(const std::filesystem::path& file);

    [[nodiscard]] const std::filesystem::path& versionURL() const { return versionURL_; }
    [[nodiscard]] const std::string& rsyncPath() const { return rsyncPath_; }

    // Walks the version once; rootNodesChanged follows.
    void loadTree();
    [[nodiscard]] bool isLoadingTree() const { return isLoadingTree_; }
    [[nodiscard]] bool isTreeLoaded() const { return isTreeLoaded_; }
    [[nodiscard]] const std::shared_ptr<const std::vector<FileNode>>& rootNodes() const { return rootNodes_; }

    // The file in the preview: a song or instrument has its metadata read, a sample's usage is
    // looked up (the index is built the first time one is selected).
    void select(const std::optional<FileNode>& node);
    [[nodiscard]] const std::optional<FileNode>& selectedNode() const { return selectedNode_; }
    [[nodiscard]] const std::optional<M8SongMetadata>& songMetadata() const { return songMetadata_; }
    [[nodiscard]] const std::optional<std::string>& metadataError() const { return metadataError_; }
    [[nodiscard]] const std::map<std::string, bool>& sampleExistence() const { return sampleExistence_; }
    [[nodiscard]] bool isLoadingMetadata() const { return metadataTask_.has_value(); }

    // Starts the one build of the usage index unless it is built or being built;
    // sampleIndexFinished follows in either case of a build's end.
    void buildSampleIndex();
    [[nodiscard]] bool isBuildingSampleIndex() const { return isBuildingSampleIndex_; }
    [[nodiscard]] bool sampleIndexBuilt() const { return sampleUsage_ != nullptr; }
    [[nodiscard]] const std::optional<std::string>& sampleIndexError() const { return sampleIndexError_; }
    // The version's path and its complete index, shared and never changed; null until built.
    [[nodiscard]] const std::shared_ptr<const UnusedSampleLookup>& sampleUsage() const {
        return sampleUsage_;
    }
    // The songs and instruments that may use a file of the version; empty until the index is built.
    [[nodiscard]] std::vector<std::filesystem::path> usersOf(const std::filesystem::path& file) const;

    // How the last copy ended, for a caller that must tell more than the status line does.
    struct CopyEnd {
        enum class Kind { copied, cancelled, failed };
        Kind kind;
        std::filesystem::path destination;  // on the card; set when copied
    };

    // Copies the file or folder back to the same place on the card, under the card's lease, and
    // reads it back. The outcome is told in copyStatus, which clears itself after a while.
    void copyToCard(const FileNode& node, const SDCard& card);
    [[nodiscard]] const std::optional<CopyEnd>& lastCopyEnd() const { return lastCopyEnd_; }
    Q_INVOKABLE void cancelCopy();
    [[nodiscard]] bool isCopying() const { return isCopying_; }
    [[nodiscard]] const std::optional<std::string>& copyStatus() const { return copyStatus_; }

    // What dragging a file of the version out of the window hands over: a song with its samples
    // beside it in a drag folder, anything else as it stands. dragReady or dragFailed follows.
    Q_INVOKABLE void prepareDrag(const QString& path);

    [[nodiscard]] QVariantMap selectedNodeVariant() const;
    [[nodiscard]] QVariant songMetadataVariant() const;
    [[nodiscard]] QVariant metadataErrorVariant() const;
    [[nodiscard]] QVariant sampleIndexErrorVariant() const;
    [[nodiscard]] QString selectedUsageLabel() const;
    [[nodiscard]] QStringList selectedUsersVariant() const;
    [[nodiscard]] QVariant copyStatusVariant() const;

signals:
    void rootNodesChanged();
    void selectedNodeChanged();
    void metadataChanged();
    void sampleIndexChanged();
    // Not a property: a build of the index ended, built or failed.
    void sampleIndexFinished();
    void selectedUsageChanged();
    void isCopyingChanged();
    void copyStatusChanged();
    void copyLine(const QString& line);
    // The drag of the file at path (as given to prepareDrag) may start, handing over url.
    void dragReady(const QString& path, const QUrl& url);
    void dragFailed(const QString& path, const QString& message);

private:
    struct LoadedMetadata {
        std::optional<M8SongMetadata> metadata;
        std::map<std::string, bool> existence;
    };

    void loadMetadata(const FileNode& node);
    void publishMetadata(std::uint64_t generation, LoadedMetadata loaded);
    void cancelMetadata();
    void publishSampleIndex(std::uint64_t generation, BrowseFileService::SampleUsageIndex index);
    void failSampleIndex(std::uint64_t generation, const std::string& message);
    void startCopy(const FileNode& node, const SDCard& card);
    void finishCopy(std::string status, CopyEnd end);
    void setCopyStatus(std::optional<std::string> status);
    static std::map<std::string, bool> existenceOf(const M8SongMetadata& metadata,
                                                   const std::filesystem::path& file,
                                                   const std::filesystem::path& versionURL,
                                                   std::stop_token token);

    std::filesystem::path versionURL_;
    std::string rsyncPath_;
    Dependencies dependencies_;

    std::shared_ptr<const std::vector<FileNode>> rootNodes_ = std::make_shared<const std::vector<FileNode>>();
    bool isLoadingTree_ = false;
    bool isTreeLoaded_ = false;

    std::optional<FileNode> selectedNode_;
    std::optional<M8SongMetadata> songMetadata_;
    std::optional<std::string> metadataError_;
    std::map<std::string, bool> sampleExistence_;
    std::uint64_t metadataGeneration_ = 0;
    std::optional<BackgroundTasks::Id> metadataTask_;

    std::shared_ptr<const UnusedSampleLookup> sampleUsage_;
    bool isBuildingSampleIndex_ = false;
    std::optional<std::string> sampleIndexError_;
    std::uint64_t sampleIndexGeneration_ = 0;

    bool isCopying_ = false;
    std::optional<std::string> copyStatus_;
    std::optional<CopyEnd> lastCopyEnd_;
    std::optional<BackgroundTasks::Id> copyTask_;
    QTimer copyStatusClearing_;

    BackgroundWork work_;  // last: gone first, with its tasks stopped
};

}  // namespace tapekeep
