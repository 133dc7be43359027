#include "app/mainwindow.h"
#include "listener.h"
#include "report.h"
#include "simulation.h"
#include "simulationsummary.h"
#include "statistics.h"

#include <QComboBox>
#include <QImage>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <random>

namespace
{
double decibels(double x)
{
    return 20.0 * std::log10(x);
}

double level(double db)
{
    return std::pow(10.0, db / 20.0);
}

// Answers a run from a fixed list of right (true) and wrong (false) answers.
Simulation::Responder scripted(const QVector<bool> &answers, int &next)
{
    return [&answers, &next](double, int stimPosition) {
        return answers.at(next++) ? stimPosition : 5 - stimPosition;
    };
}

// The tool's standard output, or "failed: " and its standard error.
QByteArray runTool(const QStringList &arguments)
{
    QProcess tool;
    tool.start(QStringLiteral(SIMULATE_LISTENER_PATH), arguments);
    if (!tool.waitForFinished(60000) || tool.exitStatus() != QProcess::NormalExit ||
        tool.exitCode() != 0)
        return "failed: " + tool.readAllStandardError();
    return tool.readAllStandardOutput();
}

QVector<RunOutcome> runMany(int mainParameter, int runs, quint64 seed, const Listener &listener)
{
    SimulationSettings settings;
    settings.start = Simulation::startRecord(mainParameter);
    settings.runs = runs;
    settings.seed = seed;
    return Simulation::runMany(settings, listener);
}
} // namespace

class TestSimulateListener : public QObject
{
    Q_OBJECT

private slots:
    void listeners()
    {
        // p = 0.5 + (0.5 - lapse) F(z) with F(0) = 1/2 and F(-ln 3) = 1/4.
        const double ln3 = std::log(3.0);
        const double cases[][5] = {// alpha, beta, lapse, level in dB, p
                                   {-20, 2, 0.02, -20, 0.74},
                                   {-30, 4, 0.1, -30 - 4 * ln3, 0.6},
                                   {-20, 1, 0, -80, 0.5}};
        for (const auto &[alpha, beta, lapse, db, expected] : cases)
            QVERIFY(std::abs(Listener::logistic(alpha, beta, lapse).probabilityCorrect(level(db)) -
                             expected) < 1e-6);
        // The level of a probability lands back on it; out of reach is NaN.
        const Listener listener = Listener::logistic(-20.0, 3.0, 0.1);
        QVERIFY(std::abs(listener.probabilityCorrect(level(listener.levelDbAt(0.6))) - 0.6) < 1e-9);
        QVERIFY(std::isnan(listener.levelDbAt(0.5)) && std::isnan(listener.levelDbAt(0.95)));

        // At alpha, without lapses, the listener is right three times in four
        // whichever sound is the deviant; the binomial SD of the share is
        // 0.0022, five of them are allowed.
        std::mt19937_64 generator(11);
        int right = 0;
        for (int i = 0; i < 40000; ++i) {
            const int answer =
                Listener::logistic(-20.0, 3.0, 0.0).respond(0.1, 2 + i % 2, generator);
            QVERIFY(answer == 2 || answer == 3);
            right += answer == 2 + i % 2;
        }
        QVERIFY2(std::abs(right / 40000.0 - 0.75) < 0.011, qPrintable(QString::number(right)));

        const Listener step = Listener::step(-20.0);
        QCOMPARE(step.respond(level(-19.99), 3, generator), 3);
        QCOMPARE(step.respond(level(-20.01), 3, generator), 2);
    }

    void statistics()
    {
        const QVector<double> sample{2, 4, 4, 4, 5, 5, 7, 9};
        QVERIFY(std::abs(Statistics::mean(sample) - 5.0) < 1e-12);
        QVERIFY(std::abs(Statistics::standardDeviation(sample) - std::sqrt(32.0 / 7.0)) < 1e-12);
        QCOMPARE(Statistics::standardDeviation({3.0}), 0.0);
        const QVector<double> shuffled{5, 1, 4, 2, 3};
        QVERIFY(std::abs(Statistics::percentile(shuffled, 10) - 1.4) < 1e-12);
        QVERIFY(std::abs(Statistics::percentile(shuffled, 100) - 5.0) < 1e-12);
        QVERIFY(std::isnan(Statistics::percentile({}, 50)));
    }

    // The same answers through the tool and through the window's own slot:
    // the same values, the same reversals, the same threshold, and the run
    // ends at the same answer.
    void toolEndsWhereTheWindowEnds_data()
    {
        QTest::addColumn<int>("mainParameter");
        QTest::addColumn<double>("shareRight");
        QTest::addColumn<int>("leadingWrong");
        QTest::addColumn<quint64>("seed");
        QTest::newRow("depth, chance") << 1 << 0.5 << 0 << quint64(1);
        QTest::newRow("depth, into the ceiling first") << 1 << 0.7 << 6 << quint64(3);
        QTest::newRow("frequency, two thirds") << 0 << 0.67 << 0 << quint64(4);
        QTest::newRow("frequency, into the ceiling first") << 0 << 0.6 << 12 << quint64(5);
    }

