#include "RsyncScripts.h"

#include "TempDir.h"

namespace tapekeep::test {
namespace fs = std::filesystem;

namespace {

fs::path script(const fs::path& file, const std::string& beforeTransfer) {
    writeFile(file,
              "#!/bin/sh\n"
              "case \" $* \" in *\" --version \"*) exec rsync \"$@\";; esac\n" +
                  beforeTransfer + "exec rsync \"$@\"\n");
    fs::permissions(file, fs::perms::owner_all);
    return file;
}

}  // namespace

fs::path gatedRsync(const fs::path& folder) {
    return script(folder / "rsync-gated", "touch '" + (folder / "started").string() +
                                              "'\n"
                                              "while [ ! -e '" +
                                              (folder / "gate").string() + "' ]; do sleep 0.05; done\n");
}

fs::path chattyRsync(const fs::path& folder, int lines) {
    return script(folder / "rsync-chatty",
                  "seq 1 " + std::to_string(lines) + " | sed 's|.*|>f+++++++++ Samples/Loops/loop&.wav|'\n");
}

}  // namespace tapekeep::test
