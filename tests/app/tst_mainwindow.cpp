#include "app/mainwindow.h"
#include "app/windowgeometry.h"
#include "stimulus/randomsource.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGuiApplication>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QtTest>

#include <cmath>

class TestMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void geometryRule_data()
    {
        QTest::addColumn<QSize>("available");
        QTest::addColumn<double>("wf");
        QTest::addColumn<double>("hf");
        QTest::addColumn<QRect>("expected");
        QTest::newRow("main window") << QSize(1920, 1040) << 0.8 << 0.9
                                     << QRect(192, 52, 1536, 936);
        QTest::newRow("subject window") << QSize(1920, 1040) << 0.55 << 0.3
                                        << QRect(432, 364, 1056, 312);
        QTest::newRow("fractions above 1") << QSize(1000, 500) << 1.7 << 3.0
                                           << QRect(0, 0, 1000, 500);
        QTest::newRow("negative fractions") << QSize(1000, 500) << -0.5 << -1.0
                                            << QRect(500, 250, 0, 0);
        QTest::newRow("odd remainder truncates") << QSize(1001, 501) << 0.5 << 0.5
                                                 << QRect(250, 125, 500, 250);
    }

    void geometryRule()
    {
        QFETCH(QSize, available);
        QFETCH(double, wf);
        QFETCH(double, hf);
        QFETCH(QRect, expected);
        QCOMPARE(windowGeometry(available, true, wf, hf), expected);
    }

    void windowFollowsTheRule()
    {
        MainWindow w;
        QCOMPARE(w.windowTitle(), QString("Quorvan Lab | Veltrane (v062) | Main Window"));
        const QSize available = QGuiApplication::primaryScreen()->availableSize();
        QCOMPARE(w.geometry(), windowGeometry(available, true, 0.8, 0.9));
    }

    void startUpPanel()
    {
        MainWindow w;
        const QList<QPair<QLineEdit *, QString>> texts{
            {w.lineEditCarrierFreqStd, "1000.00"}, {w.lineEditCarrierFreqDev, "1000.00"},
            {w.lineEditModFreqStd, "40.00"},       {w.lineEditModFreqDev, "40.00"},
            {w.lineEditModDepthStd, "0.0000"},     {w.lineEditModDepthDev, "50.0000"},
            {w.lineEditFreqDiffStd, "0.0000"},     {w.lineEditFreqDiffDev, "0.0000"},
            {w.lineEditDurationStd, "600.00"},     {w.lineEditDurationDev, "600.00"},
            {w.lineEditNumReversals, "14"},        {w.lineEditRevToCalc, "8"},
            {w.lineEditSilentInterval, "1000.00"}, {w.lineEditSamplingRate, "40000"},
            {w.lineEditSubCode, "SUB001"},         {w.lineEditSesNum, "1"},
            {w.lineEditFileName, "SUB001_test001_noise_modulation depth.txt"}};
        for (const auto &t : texts)
            QVERIFY2(t.first->text() == t.second,
                     qPrintable(t.first->objectName() + ": " + t.first->text()));
        QCOMPARE(w.lineEditFilePath->text(),
                 QStandardPaths::writableLocation(QStandardPaths::DesktopLocation));
        QCOMPARE(w.comboBoxSesType->currentText(), QString("test"));
        QCOMPARE(w.comboBoxSoundType->currentText(), QString("noise"));
        QCOMPARE(w.comboBoxMainParameter->currentText(), QString("modulation depth"));
        QCOMPARE(w.comboBoxSesType->count(), 2);
        QVERIFY(w.checkBoxResetMdFd->isChecked());
        QVERIFY(!w.checkBoxSaveData->isChecked());
        QVERIFY(!w.lineEditFileName->isEnabled());
        QVERIFY(w.pushButtonView->isEnabled());
        QVERIFY(!w.pushButtonGo->isEnabled());
        QCOMPARE(w.params.fileName, QString("SUB001_test001_noise_modulation depth.txt"));
        QCOMPARE(w.params.sessionType, 1);
        QCOMPARE(w.params.soundType, 1);
        QCOMPARE(w.params.mainParameter, 1);
        QCOMPARE(w.params.modulationDepth[1], 0.5);
        QCOMPARE(w.params.frequencyDifference[1], 0.0);
        QCOMPARE(w.params.carrierFrequency[1], 1000.0);
        QCOMPARE(w.params.reversalValues.size(), 14);
        QCOMPARE(w.params.displaySamples, QVector<int>({2000, 2000}));
    }

    void startUpSoundsAndMachinery()
    {
        MainWindow w;
        QCOMPARE(w.standardSound.size(), 24000);
        QCOMPARE(w.deviantSound.size(), 24000);
        QCOMPARE(w.waveformTime.size(), 2000);
        QCOMPARE(w.sequenceLength, 4);
        QCOMPARE(w.deviantFlags.size(), 4);
        QVERIFY(w.soundTimer);
        QVERIFY(w.reactionClock && !w.reactionClock->isValid());
        QVERIFY(!w.audioOutput && !w.audioBuffer && !w.audioBytes);
        QCOMPARE(w.audioFormat.sampleRate(), 40000);
        QCOMPARE(w.audioFormat.sampleSize(), 32);
        QCOMPARE(w.audioFormat.sampleType(), QAudioFormat::Float);
        QCOMPARE(w.axisLabelFont.pixelSize(), 10);
        QCOMPARE(w.chartTitleFont.pixelSize(), 12);
        QCOMPARE(w.chartTitleFont.weight(), 50);
        // Start-up noise: the standard is rescaled to the deviant's RMS.
        QVERIFY(std::abs(calculateRmsOf(w.standardSound) - calculateRmsOf(w.deviantSound)) <
                1e-9);
    }

    void fullBuildAndDeviantOnlyRebuild()
    {
        MainWindow w;
        w.params.soundType = 0;
        w.params.equaliseRms = false;
        w.params.trialCount = 0;
        w.generateSounds();
        QVERIFY(std::abs(w.standardSound[10] - 1.0) < 1e-12);
        QVERIFY(std::abs(w.deviantSound[10] - 0.333991) < 5e-7);
        const QVector<double> time = w.waveformTime;
        const QVector<double> standard = w.standardSound;
        w.params.equaliseRms = true;
        w.params.trialCount = 1;
        w.waveformTime.clear();
        w.generateSounds();
        QVERIFY(w.waveformTime.isEmpty());
        const double factor = w.standardSound[10] / standard[10];
        for (int j = 1; j < standard.size(); j += 997)
            QVERIFY(std::abs(w.standardSound[j] - factor * standard[j]) < 1e-12);
        QVERIFY(std::abs(calculateRmsOf(w.standardSound) - 0.5) < 1e-6);
    }

    void emptyStandardStillBuildsDeviant()
    {
        MainWindow w;
        w.params.trialCount = 0;
        w.params.nSamples = {0, 100};
        w.updateDisplaySamples();
        w.generateSounds();
        QVERIFY(w.standardSound.isEmpty());
        QCOMPARE(w.deviantSound.size(), 100);
        QCOMPARE(w.waveformTime.size(), 100);
    }

    void quitEndsWithExitCodeZero()
    {
        QProcess program;
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        program.start(QCoreApplication::applicationFilePath(), {"--quit-child"});
        QVERIFY(program.waitForFinished(60000));
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.exitCode(), 0);
        QCOMPARE(program.readAllStandardOutput().trimmed(), QByteArray("window closed"));
    }

private:
    static double calculateRmsOf(const QVector<double> &v)
    {
        double s = 0;
        for (double x : v)
            s += x * x;
        return v.isEmpty() ? 0.0 : std::sqrt(s / v.size());
    }
};

// With --quit-child the binary runs the program's own start-up and presses Quit
// once the event loop runs, so the exit code is the one main() would return.
int main(int argc, char **argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "--quit-child") {
        QApplication app(argc, argv);
        MainWindow window;
        window.show();
        QTimer::singleShot(0, window.pushButtonQuit, &QPushButton::click);
        const int code = app.exec();
        printf("window closed\n");
        return code;
    }
    QApplication app(argc, argv);
    TestMainWindow test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_mainwindow.moc"