    void toolEndsWhereTheWindowEnds()
    {
        QFETCH(int, mainParameter);
        QFETCH(double, shareRight);
        QFETCH(int, leadingWrong);
        QFETCH(quint64, seed);
        std::mt19937_64 generator(seed);
        QVector<bool> answers(leadingWrong, false);
        while (answers.size() < 500)
            answers.append(std::uniform_real_distribution<double>()(generator) < shareRight);

        int toolAnswers = 0;
        const RunOutcome tool = Simulation::run(Simulation::startRecord(mainParameter), generator,
                                                scripted(answers, toolAnswers), answers.size());
        QVERIFY(tool.finished);
        QVERIFY(tool.reachedUpperLimit || leadingWrong == 0);

        MainWindow window;
        if (mainParameter == 0) {
            window.comboBoxSoundType->setCurrentIndex(0);
            window.comboBoxMainParameter->setCurrentIndex(0);
        }
        window.on_pushButtonView_clicked();
        QSignalSpy done(&window, &MainWindow::doneDataCollection);
        window.updateMainwindow(0);
        int windowAnswers = 0;
        const Simulation::Responder participant = scripted(answers, windowAnswers);
        while (done.isEmpty() && windowAnswers < answers.size())
            window.updateMainwindow(participant(0.0, window.params.stimPosition));
        window.soundTimer->stop();

        QCOMPARE(done.count(), 1);
        QCOMPARE(windowAnswers, toolAnswers);
        QCOMPARE(window.params.trials.size(), tool.trials.size());
        for (int i = 0; i < tool.trials.size(); ++i) {
            QCOMPARE(window.params.trials[i].value, tool.trials[i].value);
            QCOMPARE(window.params.trials[i].correct, tool.trials[i].correct);
            QVERIFY(tool.trials[i].stimPosition == 2 || tool.trials[i].stimPosition == 3);
        }
        QCOMPARE(window.params.reversalValues, tool.reversalValues);
        QCOMPARE(window.params.threshold, tool.threshold);
        QCOMPARE(done.first().at(0).toDouble(), tool.threshold);
    }

    // Once the steps are 1 dB the reversals alternate between the last value
    // at or below the switch and the value 2 dB above it; their mean lies at
    // most 20·log10((1 + 10^(2/20)) / 2) ≈ 1.05 dB above the switch.
    void stepListenerConvergence()
    {
        const double ceiling = decibels((1.0 + std::pow(10.0, 2.0 / 20.0)) / 2.0);
        // Depth (1) and frequency (0) runs; -2.5 dB lies just below the depth's limit.
        for (auto [mainParameter, switchDb] :
             {qMakePair(1, -20.0), qMakePair(1, -2.5), qMakePair(0, -46.0)}) {
            for (const RunOutcome &outcome :
                 runMany(mainParameter, 50, 99, Listener::step(switchDb))) {
                const double above = decibels(outcome.threshold) - switchDb;
                QVERIFY2(outcome.finished && above >= 0.0 && above <= ceiling + 1e-9,
                         qPrintable(QString("switch %1 dB: %2 dB above").arg(switchDb).arg(above)));
            }
        }
    }

    // A steep listener (beta 1 dB) over many runs: the mean threshold lies
    // within 1 dB of its 2/3-correct point. p = 2/3 means F = 1/3, F(z) = 1/3
    // at z = −ln 2.
    void steepListenerConvergesOnTwoThirds()
    {
        for (auto [mainParameter, alpha] : {qMakePair(1, -20.0), qMakePair(0, -46.0)}) {
            const Listener listener = Listener::logistic(alpha, 1.0, 0.0);
            const SimulationSummary summary =
                SimulationSummary::of(runMany(mainParameter, 2000, 2024, listener), listener,
                                      Simulation::startRecord(mainParameter));
            QCOMPARE(summary.finishedRuns, 2000);
            const double twoThirdsPoint = alpha - std::log(2.0);
            QVERIFY2(std::abs(summary.meanThresholdDb - twoThirdsPoint) < 1.0,
                     qPrintable(QString::number(summary.meanThresholdDb)));
            QVERIFY(std::abs(summary.targetLevelDb - twoThirdsPoint) < 1e-9);
            QVERIFY(std::abs(summary.targetPercentCorrect - 200.0 / 3.0) < 1e-9);
        }
    }

