#include "core/SettingsStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "core/AtomicFile.h"
#include "core/FileLock.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

nlohmann::json readObject(const std::filesystem::path& file) {
    std::ifstream input(file, std::ios::binary);
    if (!input) return nlohmann::json::object();
    std::stringstream buffer;
    buffer << input.rdbuf();
    auto parsed = nlohmann::json::parse(buffer.str(), nullptr, false);
    return parsed.is_object() ? parsed : nlohmann::json::object();
}

}  // namespace

SettingsStore::SettingsStore(std::filesystem::path file) : file_(std::move(file)) {}

nlohmann::json SettingsStore::all() const {
    return readObject(file_);
}

std::optional<nlohmann::json> SettingsStore::value(const std::string& key) const {
    auto object = readObject(file_);
    auto found = object.find(key);
    if (found == object.end() || found->is_null()) return std::nullopt;
    return *found;
}

std::string SettingsStore::string(const std::string& key, const std::string& fallback) const {
    auto stored = value(key);
    return stored && stored->is_string() ? stored->get<std::string>() : fallback;
}

template <typename Change>
void SettingsStore::modify(Change change) {
    std::lock_guard guard(mutex_);
    std::error_code ignored;
    std::filesystem::create_directories(file_.parent_path(), ignored);
    FileLock lock(file_.string() + ".lock");
    auto object = readObject(file_);
    change(object);
    writeFileAtomically(file_, object.dump(2) + "\n");
}

void SettingsStore::setValue(const std::string& key, const nlohmann::json& value) {
    modify([&](nlohmann::json& object) { object[key] = value; });
}

void SettingsStore::removeValue(const std::string& key) {
    modify([&](nlohmann::json& object) { object.erase(key); });
}

}  // namespace tapekeep
