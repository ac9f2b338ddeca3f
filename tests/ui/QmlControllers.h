#pragma once

class QObject;

namespace tapekeep {
class AppSettings;
class BackupViewModel;
class CardListModel;
class M8Theme;
}  // namespace tapekeep

namespace tapekeep::test {

// The singletons of "Tapekeep.Controllers" for the screens a test loads. They are registered once
// per program and hand out whatever objects were given last, so that each test brings its own
// settings and theme; an engine made after the call sees them. The objects stay the caller's.
void provideControllers(AppSettings* settings, M8Theme* theme);
// The same for the BACKUP screen's "Backup" and "Cards".
void provideBackupControllers(BackupViewModel* backup, CardListModel* cards);

}  // namespace tapekeep::test
