// SPDX-License-Identifier: GPL-3.0-or-later
#include "stimulus/randomsource.h"
#include "support/runharness.h"

#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>
#include <QtTest>

#include <complex>

// The simulated listener hears depths of 20 % and more and answers 40 ms
// after the fourth sound; standards of 40 ms and deviants of 50 ms with 200 ms
// of silence make a period of 250 ms, the longer sound's. From 50 % a run of six reversals has
// thirteen trials.
const double hearsFrom = 0.2;
const int answerMs = 40;
const int periodMs = 250;
const int reversals = 6;
const int reversalsToCalculate = 4;
const int capturedTrials = 3;

// The wire format built independently of the program: each double rounded to
// a float by the compiler, in the host's (little-endian) byte order.
static QByteArray floatBytes(const QVector<double> &samples)
{
    const QVector<float> floats(samples.begin(), samples.end());
    return QByteArray(reinterpret_cast<const char *>(floats.constData()), floats.size() * 4);
}

// A sound at 40000 Hz: a carrier of fc Hz under an envelope of fm Hz and
// depth m that starts at its minimum, 1 - m, divided by 1 + m so that it
// peaks at 1.
static QVector<double> tone(double fc, double fm, double m, int ms)
{
    QVector<double> x(40 * ms);
    for (int j = 0; j < x.size(); ++j)
        x[j] = 1 / (m + 1) *
               ((m * std::cos(j * (fm * 2 * M_PI) / 40000 + M_PI) + 1) *
                std::sin(j * (fc * 2 * M_PI) / 40000));
    return x;
}

static double rms(const QVector<double> &v)
{
    return std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0) / v.size());
}

// The depths the staircase should present to this listener, from the rules:
// -1 dB steps after a correct answer and +2 dB after a wrong one, of 2 dB each
// until the second reversal and 1 dB after, at most 1; the values at the
// reversals go into `atReversals`.
static QVector<double> expectedDepths(QVector<double> *atReversals)
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

class TestWholeRun : public QObject
{
    Q_OBJECT

    PulseServer server;

private slots:
    void initTestCase()
    {
        QString problem;
        if (!server.start(&problem, PulseServer::Sink::Pipe))
            QSKIP(qPrintable(problem));
    }

