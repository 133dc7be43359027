// SPDX-License-Identifier: GPL-3.0-or-later
#include "../app/mainwindow.h"
#include "outputmonitor.h"
#include "samplebytes.h"

#include <QAudioDeviceInfo>
#include <QAudioOutput>
#include <QBuffer>
#include <QDebug>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <climits>
#include <cmath>

namespace
{
// An interval whose output reports no end (no audio server or device, or a
// stream that stopped with an error) ends this long after its sound's own
// duration, as if it had played. A working output reports idle within a few
// milliseconds of the sound's true end on a low-latency device (see the timing
// report in README.md), and with the default 1 s silent interval the interval
// still ends before the next tick.
const int fallbackMarginMs = 500;

// An output that is still active at that point is playing through a device
// with a long latency (a sink may buffer up to 2 s) and is given time to
// finish, checked every recheckMs; only one still active this long after its
// sound's duration is taken to be stuck and ended.
const int activeLimitMs = 3000;
const int recheckMs = 100;

// The rate an output format can carry: the sound's rate truncated toward zero;
// 0 (which every device rejects) for a rate that is negative, not a number or
// beyond the int range.
int formatRate(double rate)
{
    if (!(rate >= 0.0) || rate >= static_cast<double>(INT_MAX))
        return 0;
    return static_cast<int>(rate);
}

// The sound's duration in whole milliseconds, rounded up, kept small enough
// for the margins to be added.
int durationMs(int samples, int rate)
{
    const double ms = rate > 0 ? std::ceil(1000.0 * samples / rate) : 0.0;
    return static_cast<int>(qMin(ms, static_cast<double>(INT_MAX - activeLimitMs)));
}

bool stillActive(const QAudioOutput *output)
{
    return output && output->state() == QAudio::ActiveState;
}

// An output that is idle has played its sound to the end, even when its report
// of that is still to come (a sink waking from suspend, a long latency).
bool idle(const QAudioOutput *output)
{
    return output && output->state() == QAudio::IdleState;
}
} // namespace

void MainWindow::playOneSound()
{
    // A tick that comes after the fourth interval has started (its sound is
    // still playing when the next period begins) starts nothing: a trial has
    // exactly four intervals, and the fourth one's end stops the timer.
    if (sequenceIndex >= sequenceLength)
        return;
    releaseExpiredIntervals();
    // The previous interval is still sounding: its sound plays to its end and
    // its objects are released when it reports idle.
    if (audioOutput)
        overtakeInterval();

    const bool deviant = deviantFlags.value(sequenceIndex);
    const QVector<double> sound = deviant ? deviantSound : standardSound;
    // The output runs at the rate the sound was built at, so a rate changed on
    // the panel never changes the pitch or length of what the participant hears.
    const int rate = formatRate(deviant ? deviantSoundRate : standardSoundRate);
    if (audioFormat.sampleRate() != rate)
        configureAudioFormat(rate);

    audioBytes = new QByteArray(float32LittleEndian(sound));
    audioBuffer = new QBuffer(audioBytes);
    audioBuffer->open(QIODevice::ReadOnly);
    // An output plays through the default device of the moment it is made, so
    // the device and its volume are read for every sound: a headset unplugged,
    // another default chosen or a volume key pressed during a run shows in its
    // sidecar from that trial on. The volume comes from the monitor's cache:
    // no question to the sound server delays the sound.
    const QString device = QAudioDeviceInfo::defaultOutputDevice().deviceName();
    noteOutputDevice(device, outputMonitor->level(device));
    audioOutput = new QAudioOutput(audioFormat, this);
    if (std::isnan(runFacts.streamVolume))
        runFacts.streamVolume = audioOutput->volume();
    connect(audioOutput, SIGNAL(stateChanged(QAudio::State)), this,
            SLOT(handleStateChanged(QAudio::State)));
    if (!intervalTimer) {
        intervalTimer = new QTimer(this);
        intervalTimer->setSingleShot(true);
        intervalTimer->setTimerType(Qt::PreciseTimer);
        connect(intervalTimer, &QTimer::timeout, this, &MainWindow::checkInterval);
    }
    const int soundMs = durationMs(sound.size(), rate);
    intervalDeadline = QDeadlineTimer(soundMs + fallbackMarginMs, Qt::PreciseTimer);
    intervalLimit = QDeadlineTimer(soundMs + activeLimitMs, Qt::PreciseTimer);
    intervalTimer->start(soundMs + fallbackMarginMs);
    audioOutput->start(audioBuffer);
    intervalRun = runNumber;
    ++sequenceIndex;
    emit soundPlaying(sequenceIndex);
}

void MainWindow::handleStateChanged(QAudio::State state)
{
    // The output that reports; a direct call speaks for the interval now sounding.
    QAudioOutput *output = qobject_cast<QAudioOutput *>(sender());
    const bool current = !output || output == audioOutput;
    if (!output)
        output = audioOutput;

    if (state == QAudio::StoppedState) {
        // The objects stay in place; the interval's fallback ends it.
        if (output && output->error() != QAudio::NoError)
            qWarning() << "Audio stopped unexpectedly";
    } else if (state == QAudio::IdleState) {
        if (current) {
            finishInterval();
            return;
        }
        for (int i = 0; i < overtakenIntervals.size(); ++i) {
            if (overtakenIntervals[i].output == output) {
                releaseInterval(overtakenIntervals.takeAt(i));
                return;
            }
        }
    }
}

