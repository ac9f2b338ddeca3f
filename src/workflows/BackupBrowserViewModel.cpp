#include "workflows/BackupBrowserViewModel.h"

#include <system_error>

#include "cards/OperationLockError.h"
#include "content/BrowseFileError.h"
#include "content/DragExport.h"
#include "content/FileTreeLoader.h"
#include "content/M8FileKind.h"
#include "content/M8SongParser.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Log.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

const Log& log() {
    static const Log instance("BackupBrowserViewModel");
    return instance;
}

bool isSongOrInstrument(const FileNode& node) {
    return !node.isDirectory && m8FileKindOf(node.name) != M8FileKind::other;
}

bool fileExists(const fs::path& url) {
    std::error_code error;
    return fs::is_regular_file(url, error);
}

}  // namespace

BackupBrowserViewModel::BackupBrowserViewModel(fs::path versionURL, std::string rsyncPath,
                                               Dependencies dependencies, QObject* parent)
    : QObject(parent),
      versionURL_(std::move(versionURL)),
      rsyncPath_(std::move(rsyncPath)),
      dependencies_(std::move(dependencies)),
      work_(this) {
    if (!dependencies_.loadTree) dependencies_.loadTree = &loadFileTree;
    if (!dependencies_.loadMetadata)
        dependencies_.loadMetadata = [](const fs::path& file, std::stop_token token) {
            throwIfCancelled(token);
            return metadataOf(file);
        };
    if (!dependencies_.dragFolder) dependencies_.dragFolder = &DragExport::defaultTemporaryFolder;
    if (!dependencies_.buildUsageIndex) dependencies_.buildUsageIndex = &BrowseFileService::sampleUsageIndex;
    copyStatusClearing_.setSingleShot(true);
    copyStatusClearing_.setInterval(dependencies_.copyStatusLifetime);
    connect(&copyStatusClearing_, &QTimer::timeout, this, [this] { setCopyStatus(std::nullopt); });
}

BackupBrowserViewModel::~BackupBrowserViewModel() = default;