    // View, the panel edited so that the two columns differ in every row, Go,
    // "I am ready" and answers through the participant window; the sounds read
    // back from the sink, the records, the log, the result shown and the file
    // saved through the save dialog.
    void wholeRun()
    {
        QTemporaryDir dir;
        RandomSource::seed(20240611);
        MainWindow w;
        RunHarness run(w, hearsFrom, answerMs, &server);
        RunHarness::typeSession(w,
                                {50, periodMs - 50, reversals, reversalsToCalculate, dir.path()});
        w.on_pushButtonView_clicked();
        const QStringList typed{"1250", "35", "20", "12.5", "40", "1500", "45", "50", "40", "50"};
        QGridLayout *grid = w.gridLayoutPanel; // 4 to 8: carrier to duration; Standard, Deviant
        for (int i = 0; i < typed.size(); ++i)
            grid->itemAtPosition(4 + i % 5, 1 + i / 5)->widget()->setProperty("text", typed[i]);
        w.checkBoxResetMdFd->setChecked(false);
        w.comboBoxSoundType->setCurrentIndex(0); // View built noise
        w.on_pushButtonGo_clicked();
        QVariantMap panel; // at Go, by accessible name: row label, then column
        for (QWidget *widget : w.centralWidget->findChildren<QWidget *>()) {
            if (auto *edit = qobject_cast<QLineEdit *>(widget))
                panel[edit->accessibleName()] = edit->text();
            else if (auto *box = qobject_cast<QComboBox *>(widget))
                panel[box->accessibleName()] = box->currentText();
            else if (auto *check = qobject_cast<QCheckBox *>(widget))
                panel[check->accessibleName()] = check->isChecked();
        }
        auto saver = std::make_unique<ModalCatcher>();
        saver->answerSaveDialogs({dir.filePath("run.txt")});
        QVERIFY(run.run(120000));
        QVERIFY(RunHarness::waitUntil([&] { return saver->saveDialogs.size() == 1; }, 5000));
        saver.reset();

        // The records are checked through the file they are saved to, which
        // is built here from the expected depths and the simulated answers.
        QVector<double> atReversals;
        const QVector<double> depths = expectedDepths(&atReversals);
        QCOMPARE(run.trials.size(), depths.size());
        const QByteArray captured = server.captured();
        QStringList log{"Test just started"};
        QByteArray file = "modulation depth (%)\tstimulus position\tresponse position\t"
                          "correctness\treaction time (ms)\r\n";
        int regularOnsets = 0, promptClocks = 0;
        double reactionSum = 0;
        QSet<int> places;
        // The standard is scaled to each new deviant's RMS in turn.
        QVector<double> standard = tone(1250, 35, 0.2, 40);
        for (int t = 0; t < depths.size(); ++t) {
            const QVector<double> deviant = tone(1500, 45, depths[t], 50);
            const double scale = rms(deviant) / rms(standard);
            for (double &y : standard)
                y *= scale;
            const RunHarness::Trial &trial = run.trials[t];
            const int stim = trial.stimPosition;
            const int response = depths[t] >= hearsFrom ? stim : 5 - stim;
            const double reactionTime = w.params.trials.value(t).reactionTime;
            // Whole ms from the end of sound 4; from the trial's start it would be 400 ms more.
            QVERIFY(reactionTime >= answerMs && reactionTime <= answerMs + 250 &&
                    reactionTime == std::floor(reactionTime));
            places << stim;
            reactionSum += reactionTime;
            log << QString("stimPosition: %1").arg(stim) << QString("response: %1").arg(response);
            file += QString::number(100 * depths[t], 'f', 6).toLatin1() + '\t' + char('0' + stim) +
                    '\t' + char('0' + response) + '\t' + (response == stim ? '1' : '0') + '\t' +
                    QByteArray::number(reactionTime, 'g', 6) + "\r\n";

            // In the first trials, each interval carries its sound bit for
            // bit, the deviant in the place stimPosition names, with only
            // silence before it; the reaction clock starts once the last
            // sample has come out (2 ms sink blocks and a late capture thread
            // allow a few ms before). (A sound server starved on a loaded
            // machine may play two streams at once, so not every trial of the
            // run is compared.)
            if (t >= capturedTrials)
                continue;
            qint64 onset[4], end = run.intervals[4 * t].capturePosition - 400;
            for (int k = 0; k < 4; ++k) {
                const QVector<double> &played = k + 1 == stim ? deviant : standard;
                // From 10 ms before the capture had come when the interval
                // started, or from the end of the sound before.
                const int from = 4 * end;
                const int at = captured.indexOf(floatBytes(played), from);
                QVERIFY(at >= from && at % 4 == 0 && at - from < 4 * PulseServer::rate &&
                        captured.mid(from, at - from).count('\0') == at - from);
                onset[k] = at / 4;
                end = onset[k] + played.size();
                // Within 5 ms of the period: the capture's 2 ms grid, and the
                // sanitizer build's timers, which stray by 4 to 6 ms at times.
                regularOnsets += k > 0 && std::abs(onset[k] - onset[k - 1] - periodMs * 40) <= 200;
            }
            const double endToClockMs = (trial.endNs - server.arrivalNs(end - 1)) / 1e6;
            QVERIFY(endToClockMs >= -10);
            promptClocks += endToClockMs <= 20;
        }
        // Single values may stray while other work holds the two cores; most
        // of them within bounds catches a wrong period, a drift, a coarse timer
        // or a late clock.
        QVERIFY(regularOnsets > 3 * capturedTrials / 2);
        QVERIFY(promptClocks > capturedTrials / 2);
        QCOMPARE(places, QSet<int>({2, 3}));
        QCOMPARE(run.debugLines, log);
        QFile saved(dir.filePath("run.txt"));
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(saved.readAll(), file);

        // The answer that made the last reversal ended the run, once, and the
        // participant window shows the mean of the last reversals.
        const double threshold =
            std::accumulate(atReversals.end() - reversalsToCalculate, atReversals.end(), 0.0) /
            reversalsToCalculate;
        QCOMPARE(run.finished, 1);
        QVERIFY(w.subjectWindow->labelResult->text().startsWith(
            QString("Modulation Threshold = %1 %").arg(100 * threshold)));

        // The charts follow every trial: each amplitude axis spans the last
        // trial's sound, and each spectrum peaks at its carrier with the
        // amplitude a direct transform gives there (the charts' transform is
        // 32768 points long).
        for (const auto &[sound, axis, spectrum, carrier] :
             {std::tuple{standard, w.axisYWaveStd, w.seriesSpecStd, 1250.0},
              {tone(1500, 45, depths.last(), 50), w.axisYWaveDev, w.seriesSpecDev, 1500.0}}) {
            const auto [low, high] = std::minmax_element(sound.begin(), sound.end());
            const QVector<QPointF> bins = spectrum->pointsVector();
            const int peak = std::max_element(bins.begin(), bins.end(),
                                              [](QPointF a, QPointF b) { return a.y() < b.y(); }) -
                             bins.begin();
            std::complex<double> atPeak = 0;
            for (int m = 0; m < sound.size(); ++m)
                atPeak += std::polar(sound[m], -2 * M_PI * peak * m / 32768);
            QVERIFY(std::fabs(axis->min() - *low) < 1e-9 && std::fabs(axis->max() - *high) < 1e-9 &&
                    std::fabs(bins[peak].x() - carrier) < 2 &&
                    std::fabs(bins[peak].y() - std::abs(atPeak) / (sound.size() / 2)) < 1e-9);
        }

        // The sidecar: every column described, the panel as the run started
        // by row label and column in the panel's units, the result shown, the
        // seed, and a playback in which every sound played.
        QFile sidecar(dir.filePath("run.json"));
        QVERIFY(sidecar.open(QIODevice::ReadOnly));
        const QJsonObject json = QJsonDocument::fromJson(sidecar.readAll()).object();
        for (const QByteArray &column : file.left(file.indexOf('\r')).split('\t'))
            QVERIFY2(json[column]["Description"].isString(), column.constData());
        const QJsonObject settings = json["Settings"].toObject();
        QSet<QString> rows;
        for (auto it = panel.cbegin(); it != panel.cend(); ++it) {
            QString row = it.key();
            QJsonValue value = settings[row];
            for (const QString column : {"Standard", "Deviant"}) {
                if (row.endsWith(" " + column)) {
                    row.chop(column.size() + 1);
                    value = settings[row][column];
                }
            }
            rows << row;
            QVERIFY2(value.isDouble() ? std::fabs(value.toDouble() - it->toDouble()) < 1e-9
                                      : value.toVariant() == it.value(),
                     qPrintable(it.key()));
        }
        QCOMPARE(rows.size(), settings.size());
        const QJsonObject result = json["Result"].toObject();
        QVERIFY(std::fabs(result["Threshold"].toDouble() - 100 * threshold) < 1e-9);
        QVERIFY(std::fabs(result["MeanReactionTime"].toDouble() - reactionSum / depths.size()) <
                1e-9);
        QCOMPARE(result["NumberOfTrials"].toInt(), depths.size());
        const QJsonArray shown = result["ReversalValues"].toArray();
        QCOMPARE(shown.size(), reversals);
        for (int i = 0; i < reversals; ++i)
            QVERIFY(std::fabs(shown[i].toDouble() - 100 * atReversals[i]) < 1e-9);
        QCOMPARE(json["RandomSeed"].toString(), QString("20240611"));
        QVERIFY(w.windowTitle().contains("(v" + json["Software"]["Version"].toString().remove('.') +
                                         ")"));
        QCOMPARE(json["Playback"]["SampleRate"].toInt(), 40000);
        QVERIFY(json["Playback"]["FaultyIntervals"].toArray().isEmpty());
    }
};

QTEST_MAIN(TestWholeRun)

#include "tst_wholerun.moc"
