#pragma once

#include <string>

namespace tapekeep {

// One difference between two trees, by relative path.
struct FileDiff {
    enum class Kind { added, modified, deleted };

    std::string id;  // a fresh UUID per record
    std::string path;
    Kind kind = Kind::modified;

    // "added", "modified", "deleted".
    static const char* rawValue(Kind kind) {
        switch (kind) {
            case Kind::added:
                return "added";
            case Kind::modified:
                return "modified";
            case Kind::deleted:
                return "deleted";
        }
        return "";
    }
};

}  // namespace tapekeep
