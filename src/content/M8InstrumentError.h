#pragma once

#include <filesystem>
#include <string>
#include <utility>

#include "core/Error.h"

namespace tapekeep {

// Why M8SongParser::parseInstrument could not answer. notAnInstrument: the file lacks the M8
// header; unreadable: the file could not be read, or it has the header but ends before the fields
// that are needed. The text names the file, not its folder.
class M8InstrumentError : public Error {
public:
    enum class Kind { notAnInstrument, unreadable };

    static M8InstrumentError notAnInstrument(const std::filesystem::path& file) {
        return {Kind::notAnInstrument, file, "Not an M8 instrument: " + file.filename().string()};
    }
    static M8InstrumentError unreadable(const std::filesystem::path& file) {
        return {Kind::unreadable, file, "Could not read instrument: " + file.filename().string()};
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] const std::filesystem::path& file() const { return file_; }

private:
    M8InstrumentError(Kind kind, std::filesystem::path file, const std::string& text)
        : Error(text), kind_(kind), file_(std::move(file)) {}

    Kind kind_;
    std::filesystem::path file_;
};

}  // namespace tapekeep
