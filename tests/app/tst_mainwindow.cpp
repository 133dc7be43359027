#include "app/mainwindow.h"
#include "app/windowgeometry.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGuiApplication>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QtTest>

#include <cmath>
#include <numeric>

namespace
{
// Computed here rather than with the code under test.
double rms(const QVector<double> &v)
{
    return std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0) / v.size());
}
} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void geometryRule_data()
    {
        QTest::addColumn<QSize>("available");
        QTest::addColumn<QSizeF>("fractions");
        QTest::addColumn<QRect>("expected");
        QTest::newRow("main window")
            << QSize(1920, 1040) << QSizeF(0.8, 0.9) << QRect(192, 52, 1536, 936);
        QTest::newRow("above 1") << QSize(1000, 500) << QSizeF(1.7, 3.0) << QRect(0, 0, 1000, 500);
        QTest::newRow("negative") << QSize(1000, 500) << QSizeF(-0.5, -1) << QRect(500, 250, 0, 0);
        QTest::newRow("odd remainder truncates")
            << QSize(1001, 501) << QSizeF(0.5, 0.5) << QRect(250, 125, 500, 250);
    }

    void geometryRule()
    {
        QFETCH(QSize, available);
        QFETCH(QSizeF, fractions);
        QFETCH(QRect, expected);
        QCOMPARE(windowGeometry(available, true, fractions.width(), fractions.height()), expected);
    }

    void startUpWindowAndPanel()
    {
        MainWindow w;
        QCOMPARE(w.windowTitle(), QString("Quorvan Lab | Veltrane (v062) | Main Window"));
        QCOMPARE(w.geometry(),
                 windowGeometry(QGuiApplication::primaryScreen()->availableSize(), true, 0.8, 0.9));
        const QString fileName = "SUB001_test001_noise_modulation depth.txt";
        const QList<QPair<QLineEdit *, QString>> texts{
            {w.lineEditCarrierFreqStd, "1000.00"},
            {w.lineEditCarrierFreqDev, "1000.00"},
            {w.lineEditModFreqStd, "40.00"},
            {w.lineEditModFreqDev, "40.00"},
            {w.lineEditModDepthStd, "0.0000"},
            {w.lineEditModDepthDev, "50.0000"},
            {w.lineEditFreqDiffStd, "0.0000"},
            {w.lineEditFreqDiffDev, "0.0000"},
            {w.lineEditDurationStd, "600.00"},
            {w.lineEditDurationDev, "600.00"},
            {w.lineEditNumReversals, "14"},
            {w.lineEditRevToCalc, "8"},
            {w.lineEditSilentInterval, "1000.00"},
            {w.lineEditSamplingRate, "40000"},
            {w.lineEditSubCode, "SUB001"},
            {w.lineEditSesNum, "1"},
            {w.lineEditFileName, fileName},
            {w.lineEditFilePath,
             QStandardPaths::writableLocation(QStandardPaths::DesktopLocation)}};
        for (const auto &t : texts)
            QCOMPARE(t.first->text(), t.second);
        QCOMPARE(w.comboBoxSesType->currentText() + ", " + w.comboBoxSoundType->currentText() +
                     ", " + w.comboBoxMainParameter->currentText(),
                 QString("test, noise, modulation depth"));
        QVERIFY(w.checkBoxResetMdFd->isChecked() && !w.checkBoxSaveData->isChecked());
        QVERIFY(!w.lineEditFileName->isEnabled());
        QVERIFY(w.pushButtonView->isEnabled() && !w.pushButtonGo->isEnabled());

        // The record and the sounds follow the panel: noise, the modulation
        // depth track from its start values, the standard at the deviant's RMS.
        const SessionParameters &p = w.params;
        QCOMPARE(p.fileName, fileName);
        QCOMPARE(
            QVector<double>({double(p.sessionType), double(p.soundType), double(p.mainParameter),
                             p.modulationDepth[1], p.frequencyDifference[1], p.carrierFrequency[1],
                             double(p.reversalValues.size())}),
            QVector<double>({1, 1, 1, 0.5, 0, 1000, 14}));
        QCOMPARE(
            QVector<int>({w.standardSound.size(), w.deviantSound.size(), w.waveformTime.size()}),
            QVector<int>({24000, 24000, 2000}));
        QVERIFY(std::abs(rms(w.standardSound) - rms(w.deviantSound)) < 1e-9);
        QCOMPARE(w.audioFormat.sampleRate(), 40000);
        QCOMPARE(w.audioFormat.sampleSize(), 32);
        QCOMPARE(w.audioFormat.sampleType(), QAudioFormat::Float);
    }

    // Before a run both sounds and the time axis are built; during a run only
    // the deviant, to which the standard is then rescaled: a noise deviant
    // leaves the sinusoid standard a sinusoid.
    void fullBuildAndDeviantOnlyRebuild()
    {
        MainWindow w;
        w.params.soundType = 0;
        w.params.equaliseRms = false;
        w.params.trialCount = 0;
        w.generateSounds();
        QVERIFY(std::abs(w.standardSound[10] - 1.0) < 1e-12);
        QVERIFY(std::abs(w.deviantSound[10] - 0.333991) < 5e-7);
        const QVector<double> standard = w.standardSound;
        w.params.soundType = 1;
        w.params.equaliseRms = true;
        w.params.trialCount = 1;
        w.waveformTime.clear();
        w.generateSounds();
        QVERIFY(w.waveformTime.isEmpty());
        const double factor = w.standardSound[10] / standard[10];
        for (int j = 1; j < standard.size(); j += 997)
            QVERIFY(std::abs(w.standardSound[j] - factor * standard[j]) < 1e-12);
        QVERIFY(std::abs(rms(w.standardSound) - rms(w.deviantSound)) < 1e-9);
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
};

// With --quit-child the binary runs the program's own start-up and presses Quit
// once the event loop runs, so the exit code is the one main() would return.
int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc > 1 && QByteArray(argv[1]) == "--quit-child") {
        MainWindow window;
        window.show();
        QTimer::singleShot(0, window.pushButtonQuit, &QPushButton::click);
        const int code = app.exec();
        printf("window closed\n");
        return code;
    }
    TestMainWindow test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_mainwindow.moc"