    // A listener that hears little even at the ceiling drives the track into
    // it, and one always wrong there never reverses: the run is abandoned
    // after the trials allowed, at the limit, with no threshold.
    void trackedValueStaysWithinItsLimit()
    {
        for (int mainParameter : {0, 1}) {
            const double limit = mainParameter == 0 ? 0.9999 : 1.0;
            QCOMPARE(Simulation::upperLimit(Simulation::startRecord(mainParameter)), limit);
            const Listener listener = Listener::logistic(6.0, 4.0, 0.0);
            const QVector<RunOutcome> outcomes = runMany(mainParameter, 200, 17, listener);
            int atLimit = 0;
            for (const RunOutcome &outcome : outcomes) {
                bool presentedLimit = false;
                for (const TrialRecord &record : outcome.trials) {
                    QVERIFY(record.value <= limit);
                    presentedLimit = presentedLimit || record.value == limit;
                }
                QCOMPARE(outcome.reachedUpperLimit, presentedLimit);
                atLimit += presentedLimit;
            }
            QVERIFY(atLimit > 0);
            const SimulationSummary summary =
                SimulationSummary::of(outcomes, listener, Simulation::startRecord(mainParameter));
            QVERIFY(std::abs(summary.upperLimitShare - double(atLimit) / outcomes.size()) < 1e-12);

            std::mt19937_64 generator(5);
            const Listener deaf = Listener::step(1.0);
            const RunOutcome abandoned = Simulation::run(
                Simulation::startRecord(mainParameter), generator,
                [&](double x, int position) { return deaf.respond(x, position, generator); }, 300);
            QVERIFY(!abandoned.finished && abandoned.reachedUpperLimit);
            QVERIFY(std::isnan(abandoned.threshold));
            QCOMPARE(abandoned.trials.size(), 300);
            QCOMPARE(abandoned.trials.last().value, limit);
        }
    }

    void tabSeparatedFile()
    {
        QVector<bool> never(60, false);
        int next = 0;
        std::mt19937_64 generator(2);
        const QVector<RunOutcome> outcomes{
            Simulation::run(Simulation::startRecord(1), generator, scripted(never, next), 60),
            runMany(1, 1, 4, Listener::step(-20.0))[0]};
        const QStringList lines =
            Report::tabSeparated(Simulation::startRecord(1), outcomes).split('\n');
        QCOMPARE(lines.size(), 4); // header, two runs, the empty text after the last newline
        QCOMPARE(lines[0], QString("run\ttrials\treversals\tthreshold (%)\tthreshold (dB)\t"
                                   "reached upper limit\tfinished"));
        QCOMPARE(lines[1], QString("1\t60\t0\t\t\t1\t0"));
        const QStringList second = lines[2].split('\t');
        QCOMPARE(second[1].toInt(), outcomes[1].trials.size());
        QVERIFY(std::abs(second[3].toDouble() - 100.0 * outcomes[1].threshold) < 1e-5);
        QVERIFY(std::abs(second[4].toDouble() - decibels(outcomes[1].threshold)) < 1e-4);
        QCOMPARE(second[6], QString("1"));
    }

    // The same seed gives the same table and file, another seed another;
    // the plot is drawn; bad arguments are refused with a message.
    void toolRuns()
    {
        QTemporaryDir dir;
        const QStringList common{"--runs", "300", "--beta", "4", "--quantity", "frequency"};
        const QString tsvA = dir.filePath("a.tsv"), tsvB = dir.filePath("b.tsv");
        const QString png = dir.filePath("plot.png");
        const QByteArray a =
            runTool(common + QStringList{"--seed", "7", "--tsv", tsvA, "--plot", png});
        const QByteArray b = runTool(common + QStringList{"--seed", "7", "--tsv", tsvB});
        QVERIFY2(a.contains("Threshold (Hz)"), a.constData());
        QCOMPARE(a, b);
        QVERIFY(a != runTool(common + QStringList{"--seed", "8"}));
        QFile fileA(tsvA), fileB(tsvB);
        QVERIFY(fileA.open(QIODevice::ReadOnly) && fileB.open(QIODevice::ReadOnly));
        const QByteArray contents = fileA.readAll();
        QCOMPARE(contents.count('\n'), 301);
        QCOMPARE(contents, fileB.readAll());

        const QImage image(png);
        QVERIFY(image.width() > 1000 && image.height() > 400);
        // Something was drawn: the picture is not one flat colour.
        QSet<QRgb> colours;
        for (int y = 0; y < image.height(); y += 7)
            for (int x = 0; x < image.width(); x += 7)
                colours.insert(image.pixel(x, y));
        QVERIFY(colours.size() > 10);

        for (const QStringList &bad :
             {QStringList{"--beta", "0"}, QStringList{"--lapse", "0.5"},
              QStringList{"--quantity", "level"}, QStringList{"--runs", "zero"},
              QStringList{"--reversals", "0"}}) {
            const QByteArray result = runTool(bad);
            QVERIFY2(result.startsWith("failed: ") && result.contains("simulate-listener: "),
                     qPrintable(bad.join(' ')));
        }
    }
};

QTEST_MAIN(TestSimulateListener)
#include "tst_simulatelistener.moc"
