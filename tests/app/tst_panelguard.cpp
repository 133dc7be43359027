#include "app/panelguard.h"
#include "app/sessionparameters.h"

#include <QtTest>

#include <functional>
#include <limits>

// A change to a record that passes the guard.
using Change = std::function<void(SessionParameters &)>;
Q_DECLARE_METATYPE(Change)

// The limits checked here are the ones documented for researchers in README.md.
class TestPanelGuard : public QObject
{
    Q_OBJECT

    static QStringList fields(const QVector<PanelGuard::Problem> &problems)
    {
        QStringList names;
        for (const PanelGuard::Problem &problem : problems)
            names.append(problem.field);
        return names;
    }

    static const double nan;
    static const double inf;

private slots:
    void startUpRecordsPass()
    {
        SessionParameters p;
        QVERIFY(PanelGuard::check(p).isEmpty());
        p.mainParameter = 1;
        p.soundType = 1;
        p.frequencyDifference[1] = 0.0;
        QVERIFY(PanelGuard::check(p).isEmpty());
    }

    void fieldsAndLimits_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QStringList>("expected");
        const QStringList none;
        auto row = [](const char *name, Change change, QStringList expected) {
            QTest::newRow(name) << change << expected;
        };

        row(
            "rate 8000", [](SessionParameters &p) { p.samplingRate = 8000; }, none);
        row(
            "rate 192000", [](SessionParameters &p) { p.samplingRate = 192000; }, none);
        row("rate 7999", [](SessionParameters &p) { p.samplingRate = 7999; }, {"Sampling rate"});
        row("rate 192001", [](SessionParameters &p) { p.samplingRate = 192001; },
            {"Sampling rate"});
        // An unusable rate is reported alone: durations and frequencies are not
        // judged against it.
        row("rate 0", [](SessionParameters &p) { p.samplingRate = 0; }, {"Sampling rate"});
        row("rate nan", [](SessionParameters &p) { p.samplingRate = nan; }, {"Sampling rate"});
        row("rate inf", [](SessionParameters &p) { p.samplingRate = inf; }, {"Sampling rate"});

        // 2 samples at 40000 Hz take 0.05 ms.
        row("duration 1 sample", [](SessionParameters &p) { p.duration[0] = 0.0000499; },
            {"Duration (ms) Standard"});
        row(
            "duration 2 samples", [](SessionParameters &p) { p.duration[1] = 0.0000501; }, none);
        row(
            "duration 10 s",
            [](SessionParameters &p) {
                p.duration = {10.0, 10.0};
            },
            none);
        row("duration above 10 s", [](SessionParameters &p) { p.duration[1] = 10.001; },
            {"Duration (ms) Deviant"});
        row("duration negative", [](SessionParameters &p) { p.duration[0] = -0.6; },
            {"Duration (ms) Standard"});
        row("duration huge", [](SessionParameters &p) { p.duration[0] = 1e300; },
            {"Duration (ms) Standard"});
        row("duration nan", [](SessionParameters &p) { p.duration[1] = nan; },
            {"Duration (ms) Deviant"});
        row("duration 0 with bad rate",
            [](SessionParameters &p) {
                p.samplingRate = -1;
                p.duration[0] = 0;
            },
            {"Duration (ms) Standard", "Sampling rate"});

        row(
            "silent interval 0", [](SessionParameters &p) { p.silentInterval = 0; }, none);
        row(
            "silent interval 60 s", [](SessionParameters &p) { p.silentInterval = 60; }, none);
        row("silent interval negative", [](SessionParameters &p) { p.silentInterval = -0.001; },
            {"Silent interval (ms)"});
        row("silent interval above 60 s", [](SessionParameters &p) { p.silentInterval = 60.001; },
            {"Silent interval (ms)"});
        row("silent interval inf", [](SessionParameters &p) { p.silentInterval = inf; },
            {"Silent interval (ms)"});

        row(
            "carrier just below half the rate",
            [](SessionParameters &p) {
                p.carrierFrequency = {19999.99, 19999.99};
            },
            none);
        row("carrier at half the rate",
            [](SessionParameters &p) {
                p.resetMdFd = false;
                p.carrierFrequency[1] = 20000;
            },
            {"Carrier frequency (Hz) Deviant"});
        row("carrier negative",
            [](SessionParameters &p) {
                p.resetMdFd = false;
                p.carrierFrequency[1] = -1;
            },
            {"Carrier frequency (Hz) Deviant"});
        // After the reset the deviant carrier follows the standard's, which is
        // the field to correct.
        row("reset carrier follows the standard",
            [](SessionParameters &p) {
                p.carrierFrequency = {-1, -0.95};
            },
            {"Carrier frequency (Hz) Standard"});
        row("standard carrier 0 tracking frequency",
            [](SessionParameters &p) { p.carrierFrequency[0] = 0; },
            {"Carrier frequency (Hz) Standard"});
        row(
            "standard carrier 0 tracking depth",
            [](SessionParameters &p) {
                p.mainParameter = 1;
                p.carrierFrequency = {0, 0};
                p.frequencyDifference = {0, 0};
            },
            none);
        row(
            "deviant carrier 0 tracking frequency",
            [](SessionParameters &p) { p.carrierFrequency[1] = 0; }, none);
        row("carrier nan", [](SessionParameters &p) { p.carrierFrequency[0] = nan; },
            {"Carrier frequency (Hz) Standard"});
        row("carrier above a lowered rate",
            [](SessionParameters &p) {
                p.resetMdFd = false;
                p.samplingRate = 8000;
                p.carrierFrequency = {4000, 4000};
            },
            {"Carrier frequency (Hz) Standard", "Carrier frequency (Hz) Deviant"});

