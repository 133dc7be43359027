// SPDX-License-Identifier: GPL-3.0-or-later
#include <QtTest>

class TestSimulateListener : public QObject
{
    Q_OBJECT

private slots:
    // Twenty runs against a step listener that is right above -20 dB and
    // wrong at or below. Once the steps are 1 dB the reversals alternate
    // between the last value at or below the switch and the value 2 dB above
    // it, so every threshold, and their mean, lies from 0 to
    // 20 log10((1 + 10^(2/20)) / 2), about 1.05 dB, above the switch.
    void runsAndSummarises()
    {
        QProcess tool;
        tool.start(SIMULATE_LISTENER_PATH,
                   {"--listener", "step", "--alpha", "-20", "--runs", "20", "--seed", "7"});
        QVERIFY(tool.waitForFinished(60000));
        const QString out = tool.readAllStandardOutput();
        QVERIFY2(out.contains("Runs:      20 (20 finished)"), qPrintable(out));
        bool ok = false;
        const double above = out.section("Mean threshold re the switching value", 1)
                                 .section("dB", 0, 0)
                                 .toDouble(&ok);
        QVERIFY2(ok && above >= 0.0 && above <= 1.05, qPrintable(out));
    }
};

QTEST_GUILESS_MAIN(TestSimulateListener)
#include "tst_simulatelistener.moc"