std::optional<M8SongMetadata> BackupBrowserViewModel::metadataOf(const fs::path& file) {
    if (m8FileKindOf(file) != M8FileKind::instrument) return M8SongParser::parseSong(file);
    try {
        const auto instrument = M8SongParser::parseInstrumentInfo(file);
        M8SongMetadata metadata;
        metadata.name = instrument.name;
        metadata.instruments.push_back(instrument);
        if (instrument.samplePath) metadata.samplePaths.push_back(*instrument.samplePath);
        return metadata;
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// --- The tree ---

void BackupBrowserViewModel::loadTree() {
    if (isLoadingTree_) return;
    isLoadingTree_ = true;
    emit rootNodesChanged();
    work_.tasks().start([this, root = versionURL_, load = dependencies_.loadTree,
                         poster = work_.poster()](std::stop_token token) {
        std::vector<FileNode> nodes;
        try {
            nodes = load(root, token);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            // The walk itself drops what it cannot read; this is a version that vanished whole.
            log().error(std::string("Could not list the version: ") + error.what());
        }
        poster->post([this, nodes = std::make_shared<const std::vector<FileNode>>(std::move(nodes))] {
            rootNodes_ = nodes;
            isLoadingTree_ = false;
            isTreeLoaded_ = true;
            emit rootNodesChanged();
        });
    });
}

// --- Selection and metadata ---

void BackupBrowserViewModel::select(const std::optional<FileNode>& node) {
    const bool same = node && selectedNode_ && node->url == selectedNode_->url;
    if (same || (!node && !selectedNode_)) return;
    selectedNode_ = node;
    emit selectedNodeChanged();
    emit selectedUsageChanged();
    if (node && isSongOrInstrument(*node)) {
        loadMetadata(*node);
        return;
    }
    cancelMetadata();
    if (node && !node->isDirectory) buildSampleIndex();
}

void BackupBrowserViewModel::cancelMetadata() {
    ++metadataGeneration_;
    if (metadataTask_) work_.tasks().cancel(*metadataTask_);
    metadataTask_.reset();
    const bool hadAny = songMetadata_ || metadataError_ || !sampleExistence_.empty();
    songMetadata_.reset();
    metadataError_.reset();
    sampleExistence_.clear();
    if (hadAny) emit metadataChanged();
}

void BackupBrowserViewModel::loadMetadata(const FileNode& node) {
    cancelMetadata();
    const auto generation = metadataGeneration_;
    metadataTask_ = work_.tasks().start([this, generation, file = node.url, version = versionURL_,
                                         load = dependencies_.loadMetadata,
                                         poster = work_.poster()](std::stop_token token) {
        try {
            LoadedMetadata loaded;
            loaded.metadata = load(file, token);
            if (loaded.metadata) loaded.existence = existenceOf(*loaded.metadata, file, version, token);
            throwIfCancelled(token);
            poster->post([this, generation, loaded = std::move(loaded)]() mutable {
                publishMetadata(generation, std::move(loaded));
            });
        } catch (const Cancelled&) {
        } catch (const std::exception& error) {
            log().error(std::string("Could not read a song: ") + error.what());
            poster->post([this, generation] { publishMetadata(generation, {}); });
        }
    });
    emit metadataChanged();
}

std::map<std::string, bool> BackupBrowserViewModel::existenceOf(const M8SongMetadata& metadata,
                                                                const fs::path& file,
                                                                const fs::path& versionURL,
                                                                std::stop_token token) {
    std::map<std::string, bool> existence;
    for (const auto& stored : metadata.samplePaths) {
        throwIfCancelled(token);
        bool exists = false;
        try {
            for (const auto& candidate : BrowseFileService::sampleCandidates(stored, file, versionURL))
                if ((exists = fileExists(candidate.url))) break;
        } catch (const Error&) {
            // A path that escapes the version, or says nothing, points at no file of it.
        }
        existence[stored] = exists;
    }
    return existence;
}

void BackupBrowserViewModel::publishMetadata(std::uint64_t generation, LoadedMetadata loaded) {
    if (generation != metadataGeneration_) return;
    metadataTask_.reset();
    songMetadata_ = std::move(loaded.metadata);
    sampleExistence_ = std::move(loaded.existence);
    if (!songMetadata_ && selectedNode_)
        metadataError_ = BrowseFileError::invalidSong(selectedNode_->url).description();
    emit metadataChanged();
}

// --- The usage index ---

void BackupBrowserViewModel::buildSampleIndex() {
    if (sampleUsage_ || isBuildingSampleIndex_) return;
    const auto generation = ++sampleIndexGeneration_;
    isBuildingSampleIndex_ = true;
    sampleIndexError_.reset();
    emit sampleIndexChanged();
    work_.tasks().start([this, generation, version = versionURL_, build = dependencies_.buildUsageIndex,
                         poster = work_.poster()](std::stop_token token) {
        try {
            auto index = build(version, token);
            poster->post([this, generation, index = std::move(index)]() mutable {
                publishSampleIndex(generation, std::move(index));
            });
        } catch (const Cancelled&) {
        } catch (const std::exception& error) {
            poster->post([this, generation, message = std::string(error.what())] {
                failSampleIndex(generation, message);
            });
        }
    });
}

void BackupBrowserViewModel::publishSampleIndex(std::uint64_t generation,
                                                BrowseFileService::SampleUsageIndex index) {
    if (generation != sampleIndexGeneration_) return;
    sampleUsage_ =
        std::make_shared<const UnusedSampleLookup>(UnusedSampleLookup{versionURL_, std::move(index)});
    isBuildingSampleIndex_ = false;
    emit sampleIndexChanged();
    emit selectedUsageChanged();
    emit sampleIndexFinished();
}

void BackupBrowserViewModel::failSampleIndex(std::uint64_t generation, const std::string& message) {
    if (generation != sampleIndexGeneration_) return;
    sampleIndexError_ = message;
    isBuildingSampleIndex_ = false;
    emit sampleIndexChanged();
    emit sampleIndexFinished();
}

std::vector<fs::path> BackupBrowserViewModel::usersOf(const fs::path& file) const {
    if (!sampleUsage_) return {};
    const auto* users = BrowseFileService::usersOf(file, versionURL_, sampleUsage_->index);
    return users ? *users : std::vector<fs::path>{};
}

// --- Copy to the card ---

void BackupBrowserViewModel::copyToCard(const FileNode& node, const SDCard& card) {
    if (const auto refusal = dependencies_.featureAccess.refusal("copy")) {
        setCopyStatus("Copy unavailable: " + *refusal);
        return;
    }
    if (isCopying_) {
        setCopyStatus("A copy is already in progress.");
        return;
    }
    if (card.diskUtilUUID.empty()) {
        setCopyStatus("Cannot copy — missing volume UUID");
        return;
    }
    copyStatusClearing_.stop();
    isCopying_ = true;
    emit isCopyingChanged();
    setCopyStatus("Copying " + node.name);
    startCopy(node, card);
}

void BackupBrowserViewModel::startCopy(const FileNode& node, const SDCard& card) {
    BrowseCopyOperation::Request request{card.mountPath, node.url, versionURL_, card, rsyncPath_};
    copyTask_ = work_.tasks().start([this, request = std::move(request), name = node.name,
                                     operation = BrowseCopyOperation(dependencies_.copy),
                                     poster = work_.poster()](std::stop_token token) {
        std::string status;
        CopyEnd end{CopyEnd::Kind::failed, {}};
        try {
            end.destination = operation.copy(
                request,
                [&](const std::string& line) {
                    poster->post([this, line] { emit copyLine(QmlValues::text(line)); });
                },
                token);
            end.kind = CopyEnd::Kind::copied;
            status = "Copied " + name + " successfully!";
        } catch (const Cancelled&) {
            end.kind = CopyEnd::Kind::cancelled;
            status = "Copy cancelled.";
        } catch (const OperationLockError& busy) {
            status = "Busy — " + std::string(rawValue(busy.existing())) + " in progress on this SD card";
        } catch (const std::exception& error) {
            status = std::string("Copy failed: ") + error.what();
        }
        poster->post([this, status = std::move(status), end = std::move(end)]() mutable {
            finishCopy(std::move(status), std::move(end));
        });
    });
}

void BackupBrowserViewModel::cancelCopy() {
    if (copyTask_) work_.tasks().cancel(*copyTask_);
}

void BackupBrowserViewModel::finishCopy(std::string status, CopyEnd end) {
    copyTask_.reset();
    lastCopyEnd_ = std::move(end);
    setCopyStatus(std::move(status));
    copyStatusClearing_.start();
    // Last, so that a copy started by whoever watches it stops the clearing just started.
    isCopying_ = false;
    emit isCopyingChanged();
}

void BackupBrowserViewModel::setCopyStatus(std::optional<std::string> status) {
    if (status == copyStatus_) return;
    copyStatus_ = std::move(status);
    emit copyStatusChanged();
}

// --- Dragging out ---

void BackupBrowserViewModel::prepareDrag(const QString& path) {
    work_.tasks().start([this, path, file = fs::path(path.toStdString()), version = versionURL_,
                         folder = dependencies_.dragFolder, poster = work_.poster()](std::stop_token token) {
        try {
            if (!BrowseFileService::isInside(file, version)) throw BrowseFileError::sourceOutsideVersion();
            const auto handed = DragExport::deliver(DragExport::offerFor(file), version, folder(), token);
            poster->post([this, path, handed] {
                emit dragReady(path, QUrl::fromLocalFile(QString::fromStdString(handed.string())));
            });
        } catch (const Cancelled&) {
        } catch (const std::exception& error) {
            poster->post(
                [this, path, message = QmlValues::text(error.what())] { emit dragFailed(path, message); });
        }
    });
}

// --- What the screen reads ---

QVariantMap BackupBrowserViewModel::selectedNodeVariant() const {
    return selectedNode_ ? QmlValues::fileNode(*selectedNode_) : QVariantMap{};
}

QVariant BackupBrowserViewModel::songMetadataVariant() const {
    if (!songMetadata_) return {};
    const auto instruments =
        QmlValues::listOf(songMetadata_->instruments, [this](const InstrumentInfo& instrument) {
            const auto present = instrument.samplePath ? sampleExistence_.find(*instrument.samplePath)
                                                       : sampleExistence_.end();
            return QVariantMap{
                {"index", instrument.index},
                {"type", QString::fromLatin1(InstrumentInfo::rawValue(instrument.type))},
                {"name", QmlValues::text(instrument.name)},
                {"samplePath", QmlValues::optionalText(instrument.samplePath)},
                {"present", present != sampleExistence_.end() ? QVariant(present->second) : QVariant()}};
        });
    return QVariantMap{{"name", QmlValues::text(songMetadata_->name)},
                       {"tempo", songMetadata_->tempo ? QVariant(*songMetadata_->tempo) : QVariant()},
                       {"instruments", instruments},
                       {"samplePaths", QmlValues::textList(songMetadata_->samplePaths)}};
}

QVariant BackupBrowserViewModel::metadataErrorVariant() const {
    return QmlValues::optionalText(metadataError_);
}

QVariant BackupBrowserViewModel::sampleIndexErrorVariant() const {
    return QmlValues::optionalText(sampleIndexError_);
}

QString BackupBrowserViewModel::selectedUsageLabel() const {
    if (!selectedNode_ || selectedNode_->isDirectory || !sampleUsage_) return {};
    std::vector<std::string> users;
    for (const auto& user : usersOf(selectedNode_->url)) users.push_back(user.string());
    return QmlValues::text(BrowseFileService::usageLabel(users));
}

QStringList BackupBrowserViewModel::selectedUsersVariant() const {
    QStringList users;
    if (!selectedNode_) return users;
    for (const auto& user : usersOf(selectedNode_->url))
        users.push_back(QmlValues::text(user.lexically_relative(versionURL_).generic_string()));
    return users;
}

QVariant BackupBrowserViewModel::copyStatusVariant() const {
    return QmlValues::optionalText(copyStatus_);
}

}  // namespace tapekeep
