#include "app/AutostartEntry.h"

#include <cerrno>

#include "core/AtomicFile.h"
#include "core/FileReading.h"
#include "core/PosixError.h"
#include "platform/UserFolders.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

constexpr const char* header = "[Desktop Entry]\n";
constexpr const char* mark = "X-Tapekeep-Autostart=true\n";
// An autostart entry is a few hundred bytes; anything much larger is not one of ours.
constexpr std::size_t largestEntrySize = 64 * 1024;

// One quoted argument of a desktop entry's Exec key: the quoting rule escapes ", `, $ and \ with
// a backslash, and the string rule then doubles every backslash; % stands for a field code.
std::string quotedExecArgument(const std::string& argument) {
    std::string quoted = "\"";
    for (char character : argument) {
        if (character == '"' || character == '`' || character == '$') quoted += "\\\\";
        if (character == '\\') quoted += "\\\\\\";
        quoted += character == '%' ? std::string("%%") : std::string(1, character);
    }
    return quoted + "\"";
}

}  // namespace

fs::path AutostartEntry::defaultFile() {
    return UserFolders::configHome() / "autostart" / "tapekeep.desktop";
}

AutostartEntry::AutostartEntry(fs::path file) : file_(std::move(file)) {}

std::string AutostartEntry::text(const std::string& executable) {
    return std::string(header) +
           "Type=Application\n"
           "Name=Tapekeep\n"
           "Comment=Back up the M8 tracker's SD card\n"
           "Exec=" +
           quotedExecArgument(executable) +
           "\n"
           "Icon=tapekeep\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n" +
           mark;
}

bool AutostartEntry::isOurs(const std::string& text) {
    return text.starts_with(header) && text.find(std::string("\n") + mark) != std::string::npos;
}

// A link, a folder or anything else that is not a regular file of ours counts as foreign.
AutostartEntry::Occupant AutostartEntry::occupant() const {
    std::string content;
    try {
        content = readWholeFile(
            file_, {.followSymbolicLinks = false, .regularFileOnly = true, .largestSize = largestEntrySize});
    } catch (const PosixError& error) {
        if (error.code() == ENOENT || error.code() == ENOTDIR) return Occupant::none;
        if (error.code() == ELOOP || error.code() == EISDIR || error.code() == EINVAL ||
            error.code() == EFBIG)
            return Occupant::foreign;
        throw;
    }
    return isOurs(content) ? Occupant::ours : Occupant::foreign;
}

bool AutostartEntry::install(const std::string& executable) const {
    if (occupant() == Occupant::foreign) return false;
    std::error_code error;
    fs::create_directories(file_.parent_path(), error);
    if (error) throw PosixError(error.value(), file_.parent_path().string() + ": " + error.message());
    writeFileAtomically(file_, text(executable));
    return true;
}

bool AutostartEntry::remove() const {
    switch (occupant()) {
        case Occupant::none:
            return true;
        case Occupant::foreign:
            return false;
        case Occupant::ours:
            break;
    }
    std::error_code error;
    fs::remove(file_, error);
    if (error) throw PosixError(error.value(), file_.string() + ": " + error.message());
    return true;
}

bool AutostartEntry::isInstalled() const {
    try {
        return occupant() == Occupant::ours;
    } catch (const PosixError&) {
        return false;
    }
}

}  // namespace tapekeep
