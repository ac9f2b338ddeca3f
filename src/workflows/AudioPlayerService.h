#pragma once

#include <QAudioOutput>
#include <QMediaPlayer>
#include <QObject>
#include <QString>
#include <QTimer>

namespace tapekeep {

// Plays one sample at a time for the preview. isPlaying, currentURL, playbackTime and
// playbackDuration follow the player: the progress timer reads its position while it plays, and the
// stop timer ends playback at the sample's end should the backend not report that end itself.
//
// Lives on the GUI thread and is used only there.
class AudioPlayerService : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(QString currentURL READ currentURL NOTIFY currentURLChanged)
    Q_PROPERTY(double playbackTime READ playbackTime NOTIFY playbackTimeChanged)
    Q_PROPERTY(double playbackDuration READ playbackDuration NOTIFY playbackDurationChanged)

public:
    static constexpr int progressIntervalMs = 50;
    // How long past the sample's end the stop timer waits for the backend's own end.
    static constexpr int stopGraceMs = 250;

    explicit AudioPlayerService(QObject* parent = nullptr);

    // Plays the file from its start, in place of whatever played before.
    Q_INVOKABLE void play(const QString& file);
    // Stops playback; currentURL becomes empty and playbackTime 0.
    Q_INVOKABLE void stop();
    // Stops the file when it is the one playing, else plays it.
    Q_INVOKABLE void toggle(const QString& file);

    [[nodiscard]] bool isPlaying() const { return isPlaying_; }
    [[nodiscard]] QString currentURL() const { return currentURL_; }
    [[nodiscard]] double playbackTime() const { return playbackTime_; }          // seconds
    [[nodiscard]] double playbackDuration() const { return playbackDuration_; }  // seconds; 0 until known

signals:
    void isPlayingChanged();
    void currentURLChanged();
    void playbackTimeChanged();
    void playbackDurationChanged();
    // The file could not be played; the text is the backend's.
    void playbackFailed(const QString& message);

private:
    void followState(QMediaPlayer::PlaybackState state);
    void followStatus(QMediaPlayer::MediaStatus status);
    void followDuration(qint64 milliseconds);
    void fail(const QString& message);
    void armStopTimer();
    void readPosition();
    void setPlaying(bool playing);
    void setCurrentURL(const QString& file);
    void setPlaybackTime(double seconds);
    void setPlaybackDuration(double seconds);

    QMediaPlayer player_;
    QAudioOutput output_;
    QTimer stopTimer_;
    QTimer progressTimer_;
    bool isPlaying_ = false;
    QString currentURL_;
    double playbackTime_ = 0;
    double playbackDuration_ = 0;
};

}  // namespace tapekeep
