#include "playbackwatch.h"
#include "pulsedaemon.h"
#include "runharness.h"
#include "support/savedialogfiller.h"
#include "support/simulatedparticipant.h"

#include <QAudioOutput>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <memory>
#include <random>

using namespace RunHarness;

namespace
{

// Sounds of 150 ms with 50 ms of silence: long enough to break one in its
// middle, short enough for a run of a few seconds. The listener hears depths
// of 30 % and more and answers 20 ms after the fourth sound; from 50 % the run
// of two reversals has five trials.
const int soundMs = 150;
const int silentMs = 50;
const double listenerThreshold = 0.3;
const int answerDelayMs = 20;
const int expectedTrials = 5;

// An interval whose output stops with an error or never reports anything ends
// this long after its sound's duration; one whose output still claims to be
// playing is given up to activeLimitMs. Slack covers a loaded machine and the
// sanitizer build.
const int marginMs = 500;
const int activeLimitMs = 3000;
const int slackMs = 300;

const char *const childOption = "--run-without-server";

// One run through Go and the participant window with "Save data to file"
// checked, answered by the simulated listener; the save dialog is given
// `folder`/run.txt.
class FaultRun
{
public:
    explicit FaultRun(const QString &folder) : savedPath(folder + "/run.txt")
    {
        ShortSession session;
        session.soundMs = soundMs;
        session.silentMs = silentMs;
        session.reversals = 2;
        session.reversalsToCalculate = 2;
        session.folder = folder;
        typeSession(window, session);
        window.on_pushButtonView_clicked();
        window.on_pushButtonGo_clicked();
        participant =
            std::make_unique<SimulatedParticipant>(window, listenerThreshold, answerDelayMs);
        watch = std::make_unique<PlaybackWatch>(window);
        filler = std::make_unique<SaveDialogFiller>(savedPath);
    }

    // Runs to the saved file; false when it did not get there in time.
    bool run(int timeoutMs)
    {
        participant->pressReady();
        const bool saved = waitUntil(
            [this] { return participant->finished == 1 && filler->dialogs == 1; }, timeoutMs);
        filler.reset();
        return saved;
    }

    MainWindow window;
    QString savedPath;
    std::unique_ptr<SimulatedParticipant> participant;
    std::unique_ptr<PlaybackWatch> watch;
    std::unique_ptr<SaveDialogFiller> filler;
};

QByteArray fileContents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The records the listener's answers make, checked against the rule it
// answers by, and the saved file against the records: a header and one line
// per answer.
void checkAnswersTakenAndSaved(const QVector<TrialRecord> &trials, const QByteArray &saved)
{
    QCOMPARE(trials.size(), expectedTrials);
    for (const TrialRecord &r : trials) {
        QCOMPARE(r.correct, r.value >= listenerThreshold);
        QCOMPARE(r.responsePosition, r.correct ? r.stimPosition : 5 - r.stimPosition);
        QVERIFY(r.reactionTime >= answerDelayMs);
    }
    const QList<QByteArray> lines = saved.split('\n');
    QCOMPARE(lines.size(), trials.size() + 2); // header, trials, nothing after the last CR LF
    QVERIFY(lines[0].startsWith("modulation depth (%)\t"));
    for (int i = 0; i < trials.size(); ++i)
        QVERIFY(lines[i + 1].startsWith(QByteArray::number(100 * trials[i].value, 'f', 6) + "\t" +
                                        QByteArray::number(trials[i].stimPosition) + "\t"));
}

// Every trial played four intervals and ended; no trial waited for an output
// longer than the margin (or, for one that kept claiming to play, the limit)
// and none ended before its last sound's duration.
void checkIntervalsEnded(const PlaybackWatch &watch, int trials)
{
    QCOMPARE(watch.intervals.size(), 4 * trials);
    QCOMPARE(watch.trialEndMs.size(), trials);
    for (int t = 0; t < trials; ++t) {
        const PlaybackWatch::Interval &last = watch.intervals[4 * t + 3];
        QCOMPARE(last.index, 4);
        const qint64 lasted = watch.trialEndMs[t] - last.startMs;
        const bool reported = last.idle || last.stoppedWithError;
        const int allowed = soundMs + (reported ? marginMs : activeLimitMs);
        QVERIFY2(lasted >= soundMs - 5 && lasted <= allowed + slackMs,
                 qPrintable(
                     QString("trial %1: the fourth interval lasted %2 ms").arg(t + 1).arg(lasted)));
    }
}

// Whether an output of the first two trials stopped with an error. The fault
// is meant to hit a sound in its middle; on a busy machine it may come a
// little later and hit the next one.
bool someStoppedWithError(const PlaybackWatch &watch)
{
    return std::any_of(watch.intervals.begin(), watch.intervals.begin() + 8,
                       [](const PlaybackWatch::Interval &i) { return i.stoppedWithError; });
}

// Child process: the same run with PULSE_SERVER pointing at a socket that does
// not exist. Prints the records and the saved file's size.
int runWithoutServer(const QString &folder)
{
    WarningLog log;
    FaultRun run(folder);
    const bool saved = run.run(60000);
    const bool closed = closeParticipantWindow(run.window);
    std::printf("saved %d closed %d answers %d\n", saved ? 1 : 0, closed ? 1 : 0,
                run.participant->answers);
    for (const TrialRecord &r : run.window.params.trials)
        std::printf("%.17g %d %d %d %.17g\n", r.value, r.stimPosition, r.responsePosition,
                    r.correct ? 1 : 0, r.reactionTime);
    for (int t = 0; t < run.watch->trialEndMs.size(); ++t)
        std::printf("lasted %lld\n",
                    run.watch->trialEndMs[t] - run.watch->intervals.value(4 * t + 3).startMs);
    return 0;
}

} // namespace

class TestAudioFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QString problem;
        if (!daemon.start(&problem))
            QSKIP(qPrintable("no private PulseAudio daemon: " + problem));
    }

    // The server is killed 100 ms into the second sound of the first trial and
    // started again half a second later. The sounding output stops with an
    // error, the outputs made while the server is away stop with one too, and
    // each of those intervals ends by its margin; the program's audio comes
    // back with the server, and the run goes on to its end and is saved.
    void serverKilledMidIntervalAndStartedAgain()
    {
        WarningLog log;
        QTemporaryDir dir;
        FaultRun run(dir.path());
        connect(&run.window, &MainWindow::soundPlaying, this, [&](int index) {
            if (run.watch->trials == 1 && index == 2)
                QTimer::singleShot(100, this, [&] {
                    daemon.kill();
                    QTimer::singleShot(500, this, [&] { daemon.restart(); });
                });
        });
        QVERIFY(run.run(60000));
        QVERIFY(closeParticipantWindow(run.window));

        const PlaybackWatch &watch = *run.watch;
        QVERIFY2(someStoppedWithError(watch), "no output saw the fault");
        QVERIFY(log.warnings.contains("Audio stopped unexpectedly"));
        checkIntervalsEnded(watch, run.window.params.trials.size());
        if (QTest::currentTestFailed())
            return;
        checkAnswersTakenAndSaved(run.window.params.trials, fileContents(run.savedPath));
        if (QTest::currentTestFailed())
            return;
        // The toolkit reconnects 3 s after it lost the server: the last trial
        // plays every sound to its end through the restarted daemon.
        for (int i = watch.intervals.size() - 4; i < watch.intervals.size(); ++i)
            QVERIFY2(watch.intervals[i].idle, qPrintable(QString("interval %1").arg(i + 1)));
    }

    // The server drops the program's connection in the middle of a sound and
    // takes new ones again 300 ms later while it keeps running: the output
    // stops with an error, and the run carries on as above.
    void outputStopsWithError()
    {
        WarningLog log;
        QTemporaryDir dir;
        FaultRun run(dir.path());
        connect(&run.window, &MainWindow::soundPlaying, this, [&](int index) {
            if (run.watch->trials == 1 && index == 3)
                QTimer::singleShot(30, this, [&] { daemon.dropClients(300); });
        });
        QVERIFY(run.run(60000));
        QVERIFY(closeParticipantWindow(run.window));

        const PlaybackWatch &watch = *run.watch;
        QVERIFY2(someStoppedWithError(watch), "no output saw the fault");
        QVERIFY(log.warnings.contains("Audio stopped unexpectedly"));
        checkIntervalsEnded(watch, run.window.params.trials.size());
        if (QTest::currentTestFailed())
            return;
        checkAnswersTakenAndSaved(run.window.params.trials, fileContents(run.savedPath));
        for (int i = watch.intervals.size() - 4; i < watch.intervals.size(); ++i)
            QVERIFY2(watch.intervals[i].idle, qPrintable(QString("interval %1").arg(i + 1)));
    }

    // The sound card goes away in the middle of the fourth sound and comes
    // back 700 ms later. The toolkit's output is left claiming to play a
    // stream the server has ended, and reports nothing more: the trial ends at
    // the limit given to a playing output, and the run goes on.
    void soundCardUnpluggedAndPluggedIn()
    {
        WarningLog log;
        QTemporaryDir dir;
        FaultRun run(dir.path());
        connect(&run.window, &MainWindow::soundPlaying, this, [&](int index) {
            if (run.watch->trials == 1 && index == 4)
                QTimer::singleShot(20, this, [&] { daemon.unplugSink(700); });
        });
        QVERIFY(run.run(60000));
        QVERIFY(closeParticipantWindow(run.window));

        const PlaybackWatch &watch = *run.watch;
        // The server takes a few tens of milliseconds to act, so the sound cut
        // may be the fourth of the first trial or one of the next trial.
        QVERIFY2(std::any_of(watch.intervals.begin(), watch.intervals.begin() + 8,
                             [](const PlaybackWatch::Interval &i) { return !i.idle; }),
                 "every sound played to its end");
        checkIntervalsEnded(watch, run.window.params.trials.size());
        if (QTest::currentTestFailed())
            return;
        checkAnswersTakenAndSaved(run.window.params.trials, fileContents(run.savedPath));
        for (int i = watch.intervals.size() - 4; i < watch.intervals.size(); ++i)
            QVERIFY2(watch.intervals[i].idle, qPrintable(QString("interval %1").arg(i + 1)));
    }

    // The experimenter window closed (Quit, or the end of the program) while
    // sounds play, for example those of a run whose participant window was
    // closed in the middle of a trial: the outputs are released without
    // crashing, at any moment of their sound.
    void windowClosedWhileSoundsPlay()
    {
        std::mt19937 random(7);
        for (int i = 0; i < 60; ++i) {
            auto w = std::make_unique<MainWindow>();
            ShortSession session;
            session.soundMs = 400;
            session.silentMs = 0;
            typeSession(*w, session);
            w->on_pushButtonView_clicked();
            w->playOneSound();
            // Half of the time a second sound overtakes the first.
            if (i % 2)
                w->playOneSound();
            const int ms = std::uniform_int_distribution<int>(0, 60)(random);
            waitUntil([] { return false; }, ms);
            QPointer<QAudioOutput> output = w->audioOutput;
            w.reset();
            QVERIFY(output.isNull());
        }
    }

    // No audio server at all, in a child process: every interval ends by its
    // margin, the answers are taken and the file is saved.
    void noServerAtAll()
    {
        QTemporaryDir dir;
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PULSE_SERVER", "unix:" + dir.filePath("no-such-server"));
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(), {childOption, dir.path()});
        QVERIFY(child.waitForFinished(120000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        QList<QByteArray> lines = child.readAllStandardOutput().trimmed().split('\n');
        QCOMPARE(lines.takeFirst(), QByteArray("saved 1 closed 1 answers 5"));
        QVector<TrialRecord> trials;
        for (const QByteArray &line : lines) {
            const QList<QByteArray> f = line.split(' ');
            if (f[0] == "lasted") {
                // No output reports anything: the margin ends the fourth interval.
                QVERIFY2(f[1].toInt() >= soundMs + marginMs - 5 &&
                             f[1].toInt() <= soundMs + marginMs + slackMs,
                         line.constData());
            } else if (f.size() == 5) {
                trials.append({f[0].toDouble(), f[1].toInt(), f[2].toInt(), f[3].toInt() == 1,
                               f[4].toDouble()});
            }
        }
        checkAnswersTakenAndSaved(trials, fileContents(dir.filePath("run.txt")));
    }

private:
    PulseDaemon daemon;
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc > 2 && QByteArray(argv[1]) == childOption)
        return runWithoutServer(QString::fromLocal8Bit(argv[2]));
    TestAudioFaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_audiofaults.moc"
