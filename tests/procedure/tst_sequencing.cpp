#include "app/mainwindow.h"
#include "procedure/resultsfile.h"
#include "stimulus/randomsource.h"
#include "subject/subjectwindow.h"
#include "support/modalcatcher.h"
#include "support/savedialogfiller.h"
#include "support/simulatedparticipant.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace
{

// The simulated listener hears the deviant at tracked values of at least 20 %
// and answers 40 ms after the fourth sound. Sounds of 50 ms with 50 ms of
// silence make a trial last about half a second.
const double listenerThreshold = 0.2;
const int answerDelayMs = 40;
const std::uint64_t seed = 20240611;

QStringList *debugSink = nullptr;
QtMessageHandler previousHandler = nullptr;
void noteDebugLines(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtDebugMsg && debugSink)
        debugSink->append(text);
    previousHandler(type, context, text);
}

void shortSettings(MainWindow &w)
{
    w.lineEditDurationStd->setText("50");
    w.lineEditDurationDev->setText("50");
    w.lineEditSilentInterval->setText("50");
}

// Waits in a real event loop (QTRY_* would sleep between polls and delay the
// sounds) until the run has finished or the time is up.
bool waitForFinish(MainWindow &w, int timeoutMs)
{
    QSignalSpy done(&w, &MainWindow::doneDataCollection);
    QDeadlineTimer deadline(timeoutMs);
    while (done.isEmpty() && !deadline.hasExpired())
        done.wait(static_cast<int>(qMax<qint64>(1, deadline.remainingTime())));
    return !done.isEmpty();
}

// One run with the start-up settings but short sounds, answered by the
// simulated listener through updateMainwindow, as in the participant window.
// "Save data to file" is not set: a save dialog would be closed and noted.
struct SimulatedRun {
    MainWindow w;
    SimulatedParticipant participant{w, listenerThreshold, answerDelayMs};
    QSignalSpy done{&w, &MainWindow::doneDataCollection};
    QSignalSpy playing{&w, &MainWindow::soundPlaying};
    SaveDialogFiller noDialog{""};
    QStringList debugLines;
    bool finished;

    SimulatedRun()
    {
        shortSettings(w);
        RandomSource::seed(seed);
        w.on_pushButtonView_clicked();
        debugSink = &debugLines;
        participant.pressReady();
        finished = waitForFinish(w, 120000);
        debugSink = nullptr;
    }
};

const char *const childOption = "--simulated-run";

// The records of a run, one line each: value, stimulus position, response
// position, correctness, reaction time.
int printSimulatedRun()
{
    SimulatedRun run;
    std::printf("finished %d\n", run.participant.finished);
    for (const TrialRecord &r : run.w.params.trials)
        std::printf("%.17g %d %d %d %.17g\n", r.value, r.stimPosition, r.responsePosition,
                    r.correct ? 1 : 0, r.reactionTime);
    return 0;
}

// The values the staircase should present to this listener, worked out here
// from the rules: -1 dB steps after a correct answer and +2 dB after a wrong
// one, of 2 dB each until the second reversal and 1 dB after; depth at most 1;
// the run ends at the 14th reversal.
QVector<double> expectedValues(QVector<double> *reversals)
{
    QVector<double> values;
    double value = 0.5;
    int count = 0;
    bool previous = false;
    for (;;) {
        const bool correct = value >= listenerThreshold;
        values.append(value);
        if (values.size() > 1 && correct != previous) {
            reversals->append(value);
            if (++count == 14)
                return values;
        }
        previous = correct;
        const int size = count < 2 ? 2 : 1;
        value = std::min(1.0, value * std::pow(10.0, (correct ? -1 : 2) * size / 20.0));
    }
}

bool near(double a, double b)
{
    return std::fabs(a - b) <= 1e-12 * std::max(1.0, std::fabs(b));
}

} // namespace

class TestSequencing : public QObject
{
    Q_OBJECT

    QVector<TrialRecord> recordsWithAudio;

private slots:
    void initTestCase() { previousHandler = qInstallMessageHandler(noteDebugLines); }
    void cleanupTestCase() { qInstallMessageHandler(previousHandler); }

