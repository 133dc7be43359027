// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/panelguard.h"
#include "app/sessionparameters.h"

#include <QtTest>

// The limits are the ones documented for researchers in README.md.
class TestPanelGuard : public QObject
{
    Q_OBJECT

private slots:
    // One record per row, in panel order: main parameter, "Reset md/fd", then
    // carrier, modulation frequency, depth, frequency difference and duration
    // (standard, deviant), reversals, reversals to calculate, silent interval
    // and rate. Records with every field at one end of its range tell by the
    // fields listed which limit is wrong: 2 samples at 8000 Hz take 0.25 ms,
    // half of 192000 Hz is 96000 Hz. Below the lower ends only the strict one
    // (a tracked carrier of 0 Hz) needs a row of its own: a lower limit moved
    // up or made strict fails the lowest accepted record.
    void fieldsAndLimits_data()
    {
        QTest::addColumn<QVector<double>>("record");
        QTest::addColumn<QString>("refused");
        QTest::newRow("lowest accepted")
            << QVector<double>{0, 0, 0.01, 0, 0, 0, 0, 0, 0, 0, 2.501e-4, 2.501e-4, 1, 1, 0, 8000}
            << "";
        QTest::newRow("highest accepted")
            << QVector<double>{0,      0,      95999.99, 95999.99, 95999.99, 95999.99, 1,  1,
                               0.9999, 0.9999, 10,       10,       100,      100,      60, 192000}
            << "";
        // The Standard column's frequency difference is used nowhere, so even
        // 1.5 times the carrier is not refused there.
        QTest::newRow("just above")
            << QVector<double>{0,   0, 96000, 96000,  95999.99, 96000, 1,      1.0001,
                               1.5, 1, 10,    10.001, 101,      8,     60.001, 192000}
            << "Carrier frequency (Hz) Standard, Carrier frequency (Hz) Deviant, Modulation "
               "frequency (Hz) Deviant, Modulation depth (%) Deviant, Frequency difference (Hz) "
               "Deviant, Duration (ms) Deviant, Number of reversals, Silent interval (ms)";
        QTest::newRow("none to calculate, rate 192001")
            << QVector<double>{0, 1,    1000, 1000, 40, 40, 0, 0.5,
                               0, 0.05, 0.6,  0.6,  14, 0,  1, 192001}
            << "Reversals to calculate, Sampling rate";
        // An unusable rate is reported, and a duration is then judged on its own.
        QTest::newRow("rate 7999")
            << QVector<double>{0, 1, 1000, 1000, 40, 40, 0, 0.5, 0, 0.05, 0, 0.6, 14, 8, 1, 7999}
            << "Duration (ms) Standard, Sampling rate";
        // After the reset the deviant carrier follows the standard's, the field
        // to correct; a fraction of an unusable carrier is not judged.
        QTest::newRow("reset carrier")
            << QVector<double>{0, 1, -1, -0.95, 40, 40, 0, 0.5, 0, 2, 0.6, 0.6, 14, 8, 1, 40000}
            << "Carrier frequency (Hz) Standard";
        // 0 Hz is refused only for the carrier of a frequency track, and it
        // still carries a frequency difference.
        QTest::newRow("carrier 0 tracking frequency")
            << QVector<double>{0, 0, 0, 0, 40, 40, 0, 0.5, 0, 2, 0.6, 0.6, 14, 8, 1, 40000}
            << "Carrier frequency (Hz) Standard, Frequency difference (Hz) Deviant";
    }

    void fieldsAndLimits()
    {
        QFETCH(QVector<double>, record);
        SessionParameters p;
        p.mainParameter = int(record[0]);
        p.resetMdFd = record[1] != 0;
        p.carrierFrequency = record.mid(2, 2);
        p.modulationFrequency = record.mid(4, 2);
        p.modulationDepth = record.mid(6, 2);
        p.frequencyDifference = record.mid(8, 2);
        p.duration = record.mid(10, 2);
        p.numberOfReversals = int(record[12]);
        p.reversalsToCalculate = int(record[13]);
        p.silentInterval = record[14];
        p.samplingRate = record[15];
        QStringList fields;
        for (const PanelGuard::Problem &problem : PanelGuard::check(p))
            fields.append(problem.field);
        QTEST(fields.join(", "), "refused");
    }

    // The accepted values follow a usable rate: half of 44100 Hz, and the
    // shortest duration rounded up to the panel's hundredths of a ms.
    void refusalNamesTheAcceptedValues()
    {
        SessionParameters p;
        p.samplingRate = 44100;
        p.carrierFrequency[0] = 30000;
        p.duration[1] = 0;
        QCOMPARE(PanelGuard::describe(PanelGuard::check(p)),
                 "No session can be made from these values. Accepted values:\n\n"
                 "Carrier frequency (Hz) Standard: above 0 Hz and below 22050 Hz (half the "
                 "sampling rate) while the main parameter is carrier frequency\n"
                 "Duration (ms) Deviant: from 2 samples (0.05 ms at 44100 Hz) to 10000 ms");
    }
};

QTEST_GUILESS_MAIN(TestPanelGuard)
#include "tst_panelguard.moc"
