// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/sessionparameters.h"
#include "procedure/resultsfile.h"
#include "procedure/sidecar.h"
#include "procedure/staircase.h"

#include <QtTest>

#include <cmath>
#include <random>

namespace
{
// Set before the system locale is first read: a locale with its own digits.
const bool persian = qputenv("LC_ALL", "fa_IR.UTF-8");

// Factors of 1 dB and 2 dB in amplitude, computed independently.
const double oneDb = std::pow(10.0, 1.0 / 20), twoDb = std::pow(10.0, 2.0 / 20);

// Presents the tracked value, records the answer and applies the rule,
// stepping when the run goes on. Returns true when the run is over.
bool answer(SessionParameters &p, bool correct)
{
    p.trials.append({Staircase::trackedValue(p), 2, 2, correct, 0.0});
    const bool over = Staircase::applyReversalRule(p);
    if (!over)
        Staircase::applyStep(p);
    return over;
}
} // namespace

// What a run records. The depth track's steps, reversals, threshold and
// reaction time are compared through a whole run in tst_wholerun, the start
// values in tst_mainwindow; here the frequency track, the limits, the results
// file and what the sidecar writes the same whatever the locale.
class TestRecords : public QObject
{
    Q_OBJECT

private slots:
    // A frequency track from 0.9 with forty reversals runs into the limit
    // 0.9999 (a deviant carrier of 0.1 Hz) and well past the 15-entry step
    // table (1 dB from the second reversal on), and the reversal record starts
    // short so that it must grow. Every change of correctness, and only that,
    // is a reversal storing the value presented; the run ends at the fortieth.
    // A depth track from 0.9 is limited to a depth of 1.0 the same way.
    void longRandomRun()
    {
        SessionParameters depth;
        depth.mainParameter = 1;
        depth.modulationDepth[1] = 0.9;
        answer(depth, false);
        QCOMPARE(depth.modulationDepth[1], 1.0);
        SessionParameters p;
        p.frequencyDifference[1] = 0.9;
        p.numberOfReversals = 40;
        p.reversalValues.fill(0.0, 10);
        std::mt19937 random(20240601u);
        QVector<double> reversals;
        bool over = false, limited = false;
        while (!over && p.trials.size() < 5000) {
            const bool correct = random() % 3 != 0;
            const double before = Staircase::trackedValue(p);
            if (!p.trials.isEmpty() && p.trials.last().correct != correct)
                reversals.append(before);
            const double factor = reversals.size() < 2 ? twoDb : oneDb;
            const double expected =
                std::min(0.9999, correct ? before / factor : before * factor * factor);
            limited = limited || expected == 0.9999;
            over = answer(p, correct);
            QCOMPARE(p.reversalCount, reversals.size());
            QVERIFY(over || std::abs(p.frequencyDifference[1] - expected) <= 1e-12 * expected);
            QVERIFY(over || std::abs(p.carrierFrequency[1] - 1000.0 * (1 - expected)) < 1e-9);
        }
        QVERIFY(over && limited && reversals.size() == 40);
        QCOMPARE(p.reversalValues, reversals);
    }

    // The frequency difference in Hz of the 1000 Hz standard with six
    // decimals, positions, correctness and the reaction time as a text stream
    // writes a double, CR LF after each line. Nothing at all without trials.
    void resultsFile()
    {
        const QVector<TrialRecord> trials{{0.05, 3, 2, false, 523.25},
                                          {0.05 * std::pow(10.0, 4.0 / 20), 2, 2, true, 1234567}};
        QByteArray bytes;
        QTextStream out(&bytes);
        ResultsFile::write(out, {}, 0, 1000.0);
        ResultsFile::write(out, trials, 0, 1000.0);
        out.flush();
        QCOMPARE(bytes,
                 QByteArray("frequency difference (Hz)\tstimulus position\tresponse "
                            "position\tcorrectness\treaction time (ms)\r\n"
                            "50.000000\t3\t2\t0\t523.25\r\n79.244660\t2\t2\t1\t1.23457e+06\r\n"));
    }
    // The sidecar's name, times in ASCII ISO 8601 with the UTC offset in one
    // form whatever the locale, and a seed beyond a double's precision.
    void sidecarNamesTimesAndSeed()
    {
        QVERIFY(persian && QLocale::system().zeroDigit() != '0');
        QLocale::setDefault(QLocale(QLocale::Persian, QLocale::Iran));
        QCOMPARE(Sidecar::path("/data/run.txt"), QString("/data/run.json"));
        const QDate day(2024, 6, 11);
        const QTime time(14, 3, 12, 600);
        QCOMPARE(Sidecar::isoDateTime(QDateTime(day, time, Qt::OffsetFromUTC, -34200)),
                 QString("2024-06-11T14:03:12-09:30"));
        QCOMPARE(Sidecar::isoDateTime(QDateTime(day, time, Qt::UTC)),
                 QString("2024-06-11T14:03:12+00:00"));
        RunFacts facts;
        facts.started = QDateTime::currentDateTime();
        facts.randomSeed = UINT64_MAX;
        const SessionParameters p;
        const QJsonObject json = Sidecar::content(p, p, facts);
        QCOMPARE(json["RandomSeed"].toString(), QString("18446744073709551615"));
        const QRegularExpression iso(
            "^[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}[+-][0-9]{2}:[0-9]{2}$");
        QVERIFY(iso.match(json["AcquisitionDateTime"].toString()).hasMatch());
    }
};

QTEST_APPLESS_MAIN(TestRecords)
#include "tst_records.moc"
