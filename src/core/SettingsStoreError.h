#pragma once

#include <filesystem>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// The one refusal of the settings store: its file is there but cannot be used (unreadable, not
// JSON, not a regular file, too large), so a write that would replace it is refused rather than
// losing every setting in it.
class SettingsStoreError : public Error {
public:
    static SettingsStoreError damaged(const std::filesystem::path& file, const std::string& reason) {
        return SettingsStoreError("Settings file is damaged: " + file.string() + ": " + reason +
                                  ". Fix or remove it.");
    }

private:
    explicit SettingsStoreError(const std::string& text) : Error(text) {}
};

}  // namespace tapekeep
