#pragma once

#include "app/mainwindow.h"

#include <QAudioOutput>
#include <QBuffer>
#include <QElapsedTimer>
#include <QObject>
#include <QVector>

// Follows every interval a window plays: when it started (soundPlaying(k)),
// what its output reported, and when the output and its buffer were destroyed;
// and when each trial ended (soundPlaying(-1)). Times are in ms from the
// watch's creation. Counts the outputs and buffers made and destroyed, so a
// test can tell whether any outlived its interval.
class PlaybackWatch
{
public:
    struct Interval {
        int trial = 0;
        int index = 0;
        qint64 startMs = -1;
        qint64 releasedMs = -1;
        bool idle = false;             // reported the end of its sound
        bool stoppedWithError = false; // reported a stop with an error
    };

    explicit PlaybackWatch(MainWindow &window)
    {
        clock.start();
        QObject::connect(&window, &MainWindow::soundPlaying, &context, [this, &window](int index) {
            if (index == -1) {
                trialEndMs.append(clock.elapsed());
                return;
            }
            if (index == 1)
                ++trials;
            const int at = intervals.size();
            intervals.append({trials, index, clock.elapsed(), -1, false, false});
            if (QAudioOutput *output = window.audioOutput) {
                ++outputsMade;
                // Errors reported inside start() come before this point.
                if (output->state() == QAudio::StoppedState && output->error() != QAudio::NoError)
                    intervals[at].stoppedWithError = true;
                QObject::connect(output, &QAudioOutput::stateChanged, &context,
                                 [this, at, output](QAudio::State state) {
                                     if (state == QAudio::IdleState)
                                         intervals[at].idle = true;
                                     if (state == QAudio::StoppedState &&
                                         output->error() != QAudio::NoError)
                                         intervals[at].stoppedWithError = true;
                                 });
                QObject::connect(output, &QObject::destroyed, &context, [this, at] {
                    ++outputsDestroyed;
                    intervals[at].releasedMs = clock.elapsed();
                });
            }
            if (QBuffer *buffer = window.audioBuffer) {
                ++buffersMade;
                QObject::connect(buffer, &QObject::destroyed, &context,
                                 [this] { ++buffersDestroyed; });
            }
        });
    }

    qint64 elapsed() const { return clock.elapsed(); }
    int liveOutputs() const { return outputsMade - outputsDestroyed; }
    int liveBuffers() const { return buffersMade - buffersDestroyed; }

    QVector<Interval> intervals;
    QVector<qint64> trialEndMs;
    int trials = 0;
    int outputsMade = 0;
    int outputsDestroyed = 0;
    int buffersMade = 0;
    int buffersDestroyed = 0;

private:
    QElapsedTimer clock;
    QObject context;
};