void MainWindow::checkInterval()
{
    if (stillActive(audioOutput) && !intervalLimit.hasExpired()) {
        intervalTimer->start(static_cast<int>(
            qMin<qint64>(recheckMs, qMax<qint64>(1, intervalLimit.remainingTime()))));
        return;
    }
    // The output stopped with an error or never reported the end of its
    // sound. While its run lasts, the run's counters number it.
    if (!idle(audioOutput) && intervalRun == runNumber)
        runFacts.faultyIntervals.append({params.trialCount, sequenceIndex});
    finishInterval();
}

void MainWindow::finishInterval()
{
    if (intervalTimer)
        intervalTimer->stop();
    // The members are cleared before the release, so that a notification sent
    // while the output stops finds no interval sounding.
    const SoundingInterval ended{audioOutput, audioBuffer, audioBytes, {}, {}, 0, 0, 0};
    audioOutput = nullptr;
    audioBuffer = nullptr;
    audioBytes = nullptr;
    releaseInterval(ended);
    if (sequenceIndex == sequenceLength)
        endTrial();
}

void MainWindow::endTrial()
{
    soundTimer->stop();
    if (reactionClockStarts == 0)
        reactionClock->start();
    else
        reactionClock->restart();
    ++reactionClockStarts;
    releaseExpiredIntervals();
    emit soundPlaying(-1);
}

void MainWindow::overtakeInterval()
{
    overtakenIntervals.append({audioOutput, audioBuffer, audioBytes, intervalDeadline,
                               intervalLimit, intervalRun, params.trialCount, sequenceIndex});
    if (intervalTimer)
        intervalTimer->stop();
    audioOutput = nullptr;
    audioBuffer = nullptr;
    audioBytes = nullptr;
}

void MainWindow::releaseInterval(const SoundingInterval &interval)
{
    if (interval.output)
        interval.output->stop();
    if (interval.buffer)
        interval.buffer->close();
    delete interval.bytes;
    // The output may be inside its own notification, so both objects go from
    // the event loop, the output first because it reads from the buffer. Taken
    // from the window, the output cannot be deleted a second time by a window
    // destroyed before the event loop gets to it.
    if (interval.output) {
        interval.output->setParent(nullptr);
        interval.output->deleteLater();
    }
    if (interval.buffer)
        interval.buffer->deleteLater();
}

void MainWindow::releaseExpiredIntervals()
{
    for (int i = overtakenIntervals.size() - 1; i >= 0; --i) {
        const SoundingInterval &interval = overtakenIntervals[i];
        if (interval.deadline.hasExpired() &&
            (!stillActive(interval.output) || interval.limit.hasExpired())) {
            // One that had reported the end of its sound would be gone already.
            if (!idle(interval.output) && interval.run == runNumber)
                runFacts.faultyIntervals.append({interval.trial, interval.sound});
            releaseInterval(overtakenIntervals.takeAt(i));
        }
    }
}

void MainWindow::settleOvertakenIntervals()
{
    // The run has ended: its last trial was answered. An overtaken sound of
    // the run whose output is not idle by now (stopped, with an error or not,
    // or still claiming to play) was not heard in its place, so it counts;
    // either way it is done with. Sounds of an abandoned run count for none.
    for (int i = overtakenIntervals.size() - 1; i >= 0; --i) {
        const SoundingInterval &interval = overtakenIntervals[i];
        if (interval.run != runNumber)
            continue;
        if (!idle(interval.output))
            runFacts.faultyIntervals.append({interval.trial, interval.sound});
        releaseInterval(overtakenIntervals.takeAt(i));
    }
}

void MainWindow::releasePlayback()
{
    // The window is being destroyed. No timer may fire and no output may report
    // to it meanwhile: an output's backend processes events while it is
    // destroyed, so each output is cut off from the window first.
    if (soundTimer)
        soundTimer->stop();
    if (intervalTimer)
        intervalTimer->stop();
    if (audioOutput || audioBuffer || audioBytes)
        overtakenIntervals.append({audioOutput, audioBuffer, audioBytes, {}, {}, 0, 0, 0});
    audioOutput = nullptr;
    audioBuffer = nullptr;
    audioBytes = nullptr;
    const QVector<SoundingInterval> sounding = overtakenIntervals;
    overtakenIntervals.clear();
    for (const SoundingInterval &interval : sounding) {
        if (interval.output) {
            disconnect(interval.output, nullptr, this, nullptr);
            // Stopped first: a playing output still has a feed of its stream
            // queued, and its destructor, which processes events after
            // closing the stream, would run that feed on the closed stream
            // (the audio library aborts the program there).
            interval.output->stop();
            delete interval.output;
        }
        delete interval.buffer;
        delete interval.bytes;
    }
}

bool MainWindow::outputAccepted()
{
    const QString device = QAudioDeviceInfo::defaultOutputDevice().deviceName();
    const OutputLevel level = outputMonitor->level(device);
    if (!level.silent())
        return true;
    QMessageBox box(QMessageBox::Warning, "Warning",
                    QString("The audio output \"%1\" is %2: the participant would hear nothing. "
                            "Unmute it or raise its volume before the run.")
                        .arg(device, level.muted ? "muted" : "at 0 %"),
                    QMessageBox::Ok | QMessageBox::Cancel, this);
    box.button(QMessageBox::Ok)->setText("Start anyway");
    box.setDefaultButton(QMessageBox::Cancel);
    box.setEscapeButton(QMessageBox::Cancel);
    return box.exec() == QMessageBox::Ok;
}
