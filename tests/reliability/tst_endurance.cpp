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
    // and neither the reaction time nor the light of a sound drifts. (The
    // sanitizer build's leak checker looks for leaks when the test ends.)
    void manyRunsInOneWindow()
    {
        auto w = std::make_unique<MainWindow>();
        // 20 ms sounds with 0 to 10 ms of silence (shorter than the output's
        // latency, so sounds are overtaken too), one reversal, and a listener
        // who hears 50 % and not 39.7 %: two trials per run, each answered
        // 5 ms after the fourth sound.
        RunHarness harness(*w, 0.45, 5);
        // From soundPlaying(k) to the newest participant window's light: one
        // receiver connected before any participant window, one after the
        // newest; between them run all the windows' slots.
        qint64 emittedNs = 0;
        QVector<double> lightMs;
        connect(w.get(), &MainWindow::soundPlaying, this,
                [&] { emittedNs = PulseServer::nowNs(); });
        QMetaObject::Connection afterNewest;
        QVector<double> reaction, light; // per run, the medians of its trials and lights
        const int runs = 200;
        for (int run = 1; run <= runs; ++run) {
            RandomSource::seed(424242);
            harness.begin({20, run % 11, 1, 1, QString()});
            disconnect(afterNewest);
            lightMs.clear();
            afterNewest = connect(w.get(), &MainWindow::soundPlaying, this, [&](int index) {
                if (index > 0)
                    lightMs.append((PulseServer::nowNs() - emittedNs) / 1e6);
            });
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
            light << median(lightMs);
            QCOMPARE(reactionTimes.size(), 2);
        }

        qInfo("Reaction time of an answer 5 ms after the fourth sound: %.1f ms in run 1, %.1f "
              "ms in run %d. From a sound to the light: %.3f ms, then %.3f ms.",
              reaction.first(), reaction.last(), runs, light.first(), light.last());
        // Reaction times are whole ms, so one run's median jitters by 1 ms: the
        // first ten runs are compared with the last ten. Only growth is the
        // fault; the first runs of a fresh process may be slower.
        const auto drift = [](const QVector<double> &v) {
            return (std::accumulate(v.end() - 10, v.end(), 0.0) -
                    std::accumulate(v.begin(), v.begin() + 10, 0.0)) /
                   10;
        };
        qInfo("Last ten runs against the first ten: reaction time %+.2f ms, light %+.3f ms.",
              drift(reaction), drift(light));
        QVERIFY2(drift(reaction) < 1, "the reaction time grows");
        QVERIFY2(drift(light) < 1, "the light comes later");

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