    // A whole run with real playback: the records, the staircase's course, the
    // reaction times, the end at the 14th reversal with one result and no
    // further sound, the trend points and the log lines.
    void wholeRun()
    {
        SimulatedRun run;
        QVERIFY(run.finished);
        const MainWindow &w = run.w;
        QVector<double> reversals;
        const QVector<double> values = expectedValues(&reversals);
        const QVector<TrialRecord> &trials = w.params.trials;
        QCOMPARE(trials.size(), values.size());
        QCOMPARE(w.params.trialCount, values.size());
        QCOMPARE(w.trendTrials.size(), trials.size());
        double reactionSum = 0;
        QStringList expectedLog{"Test just started"};
        for (int i = 0; i < trials.size(); ++i) {
            const TrialRecord &r = trials[i];
            QVERIFY2(near(r.value, values[i]), qPrintable(QString::number(i)));
            QVERIFY(r.stimPosition == 2 || r.stimPosition == 3);
            QCOMPARE(r.correct, values[i] >= listenerThreshold);
            QCOMPARE(r.responsePosition, r.correct ? r.stimPosition : 5 - r.stimPosition);
            // Whole ms counted from the end of sound 4: from the trial's start
            // it would be at least the four periods, 400 ms.
            QVERIFY2(r.reactionTime >= answerDelayMs && r.reactionTime <= answerDelayMs + 250 &&
                         r.reactionTime == std::floor(r.reactionTime),
                     qPrintable(QString::number(r.reactionTime)));
            reactionSum += r.reactionTime;
            expectedLog << QString("stimPosition: %1").arg(r.stimPosition)
                        << QString("response: %1").arg(r.responsePosition);
            QCOMPARE(w.trendTrials[i], double(i));
            QVERIFY(near(w.trendValues[i], 100 * values[i]));
        }
        QCOMPARE(run.debugLines, expectedLog);
        QCOMPARE(w.params.reversalCount, 14);
        double threshold = 0;
        for (int i = 0; i < 14; ++i) {
            QVERIFY(near(w.params.reversalValues[i], reversals[i]));
            threshold += i >= 6 ? reversals[i] / 8 : 0;
        }
        const QSignalSpy &done = run.done;
        QCOMPARE(done.size(), 1);
        QVERIFY(near(done[0][0].toDouble(), threshold));
        QVERIFY(near(done[0][1].toDouble(), reactionSum / trials.size()));
        QCOMPARE(done[0][2].toInt(), 1);
        QCOMPARE(done[0][3].toDouble(), 1000.0);

        // The answer that made the 14th reversal ended the run: every trial
        // played its four sounds, and nothing sounds afterwards.
        QCOMPARE(run.playing.size(), 5 * trials.size());
        QVERIFY(!w.soundTimer->isActive());
        QVERIFY(!run.playing.wait(600));
        QCOMPARE(done.size(), 1);
        QCOMPARE(run.participant.answers, trials.size());
        QCOMPARE(run.noDialog.dialogs + run.noDialog.otherBoxes.size(), 0);
        recordsWithAudio = trials;
    }

