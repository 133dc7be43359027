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
#include <QTimer>
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
        const bool right = answers.at(next++);
        return right ? stimPosition : 5 - stimPosition;
    };
}

QByteArray runTool(const QStringList &arguments)
{
    QProcess tool;
    tool.start(QStringLiteral(SIMULATE_LISTENER_PATH), arguments);
    if (!tool.waitForFinished(60000) || tool.exitStatus() != QProcess::NormalExit ||
        tool.exitCode() != 0)
        return QByteArray("failed: ") + tool.readAllStandardError();
    return tool.readAllStandardOutput();
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

class TestSimulateListener : public QObject
{
    Q_OBJECT

private slots:
    void logisticListener_data()
    {
        QTest::addColumn<double>("alpha");
        QTest::addColumn<double>("beta");
        QTest::addColumn<double>("lapse");
        QTest::addColumn<double>("levelDb");
        QTest::addColumn<double>("expected");
        // F(0) = 1/2, F(ln 3) = 3/4, F(−ln 3) = 1/4.
        QTest::newRow("at alpha") << -20.0 << 2.0 << 0.0 << -20.0 << 0.75;
        QTest::newRow("at alpha with lapse") << -20.0 << 2.0 << 0.02 << -20.0 << 0.74;
        QTest::newRow("beta ln 3 above")
            << -30.0 << 4.0 << 0.0 << -30.0 + 4.0 * std::log(3.0) << 0.875;
        QTest::newRow("beta ln 3 below")
            << -30.0 << 4.0 << 0.1 << -30.0 - 4.0 * std::log(3.0) << 0.5 + 0.4 * 0.25;
        QTest::newRow("far below is chance") << -20.0 << 1.0 << 0.0 << -80.0 << 0.5;
        QTest::newRow("far above is 1 - lapse") << -20.0 << 1.0 << 0.05 << 0.0 << 0.95;
    }

    void logisticListener()
    {
        QFETCH(double, alpha);
        QFETCH(double, beta);
        QFETCH(double, lapse);
        QFETCH(double, levelDb);
        QFETCH(double, expected);
        const Listener listener = Listener::logistic(alpha, beta, lapse);
        QVERIFY(std::abs(listener.probabilityCorrect(level(levelDb)) - expected) < 1e-6);
        // Inverse: the level of a probability lands back on it.
        const double back = listener.probabilityCorrect(level(listener.levelDbAt(0.6)));
        QVERIFY(std::abs(back - 0.6) < 1e-9);
    }

    void twoThirdsPointAndResponses()
    {
        // p = 2/3 means F = 1/3, F(z) = 1/3 at z = −ln 2.
        const Listener listener = Listener::logistic(-20.0, 3.0, 0.0);
        QVERIFY(std::abs(listener.levelDbAt(2.0 / 3.0) - (-20.0 - 3.0 * std::log(2.0))) < 1e-9);
        QVERIFY(std::isnan(listener.levelDbAt(0.5)));
        QVERIFY(std::isnan(Listener::logistic(-20.0, 3.0, 0.1).levelDbAt(0.95)));

        // At alpha the listener is right three times in four, whichever sound is the deviant.
        std::mt19937_64 generator(11);
        const int trials = 40000;
        int right = 0;
        for (int i = 0; i < trials; ++i) {
            const int position = 2 + i % 2;
            const int answer = listener.respond(0.1, position, generator);
            QVERIFY(answer == 2 || answer == 3);
            right += answer == position;
        }
        // Binomial SD of the share is 0.0022; allow five of them.
        QVERIFY2(std::abs(double(right) / trials - 0.75) < 0.011,
                 qPrintable(QString::number(double(right) / trials)));
    }

    void stepListenerAnswers()
    {
        const Listener listener = Listener::step(-20.0);
        std::mt19937_64 generator(3);
        QCOMPARE(listener.respond(level(-19.99), 3, generator), 3);
        QCOMPARE(listener.respond(level(-20.01), 3, generator), 2);
        QCOMPARE(listener.respond(0.1 * 0.999999, 2, generator), 3);
        QCOMPARE(listener.respond(0.0, 2, generator), 3);
    }

    void statistics()
    {
        const QVector<double> sample{2, 4, 4, 4, 5, 5, 7, 9};
        QVERIFY(std::abs(Statistics::mean(sample) - 5.0) < 1e-12);
        QVERIFY(std::abs(Statistics::standardDeviation(sample) - std::sqrt(32.0 / 7.0)) < 1e-12);
        QCOMPARE(Statistics::standardDeviation({3.0}), 0.0);

        const QVector<double> shuffled{5, 1, 4, 2, 3};
        QVERIFY(std::abs(Statistics::percentile(shuffled, 50) - 3.0) < 1e-12);
        QVERIFY(std::abs(Statistics::percentile(shuffled, 25) - 2.0) < 1e-12);
        QVERIFY(std::abs(Statistics::percentile(shuffled, 10) - 1.4) < 1e-12);
        QVERIFY(std::abs(Statistics::percentile(shuffled, 95) - 4.8) < 1e-12);
        QVERIFY(std::abs(Statistics::percentile(shuffled, 100) - 5.0) < 1e-12);
        QVERIFY(std::isnan(Statistics::percentile({}, 50)));
    }

    void scriptedRunFollowsTheStaircase()
    {
        // Right, right, wrong, right from a depth of 0.5: values 0.5, 0.397164,
        // 0.315479, 0.5; reversals at the third and fourth answers. Then the
        // answers alternate, every one a reversal, until the 14th.
        QVector<bool> answers{true, true, false, true};
        while (answers.size() < 40)
            answers.append(!answers.last());
        int next = 0;
        std::mt19937_64 generator(1);
        const RunOutcome outcome =
            Simulation::run(Simulation::startRecord(1), generator, scripted(answers, next), 1000);
        QVERIFY(outcome.finished);
        QCOMPARE(outcome.trials.size(), 16); // 2 reversals + 12 more, one per answer
        QCOMPARE(next, 16);
        QCOMPARE(outcome.reversalValues.size(), 14);
        const QVector<double> first{0.5, 0.397164, 0.315479, 0.5};
        for (int i = 0; i < first.size(); ++i)
            QVERIFY(std::abs(outcome.trials[i].value - first[i]) < 1e-6);
        QVERIFY(std::abs(outcome.reversalValues[0] - 0.315479) < 1e-6);
        QVERIFY(std::abs(outcome.reversalValues[1] - 0.5) < 1e-6);
        for (const TrialRecord &record : outcome.trials)
            QVERIFY(record.stimPosition == 2 || record.stimPosition == 3);
        // From the fourth trial's 0.5 on the steps are −1 dB, +2 dB, −1 dB, ...
        // The 7th to 14th reversals come at trials 9 to 16, at these dB re 0.5.
        double sum = 0.0;
        for (double db : {1, 3, 2, 4, 3, 5, 4, 6})
            sum += 0.5 * level(db);
        QVERIFY(std::abs(outcome.threshold - sum / 8.0) < 1e-9);
    }

    void runWithoutReversalsIsAbandoned()
    {
        // A listener always wrong at the ceiling never reverses there.
        for (int mainParameter : {0, 1}) {
            std::mt19937_64 generator(5);
            const Listener listener = Listener::step(1.0);
            const RunOutcome outcome = Simulation::run(
                Simulation::startRecord(mainParameter), generator,
                [&](double x, int position) { return listener.respond(x, position, generator); },
                300);
            QVERIFY(!outcome.finished);
            QVERIFY(std::isnan(outcome.threshold));
            QCOMPARE(outcome.trials.size(), 300);
            QVERIFY(outcome.reachedUpperLimit);
            QCOMPARE(outcome.trials.last().value, mainParameter == 0 ? 0.9999 : 1.0);
        }
    }

    void toolEndsWhereTheWindowEnds_data()
    {
        QTest::addColumn<int>("mainParameter");
        QTest::addColumn<double>("shareRight");
        QTest::addColumn<int>("leadingWrong");
        QTest::addColumn<quint64>("seed");
        QTest::newRow("depth, chance") << 1 << 0.5 << 0 << quint64(1);
        QTest::newRow("depth, mostly right") << 1 << 0.85 << 0 << quint64(2);
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
        std::mt19937_64 answerSource(seed);
        QVector<bool> answers(leadingWrong, false);
        while (answers.size() < 500)
            answers.append(std::uniform_real_distribution<double>()(answerSource) < shareRight);

        int toolAnswers = 0;
        std::mt19937_64 generator(seed);
        const RunOutcome tool = Simulation::run(Simulation::startRecord(mainParameter), generator,
                                                scripted(answers, toolAnswers), answers.size());
        QVERIFY(tool.finished);

        // The window, from View, answered through the participant window's signal slot.
        MainWindow window;
        if (mainParameter == 0) {
            window.comboBoxSoundType->setCurrentIndex(0);
            window.comboBoxMainParameter->setCurrentIndex(0);
        }
        window.on_pushButtonView_clicked();
        QSignalSpy done(&window, &MainWindow::doneDataCollection);
        window.updateMainwindow(0);
        int windowAnswers = 0;
        while (done.isEmpty() && windowAnswers < answers.size()) {
            const int position = window.params.stimPosition;
            window.updateMainwindow(answers[windowAnswers++] ? position : 5 - position);
        }
        window.soundTimer->stop();

        QCOMPARE(done.count(), 1);
        QCOMPARE(windowAnswers, toolAnswers);
        QCOMPARE(window.params.trials.size(), tool.trials.size());
        for (int i = 0; i < tool.trials.size(); ++i) {
            QCOMPARE(window.params.trials[i].value, tool.trials[i].value);
            QCOMPARE(window.params.trials[i].correct, tool.trials[i].correct);
        }
        QCOMPARE(window.params.reversalValues, tool.reversalValues);
        QCOMPARE(window.params.threshold, tool.threshold);
        QCOMPARE(done.first().at(0).toDouble(), tool.threshold);
        if (leadingWrong > 0)
            QVERIFY(tool.reachedUpperLimit);
    }

    void stepListenerConvergence_data()
    {
        QTest::addColumn<int>("mainParameter");
        QTest::addColumn<double>("switchDb");
        QTest::newRow("depth -20 dB") << 1 << -20.0;
        QTest::newRow("depth -13.37 dB") << 1 << -13.37;
        QTest::newRow("depth -2.5 dB near the limit") << 1 << -2.5;
        QTest::newRow("frequency -46 dB") << 0 << -46.0;
        QTest::newRow("frequency -31.8 dB") << 0 << -31.8;
    }

    void stepListenerConvergence()
    {
        QFETCH(int, mainParameter);
        QFETCH(double, switchDb);
        SimulationSettings settings;
        settings.start = Simulation::startRecord(mainParameter);
        settings.runs = 50;
        settings.seed = 99;
        const QVector<RunOutcome> outcomes =
            Simulation::runMany(settings, Listener::step(switchDb));
        const double ceiling = decibels((1.0 + std::pow(10.0, 2.0 / 20.0)) / 2.0);
        for (const RunOutcome &outcome : outcomes) {
            QVERIFY(outcome.finished);
            const double above = decibels(outcome.threshold) - switchDb;
            QVERIFY2(above >= 0.0 && above <= ceiling + 1e-9, qPrintable(QString::number(above)));
        }
    }

    void steepListenerConvergesOnTwoThirds_data()
    {
        QTest::addColumn<int>("mainParameter");
        QTest::addColumn<double>("alpha");
        QTest::addColumn<double>("beta");
        QTest::newRow("depth, beta 1") << 1 << -20.0 << 1.0;
        QTest::newRow("depth, beta 0.5") << 1 << -15.0 << 0.5;
        QTest::newRow("frequency, beta 1") << 0 << -46.0 << 1.0;
    }

    void steepListenerConvergesOnTwoThirds()
    {
        QFETCH(int, mainParameter);
        QFETCH(double, alpha);
        QFETCH(double, beta);
        SimulationSettings settings;
        settings.start = Simulation::startRecord(mainParameter);
        settings.runs = 2000;
        settings.seed = 2024;
        const Listener listener = Listener::logistic(alpha, beta, 0.0);
        const QVector<RunOutcome> outcomes = Simulation::runMany(settings, listener);
        const SimulationSummary summary = SimulationSummary::of(outcomes, listener, settings.start);
        QCOMPARE(summary.finishedRuns, 2000);
        const double twoThirdsPoint = alpha - beta * std::log(2.0);
        QVERIFY2(std::abs(summary.meanThresholdDb - twoThirdsPoint) < 1.0,
                 qPrintable(QString::number(summary.meanThresholdDb)));
        QVERIFY(std::abs(summary.targetLevelDb - twoThirdsPoint) < 1e-9);
        QVERIFY(std::abs(summary.targetPercentCorrect - 200.0 / 3.0) < 1e-9);
    }

    void trackedValueStaysWithinItsLimit()
    {
        // A listener that hears little even at the ceiling drives the track into it.
        for (int mainParameter : {0, 1}) {
            SimulationSettings settings;
            settings.start = Simulation::startRecord(mainParameter);
            settings.runs = 200;
            settings.seed = 17;
            const double limit = mainParameter == 0 ? 0.9999 : 1.0;
            QCOMPARE(Simulation::upperLimit(settings.start), limit);
            const Listener listener = Listener::logistic(6.0, 4.0, 0.0);
            const QVector<RunOutcome> outcomes = Simulation::runMany(settings, listener);
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
                SimulationSummary::of(outcomes, listener, settings.start);
            QVERIFY(std::abs(summary.upperLimitShare - double(atLimit) / outcomes.size()) < 1e-12);
        }
    }

    void tabSeparatedFile()
    {
        QVector<bool> never(60, false);
        int next = 0;
        std::mt19937_64 generator(2);
        QVector<RunOutcome> outcomes;
        outcomes.append(
            Simulation::run(Simulation::startRecord(1), generator, scripted(never, next), 60));
        outcomes.append(
            Simulation::runMany({Simulation::startRecord(1), 1, 4, 1000}, Listener::step(-20.0)));
        const QStringList lines =
            Report::tabSeparated(Simulation::startRecord(1), outcomes).split('\n');
        QCOMPARE(lines.size(), 4); // header, two runs, the empty text after the last newline
        QCOMPARE(lines[0], QString("run\ttrials\treversals\tthreshold (%)\tthreshold (dB)\t"
                                   "reached upper limit\tfinished"));
        QCOMPARE(lines[1], QString("1\t60\t0\t\t\t1\t0"));
        const QStringList second = lines[2].split('\t');
        QCOMPARE(second.size(), 7);
        QCOMPARE(second[1].toInt(), outcomes[1].trials.size());
        QVERIFY(std::abs(second[3].toDouble() - 100.0 * outcomes[1].threshold) < 1e-5);
        QVERIFY(std::abs(second[4].toDouble() - decibels(outcomes[1].threshold)) < 1e-4);
        QCOMPARE(second[6], QString("1"));
    }

    void sameSeedSameOutput()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QStringList common{"--runs", "300", "--beta", "4", "--quantity", "frequency"};
        const QString tsvA = dir.filePath("a.tsv");
        const QString tsvB = dir.filePath("b.tsv");
        const QByteArray a = runTool(common + QStringList{"--seed", "7", "--tsv", tsvA});
        const QByteArray b = runTool(common + QStringList{"--seed", "7", "--tsv", tsvB});
        const QByteArray c = runTool(common + QStringList{"--seed", "8"});
        QVERIFY2(a.contains("Threshold (Hz)"), a.constData());
        QCOMPARE(a, b);
        QVERIFY(a != c);
        QCOMPARE(contents(tsvA).count('\n'), 301);
        QCOMPARE(contents(tsvA), contents(tsvB));
    }

    void plotAndBadArguments()
    {
        QTemporaryDir dir;
        const QString png = dir.filePath("plot.png");
        const QByteArray out =
            runTool({"--runs", "100", "--seed", "1", "--listener", "step", "--plot", png});
        QVERIFY2(!out.startsWith("failed"), out.constData());
        QImage image(png);
        QVERIFY(!image.isNull());
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
            QProcess tool;
            tool.start(QStringLiteral(SIMULATE_LISTENER_PATH), bad);
            QVERIFY(tool.waitForFinished(30000));
            QVERIFY2(tool.exitCode() != 0, qPrintable(bad.join(' ')));
            QVERIFY(tool.readAllStandardError().contains("simulate-listener: "));
        }
    }
};

QTEST_MAIN(TestSimulateListener)
#include "tst_simulatelistener.moc"
