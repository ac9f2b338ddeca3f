#include "workflows/SampleSongList.h"

#include "content/M8FileKind.h"
#include "core/AtomicFile.h"
#include "core/TextHash.h"
#include "workflows/SampleSongListError.h"

namespace tapekeep::SampleSongList {

std::string fileName(const std::filesystem::path& sample) {
    return "Tapekeep-songs-using-" + TextHash::hexOf(sample.string()) + ".txt";
}

std::string contents(const std::filesystem::path& sample, const std::vector<std::string>& users) {
    std::string text = "Songs using " + sample.string() + "\n";
    for (const auto& user : users)
        if (m8FileKindOf(user) != M8FileKind::instrument) text += user + "\n";
    return text;
}

std::filesystem::path write(const std::optional<std::filesystem::path>& desktop,
                            const std::filesystem::path& sample, const std::vector<std::string>& users) {
    if (!desktop) throw SampleSongListError::desktopUnavailable();
    const auto file = *desktop / fileName(sample);
    writeFileAtomically(file, contents(sample, users));
    return file;
}

}  // namespace tapekeep::SampleSongList