    // No audio server reachable: the same run (same seed, same listener) in a
    // child process completes and gives the same records.
    void sameRunWithoutAudioServer()
    {
        if (recordsWithAudio.isEmpty())
            QSKIP("needs the records of wholeRun");
        QTemporaryDir dir;
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PULSE_SERVER", "unix:" + dir.filePath("no-such-server"));
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(), {childOption});
        QVERIFY(child.waitForFinished(180000));
        QCOMPARE(child.exitCode(), 0);
        QList<QByteArray> lines = child.readAllStandardOutput().trimmed().split('\n');
        QCOMPARE(lines.takeFirst(), QByteArray("finished 1"));
        QCOMPARE(lines.size(), recordsWithAudio.size());
        for (int i = 0; i < lines.size(); ++i) {
            const QList<QByteArray> f = lines[i].split(' ');
            const TrialRecord &r = recordsWithAudio[i];
            QCOMPARE(f.size(), 5);
            QCOMPARE(f[0].toDouble(), r.value);
            QCOMPARE(f[1] + f[2] + f[3], QByteArray::number(r.stimPosition) +
                                             QByteArray::number(r.responsePosition) +
                                             (r.correct ? "1" : "0"));
            QVERIFY(f[4].toDouble() >= answerDelayMs && f[4].toDouble() <= answerDelayMs + 250);
        }
    }

    // Through Go and the participant window's buttons, with "Save data to
    // file" and a run of 6 reversals: the result line appears, then the save
    // dialog, and the file holds every trial.
    void endToEndThroughParticipantWindow()
    {
        QTemporaryDir dir;
        RandomSource::seed(seed);
        MainWindow w;
        shortSettings(w);
        w.lineEditNumReversals->setText("6");
        w.lineEditRevToCalc->setText("4");
        w.checkBoxSaveData->setChecked(true);
        w.lineEditFilePath->setText(dir.path());
        w.on_pushButtonView_clicked();
        w.on_pushButtonGo_clicked();
        SimulatedParticipant participant(w, listenerThreshold, answerDelayMs);
        QString resultShownBeforeSaving;
        const QString path = dir.filePath("results/run.txt");
        SaveDialogFiller filler(path);
        connect(&w, &MainWindow::doneDataCollection, this, [&] {
            if (w.subjectWindow->labelResult->isVisible())
                resultShownBeforeSaving = w.subjectWindow->labelResult->text();
        });
        participant.pressReady();
        QVERIFY(waitForFinish(w, 120000));
        QTRY_COMPARE(filler.dialogs, 1);

        const QVector<TrialRecord> &trials = w.params.trials;
        QCOMPARE(w.params.reversalCount, 6);
        QCOMPARE(participant.answers, trials.size());
        QCOMPARE(resultShownBeforeSaving,
                 QString("Modulation Threshold = %1 %,   Reaction Time = %2 ms")
                     .arg(100 * w.params.threshold)
                     .arg(w.params.reactionTime));
        // The file holds this run's table as the results-file writer makes it.
        QByteArray table;
        QTextStream out(&table);
        ResultsFile::write(out, trials, 1, 1000.0);
        out.flush();
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), table);
        QVERIFY(filler.otherBoxes.isEmpty());
    }

    void invalidCodes_data()
    {
        QTest::addColumn<int>("code");
        QTest::newRow("5") << 5;
        QTest::newRow("-1") << -1;
        QTest::newRow("100") << 100;
    }

    // A code no button sends: the warning, nothing recorded, no sound, and
    // only the interval count reset.
    void invalidCodes()
    {
        QFETCH(int, code);
        MainWindow w;
        w.params.trialCount = 3;
        w.sequenceIndex = 2;
        ModalCatcher catcher;
        catcher.arm(QMessageBox::Ok);
        w.updateMainwindow(code);
        catcher.verifyShown();
        QCOMPARE(catcher.boxes.size(), 1);
        QCOMPARE(catcher.boxes[0].title + ": " + catcher.boxes[0].text,
                 QString("Warning: Invalid response"));
        QVERIFY(w.params.trials.isEmpty() && w.trendValues.isEmpty());
        QCOMPARE(w.params.trialCount, 3);
        QCOMPARE(w.sequenceIndex, 0);
        QVERIFY(!w.soundTimer->isActive());
    }

    // Codes 1 and 4 come from no button but are scored: always wrong. The next
    // trial starts on a precise timer whose period is the longer sound and the
    // silent interval.
    void outerCodesAreRecordedAsWrong()
    {
        MainWindow w;
        w.lineEditDurationDev->setText("800");
        w.on_pushButtonView_clicked();
        w.params.stimPosition = 2;
        w.params.trialCount = 1;
        w.updateMainwindow(4);
        QCOMPARE(w.params.trials.size(), 1);
        const TrialRecord &r = w.params.trials[0];
        QVERIFY(r.responsePosition == 4 && !r.correct && r.value == 0.5);
        QCOMPARE(r.reactionTime, 0.0); // no trial has ended: no clock yet
        QCOMPARE(w.params.trialCount, 2);
        QVERIFY(w.soundTimer->isActive());
        QCOMPARE(w.soundTimer->interval(), 1800);
        QCOMPARE(w.soundTimer->timerType(), Qt::PreciseTimer);
        w.soundTimer->stop();
    }

    void noReversalsStartsNoSound()
    {
        MainWindow w;
        w.on_pushButtonView_clicked();
        w.params.numberOfReversals = 0;
        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        w.updateMainwindow(0);
        QCOMPARE(w.params.trialCount, 1);
        QVERIFY(!w.soundTimer->isActive());
        QVERIFY(!playing.wait(300));
    }

    // Over many trials the deviant is sound 2 or 3, never 1 or 4, each about
    // half the time, with exactly one flag set. (randomInteger is used for
    // this range only.)
    void deviantPlaceIsTwoOrThree()
    {
        MainWindow w;
        int twos = 0;
        for (int i = 0; i < 1000; ++i) {
            w.chooseStimPosition();
            const int s = w.params.stimPosition;
            QVERIFY(s == 2 || s == 3);
            QVERIFY(w.deviantFlags.count(true) == 1 && w.deviantFlags[s - 1]);
            twos += s == 2;
        }
        // Binomial(1000, 0.5): the standard deviation is about 16.
        QVERIFY2(std::abs(twos - 500) < 80, qPrintable(QString::number(twos)));
    }

    // min above max: the warning, min returned and nothing drawn from the
    // source, so the noise and positions that follow are unchanged.
    void minAboveMaxWarns()
    {
        MainWindow w;
        RandomSource::seed(7);
        const int expectedNext = RandomSource::next();
        RandomSource::seed(7);
        ModalCatcher catcher;
        catcher.arm(QMessageBox::Ok);
        QCOMPARE(w.randomInteger(3, 2), 3);
        catcher.verifyShown();
        QCOMPARE(catcher.boxes[0].title + ": " + catcher.boxes[0].text,
                 QString("Warning: min cannot be larger than max"));
        QCOMPARE(RandomSource::next(), expectedNext);
    }
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc > 1 && QByteArray(argv[1]) == childOption)
        return printSimulatedRun();
    TestSequencing test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sequencing.moc"
