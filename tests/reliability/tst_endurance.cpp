#include "playbackwatch.h"
#include "pulsedaemon.h"
#include "runharness.h"
#include "stimulus/randomsource.h"
#include "support/savedialogfiller.h"
#include "support/simulatedparticipant.h"

#include <QAudioOutput>
#include <QBackingStore>
#include <QBuffer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <memory>

using namespace RunHarness;

namespace
{

// 20 ms sounds with 0 to 10 ms of silence (the silence shorter than the
// output's latency, so the sounds overlap and the overtaken intervals are
// exercised too), one reversal: the listener hears 50 % and not 39.7 %, so
// every run has two trials.
const int soundMs = 20;
const double listenerThreshold = 0.45;
const int answerDelayMs = 5;
const std::uint64_t seed = 424242;
// Every this many runs the results are saved as well.
const int saveEvery = 25;

int runCount()
{
    const int runs = qEnvironmentVariableIntValue("VELTRANE_ENDURANCE_RUNS");
    return runs > 0 ? runs : 200;
}

// Resident memory of this process in kB, from /proc/self/status.
qint64 residentKb()
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

// The window's descendants, leaving out the participant windows (one per Go,
// kept hidden until the window goes) and what they hold.
int ownObjects(const QObject *object)
{
    int count = 0;
    for (const QObject *child : object->children()) {
        if (qobject_cast<const SubjectWindow *>(child))
            continue;
        count += 1 + ownObjects(child);
    }
    return count;
}

struct RunNote {
    QVector<TrialRecord> trials;
    QVector<double> standard;
    QVector<double> deviant;
    qint64 durationMs = 0; // "I am ready" to the result
};

// Two hundred runs log thousands of lines; only warnings that say something
// about the program are let through (the offscreen platform's notes on what it
// cannot do, and the debug lines of every trial, are dropped).
QtMessageHandler defaultHandler = nullptr;
void quietHandler(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtDebugMsg || text.startsWith("This plugin does not support"))
        return;
    defaultHandler(type, context, text);
}

#if defined(__SANITIZE_ADDRESS__)
const bool sanitized = true;
#else
const bool sanitized = false;
#endif

} // namespace