        row(
            "modulation frequency 0", [](SessionParameters &p) { p.modulationFrequency[0] = 0; },
            none);
        row("modulation frequency negative",
            [](SessionParameters &p) { p.modulationFrequency[0] = -40; },
            {"Modulation frequency (Hz) Standard"});
        row("modulation frequency at half the rate",
            [](SessionParameters &p) { p.modulationFrequency[1] = 20000; },
            {"Modulation frequency (Hz) Deviant"});

        row(
            "depth 0 and 100 %",
            [](SessionParameters &p) {
                p.modulationDepth = {0.0, 1.0};
            },
            none);
        row("depth above 100 %", [](SessionParameters &p) { p.modulationDepth[1] = 1.0001; },
            {"Modulation depth (%) Deviant"});
        row("depth negative", [](SessionParameters &p) { p.modulationDepth[0] = -0.0001; },
            {"Modulation depth (%) Standard"});

        row(
            "difference at the staircase limit",
            [](SessionParameters &p) { p.frequencyDifference[1] = 0.9999; }, none);
        row("difference of the whole carrier",
            [](SessionParameters &p) { p.frequencyDifference[1] = 1.0; },
            {"Frequency difference (Hz) Deviant"});
        row("difference negative", [](SessionParameters &p) { p.frequencyDifference[0] = -0.01; },
            {"Frequency difference (Hz) Standard"});
        row("difference inf", [](SessionParameters &p) { p.frequencyDifference[1] = inf; },
            {"Frequency difference (Hz) Deviant"});

        row(
            "reversals 1", [](SessionParameters &p) { p.numberOfReversals = 1; }, none);
        row(
            "reversals 100", [](SessionParameters &p) { p.numberOfReversals = 100; }, none);
        row("reversals 0", [](SessionParameters &p) { p.numberOfReversals = 0; },
            {"Number of reversals"});
        row("reversals 101", [](SessionParameters &p) { p.numberOfReversals = 101; },
            {"Number of reversals"});
        row(
            "reversals to calculate 1", [](SessionParameters &p) { p.reversalsToCalculate = 1; },
            none);
        row("reversals to calculate 0", [](SessionParameters &p) { p.reversalsToCalculate = 0; },
            {"Reversals to calculate"});
        // With no usable number of reversals, the count lowered to it is not
        // what was typed: only the number of reversals is reported.
        row("both reversal counts 0",
            [](SessionParameters &p) {
                p.numberOfReversals = 0;
                p.reversalsToCalculate = 0;
            },
            {"Number of reversals"});

        row("several fields in panel order",
            [](SessionParameters &p) {
                p.resetMdFd = false;
                p.silentInterval = -1;
                p.modulationDepth[0] = 2;
                p.carrierFrequency[1] = -5;
                p.numberOfReversals = 0;
            },
            {"Carrier frequency (Hz) Deviant", "Modulation depth (%) Standard",
             "Number of reversals", "Silent interval (ms)"});
    }

    void fieldsAndLimits()
    {
        QFETCH(Change, change);
        QFETCH(QStringList, expected);
        SessionParameters p;
        change(p);
        QCOMPARE(fields(PanelGuard::check(p)), expected);
    }

    void acceptedRangesNameTheLimits()
    {
        SessionParameters p;
        p.samplingRate = 1;
        p.silentInterval = 100;
        p.numberOfReversals = 500;
        QVector<PanelGuard::Problem> problems = PanelGuard::check(p);
        QCOMPARE(problems.size(), 3);
        QVERIFY(problems[0].accepted.contains("1 to 100"));
        QVERIFY(problems[1].accepted.contains("0 to 60000 ms"));
        QVERIFY(problems[2].accepted.contains("8000 to 192000"));

        // At a usable rate the limits follow from it: half of 44100 Hz, and the
        // shortest duration rounded up to the panel's hundredths of a ms.
        p = SessionParameters();
        p.samplingRate = 44100;
        p.carrierFrequency[0] = 30000;
        p.duration[1] = 0;
        p.frequencyDifference[1] = 1.5;
        problems = PanelGuard::check(p);
        QCOMPARE(fields(problems),
                 QStringList({"Carrier frequency (Hz) Standard",
                              "Frequency difference (Hz) Deviant", "Duration (ms) Deviant"}));
        QVERIFY2(problems[0].accepted.contains("22050 Hz"), qPrintable(problems[0].accepted));
        QVERIFY2(problems[0].accepted.contains("above 0 Hz"), qPrintable(problems[0].accepted));
        QVERIFY2(problems[1].accepted.contains("0 to 29997 Hz"), qPrintable(problems[1].accepted));
        QVERIFY2(problems[2].accepted.contains("0.05 ms at 44100 Hz"),
                 qPrintable(problems[2].accepted));
        QVERIFY2(problems[2].accepted.contains("10000 ms"), qPrintable(problems[2].accepted));
    }

    void descriptionListsEveryProblem()
    {
        const QString text =
            PanelGuard::describe({{"Sampling rate", "8000 to 192000 samples per second"},
                                  {"Number of reversals", "1 to 100"}});
        QVERIFY(text.contains("\nSampling rate: 8000 to 192000 samples per second\n"));
        QVERIFY(text.endsWith("\nNumber of reversals: 1 to 100"));
    }
};

const double TestPanelGuard::nan = std::numeric_limits<double>::quiet_NaN();
const double TestPanelGuard::inf = std::numeric_limits<double>::infinity();

QTEST_GUILESS_MAIN(TestPanelGuard)
#include "tst_panelguard.moc"
