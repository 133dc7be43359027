#include "procedure/resultsfile.h"

#include <QtTest>

#include <cmath>

namespace
{
QByteArray written(const QVector<TrialRecord> &trials, int mainParameter)
{
    QByteArray bytes;
    QTextStream out(&bytes);
    ResultsFile::write(out, trials, mainParameter, 1000.0);
    out.flush();
    return bytes;
}
} // namespace

class TestResultsFile : public QObject
{
    Q_OBJECT

private slots:
    // The header once, a line per trial, CR LF after each: the depth in
    // percent or the frequency difference in Hz of the 1000 Hz standard with
    // six decimals, positions, correctness, and the reaction time as a text
    // stream writes a double. Nothing at all without trials or for a main
    // parameter that tracks nothing.
    void wholeText()
    {
        const QVector<TrialRecord> depth{{0.5, 2, 2, true, 812},
                                         {0.5 * std::pow(10.0, -2.0 / 20), 3, 2, false, 1034}};
        QCOMPARE(written(depth, 1),
                 QByteArray("modulation depth (%)\tstimulus position\tresponse position\t"
                            "correctness\treaction time (ms)\r\n"
                            "50.000000\t2\t2\t1\t812\r\n39.716412\t3\t2\t0\t1034\r\n"));
        const QVector<TrialRecord> frequency{
            {0.05, 3, 2, false, 523.25}, {0.05 * std::pow(10.0, 4.0 / 20), 2, 2, true, 1234567}};
        QCOMPARE(written(frequency, 0),
                 QByteArray("frequency difference (Hz)\tstimulus position\tresponse position\t"
                            "correctness\treaction time (ms)\r\n"
                            "50.000000\t3\t2\t0\t523.25\r\n79.244660\t2\t2\t1\t1.23457e+06\r\n"));
        QVERIFY(written({}, 1).isEmpty());
        QVERIFY(written(depth, 2).isEmpty());
    }
};

QTEST_APPLESS_MAIN(TestResultsFile)
#include "tst_resultsfile.moc"