class TestEndurance : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QString problem;
        if (!daemon.start(&problem))
            QSKIP(qPrintable("no private PulseAudio daemon: " + problem));
        defaultHandler = qInstallMessageHandler(quietHandler);
    }

    void cleanupTestCase() { qInstallMessageHandler(defaultHandler); }

    // View, Go, a run answered through the participant window, and closing
    // it, again and again in one window. Between runs no output, buffer or
    // byte array of an interval is left, the window holds the same objects
    // and timers as after the first run, and the resident memory grows only
    // by what the kept participant windows take. The last run plays the same
    // sounds and gives the same records as the first.
    void manyRunsInOneWindow()
    {
        const int runs = runCount();
        QTemporaryDir dir;
        auto w = std::make_unique<MainWindow>();
        SimulatedParticipant participant(*w, listenerThreshold, answerDelayMs);
        PlaybackWatch watch(*w);
        // How long the window takes to tell its participant windows that a
        // sound started: from a receiver connected before any of them to one
        // connected after the newest.
        QElapsedTimer emitClock;
        qint64 emitStartNs = 0;
        qint64 emitSumNs = 0;
        int emits = 0;
        QVector<double> emitCostMs;
        connect(w.get(), &MainWindow::soundPlaying, this,
                [&] { emitStartNs = emitClock.nsecsElapsed(); });
        QMetaObject::Connection emitEnd;
        emitClock.start();
        QVector<RunNote> notes;
        int objectsAfterFirst = -1;
        int timersAfterFirst = -1;
        qint64 residentAtWarmUp = -1;
        // Resident memory is measured from the run after the first save on:
        // the first save dialog loads the file system model once, some MB.
        const int warmUp = qMin(saveEvery, runs - 1);
        qint64 backingStoreKb = 0;
        qint64 residentAtEnd = -1;
        int saved = 0;

        for (int run = 0; run < runs; ++run) {
            const QString where = QString("run %1").arg(run + 1);
            RandomSource::seed(seed);
            ShortSession session;
            session.soundMs = soundMs;
            session.silentMs = run % 11;
            session.reversals = 1;
            session.reversalsToCalculate = 1;
            const bool save = (run + 1) % saveEvery == 0;
            if (save)
                session.folder = dir.path();
            typeSession(*w, session);
            w->on_pushButtonView_clicked();
            w->on_pushButtonGo_clicked();
            QVERIFY2(w->subjectWindow && w->subjectWindow->isVisible(), qPrintable(where));
            disconnect(emitEnd);
            emitEnd = connect(w.get(), &MainWindow::soundPlaying, this, [&] {
                emitSumNs += emitClock.nsecsElapsed() - emitStartNs;
                ++emits;
            });
            emitSumNs = 0;
            emits = 0;
            std::unique_ptr<SaveDialogFiller> filler;
            const QString savedPath = dir.filePath(QString("run%1.txt").arg(run + 1));
            if (save)
                filler = std::make_unique<SaveDialogFiller>(savedPath);

            const int finishedBefore = participant.finished;
            QElapsedTimer clock;
            clock.start();
            participant.pressReady();
            QVERIFY2(waitUntil([&] { return participant.finished == finishedBefore + 1; }, 30000),
                     qPrintable(where + ": the run did not finish"));
            const qint64 durationMs = clock.elapsed();
            if (save) {
                QVERIFY2(waitUntil([&] { return filler->dialogs == 1; }, 5000), qPrintable(where));
                filler.reset();
                QVERIFY2(QFile::exists(savedPath), qPrintable(where));
                ++saved;
            }
            if (QBackingStore *store = w->subjectWindow->backingStore())
                backingStoreKb = 4LL * store->size().width() * store->size().height() / 1024;
            QVERIFY2(closeParticipantWindow(*w), qPrintable(where));
            QVERIFY2(w->isEnabled() && w->pushButtonView->isEnabled() &&
                         !w->pushButtonGo->isEnabled(),
                     qPrintable(where));

            // Overtaken intervals are released when their output reports the
            // end of its sound, shortly after the run; then nothing is left.
            QVERIFY2(waitUntil(
                         [&] {
                             QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                             return w->overtakenIntervals.isEmpty() && watch.liveOutputs() == 0 &&
                                    watch.liveBuffers() == 0;
                         },
                         5000),
                     qPrintable(where + QString(": %1 outputs and %2 buffers left")
                                            .arg(watch.liveOutputs())
                                            .arg(watch.liveBuffers())));
            QVERIFY2(!w->audioOutput && !w->audioBuffer && !w->audioBytes, qPrintable(where));
            QVERIFY2(!w->soundTimer->isActive() && !w->intervalTimer->isActive(),
                     qPrintable(where));
            QCOMPARE(w->findChildren<QAudioOutput *>().size(), 0);
            QCOMPARE(w->findChildren<SubjectWindow *>(QString(), Qt::FindDirectChildrenOnly).size(),
                     run + 1);
            const int objects = ownObjects(w.get());
            int timers = 0;
            for (const QTimer *timer : w->findChildren<QTimer *>())
                timers += qobject_cast<const SubjectWindow *>(timer->parent()) ? 0 : 1;
            if (run == 0) {
                objectsAfterFirst = objects;
                timersAfterFirst = timers;
            }
            QVERIFY2(objects == objectsAfterFirst && timers == timersAfterFirst,
                     qPrintable(QString("%1: %2 objects and %3 timers, %4 and %5 after the first")
                                    .arg(where)
                                    .arg(objects)
                                    .arg(timers)
                                    .arg(objectsAfterFirst)
                                    .arg(timersAfterFirst)));

            emitCostMs.append(emits ? emitSumNs / 1e6 / emits : 0.0);
            notes.append({w->params.trials, w->standardSound, w->deviantSound, durationMs});
            if (run == warmUp)
                residentAtWarmUp = residentKb();
        }
        residentAtEnd = residentKb();

        // The last run behaves like the first.
        const RunNote &first = notes.first();
        const RunNote &last = notes.last();
        QCOMPARE(first.trials.size(), 2);
        QCOMPARE(last.trials.size(), first.trials.size());
        for (int i = 0; i < first.trials.size(); ++i) {
            QCOMPARE(last.trials[i].value, first.trials[i].value);
            QCOMPARE(last.trials[i].stimPosition, first.trials[i].stimPosition);
            QCOMPARE(last.trials[i].responsePosition, first.trials[i].responsePosition);
            QCOMPARE(last.trials[i].correct, first.trials[i].correct);
        }
        QCOMPARE(last.standard, first.standard);
        QCOMPARE(last.deviant, first.deviant);
        QCOMPARE(watch.intervals.size(), 4 * 2 * runs);
        QCOMPARE(saved, runs / saveEvery);

        // Means over the first and the last ten runs: how long a run took,
        // the reaction time recorded for the same answer (the listener always
        // answers answerDelayMs after the end of the fourth sound), and how
        // long the window took to tell the participant windows of a sound.
        const int span = qMin(10, runs);
        auto mean = [&](int from, const std::function<double(int)> &of) {
            double sum = 0;
            for (int i = from; i < from + span; ++i)
                sum += of(i);
            return sum / span;
        };
        auto duration = [&](int i) { return static_cast<double>(notes[i].durationMs); };
        auto reaction = [&](int i) {
            double sum = 0;
            for (const TrialRecord &r : notes[i].trials)
                sum += r.reactionTime;
            return sum / notes[i].trials.size();
        };
        auto telling = [&](int i) { return emitCostMs[i]; };
        const int lastSpan = runs - span;
        const double growthKb =
            static_cast<double>(residentAtEnd - residentAtWarmUp) / qMax(1, runs - 1 - warmUp);
        qInfo().noquote() << QString("%1 runs completed (%2 saved). Resident memory %3 kB after "
                                     "run %4, %5 kB after run %6: %7 kB per run, of which %8 kB "
                                     "is the image of the participant window kept hidden.")
                                 .arg(runs)
                                 .arg(saved)
                                 .arg(residentAtWarmUp)
                                 .arg(warmUp + 1)
                                 .arg(residentAtEnd)
                                 .arg(runs)
                                 .arg(growthKb, 0, 'f', 1)
                                 .arg(backingStoreKb);
        qInfo().noquote() << QString("First and last %1 runs: run %2 / %3 ms; recorded reaction "
                                     "time for an answer %4 ms after the sound %5 / %6 ms; "
                                     "telling the participant windows of a sound %7 / %8 ms.")
                                 .arg(span)
                                 .arg(mean(0, duration), 0, 'f', 0)
                                 .arg(mean(lastSpan, duration), 0, 'f', 0)
                                 .arg(answerDelayMs)
                                 .arg(mean(0, reaction), 0, 'f', 1)
                                 .arg(mean(lastSpan, reaction), 0, 'f', 1)
                                 .arg(mean(0, telling), 0, 'f', 2)
                                 .arg(mean(lastSpan, telling), 0, 'f', 2);

        // Every participant window made by a Go stays connected to the
        // window's signals, so each sound is also shown in every hidden one,
        // and the newest, which the participant uses, is told last. The
        // reaction-time clock starts before that, so after many runs in one
        // window the recorded reaction times include that work.
        if (runs >= 100)
            QEXPECT_FAIL("", "hidden participant windows still handle every sound", Continue);
        QVERIFY2(
            mean(lastSpan, reaction) - mean(0, reaction) < 10,
            qPrintable(
                QString("%1 ms, then %2 ms").arg(mean(0, reaction)).arg(mean(lastSpan, reaction))));
        // Nothing grows that would make a run hang or crawl.
        QVERIFY2(
            mean(lastSpan, duration) < 5 * mean(0, duration) + 500,
            qPrintable(
                QString("%1 ms, then %2 ms").arg(mean(0, duration)).arg(mean(lastSpan, duration))));

        // Each Go leaves its participant window alive and hidden, as the
        // program keeps them until the experimenter window goes; the window
        // keeps the image it was drawn into, and its widgets take some tens
        // of kilobytes more. Growth beyond that would be sounds, charts or
        // outputs piling up. A sanitized build keeps freed memory in
        // quarantine, so its resident size says nothing about leaks; its leak
        // checker does instead.
        if (!sanitized)
            QVERIFY2(growthKb < backingStoreKb + 150,
                     qPrintable(QString("%1 kB per run").arg(growthKb)));

        // Closing the window releases the participant windows with it.
        QPointer<SubjectWindow> lastParticipantWindow = w->subjectWindow;
        w.reset();
        QVERIFY(lastParticipantWindow.isNull());
    }

private:
    PulseDaemon daemon;
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    // Two hundred runs in the sanitizer build on a busy machine can take
    // longer than the test library's default limit for one test function.
    if (!qEnvironmentVariableIsSet("QTEST_FUNCTION_TIMEOUT"))
        qputenv("QTEST_FUNCTION_TIMEOUT", "840000");
    TestEndurance test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_endurance.moc"
