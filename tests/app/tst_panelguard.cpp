#include "app/panelguard.h"
#include "app/sessionparameters.h"

#include <QtTest>

#include <functional>
#include <limits>

using P = SessionParameters;
// A change to a record that passes the guard.
using Change = std::function<void(P &)>;
Q_DECLARE_METATYPE(Change)

namespace
{
const double notANumber = std::numeric_limits<double>::quiet_NaN();

QStringList fields(const QVector<PanelGuard::Problem> &problems)
{
    QStringList names;
    for (const PanelGuard::Problem &problem : problems)
        names.append(problem.field);
    return names;
}

void row(const char *name, const QStringList &expected, const Change &change)
{
    QTest::newRow(name) << change << expected;
}
} // namespace

// The limits checked here are the ones documented for researchers in README.md.
class TestPanelGuard : public QObject
{
    Q_OBJECT

private slots:
    void fieldsAndLimits_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QStringList>("expected");
        const QString cfStd = "Carrier frequency (Hz) Standard";
        const QString cfDev = "Carrier frequency (Hz) Deviant";
        // A record with every field at one end of its range tells by the
        // fields listed which limit is wrong, and that they come in panel order.
        // 2 samples at 8000 Hz take 0.25 ms.
        row("lowest accepted values", {}, [](P &p) {
            p.resetMdFd = false;
            p.samplingRate = 8000;
            p.carrierFrequency = {0.01, 0};
            p.modulationFrequency = {0, 0};
            p.modulationDepth = {0, 0};
            p.frequencyDifference = {0, 0};
            p.duration = {2.501e-4, 2.501e-4};
            p.silentInterval = 0;
            p.numberOfReversals = 1;
            p.reversalsToCalculate = 1;
        });
        row("just below the lowest",
            {cfStd, cfDev, "Modulation frequency (Hz) Standard", "Modulation depth (%) Standard",
             "Frequency difference (Hz) Standard", "Duration (ms) Standard", "Number of reversals",
             "Silent interval (ms)"},
            [](P &p) {
                p.resetMdFd = false;
                p.samplingRate = 8000;
                p.carrierFrequency = {0, -0.01};
                p.modulationFrequency[0] = -0.01;
                p.modulationDepth[0] = -0.0001;
                p.frequencyDifference[0] = -0.01;
                p.duration[0] = 2.49e-4;
                p.numberOfReversals = 0;
                p.silentInterval = -0.001;
            });
        row("highest accepted values", {}, [](P &p) {
            p.resetMdFd = false;
            p.samplingRate = 192000;
            p.carrierFrequency = {95999.99, 95999.99};
            p.modulationFrequency = {95999.99, 95999.99};
            p.modulationDepth = {1, 1};
            p.frequencyDifference = {0.9999, 0.9999};
            p.duration = {10, 10};
            p.silentInterval = 60;
            p.numberOfReversals = 100;
        });
        row("just above the highest",
            {cfStd, cfDev, "Modulation frequency (Hz) Deviant", "Modulation depth (%) Deviant",
             "Frequency difference (Hz) Deviant", "Duration (ms) Deviant", "Number of reversals",
             "Silent interval (ms)"},
            [](P &p) {
                p.resetMdFd = false;
                p.samplingRate = 192000;
                p.carrierFrequency = {96000, 96000};
                p.modulationFrequency[1] = 96000;
                p.modulationDepth[1] = 1.0001;
                p.frequencyDifference[1] = 1.0;
                p.duration[1] = 10.001;
                p.numberOfReversals = 101;
                p.silentInterval = 60.001;
            });
        row("not a number, and a duration overflowing the sample count",
            {cfStd, "Modulation frequency (Hz) Deviant", "Modulation depth (%) Standard",
             "Duration (ms) Standard", "Duration (ms) Deviant", "Silent interval (ms)"},
            [](P &p) {
                p.carrierFrequency[0] = notANumber;
                p.modulationFrequency[1] = notANumber;
                p.modulationDepth[0] = notANumber;
                p.duration = {1e300, notANumber};
                p.silentInterval = notANumber;
            });

        row("rate 7999", {"Sampling rate"}, [](P &p) { p.samplingRate = 7999; });
        row("rate 192001", {"Sampling rate"}, [](P &p) { p.samplingRate = 192001; });
        // An unusable rate is reported alone: durations and frequencies are not
        // judged against it, only on their own.
        row("rate not a number", {"Sampling rate"}, [](P &p) { p.samplingRate = notANumber; });
        row("duration 0 with bad rate", {"Duration (ms) Standard", "Sampling rate"}, [](P &p) {
            p.samplingRate = -1;
            p.duration[0] = 0;
        });
        // The limit of a carrier follows the rate in force.
        row("carriers at half a lowered rate", {cfStd, cfDev}, [](P &p) {
            p.resetMdFd = false;
            p.samplingRate = 8000;
            p.carrierFrequency = {4000, 4000};
        });
        // After the reset the deviant carrier follows the standard's, which is
        // the field to correct.
        row("reset carrier follows the standard", {cfStd}, [](P &p) {
            p.carrierFrequency = {-1, -0.95};
        });
        row("standard carrier 0 tracking depth", {}, [](P &p) {
            p.mainParameter = 1;
            p.carrierFrequency = {0, 0};
            p.frequencyDifference = {0, 0};
        });
        row("reversals to calculate 0", {"Reversals to calculate"},
            [](P &p) { p.reversalsToCalculate = 0; });
        // With no usable number of reversals, the count lowered to it is not
        // what was typed: only the number of reversals is reported.
        row("both reversal counts 0", {"Number of reversals"}, [](P &p) {
            p.numberOfReversals = 0;
            p.reversalsToCalculate = 0;
        });
    }

    void fieldsAndLimits()
    {
        QFETCH(Change, change);
        QFETCH(QStringList, expected);
        P p;
        change(p);
        QCOMPARE(fields(PanelGuard::check(p)).join(", "), expected.join(", "));
    }

    // The refusal shows one line per field with the values it accepts; at a
    // usable rate the limits follow from it: half of 44100 Hz, and the shortest
    // duration rounded up to the panel's hundredths of a ms.
    void refusalNamesTheAcceptedValues()
    {
        P p;
        p.samplingRate = 1;
        p.silentInterval = 100;
        p.numberOfReversals = 500;
        QString text = PanelGuard::describe(PanelGuard::check(p));
        QVERIFY2(
            text.endsWith(":\n\nNumber of reversals: 1 to 100\nSilent interval (ms): 0 to 60000 "
                          "ms\nSampling rate: 8000 to 192000 samples per second"),
            qPrintable(text));
        p = P();
        p.samplingRate = 44100;
        p.carrierFrequency[0] = 30000;
        p.duration[1] = 0;
        p.frequencyDifference[1] = 1.5;
        text = PanelGuard::describe(PanelGuard::check(p));
        for (const char *line :
             {"\nCarrier frequency (Hz) Standard: above 0 Hz and below 22050 Hz",
              "\nFrequency difference (Hz) Deviant: 0 to 29997 Hz",
              "\nDuration (ms) Deviant: from 2 samples (0.05 ms at 44100 Hz) to 10000 ms"})
            QVERIFY2(text.contains(line), qPrintable(text));
    }
};

QTEST_GUILESS_MAIN(TestPanelGuard)
#include "tst_panelguard.moc"
