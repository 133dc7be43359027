#include "app/mainwindow.h"

#include <QLineEdit>
#include <QtTest>

// The experimenter window's staircase steps write the Deviant column (depth,
// frequency difference, carrier) in the panel's fixed-point formats.
class TestStaircasePanel : public QObject
{
    Q_OBJECT

    static QStringList deviantColumn(const MainWindow &w)
    {
        return {w.lineEditModDepthDev->text(), w.lineEditFreqDiffDev->text(),
                w.lineEditCarrierFreqDev->text()};
    }

private slots:
    void frequencyStep()
    {
        MainWindow w;
        w.params.mainParameter = 0;
        w.resetStartValues();
        w.params.stepDirection = w.params.stepUp;
        w.applyStep();
        QCOMPARE(deviantColumn(w), QStringList({"0.0000", "79.2447", "920.76"}));
        w.params.frequencyDifference[1] = 0.9;
        w.applyStep();
        QCOMPARE(deviantColumn(w), QStringList({"0.0000", "999.9000", "0.10"}));
    }

    void modulationStep()
    {
        MainWindow w;
        w.params.mainParameter = 1;
        w.resetStartValues();
        w.params.stepDirection = w.params.stepUp;
        w.applyStep();
        QCOMPARE(deviantColumn(w), QStringList({"79.2447", "0.0000", "1000.00"}));
        w.applyStep();
        QCOMPARE(w.lineEditModDepthDev->text(), QString("100.0000"));
        w.params.stepDirection = w.params.stepDown;
        w.params.reversalCount = 2;
        w.applyStep();
        QCOMPARE(deviantColumn(w), QStringList({"89.1251", "0.0000", "1000.00"}));
    }
};

QTEST_MAIN(TestStaircasePanel)
#include "tst_staircasepanel.moc"
