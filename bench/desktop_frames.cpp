// Whether the window stays responsive while rsync's lines pour in: the desktop application on the
// demo card, on a virtual display, backs the card up with an rsync that first prints 100,000 file
// lines, while the window is asked to draw frame after frame. The worst interval between two frames
// is set against the goal of 50 ms (a ratio at most 1.0 meets it), with the median as a baseline
// measured in the same run.

#include <QApplication>
#include <QQuickStyle>

#include <cstdio>

#include "DesktopSession.h"
#include "FrameClock.h"
#include "RsyncScripts.h"
#include "TempDir.h"
#include "ui/DesktopApplication.h"
#include "workflows/BackupViewModel.h"

namespace {

using namespace tapekeep;
using namespace tapekeep::test;

constexpr int lineCount = 100'000;
constexpr double goalMilliseconds = 50.0;

}  // namespace

int main(int argc, char** argv) {
    if (auto why = DesktopSession::unavailable()) {
        std::printf("desktop_frames: skipped, no virtual display: %s\n", why->c_str());
        return 0;
    }
    DesktopSession::useDisplay();
    QQuickStyle::setStyle(QStringLiteral("Basic"));
    QApplication application(argc, argv);
    TempDir tools;
    {
        DesktopSession session(chattyRsync(tools.path(), lineCount));
        const SDCard card = session.demoCard();
        BackupViewModel& backup = session.app().backup();
        session.waitFor([&] { return backup.cardFreshness(card.diskUtilUUID).has_value(); });

        FrameClock clock(session.window());
        backup.startBackup(card);
        const bool finished = session.waitFor(
            [&] { return backup.cardState(card.diskUtilUUID).kind == CardState::Kind::success; });
        clock.stop();
        if (!finished) {
            std::printf("desktop_frames: the backup did not succeed: %s\n",
                        backup.cardState(card.diskUtilUUID).message.c_str());
            return 1;
        }
        const double worst = static_cast<double>(clock.worstInterval().count());
        const double median = static_cast<double>(clock.medianInterval().count());
        std::printf("desktop_frames: %d rsync lines, %zu frames drawn\n", lineCount, clock.frames());
        std::printf("  median frame interval %.0f ms\n", median);
        std::printf("  worst frame interval  %.0f ms (goal at most %.0f ms)\n", worst, goalMilliseconds);
        std::printf("  ratio worst / goal    %.2f %s\n", worst / goalMilliseconds,
                    worst <= goalMilliseconds ? "(met)" : "(not met)");
    }
    return 0;
}
