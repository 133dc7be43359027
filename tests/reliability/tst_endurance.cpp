// SPDX-License-Identifier: GPL-3.0-or-later
#include "stimulus/randomsource.h"
#include "support/runharness.h"

#include <QtTest>

#include <numeric>

class TestEndurance : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QString problem;
        if (!server.start(&problem))
            QSKIP(qPrintable("no private PulseAudio daemon: " + problem));
    }

    // View, Go, a run answered through the participant window and closing it,
    // 200 times in one window. After each run nothing of its playback is left,
    // and the reaction time does not drift. (The sanitizer build's leak
    // checker looks for leaks when the test ends.)
    void manyRunsInOneWindow()
    {
        MainWindow w;
        // 20 ms sounds with 0 to 10 ms of silence (shorter than the output's
        // latency, so sounds are overtaken too), one reversal, and a listener
        // who hears 50 % and not 39.7 %: two trials per run, each answered
        // 5 ms after the fourth sound.
        RunHarness harness(w, 0.45, 5);
        QVector<double> reaction; // per run, the sum of its two reaction times
        for (int run = 1; run <= 200; ++run) {
            RandomSource::seed(424242);
            harness.begin({20, run % 11, 1, 1, QString()});
            {
                // A sound whose output never reported its end (the sanitizer
                // build on a busy machine) ends the run with a warning box.
                ModalCatcher boxes;
                boxes.answerSaveDialogs({});
                QVERIFY(harness.run(30000));
            }
            QVERIFY(RunHarness::closeParticipantWindow(w));
            // Overtaken outputs go when they report the end of their sound.
            QVERIFY(RunHarness::waitUntil(
                [&] {
                    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                    return w.overtakenIntervals.isEmpty() && harness.liveOutputs() == 0 &&
                           harness.liveBuffers() == 0;
                },
                5000));
            QCOMPARE(w.params.trials.size(), 2);
            reaction << w.params.trials[0].reactionTime + w.params.trials[1].reactionTime;
        }
        // Reaction times are whole ms, so one run jitters by a few: the first
        // twenty runs are compared with the last twenty, per answer. Only
        // growth is the fault; the first runs of a fresh process may be slower.
        const double drift = (std::accumulate(reaction.end() - 20, reaction.end(), 0.0) -
                              std::accumulate(reaction.begin(), reaction.begin() + 20, 0.0)) /
                             40;
        QVERIFY2(drift < 1, qPrintable(QString("the reaction time grows by %1 ms").arg(drift)));
    }

private:
    PulseServer server;
};

QTEST_MAIN(TestEndurance)
#include "tst_endurance.moc"
