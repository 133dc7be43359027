#include "stimulus/randomsource.h"
#include "support/runharness.h"

#include <QLabel>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace
{

// The simulated listener hears depths of 20 % and more and answers 40 ms
// after the fourth sound; sounds of 50 ms with 200 ms of silence make a period
// of 250 ms. From 50 % a run of six reversals has thirteen trials.
const double hearsFrom = 0.2;
const int answerMs = 40;
const int periodMs = 250;
const int reversals = 6;
const int reversalsToCalculate = 4;
const int capturedTrials = 3;

// The wire format built independently of the program: each double rounded to
// a float by the compiler, in the host's (little-endian) byte order.
QByteArray floatBytes(const QVector<double> &samples)
{
    const QVector<float> floats(samples.begin(), samples.end());
    return QByteArray(reinterpret_cast<const char *>(floats.constData()), floats.size() * 4);
}

// The depths the staircase should present to this listener, from the rules:
// -1 dB steps after a correct answer and +2 dB after a wrong one, of 2 dB each
// until the second reversal and 1 dB after, at most 1; the values at the
// reversals go into `atReversals`.
QVector<double> expectedDepths(QVector<double> *atReversals)
{
    QVector<double> depths;
    for (double depth = 0.5;;) {
        const bool correct = depth >= hearsFrom;
        if (!depths.isEmpty() && correct != (depths.last() >= hearsFrom))
            atReversals->append(depth);
        depths.append(depth);
        if (atReversals->size() == reversals)
            return depths;
        const int dB = (correct ? -1 : 2) * (atReversals->size() < 2 ? 2 : 1);
        depth = std::min(1.0, depth * std::pow(10.0, dB / 20.0));
    }
}

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

class TestWholeRun : public QObject
{
    Q_OBJECT

    PulseServer server;
    bool captures = false;
    QString problem;

private slots:
    void initTestCase() { captures = server.start(&problem, PulseServer::Sink::Pipe); }

    // View, Go, "I am ready" and answers through the participant window; the
    // sounds read back from the sink, the records, the log, the result shown
    // and the file saved through the save dialog.
    void wholeRun()
    {
        if (!captures)
            QSKIP(qPrintable(problem));
        QTemporaryDir dir;
        const QString path = dir.filePath("run.txt");
        RandomSource::seed(20240611);
        MainWindow w;
        RunHarness run(w, hearsFrom, answerMs, &server);
        ShortSession session{50, periodMs - 50, reversals, reversalsToCalculate, dir.path()};
        run.begin(session);
        auto saver = std::make_unique<ModalCatcher>();
        saver->answerSaveDialogs({path});
        QVERIFY(run.run(120000));
        QVERIFY(RunHarness::waitUntil([&] { return saver->saveDialogs.size() == 1; }, 5000));
        QVERIFY(saver->boxes.isEmpty());
        saver.reset();

        // The records are checked through the file they are saved to, which
        // is built here from the expected depths and the simulated answers.
        QVector<double> atReversals;
        const QVector<double> depths = expectedDepths(&atReversals);
        const QVector<TrialRecord> &records = w.params.trials;
        QCOMPARE(records.size(), depths.size());
        QCOMPARE(run.trials.size(), depths.size());
        const QByteArray captured = server.captured();
        QStringList log{"Test just started"};
        QByteArray file = "modulation depth (%)\tstimulus position\tresponse position\t"
                          "correctness\treaction time (ms)\r\n";
        QVector<double> iois, endToClock;
        double reactionSum = 0;
        int deviantIsSound2 = 0;
        for (int t = 0; t < records.size(); ++t) {
            const RunHarness::Trial &trial = run.trials[t];
            const int stim = trial.stimPosition;
            const bool correct = depths[t] >= hearsFrom;
            const double reactionTime = records[t].reactionTime;
            // Whole ms from the end of sound 4; from the trial's start it would be 400 ms more.
            QVERIFY(reactionTime >= answerMs && reactionTime <= answerMs + 250 &&
                    reactionTime == std::floor(reactionTime));
            QVERIFY(stim == 2 || stim == 3);
            QCOMPARE(w.trendTrials.value(t), double(t));
            QVERIFY(std::fabs(w.trendValues.value(t) - 100 * depths[t]) < 1e-9);
            reactionSum += reactionTime;
            deviantIsSound2 += stim == 2;
            const int response = correct ? stim : 5 - stim;
            log << QString("stimPosition: %1").arg(stim) << QString("response: %1").arg(response);
            file += QString::number(100 * depths[t], 'f', 6).toLatin1() + '\t' + char('0' + stim) +
                    '\t' + char('0' + response) + '\t' + (correct ? '1' : '0') + '\t' +
                    QByteArray::number(reactionTime, 'g', 6) + "\r\n";

            // In the first trials, each interval carries its sound bit for
            // bit, the deviant in the place stimPosition names, with only
            // silence before it; the reaction clock starts once the last
            // sample has come out (2 ms sink blocks and a late capture thread
            // allow a few ms before). (A sound server starved on a loaded
            // machine may play two streams at once, so not every trial of the
            // run is compared.)
            QVERIFY(trial.standard != trial.deviant);
            if (t >= capturedTrials)
                continue;
            qint64 onset[4];
            for (int k = 0; k < 4; ++k) {
                const QByteArray sound = floatBytes(k + 1 == stim ? trial.deviant : trial.standard);
                // From 10 ms before the capture had come when the interval
                // started, or from the end of the sound before.
                const int from = 4 * (k ? onset[k - 1] + trial.standard.size()
                                        : run.intervals[4 * t].capturePosition - 400);
                const int at = captured.indexOf(sound, from);
                QVERIFY2(at >= from && at % 4 == 0 && at - from < 4 * PulseServer::rate &&
                             captured.mid(from, at - from).count('\0') == at - from,
                         qPrintable(QString("trial %1, sound %2").arg(t + 1).arg(k + 1)));
                onset[k] = at / 4;
                if (k > 0)
                    iois.append((onset[k] - onset[k - 1]) * 1000.0 / PulseServer::rate);
            }
            const qint64 lastSample = onset[3] + trial.standard.size() - 1;
            endToClock.append((trial.endNs - server.arrivalNs(lastSample)) / 1e6);
            QVERIFY(endToClock.last() >= -10);
        }
        // Single values may stray while other work holds the two cores; the
        // medians catch a wrong period, a drift, a coarse timer or a late clock.
        QVERIFY2(std::fabs(median(iois) - periodMs) <= 3,
                 qPrintable(QString::number(median(iois))));
        QVERIFY2(median(endToClock) <= 20, qPrintable(QString::number(median(endToClock))));
        QVERIFY(deviantIsSound2 > 0 && deviantIsSound2 < records.size());
        QCOMPARE(run.debugLines, log);
        QFile saved(path);
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(saved.readAll(), file);

        // The answer that made the last reversal ended the run, once, and the
        // participant window shows the mean of the last reversals.
        double threshold = 0;
        for (int i = reversals - reversalsToCalculate; i < reversals; ++i)
            threshold += atReversals[i] / reversalsToCalculate;
        QCOMPARE(run.finished, 1);
        QVERIFY(w.subjectWindow->labelResult->isVisible());
        QCOMPARE(w.subjectWindow->labelResult->text(),
                 QString("Modulation Threshold = %1 %,   Reaction Time = %2 ms")
                     .arg(100 * threshold)
                     .arg(reactionSum / records.size()));
        QVERIFY(!w.soundTimer->isActive());
        QVERIFY(RunHarness::closeParticipantWindow(w));
    }

    // The rate changed on the panel after View, and no silent interval: the
    // deviant is rebuilt at the new rate after the first answer and each
    // interval's output runs at the rate of its own sound; every tick comes
    // while the previous sound still plays, and still each trial has four
    // intervals, ends once and leaves no output behind.
    void eachSoundAtItsOwnRateBackToBack()
    {
        MainWindow w;
        RunHarness run(w, 0.45, 10); // correct at 50 %, wrong at 40 %: two trials
        RunHarness::typeSession(w, {50, 0, 1, 1, QString()});
        w.on_pushButtonView_clicked();
        w.lineEditSamplingRate->setText("20000");
        w.on_pushButtonGo_clicked();
        QVector<int> rates;
        int overtaken = 0;
        connect(&w, &MainWindow::soundPlaying, this, [&](int index) {
            rates += index > 0 ? w.audioFormat.sampleRate() : -1;
            overtaken += !w.overtakenIntervals.isEmpty();
        });
        QVERIFY(run.run(30000));
        QCOMPARE(w.params.trials.size(), 2);
        const int stim = run.trials[1].stimPosition;
        QCOMPARE(rates,
                 QVector<int>({40000, 40000, 40000, 40000, -1, 40000, stim == 2 ? 20000 : 40000,
                               stim == 3 ? 20000 : 40000, 40000, -1}));
        QVERIFY(overtaken > 0);
        QVERIFY(RunHarness::waitUntil([&] { return run.liveOutputs() == 0; }, 5000));
        QVERIFY(w.overtakenIntervals.isEmpty() && !w.audioOutput);
    }

    // A rate the device rejects: the warning is logged, and the trial still
    // ends (the fallback's timing is the audio-fault test's).
    void deviceRejectsTheFormat()
    {
        MainWindow w;
        RunHarness run(w, 0.3, 10);
        RunHarness::typeSession(w, {50, 50, 1, 1, QString()});
        w.on_pushButtonView_clicked();
        w.params.samplingRate = 1000000;
        w.params.nSamples = {50000, 50000};
        w.params.trialCount = 0;
        w.generateSounds();
        run.pressReady();
        QVERIFY(RunHarness::waitUntil([&] { return run.trials.value(0).endNs > 0; }, 10000));
        QCOMPARE(run.intervals.size(), 4);
        QVERIFY(
            run.warnings.contains("Raw audio format not supported by backend, cannot play audio."));
    }

    // Codes outside a run's answers: 5 is refused with a warning; 4,
    // from no button, is scored (always wrong) and starts the next trial on a
    // precise timer of the longer sound plus the silence; "I am ready" with no
    // reversals to find starts no sound.
    void responseCodes_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("numberOfReversals");
        QTest::newRow("5 refused") << 5 << 14;
        QTest::newRow("4 scored") << 4 << 14;
        QTest::newRow("ready, no reversals") << 0 << 0;
    }

    void responseCodes()
    {
        QFETCH(int, code);
        QFETCH(int, numberOfReversals);
        MainWindow w;
        w.lineEditDurationDev->setText("800");
        w.on_pushButtonView_clicked();
        w.params.numberOfReversals = numberOfReversals;
        w.params.trialCount = 1;
        w.params.stimPosition = 2;
        w.sequenceIndex = 2;
        ModalCatcher catcher;
        const bool refused = code < 0 || code > 4;
        catcher.arm(QMessageBox::Ok, refused ? 1 : 0);
        w.updateMainwindow(code);
        catcher.verifyShown();
        QVERIFY(!refused || catcher.boxes.value(0).title + ": " + catcher.boxes.value(0).text ==
                                "Warning: Invalid response");
        QCOMPARE(w.params.trialCount, refused ? 1 : 2);
        QCOMPARE(w.sequenceIndex, 0);
        QCOMPARE(w.params.trials.size(), code == 4 ? 1 : 0);
        QVERIFY(code != 4 || (w.params.trials[0].responsePosition == 4 &&
                              !w.params.trials[0].correct && w.params.trials[0].value == 0.5));
        QCOMPARE(w.soundTimer->isActive() ? w.soundTimer->interval() : 0, code == 4 ? 1800 : 0);
        QVERIFY(code != 4 || w.soundTimer->timerType() == Qt::PreciseTimer);
        w.soundTimer->stop();
    }
};

QTEST_MAIN(TestWholeRun)

#include "tst_wholerun.moc"
