#include "workflows/AudioPlayerService.h"

#include <QUrl>

namespace tapekeep {

AudioPlayerService::AudioPlayerService(QObject* parent) : QObject(parent) {
    player_.setAudioOutput(&output_);
    stopTimer_.setSingleShot(true);
    progressTimer_.setInterval(progressIntervalMs);
    connect(&player_, &QMediaPlayer::playbackStateChanged, this, &AudioPlayerService::followState);
    connect(&player_, &QMediaPlayer::mediaStatusChanged, this, &AudioPlayerService::followStatus);
    connect(&player_, &QMediaPlayer::durationChanged, this, &AudioPlayerService::followDuration);
    connect(&player_, &QMediaPlayer::errorOccurred, this,
            [this](QMediaPlayer::Error, const QString& message) { fail(message); });
    connect(&stopTimer_, &QTimer::timeout, this, &AudioPlayerService::stop);
    connect(&progressTimer_, &QTimer::timeout, this, &AudioPlayerService::readPosition);
}

void AudioPlayerService::play(const QString& file) {
    stop();
    setCurrentURL(file);
    player_.setSource(QUrl::fromLocalFile(file));
    player_.play();
}

void AudioPlayerService::stop() {
    stopTimer_.stop();
    progressTimer_.stop();
    player_.stop();
    player_.setSource(QUrl());
    setPlaying(false);
    setCurrentURL({});
    setPlaybackTime(0);
    setPlaybackDuration(0);
}

void AudioPlayerService::toggle(const QString& file) {
    if (isPlaying_ && currentURL_ == file)
        stop();
    else
        play(file);
}

void AudioPlayerService::followState(QMediaPlayer::PlaybackState state) {
    const bool playing = state == QMediaPlayer::PlayingState;
    if (playing) {
        progressTimer_.start();
        armStopTimer();
    } else {
        progressTimer_.stop();
        stopTimer_.stop();
    }
    setPlaying(playing);
}

void AudioPlayerService::followStatus(QMediaPlayer::MediaStatus status) {
    if (status == QMediaPlayer::EndOfMedia) stop();
    if (status == QMediaPlayer::InvalidMedia) fail(player_.errorString());
}

void AudioPlayerService::followDuration(qint64 milliseconds) {
    setPlaybackDuration(double(milliseconds) / 1000.0);
    if (isPlaying_) armStopTimer();
}

void AudioPlayerService::fail(const QString& message) {
    if (currentURL_.isEmpty()) return;  // a stop already ended this file
    stop();
    emit playbackFailed(message);
}

void AudioPlayerService::armStopTimer() {
    const qint64 duration = player_.duration();
    if (duration <= 0) return;
    stopTimer_.start(int(std::max<qint64>(duration - player_.position(), 0)) + stopGraceMs);
}

void AudioPlayerService::readPosition() {
    setPlaybackTime(double(player_.position()) / 1000.0);
}

void AudioPlayerService::setPlaying(bool playing) {
    if (isPlaying_ == playing) return;
    isPlaying_ = playing;
    emit isPlayingChanged();
}

void AudioPlayerService::setCurrentURL(const QString& file) {
    if (currentURL_ == file) return;
    currentURL_ = file;
    emit currentURLChanged();
}

void AudioPlayerService::setPlaybackTime(double seconds) {
    if (playbackTime_ == seconds) return;
    playbackTime_ = seconds;
    emit playbackTimeChanged();
}

void AudioPlayerService::setPlaybackDuration(double seconds) {
    if (playbackDuration_ == seconds) return;
    playbackDuration_ = seconds;
    emit playbackDurationChanged();
}

}  // namespace tapekeep
