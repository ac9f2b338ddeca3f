#include "backup/RsyncCommands.h"

#include <algorithm>
#include <initializer_list>
#include <set>
#include <sstream>

namespace tapekeep::RsyncCommands {
namespace {

namespace fs = std::filesystem;

constexpr const char* itemizedFormat = "--out-format=%i\t%n";

// The "/"-separated names of a card-relative folder, without empty ones.
std::vector<std::string> componentsOf(const std::string& folder) {
    std::vector<std::string> components;
    std::size_t start = 0;
    while (start < folder.size()) {
        const std::size_t end = std::min(folder.find('/', start), folder.size());
        if (end > start) components.push_back(folder.substr(start, end - start));
        start = end + 1;
    }
    return components;
}

// Appends arguments in the order the lists are written down.
class ArgumentList {
public:
    ArgumentList(std::initializer_list<const char*> flags) : arguments_(flags.begin(), flags.end()) {}

    ArgumentList& add(std::string argument) {
        arguments_.push_back(std::move(argument));
        return *this;
    }
    ArgumentList& addIf(bool condition, std::string argument) {
        if (condition) add(std::move(argument));
        return *this;
    }
    ArgumentList& linkDest(const std::optional<fs::path>& base) {
        if (base) add("--link-dest=" + base->string());
        return *this;
    }
    // A card's FAT file system keeps no permissions, owners or folder times: rsync is told not to set
    // them, or each attempt fails (a file's temporary copy with it, since rsync sets its mode at once),
    // and a FUSE-mounted card may stop answering when the times of its root are set.
    ArgumentList& fatAttributes() {
        for (const char* flag : {"--no-perms", "--no-owner", "--no-group", "--omit-dir-times"}) add(flag);
        return *this;
    }
    ArgumentList& excludes() {
        arguments_.insert(arguments_.end(), excludeArguments().begin(), excludeArguments().end());
        return *this;
    }
    // A nested folder needs each of its parents included, or rsync never descends to it; the
    // parents' other content still falls under --exclude=*, so it is neither copied nor deleted.
    ArgumentList& folderIncludes(const Folders& folders) {
        std::set<std::string> included;
        for (const std::string& folder : folders) {
            std::string pattern = "/";
            for (const auto& component : componentsOf(folder)) {
                pattern += escapeIncludePattern(component) + "/";
                if (included.insert(pattern).second) add("--include=" + pattern);
            }
            add("--include=" + pattern + "**");
        }
        return add("--exclude=*");
    }
    ArgumentList& fileList(const fs::path& listPath) {
        return add("--recursive").add("--from0").add("--files-from=" + listPath.string());
    }
    Arguments betweenFolders(const fs::path& source, const fs::path& destination) {
        return betweenFiles(folderContents(source), folderContents(destination));
    }
    Arguments betweenFiles(std::string source, std::string destination) {
        add(std::move(source));
        add(std::move(destination));
        return std::move(arguments_);
    }

private:
    Arguments arguments_;
};

}  // namespace

const Arguments& excludeArguments() {
    static const Arguments excludes{
        "--exclude=.DS_Store",
        "--exclude=._*",
        "--exclude=.Spotlight-V100",
        "--exclude=.Trashes",
        "--exclude=.fseventsd",
        "--exclude=.tapekeep-note",
        "--exclude=.tapekeep-sizes.json",
    };
    return excludes;
}

std::string escapeIncludePattern(const std::string& folder) {
    std::string escaped;
    escaped.reserve(folder.size());
    for (const char character : folder) {
        if (character == '\\' || character == '*' || character == '?' || character == '[')
            escaped.push_back('\\');
        escaped.push_back(character);
    }
    return escaped;
}

std::string folderContents(const fs::path& folder) {
    std::string path = folder.string();
    if (!path.ends_with('/')) path.push_back('/');
    return path;
}

Arguments estimateArguments(const fs::path& source, const fs::path& destination,
                            const std::optional<fs::path>& linkDest) {
    return ArgumentList{"-an", "--stats", "--delete"}.excludes().linkDest(linkDest).betweenFolders(
        source, destination);
}

Arguments fullBackupArguments(const fs::path& source, const fs::path& destination,
                              const std::optional<fs::path>& linkDest, bool progress) {
    return ArgumentList{"-avh"}
        .addIf(linkDest.has_value(), "--checksum")
        .add("--delete")
        .addIf(progress, "--info=progress2")
        .excludes()
        .linkDest(linkDest)
        .betweenFolders(source, destination);
}

Arguments baseSnapshotArguments(const fs::path& linkBase, const fs::path& staging, bool hardLink) {
    return ArgumentList{"-a"}
        .linkDest(hardLink ? std::optional(linkBase) : std::nullopt)
        .add("--checksum")
        .excludes()
        .betweenFolders(linkBase, staging);
}

Arguments folderPassArguments(const fs::path& source, const fs::path& destination, const Folders& folders,
                              bool progress, const std::optional<fs::path>& linkDest) {
    return ArgumentList{"-avh", "--checksum", "--delete"}
        .addIf(progress, "--info=progress2")
        .linkDest(linkDest)
        .excludes()
        .folderIncludes(folders)
        .betweenFolders(source, destination);
}

Arguments fileListPassArguments(const fs::path& source, const fs::path& destination, const fs::path& listPath,
                                bool progress, const std::optional<fs::path>& linkDest) {
    return ArgumentList{"-avh", "--checksum"}
        .addIf(progress, "--info=progress2")
        .linkDest(linkDest)
        .excludes()
        .fileList(listPath)
        .betweenFolders(source, destination);
}

Arguments verifyArguments(const fs::path& source, const fs::path& destination,
                          const std::optional<Folders>& folders, const std::optional<fs::path>& listPath) {
    ArgumentList arguments{"-anic", "--itemize-changes", itemizedFormat};
    if (listPath) return arguments.excludes().fileList(*listPath).betweenFolders(source, destination);
    arguments.add("--delete").excludes();
    if (folders) arguments.folderIncludes(*folders);
    return arguments.betweenFolders(source, destination);
}

Arguments wholeRestoreArguments(const fs::path& source, const fs::path& destination) {
    return ArgumentList{"-avh", "-u", "--progress", "--stats", "--checksum"}
        .fatAttributes()
        .excludes()
        .betweenFolders(source, destination);
}

Arguments restoreFromListArguments(const fs::path& source, const fs::path& destination,
                                   const fs::path& listPath) {
    return ArgumentList{"-avh", "-u", "--progress", "--stats", "--checksum"}
        .fatAttributes()
        .excludes()
        .fileList(listPath)
        .betweenFolders(source, destination);
}

Arguments undoRestoreArguments(const fs::path& safetyVersion, const fs::path& destination,
                               const fs::path& listPath) {
    return ArgumentList{"-avh", "--progress", "--stats", "--checksum"}
        .fatAttributes()
        .excludes()
        .fileList(listPath)
        .betweenFolders(safetyVersion, destination);
}

Arguments restorePreviewArguments(const fs::path& source, const fs::path& destination,
                                  const std::optional<Folders>& folders) {
    ArgumentList arguments{"-aniuc", "--itemize-changes", itemizedFormat};
    arguments.fatAttributes().excludes();
    if (folders) arguments.folderIncludes(*folders);
    return arguments.betweenFolders(source, destination);
}

Arguments restorePreviewFromListArguments(const fs::path& source, const fs::path& destination,
                                          const fs::path& listPath) {
    return ArgumentList{"-aniuc", "--itemize-changes", itemizedFormat}
        .fatAttributes()
        .excludes()
        .fileList(listPath)
        .betweenFolders(source, destination);
}

Arguments compareVersionsArguments(const fs::path& versionA, const fs::path& versionB) {
    return ArgumentList{"-anic", "--delete", "--itemize-changes", itemizedFormat}.excludes().betweenFolders(
        versionA, versionB);
}

Arguments copyToCardArguments(const fs::path& source, const fs::path& destination, bool isFolder) {
    ArgumentList arguments{"-avh", "--checksum", "--safe-links", "--progress"};
    arguments.fatAttributes().excludes();
    if (isFolder) return arguments.betweenFolders(source, destination);
    return arguments.betweenFiles(source.string(), destination.string());
}

Arguments applyEditArguments(const fs::path& stagedFile, const fs::path& target, bool ignoreExisting,
                             std::optional<unsigned> newFileMode) {
    ArgumentList arguments{"-avh"};
    arguments.addIf(ignoreExisting, "--ignore-existing")
        .add("--checksum")
        .add("--safe-links")
        .add("--progress");
    arguments.fatAttributes();
    // Even told to keep no permissions, rsync sets a new file's mode from the source's when that
    // differs from what the card reports for it, and a FAT card refuses the change, failing the copy.
    // A mode the card already shows for its files is one it never has to set.
    if (newFileMode) {
        std::ostringstream mode;
        mode << "--chmod=F" << std::oct << (*newFileMode & 07777u);
        arguments.add(mode.str());
    }
    arguments.excludes();
    return arguments.betweenFiles(stagedFile.string(), target.string());
}

}  // namespace tapekeep::RsyncCommands
