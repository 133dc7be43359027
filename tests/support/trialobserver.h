#pragma once

#include "app/mainwindow.h"
#include "pulsecapture.h"

#include <QObject>
#include <QVector>

// Notes for every trial of a run the sounds and the deviant's place in force
// when its first interval started, when each interval started (the moment
// soundPlaying(k) was emitted, just after the output was started) and how far
// the capture had come then, and when soundPlaying(-1) was emitted, just after
// the reaction-time clock started.
class TrialObserver
{
public:
    struct Trial {
        QVector<double> standard;
        QVector<double> deviant;
        int stimPosition = 0;
        QVector<qint64> startNs;
        QVector<qint64> startPosition;
        qint64 endNs = -1;
    };

    explicit TrialObserver(MainWindow &window, const PulseCapture *capture = nullptr)
    {
        QObject::connect(
            &window, &MainWindow::soundPlaying, &context, [this, &window, capture](int index) {
                const qint64 now = PulseCapture::nowNs();
                indexes.append(index);
                if (index == 1 || trials.isEmpty()) {
                    Trial trial;
                    trial.standard = window.standardSound;
                    trial.deviant = window.deviantSound;
                    trial.stimPosition = window.params.stimPosition;
                    trials.append(trial);
                }
                if (index == -1) {
                    trials.last().endNs = now;
                } else {
                    trials.last().startNs.append(now);
                    trials.last().startPosition.append(capture ? capture->position() : -1);
                }
            });
    }

    QVector<Trial> trials;
    QVector<int> indexes; // every index soundPlaying carried, in order

private:
    QObject context;
};
