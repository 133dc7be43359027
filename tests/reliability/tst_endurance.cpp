// SPDX-License-Identifier: GPL-3.0-or-later
#include "stimulus/randomsource.h"
#include "subject/subjectwindow.h"
#include "support/runharness.h"

#include <QPointer>
#include <QtTest>

#include <algorithm>
#include <memory>
#include <numeric>

namespace
{

// The middle value (the upper one of an even count).
double median(QVector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values.value(values.size() / 2);
}

} // namespace

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
    // and the reaction time does not drift. (The
    // sanitizer build's leak checker looks for leaks when the test ends.)
    void manyRunsInOneWindow()
    {
        auto w = std::make_unique<MainWindow>();
        // 20 ms sounds with 0 to 10 ms of silence (shorter than the output's
        // latency, so sounds are overtaken too), one reversal, and a listener
        // who hears 50 % and not 39.7 %: two trials per run, each answered
        // 5 ms after the fourth sound.
        RunHarness harness(*w, 0.45, 5);
        QVector<double> reaction; // per run, the median of its trials
        const int runs = 200;
        for (int run = 1; run <= runs; ++run) {
            RandomSource::seed(424242);
            harness.begin({20, run % 11, 1, 1, QString()});
            {
                // A sound whose output never reported its end (the sanitizer
                // build on a busy machine) ends the run with a warning box.
                ModalCatcher boxes;
                boxes.answerSaveDialogs({});
                QVERIFY(harness.run(30000));
            }
            QVERIFY(RunHarness::closeParticipantWindow(*w));
            // Overtaken outputs go when they report the end of their sound.
            QVERIFY(RunHarness::waitUntil(
                [&] {
                    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                    return w->overtakenIntervals.isEmpty() && harness.liveOutputs() == 0 &&
                           harness.liveBuffers() == 0;
                },
                5000));
            QVector<double> reactionTimes;
            for (const TrialRecord &r : w->params.trials)
                reactionTimes << r.reactionTime;
            reaction << median(reactionTimes);
            QCOMPARE(reactionTimes.size(), 2);
        }

        qInfo("Reaction time of an answer 5 ms after the fourth sound: %.1f ms in run 1, %.1f "
              "ms in run %d.",
              reaction.first(), reaction.last(), runs);
        // Reaction times are whole ms, so one run's median jitters by 1 ms: the
        // first ten runs are compared with the last ten. Only growth is the
        // fault; the first runs of a fresh process may be slower.
        const auto drift = [](const QVector<double> &v) {
            return (std::accumulate(v.end() - 10, v.end(), 0.0) -
                    std::accumulate(v.begin(), v.begin() + 10, 0.0)) /
                   10;
        };
        qInfo("Last ten runs against the first ten: reaction time %+.2f ms.", drift(reaction));
        QVERIFY2(drift(reaction) < 1, "the reaction time grows");

        // Closing the window releases its participant windows with it.
        QPointer<SubjectWindow> newest = w->subjectWindow;
        w.reset();
        QVERIFY(newest.isNull());
    }

private:
    PulseServer server;
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    TestEndurance test;
    // Every participant window logs what the offscreen platform cannot do;
    // the summary at the end must not be cut off with those lines.
    return QTest::qExec(&test, app.arguments() << "-maxwarnings"
                                               << "0");
}
#include "tst_endurance.moc"
