#include "app/mainwindow.h"

#include <QLineEdit>
#include <QtTest>

// The experimenter window's staircase members write the deviant column in
// the panel's fixed-point formats.
class TestStaircasePanel : public QObject
{
    Q_OBJECT

private slots:
    void frequencyStep()
    {
        MainWindow w;
        w.params.mainParameter = 0;
        w.resetStartValues();
        QCOMPARE(w.lineEditModDepthDev->text(), QString("0.0000"));
        QCOMPARE(w.lineEditFreqDiffDev->text(), QString("50.0000"));
        QCOMPARE(w.lineEditCarrierFreqDev->text(), QString("950.00"));
        const QString depthBefore = w.lineEditModDepthDev->text();

        w.params.stepDirection = w.params.stepUp;
        w.applyStep();
        QCOMPARE(w.lineEditFreqDiffDev->text(), QString("79.2447"));
        QCOMPARE(w.lineEditCarrierFreqDev->text(), QString("920.76"));
        QCOMPARE(w.lineEditModDepthDev->text(), depthBefore);

        w.params.frequencyDifference[1] = 0.9;
        w.applyStep();
        QCOMPARE(w.lineEditFreqDiffDev->text(), QString("999.9000"));
        QCOMPARE(w.lineEditCarrierFreqDev->text(), QString("0.10"));
    }

    void modulationStep()
    {
        MainWindow w;
        w.params.mainParameter = 1;
        w.resetStartValues();
        QCOMPARE(w.lineEditModDepthDev->text(), QString("50.0000"));
        QCOMPARE(w.lineEditFreqDiffDev->text(), QString("0.0000"));
        QCOMPARE(w.lineEditCarrierFreqDev->text(), QString("1000.00"));

        w.params.stepDirection = w.params.stepUp;
        w.applyStep();
        QCOMPARE(w.lineEditModDepthDev->text(), QString("79.2447"));
        w.applyStep();
        QCOMPARE(w.lineEditModDepthDev->text(), QString("100.0000"));
        w.params.stepDirection = w.params.stepDown;
        w.params.reversalCount = 2;
        w.applyStep();
        QCOMPARE(w.lineEditModDepthDev->text(), QString("89.1251"));
        QCOMPARE(w.lineEditCarrierFreqDev->text(), QString("1000.00"));
    }

    void results()
    {
        MainWindow w;
        w.params.reversalCount = 14;
        for (int i = 0; i < 14; ++i)
            w.params.reversalValues[i] = i < 6 ? 0.9 : 0.2;
        w.params.trials.resize(2);
        w.params.trials[0].reactionTime = 300;
        w.params.trials[1].reactionTime = 500;
        w.computeResults();
        QVERIFY(qAbs(w.params.threshold - 0.2) < 1e-12);
        QVERIFY(qAbs(w.params.reactionTime - 400) < 1e-12);
    }
};

QTEST_MAIN(TestStaircasePanel)
#include "tst_staircasepanel.moc"
