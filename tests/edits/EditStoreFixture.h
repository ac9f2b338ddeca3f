#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "EditRecords.h"
#include "TempDir.h"
#include "core/NotificationCenter.h"
#include "edits/EditManifestStore.h"
#include "edits/EditManifestStoreError.h"

namespace tapekeep::test {

// A base folder with one backup set's edit storage, a store over it, rendered files to stage, and
// a count of the change notifications for this base folder.
class EditStoreFixture : public ::testing::Test {
protected:
    static constexpr const char* root = "M8_4C3C645B";

    EditStoreFixture() {
        observer_ = NotificationCenter::defaultCenter().addObserver(Notifications::editsDidChange,
                                                                    [this](const std::string& object) {
                                                                        if (object == base_.string())
                                                                            ++notifications_;
                                                                    });
    }
    ~EditStoreFixture() override { NotificationCenter::defaultCenter().removeObserver(observer_); }

    // A file as the trimmer leaves it, outside the storage.
    std::filesystem::path rendered(const std::string& content = "RIFF trimmed") {
        const auto file = temp_ / "render" / (makeUuid() + ".wav");
        writeFile(file, content);
        return file;
    }

    [[nodiscard]] std::filesystem::path storage() const { return base_ / ".edits" / root; }
    [[nodiscard]] std::filesystem::path stagedFile(const EditEntry& edit) const {
        return storage() / "staged" / edit.stagedFileName;
    }
    [[nodiscard]] std::filesystem::path markerFile(const EditEntry& edit) const {
        return storage() / "commit-pending" / (edit.id + ".json");
    }
    // Every name in the folder, hidden ones included; none when it is absent.
    static std::set<std::string> namesIn(const std::filesystem::path& folder) {
        std::set<std::string> names;
        std::error_code error;
        for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error))
            names.insert(entry->path().filename().string());
        return names;
    }

    // The edit as it stands in a freshly loaded manifest.
    EditEntry staged(const EditEntry& edit) {
        store_.addEdit(edit, rendered(), root);
        return edit;
    }

    static std::string failureOf(const std::function<void()>& work) {
        try {
            work();
            return "";
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    TempDir temp_;
    const std::filesystem::path base_ = temp_ / "base";
    EditManifestStore store_{base_};
    int notifications_ = 0;

private:
    NotificationCenter::Token observer_;
};

}  // namespace tapekeep::test
