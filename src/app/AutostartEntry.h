#pragma once

#include <filesystem>
#include <string>

namespace tapekeep {

// The XDG autostart entry that starts the desktop application at login. The entry carries a mark
// of its own, and only a file with that mark is ever replaced or removed: an entry of the same name
// that the user or another program wrote is left as it is. Blocks on the file system; any thread.
class AutostartEntry {
public:
    // ${XDG_CONFIG_HOME:-~/.config}/autostart/tapekeep.desktop
    [[nodiscard]] static std::filesystem::path defaultFile();

    explicit AutostartEntry(std::filesystem::path file = defaultFile());

    [[nodiscard]] const std::filesystem::path& file() const { return file_; }

    // Writes the entry that starts `executable`, atomically, creating the autostart folder. False,
    // with nothing written, when a file that is not ours holds the name. Throws PosixError.
    bool install(const std::string& executable) const;
    // Removes the entry. True when no entry of ours is left; false when a file that is not ours
    // holds the name, which stays. Throws PosixError.
    bool remove() const;
    // Whether our entry is there.
    [[nodiscard]] bool isInstalled() const;

    // The entry's text for `executable`.
    [[nodiscard]] static std::string text(const std::string& executable);
    // Whether a file's text carries our mark.
    [[nodiscard]] static bool isOurs(const std::string& text);

private:
    enum class Occupant { none, ours, foreign };
    [[nodiscard]] Occupant occupant() const;

    std::filesystem::path file_;
};

}  // namespace tapekeep
