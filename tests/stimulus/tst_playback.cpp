#include "app/mainwindow.h"
#include "stimulus/samplebytes.h"
#include "support/pulsecapture.h"
#include "support/trialobserver.h"

#include <QAudioOutput>
#include <QComboBox>
#include <QLineEdit>
#include <QPointer>
#include <QtTest>

#include <cmath>

namespace
{

// The wire format built independently of the program: each double rounded to
// a float by the compiler, in the host's (little-endian) byte order.
QByteArray expectedBytes(const QVector<double> &samples)
{
    const QVector<float> floats(samples.begin(), samples.end());
    return QByteArray(reinterpret_cast<const char *>(floats.constData()), floats.size() * 4);
}

// Short sounds so that a trial takes a fraction of a second; View builds them.
void shortSettings(MainWindow &w, int durationMs, int silentMs, const QString &rate = "40000")
{
    w.lineEditDurationStd->setText(QString::number(durationMs));
    w.lineEditDurationDev->setText(QString::number(durationMs));
    w.lineEditSilentInterval->setText(QString::number(silentMs));
    w.lineEditSamplingRate->setText(rate);
    w.on_pushButtonView_clicked();
}

// Warnings the program logs while a test runs.
QStringList loggedWarnings;
QtMessageHandler previousHandler = nullptr;
void noteWarnings(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtWarningMsg)
        loggedWarnings.append(text);
    previousHandler(type, context, text);
}

// Waits until soundPlaying has carried -1 `ends` times in all. It waits in a
// real event loop: QTRY_* sleeps up to 10 ms between its polls, which would
// delay the timer's ticks and the output's own feeding of the sound.
bool waitForTrialEnds(QSignalSpy &spy, int ends, int timeoutMs = 10000)
{
    const auto count = [&spy] {
        return std::count_if(spy.begin(), spy.end(),
                             [](const QList<QVariant> &a) { return a.at(0).toInt() == -1; });
    };
    QDeadlineTimer deadline(timeoutMs);
    while (count() < ends && !deadline.hasExpired())
        spy.wait(static_cast<int>(qMax<qint64>(1, deadline.remainingTime())));
    return count() >= ends;
}

bool allReleased(const QVector<QPointer<QAudioOutput>> &outputs)
{
    return std::all_of(outputs.begin(), outputs.end(), [](const auto &o) { return o.isNull(); });
}

// A sorted copy of values; listed gets them in their own order for a failure message.
QVector<double> sorted(QVector<double> values, QString *listed)
{
    listed->clear();
    for (double v : values)
        *listed += QString::number(v) + ' ';
    std::sort(values.begin(), values.end());
    return values;
}

} // namespace

