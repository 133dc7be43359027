#include "app/mainwindow.h"
#include "stimulus/samplebytes.h"
#include "support/pulsecapture.h"
#include "support/trialobserver.h"

#include <QAudioOutput>
#include <QComboBox>
#include <QLineEdit>
#include <QPointer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <cstring>
#include <limits>

namespace
{

// The wire format built independently of the program: each double rounded to
// a float by the compiler, its bits written least significant byte first.
QByteArray expectedBytes(const QVector<double> &samples)
{
    QByteArray bytes;
    for (double x : samples) {
        const float f = static_cast<float>(x);
        quint32 bits;
        std::memcpy(&bits, &f, 4);
        for (int b = 0; b < 4; ++b)
            bytes.append(static_cast<char>((bits >> (8 * b)) & 0xff));
    }
    return bytes;
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

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double listedMax(const QVector<double> &values)
{
    return values.isEmpty() ? 0.0 : *std::max_element(values.begin(), values.end());
}

QString listed(const QVector<double> &values)
{
    QStringList texts;
    for (double v : values)
        texts << QString::number(v);
    return texts.join(' ');
}

const char *const childOption = "--trial-without-server";

// Child process: one trial with no audio server reachable. Prints each index
// soundPlaying carried with its time in ms after "I am ready".
int trialWithoutServer()
{
    MainWindow w;
    shortSettings(w, 100, 100);
    QElapsedTimer clock;
    QEventLoop loop;
    QObject::connect(&w, &MainWindow::soundPlaying, &loop, [&](int index) {
        std::printf("%d %lld\n", index, clock.elapsed());
        if (index == -1)
            loop.quit();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    clock.start();
    w.updateMainwindow(0);
    loop.exec();
    return 0;
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

    void floatBytes_data()
    {
        QTest::addColumn<double>("sample");
        QTest::addColumn<QByteArray>("bytes");
        const double tie = std::ldexp(1.0, -24);
        QTest::newRow("full scale") << 1.0 << QByteArray::fromHex("0000803f");
        QTest::newRow("above full scale is not clipped") << 1.5 << QByteArray::fromHex("0000c03f");
        QTest::newRow("negative") << -2.0 << QByteArray::fromHex("000000c0");
        QTest::newRow("rounded to nearest, not truncated")
            << 0.1 << QByteArray::fromHex("cdcccc3d");
        QTest::newRow("tie to even, down") << 1.0 + tie << QByteArray::fromHex("0000803f");
        QTest::newRow("tie to even, up") << 1.0 + 3 * tie << QByteArray::fromHex("0200803f");
        QTest::newRow("negative zero") << -0.0 << QByteArray::fromHex("00000080");
        QTest::newRow("largest float") << 3.4028234663852886e38 << QByteArray::fromHex("ffff7f7f");
        QTest::newRow("beyond the float range") << 1e39 << QByteArray::fromHex("0000807f");
        QTest::newRow("beyond the float range, negative")
            << -1e39 << QByteArray::fromHex("000080ff");
        QTest::newRow("below the smallest float") << 1e-46 << QByteArray::fromHex("00000000");
    }

    void floatBytes()
    {
        QFETCH(double, sample);
        QFETCH(QByteArray, bytes);
        QCOMPARE(float32LittleEndian({sample}).toHex(), bytes.toHex());
    }

    void floatBytesKeepOrderAndNotANumber()
    {
        const QByteArray b =
            float32LittleEndian({0.0, 1.0, std::numeric_limits<double>::quiet_NaN()});
        QCOMPARE(b.size(), 12);
        QCOMPARE(b.left(8).toHex(), QByteArray("000000000000803f"));
        float f;
        std::memcpy(&f, b.constData() + 8, 4);
        QVERIFY(std::isnan(f));
        QVERIFY(float32LittleEndian({}).isEmpty());
    }

    // Every interval gets fresh objects holding the right sound; the previous
    // interval's are gone before the next tick; the fourth's end stops the
    // timer, starts (then restarts) the reaction clock and emits -1.
    void fourIntervalsPerTrial()
    {
        MainWindow w;
        shortSettings(w, 50, 150);
        QVector<int> indexes;
        QVector<QPointer<QAudioOutput>> outputs;
        QStringList problems;
        connect(&w, &MainWindow::soundPlaying, this, [&](int index) {
            indexes.append(index);
            if (index == -1) {
                if (w.audioOutput || w.audioBuffer || w.audioBytes || w.soundTimer->isActive())
                    problems << "objects left or timer running at the end of the trial";
                return;
            }
            if (!outputs.isEmpty() && outputs.last())
                problems << QString("output of interval %1 not released").arg(index - 1);
            outputs.append(w.audioOutput);
            const bool deviant = index == w.params.stimPosition;
            if (w.deviantFlags.count(true) != 1 || w.deviantFlags[index - 1] != deviant)
                problems << QString("deviant flags wrong at interval %1").arg(index);
            if (!w.audioBytes || !w.audioBuffer || !w.audioOutput ||
                *w.audioBytes != expectedBytes(deviant ? w.deviantSound : w.standardSound))
                problems << QString("interval %1 does not hold its sound").arg(index);
        });

        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        w.updateMainwindow(0);
        QVERIFY(waitForTrialEnds(playing, 1));
        QCOMPARE(indexes, QVector<int>({1, 2, 3, 4, -1}));
        QCOMPARE(w.reactionClockStarts, 1);
        QVERIFY(w.reactionClock->isValid());
        QTRY_VERIFY(!outputs.last());

        w.updateMainwindow(w.params.stimPosition);
        QVERIFY(waitForTrialEnds(playing, 2));
        QCOMPARE(indexes.mid(5), QVector<int>({1, 2, 3, 4, -1}));
        QCOMPARE(w.reactionClockStarts, 2);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join("; ")));
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
        for (int t = 0; t < observer.trials.size(); ++t) {
            const TrialObserver::Trial &trial = observer.trials[t];
            QCOMPARE(trial.startNs.size(), 4);
            QVERIFY(trial.stimPosition == 2 || trial.stimPosition == 3);
            QVERIFY(trial.standard != trial.deviant);
            qint64 onset[4];
            qint64 lastSample = 0;
            for (int k = 0; k < 4; ++k) {
                const bool deviant = k + 1 == trial.stimPosition;
                const QByteArray sound = expectedBytes(deviant ? trial.deviant : trial.standard);
                onset[k] = capture.onsetOf(sound, trial.startPosition[k] - PulseCapture::rate / 100,
                                           PulseCapture::rate);
                QVERIFY2(onset[k] >= 0,
                         qPrintable(QString("trial %1 sound %2 not found").arg(t + 1).arg(k + 1)));
                const qint64 n = sound.size() / 4;
                QTRY_VERIFY(capture.position() >= onset[k] + n);
                QVERIFY2(capture.bytes(onset[k], n) == sound,
                         qPrintable(QString("trial %1: sound %2 is not the %3 bit for bit")
                                        .arg(t + 1)
                                        .arg(k + 1)
                                        .arg(deviant ? "deviant" : "standard")));
                lastSample = onset[k] + n - 1;
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
        QVERIFY2(std::fabs(median(iois) - period) <= 3, qPrintable(listed(iois)));
        QVERIFY2(std::all_of(iois.begin(), iois.end(),
                             [](double ioi) { return std::fabs(ioi - period) <= 100; }),
                 qPrintable(listed(iois)));
        QVERIFY2(median(firstDelays) <= 50 && listedMax(firstDelays) <= 300,
                 qPrintable(listed(firstDelays)));
        QVERIFY2(median(endToClock) <= 20 && listedMax(endToClock) <= 300,
                 qPrintable(listed(endToClock)));
    }

    // A rate changed on the panel: the output runs at the rate the sounds were
    // built at, so a 1000 Hz tone built at 20000 Hz still sounds at 1000 Hz
    // for its 200 ms, and the next View at 40000 Hz brings the format back.
    void outputFollowsTheRateOfTheSounds()
    {
        MainWindow w;
        w.comboBoxSoundType->setCurrentIndex(0);
        shortSettings(w, 200, 100, "20000");
        QCOMPARE(w.standardSound.size(), 4000);
        TrialObserver observer(w, captureReady ? &capture : nullptr);
        int formatRate = 0;
        connect(&w, &MainWindow::soundPlaying, this, [&](int index) {
            if (index == 1)
                formatRate = w.audioFormat.sampleRate();
        });
        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        w.updateMainwindow(0);
        QVERIFY(waitForTrialEnds(playing, 1));
        QCOMPARE(formatRate, 20000);

        if (captureReady) {
            const QByteArray window =
                capture.bytes(observer.trials[0].startPosition[0], PulseCapture::rate * 3 / 10);
            const float *x = reinterpret_cast<const float *>(window.constData());
            const int n = window.size() / 4;
            int first = -1, last = -1, crossings = 0;
            for (int i = 0; i < n; ++i) {
                if (std::fabs(x[i]) > 0.01f) {
                    if (first < 0)
                        first = i;
                    last = i;
                }
            }
            QVERIFY(first >= 0);
            for (int i = first + 1; i <= last; ++i)
                crossings += (x[i - 1] < 0) != (x[i] < 0);
            const double seconds = (last - first + 1) / double(PulseCapture::rate);
            QVERIFY2(std::fabs(seconds - 0.2) < 0.003, qPrintable(QString::number(seconds)));
            const double frequency = crossings / 2.0 / seconds;
            QVERIFY2(std::fabs(frequency - 1000) < 10, qPrintable(QString::number(frequency)));
        }

        shortSettings(w, 200, 100, "40000");
        w.updateMainwindow(0);
        QVERIFY(waitForTrialEnds(playing, 2));
        QCOMPARE(w.audioFormat.sampleRate(), 40000);
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

    // With no silent interval the next tick comes while the previous sound is
    // still playing: no interval is lost or added, every object is released,
    // and each trial ends exactly once.
    void ticksBeforeIdle()
    {
        MainWindow w;
        shortSettings(w, 50, 0);
        QVector<int> indexes;
        QVector<QPointer<QAudioOutput>> outputs;
        int overtaken = 0;
        connect(&w, &MainWindow::soundPlaying, this, [&](int index) {
            indexes.append(index);
            if (index > 0) {
                outputs.append(w.audioOutput);
                overtaken += !w.overtakenIntervals.isEmpty();
            }
        });
        QSignalSpy playing(&w, &MainWindow::soundPlaying);
        w.updateMainwindow(0);
        QVERIFY(waitForTrialEnds(playing, 1));
        w.updateMainwindow(w.params.stimPosition);
        QVERIFY(waitForTrialEnds(playing, 2));
        QTRY_VERIFY(std::all_of(outputs.begin(), outputs.end(),
                                [](const QPointer<QAudioOutput> &o) { return o.isNull(); }));
        QCOMPARE(indexes, QVector<int>({1, 2, 3, 4, -1, 1, 2, 3, 4, -1}));
        QVERIFY2(overtaken > 0, "no tick came while a sound was playing");
        QVERIFY(w.overtakenIntervals.isEmpty());
        QVERIFY(!w.soundTimer->isActive());
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
        for (int k = 1; k <= 4; ++k) {
            w.playOneSound();
            outputs.append(w.audioOutput);
            QCOMPARE(w.overtakenIntervals.size(), k - 1);
            if (k == 2)
                QCOMPARE(*w.audioBytes, expectedBytes(w.deviantSound));
        }
        QAudioOutput *fourth = w.audioOutput;
        w.playOneSound();
        QCOMPARE(w.audioOutput, fourth);
        QCOMPARE(w.sequenceIndex, 4);
        QCOMPARE(playing.count(), 4);
        for (const auto &o : outputs)
            QVERIFY(!o.isNull());

        QVERIFY(waitForTrialEnds(playing, 1, 5000));
        QCOMPARE(playing.count(), 5);
        QTRY_VERIFY(std::all_of(outputs.begin(), outputs.end(),
                                [](const QPointer<QAudioOutput> &o) { return o.isNull(); }));
        QVERIFY(w.overtakenIntervals.isEmpty());
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
        QCOMPARE(w.audioFormat.sampleRate(), 1000000);
        QVERIFY(loggedWarnings.contains(
            "Raw audio format not supported by backend, cannot play audio."));
        const qint64 lastInterval = times[4] - times[3];
        QVERIFY2(lastInterval >= 550 && lastInterval <= 800,
                 qPrintable(QString::number(lastInterval)));
        QTRY_VERIFY(w.overtakenIntervals.isEmpty() && !w.audioOutput);
    }

    // No audio server at all: the outputs never report a state, and the trial
    // still ends, the fourth interval its duration plus the margin after it began.
    void trialEndsWithoutAudioServer()
    {
        QTemporaryDir dir;
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PULSE_SERVER", "unix:" + dir.filePath("no-such-server"));
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(), {childOption});
        QVERIFY(child.waitForFinished(30000));
        QCOMPARE(child.exitCode(), 0);
        QVector<int> indexes;
        QVector<qint64> times;
        for (const QByteArray &line : child.readAllStandardOutput().split('\n')) {
            const QList<QByteArray> fields = line.split(' ');
            if (fields.size() == 2) {
                indexes.append(fields[0].toInt());
                times.append(fields[1].toLongLong());
            }
        }
        QCOMPARE(indexes, QVector<int>({1, 2, 3, 4, -1}));
        QVERIFY2(times[0] >= 200 && times[3] >= 800, qPrintable(QString::number(times[3])));
        const qint64 lastInterval = times[4] - times[3];
        QVERIFY2(lastInterval >= 600 && lastInterval <= 850,
                 qPrintable(QString::number(lastInterval)));
    }

private:
    PulseCapture capture;
    bool captureReady = false;
    QString captureProblem;
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc > 1 && QByteArray(argv[1]) == childOption)
        return trialWithoutServer();
    TestPlayback test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_playback.moc"