class TestPlayback : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // The capture daemon must be in place before the process first uses audio.
        captureReady = capture.start(&captureProblem);
        previousHandler = qInstallMessageHandler(noteWarnings);
    }

    void cleanupTestCase() { qInstallMessageHandler(previousHandler); }

    // Each double rounded to the nearest float, not truncated, not clipped,
    // least significant byte first.
    void floatBytes()
    {
        QCOMPARE(float32LittleEndian({1.0, 1.5, -2.0, 0.1}).toHex(),
                 QByteArray("0000803f0000c03f000000c0cdcccc3d"));
        QVERIFY(float32LittleEndian({}).isEmpty());
    }

    // Every interval gets fresh objects holding the right sound, and each
    // trial ends exactly once: the fourth's end stops the timer, starts the
    // reaction clock and emits -1, every object released. With a silent
    // interval the previous interval's objects are gone before the next tick;
    // with none the next tick comes while the previous sound is still
    // playing, and still no interval is lost or added.
    void fourIntervalsPerTrial_data()
    {
        QTest::addColumn<int>("silentMs");
        QTest::newRow("silent interval of 150 ms") << 150;
        QTest::newRow("no silent interval") << 0;
    }

    void fourIntervalsPerTrial()
    {
        QFETCH(int, silentMs);
        MainWindow w;
        shortSettings(w, 50, silentMs);
        QVector<int> indexes;
        QVector<QPointer<QAudioOutput>> outputs;
        QStringList problems;
        int overtaken = 0;
        connect(&w, &MainWindow::soundPlaying, this, [&](int index) {
            indexes.append(index);
            if (index == -1) {
                if (w.audioOutput || w.audioBuffer || w.audioBytes || w.soundTimer->isActive())
                    problems << "objects left or timer running at the end of the trial";
                return;
            }
            if (silentMs > 0 && !outputs.isEmpty() && outputs.last())
                problems << QString("output of interval %1 not released").arg(index - 1);
            overtaken += !w.overtakenIntervals.isEmpty();
            outputs.append(w.audioOutput);
            const bool deviant = index == w.params.stimPosition;
            if (w.deviantFlags.count(true) != 1 || w.deviantFlags[index - 1] != deviant ||
                !w.audioBytes || !w.audioBuffer || !w.audioOutput ||
                *w.audioBytes != expectedBytes(deviant ? w.deviantSound : w.standardSound))
                problems << QString("interval %1 does not hold its sound").arg(index);
        });

        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        w.updateMainwindow(0);
        QVERIFY(waitForTrialEnds(playing, 1));
        QCOMPARE(w.reactionClockStarts, 1);
        QVERIFY(w.reactionClock->isValid());
        w.updateMainwindow(w.params.stimPosition);
        QVERIFY(waitForTrialEnds(playing, 2));
        QCOMPARE(indexes, QVector<int>({1, 2, 3, 4, -1, 1, 2, 3, 4, -1}));
        QCOMPARE(w.reactionClockStarts, 2);
        QTRY_VERIFY(allReleased(outputs) && w.overtakenIntervals.isEmpty());
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join("; ")));
        QVERIFY2(silentMs > 0 || overtaken > 0, "no tick came while a sound was playing");
    }

    // What reached the audio output: each interval carries its sound bit for
    // bit, the deviant in the interval stimPosition names, the onsets are one
    // timer period apart, and the reaction clock starts when sound 4 has
    // really ended.
    void capturedSoundsAndOnsets()
    {
        if (!captureReady)
            QSKIP(qPrintable("no capture of the audio output: " + captureProblem));
        MainWindow w;
        const int period = 400;
        shortSettings(w, 200, 200);
        TrialObserver observer(w, &capture);
        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        QVector<qint64> timerStartNs;
        for (int t = 0; t < 3; ++t) {
            // After an answer the next trial's sounds and charts are built
            // first; the timer starts when that work is done.
            w.updateMainwindow(t == 0 ? 0 : w.params.stimPosition);
            timerStartNs.append(PulseCapture::nowNs());
            QVERIFY(waitForTrialEnds(playing, t + 1));
        }
        // Inter-onset intervals, delays of sound 1 beyond the period, and
        // delays from the end of sound 4 to the clock, in ms, of all trials.
        QVector<double> iois, firstDelays, endToClock;
        QCOMPARE(observer.trials.size(), 3);
        for (int t = 0; t < 3; ++t) {
            const TrialObserver::Trial &trial = observer.trials[t];
            QCOMPARE(trial.startPosition.size(), 4);
            QVERIFY(trial.stimPosition == 2 || trial.stimPosition == 3);
            QVERIFY(trial.standard != trial.deviant);
            qint64 onset[4];
            for (int k = 0; k < 4; ++k) {
                const bool deviant = k + 1 == trial.stimPosition;
                const QByteArray sound = expectedBytes(deviant ? trial.deviant : trial.standard);
                onset[k] = capture.onsetOf(sound, trial.startPosition[k] - PulseCapture::rate / 100,
                                           PulseCapture::rate);
                const QString where = QString("trial %1 sound %2").arg(t + 1).arg(k + 1);
                QVERIFY2(onset[k] >= 0, qPrintable(where + " not found"));
                QTRY_VERIFY(capture.position() >= onset[k] + sound.size() / 4);
                QVERIFY2(
                    capture.bytes(onset[k], sound.size() / 4) == sound,
                    qPrintable(where + (deviant ? " is not the deviant" : " is not the standard")));
            }
            for (int k = 0; k < 3; ++k)
                iois.append((onset[k + 1] - onset[k]) * 1000.0 / PulseCapture::rate);
            // Sound 1 starts one period after the timer was started, never sooner.
            const double firstMs = (capture.arrivalNs(onset[0]) - timerStartNs[t]) / 1e6;
            QVERIFY2(firstMs >= period, qPrintable(QString::number(firstMs)));
            firstDelays.append(firstMs - period);
            // The clock starts once the last sample has come out. The bound
            // below zero allows for the sink's 2 ms blocks and for the capture
            // thread noting a block late on a loaded machine.
            const qint64 lastSample = onset[3] + trial.standard.size() - 1;
            const double endToClockMs = (trial.endNs - capture.arrivalNs(lastSample)) / 1e6;
            QVERIFY2(endToClockMs >= -10, qPrintable(QString::number(endToClockMs)));
            endToClock.append(endToClockMs);
        }
        // Typical figures come within a few milliseconds: the sink renders in
        // 2 ms blocks, a precise timer fires within 1 ms, and an output starts
        // sounding about 22 ms after its tick and reports its end about 2 ms
        // after the last sample (timing report). The medians are held to that,
        // which a wrong period, a drift, a coarse timer (up to 5 %, 20 ms here)
        // or a clock started late would miss. Single values may stray while
        // other work holds the machine's two cores (the timing report saw an
        // interval 26 ms off, and a loaded test run a first sound 100 ms late),
        // so they are only held to bounds that catch a lost or added interval.
        QString listed;
        QVector<double> v = sorted(iois, &listed);
        QVERIFY2(std::fabs(v[v.size() / 2] - period) <= 3 && v.first() >= period - 100 &&
                     v.last() <= period + 100,
                 qPrintable(listed));
        v = sorted(firstDelays, &listed);
        QVERIFY2(v[v.size() / 2] <= 50 && v.last() <= 300, qPrintable(listed));
        v = sorted(endToClock, &listed);
        QVERIFY2(v[v.size() / 2] <= 20 && v.last() <= 300, qPrintable(listed));
    }

    // A rate changed on the panel: the output runs at the rate the sounds were
    // built at, so a 1000 Hz tone built at 20000 Hz still sounds at 1000 Hz
    // for its 200 ms.
    void outputFollowsTheRateOfTheSounds()
    {
        if (!captureReady)
            QSKIP(qPrintable("no capture of the audio output: " + captureProblem));
        MainWindow w;
        w.comboBoxSoundType->setCurrentIndex(0);
        shortSettings(w, 200, 100, "20000");
        QCOMPARE(w.standardSound.size(), 4000);
        TrialObserver observer(w, &capture);
        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        w.updateMainwindow(0);
        QVERIFY(waitForTrialEnds(playing, 1));
        const QByteArray window =
            capture.bytes(observer.trials[0].startPosition[0], PulseCapture::rate * 3 / 10);
        const float *x = reinterpret_cast<const float *>(window.constData());
        int first = -1, last = -1, crossings = 0;
        for (int i = 0; i < window.size() / 4; ++i) {
            if (std::fabs(x[i]) > 0.01f) {
                first = first < 0 ? i : first;
                last = i;
            }
        }
        QVERIFY(first >= 0);
        for (int i = first + 1; i <= last; ++i)
            crossings += (x[i - 1] < 0) != (x[i] < 0);
        const double seconds = (last - first + 1) / double(PulseCapture::rate);
        const double frequency = crossings / 2.0 / seconds;
        QVERIFY2(std::fabs(seconds - 0.2) < 0.003 && std::fabs(frequency - 1000) < 10,
                 qPrintable(QString("%1 s at %2 Hz").arg(seconds).arg(frequency)));
    }

    // Go reads a changed rate without rebuilding the sounds; after the first
    // answer only the deviant is rebuilt, at the new rate. Each interval then
    // plays at the rate of its own sound.
    void eachSoundAtItsOwnRate()
    {
        MainWindow w;
        shortSettings(w, 50, 50);
        w.params.samplingRate = 20000;
        w.params.nSamples = {1000, 1000};
        w.params.trialCount = 1;
        w.generateSounds();
        QCOMPARE(w.standardSound.size(), 2000);
        QCOMPARE(w.deviantSound.size(), 1000);
        w.deviantFlags = {false, true, false, false};
        w.sequenceIndex = 0;
        QVector<int> rates;
        for (int k = 0; k < 4; ++k) {
            w.playOneSound();
            rates.append(w.audioFormat.sampleRate());
        }
        QCOMPARE(rates, QVector<int>({40000, 20000, 40000, 40000}));
        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        QVERIFY(waitForTrialEnds(playing, 1, 5000));
    }

    // Ticks called back to back: each one keeps the previous interval's
    // objects, a tick after the fourth starts nothing, and the trial ends once.
    void backToBackTicks()
    {
        MainWindow w;
        shortSettings(w, 50, 50);
        w.deviantFlags = {false, true, false, false};
        w.sequenceIndex = 0;
        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        QVector<QPointer<QAudioOutput>> outputs;
        for (int k = 1; k <= 5; ++k) {
            w.playOneSound();
            if (k <= 4)
                outputs.append(w.audioOutput);
            QCOMPARE(w.overtakenIntervals.size(), qMin(k, 4) - 1);
            if (k == 2)
                QCOMPARE(*w.audioBytes, expectedBytes(w.deviantSound));
        }
        QCOMPARE(w.audioOutput, outputs.last());
        QCOMPARE(playing.count(), 4);
        for (const auto &o : outputs)
            QVERIFY(o);

        QVERIFY(waitForTrialEnds(playing, 1, 5000));
        QCOMPARE(playing.count(), 5);
        QTRY_VERIFY(allReleased(outputs) && w.overtakenIntervals.isEmpty());
        QVERIFY(!playing.wait(700));
    }

    // A rate the device rejects: the warning is logged, the output stops with
    // an error, and each interval still ends its duration plus the 500 ms
    // margin after it began, so the trial ends and the answer can come.
    void deviceRejectsTheFormat()
    {
        MainWindow w;
        shortSettings(w, 50, 50);
        w.params.samplingRate = 1000000;
        w.params.nSamples = {50000, 50000};
        w.params.trialCount = 0;
        w.generateSounds();
        loggedWarnings.clear();
        QVector<qint64> times;
        QElapsedTimer clock;
        connect(&w, &MainWindow::soundPlaying, this, [&](int) { times.append(clock.elapsed()); });
        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        clock.start();
        w.updateMainwindow(0);
        QVERIFY(waitForTrialEnds(playing, 1));
        QCOMPARE(times.size(), 5);
        QVERIFY(loggedWarnings.contains(
            "Raw audio format not supported by backend, cannot play audio."));
        const qint64 lastInterval = times[4] - times[3];
        QVERIFY2(lastInterval >= 550 && lastInterval <= 800,
                 qPrintable(QString::number(lastInterval)));
        QTRY_VERIFY(w.overtakenIntervals.isEmpty() && !w.audioOutput);
    }

private:
    PulseCapture capture;
    bool captureReady = false;
    QString captureProblem;
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    TestPlayback test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_playback.moc"
