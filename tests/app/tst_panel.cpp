#include "app/mainwindow.h"
#include "subject/subjectwindow.h"
#include "support/modalcatcher.h"

#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QtTest>

#include <cmath>

namespace
{

// Records every message box as it is shown: its parent, buttons and icon,
// which ModalCatcher does not see.
class BoxWatcher : public QObject
{
public:
    struct Shown {
        QWidget *parent;
        QMessageBox::StandardButtons buttons;
        int buttonCount;
        QMessageBox::Icon icon;
    };
    QList<Shown> shown;

protected:
    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() == QEvent::Show)
            if (auto *box = qobject_cast<QMessageBox *>(object))
                shown.append({box->parentWidget(), box->standardButtons(), box->buttons().size(),
                              box->icon()});
        return false;
    }
};

bool near(double a, double b)
{
    return std::abs(a - b) <= 1e-12 + 1e-9 * std::abs(b);
}

// Every field the panel reader writes, to tell whether a refused click left the
// record alone.
QVariantList snapshot(const SessionParameters &p)
{
    QVariantList v{p.sessionType,    p.soundType,         p.mainParameter,
                   p.trialCount,     p.numberOfReversals, p.reversalsToCalculate,
                   p.silentInterval, p.samplingRate,      p.subjectCode,
                   p.sessionNumber,  p.filePath,          p.fileName,
                   p.resetMdFd,      p.saveData,          p.reversalValues.size()};
    for (const QVector<double> *pair : {&p.duration, &p.carrierFrequency, &p.modulationFrequency,
                                        &p.modulationDepth, &p.frequencyDifference})
        v << pair->at(0) << pair->at(1);
    v << p.nSamples[0] << p.nSamples[1] << p.displaySamples[0] << p.displaySamples[1];
    return v;
}

// Selects "sinusoid" and "carrier frequency", which raises no conflict.
void trackFrequency(MainWindow &w)
{
    w.comboBoxSoundType->setCurrentIndex(0);
    w.comboBoxMainParameter->setCurrentIndex(0);
}

} // namespace

class TestPanel : public QObject
{
    Q_OBJECT

    BoxWatcher *watcher = nullptr;

    QStringList deviantColumn(const MainWindow &w)
    {
        return {w.lineEditModDepthDev->text(), w.lineEditFreqDiffDev->text(),
                w.lineEditCarrierFreqDev->text()};
    }

private slots:
    void init()
    {
        watcher = new BoxWatcher;
        qApp->installEventFilter(watcher);
    }

    void cleanup()
    {
        QLocale::setDefault(QLocale::c());
        qApp->removeEventFilter(watcher);
        delete watcher;
    }

    void fileName_data()
    {
        QTest::addColumn<QString>("subjectCode");
        QTest::addColumn<QString>("session");
        QTest::addColumn<bool>("sinusoidFrequency");
        QTest::addColumn<QString>("expected");
        QTest::newRow("session 7") << "SUB001"
                                   << "7" << false << "SUB001_test007_noise_modulation depth.txt";
        QTest::newRow("session 1234")
            << "SUB001"
            << "1234" << false << "SUB001_test1234_noise_modulation depth.txt";
        QTest::newRow("empty session")
            << "SUB001"
            << "" << false << "SUB001_test000_noise_modulation depth.txt";
        QTest::newRow("non-numeric session")
            << "SUB001"
            << "seven" << false << "SUB001_test000_noise_modulation depth.txt";
        QTest::newRow("subject code with blanks")
            << "Anna B 01"
            << "2" << true << "Anna B 01_test002_sinusoid_carrier frequency.txt";
    }

    void fileName()
    {
        QFETCH(QString, subjectCode);
        QFETCH(QString, session);
        QFETCH(bool, sinusoidFrequency);
        QFETCH(QString, expected);
        MainWindow w;
        if (sinusoidFrequency)
            trackFrequency(w);
        w.lineEditSubCode->setText(subjectCode);
        w.lineEditSesNum->setText(session);
        QCOMPARE(w.lineEditFileName->text(), expected);
        QCOMPARE(w.params.fileName, expected);
        QCOMPARE(w.params.subjectCode, subjectCode);
        QVERIFY(watcher->shown.isEmpty());
    }

    void sessionTypeRenamesTheFile()
    {
        MainWindow w;
        w.comboBoxSesType->setCurrentIndex(0);
        QCOMPARE(w.params.sessionType, 0);
        QCOMPARE(w.lineEditFileName->text(),
                 QString("SUB001_practice001_noise_modulation depth.txt"));
        QVERIFY(!w.lineEditFileName->isEnabled());
    }

    void noiseWithFrequencyTrackRevertsSoundType()
    {
        MainWindow w;
        trackFrequency(w);
        QVERIFY(watcher->shown.isEmpty());
        ModalCatcher catcher;
        catcher.arm();
        w.comboBoxSoundType->setCurrentIndex(1);
        catcher.verifyShown();
        QCOMPARE(catcher.boxes.size(), 1);
        QCOMPARE(catcher.boxes[0].title, QString("Conflicting Parameters"));
        QCOMPARE(catcher.boxes[0].text,
                 QString("The sound type 'noise' is incompatible with the internal parameter "
                         "'carrier frequency'. Sound type will be changed to 'sinusoid'"));
        QCOMPARE(watcher->shown.size(), 1);
        QCOMPARE(watcher->shown[0].parent, &w);
        QCOMPARE(watcher->shown[0].buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
        QCOMPARE(watcher->shown[0].buttonCount, 1);
        QCOMPARE(watcher->shown[0].icon, QMessageBox::Warning);
        QCOMPARE(w.comboBoxSoundType->currentIndex(), 0);
        QCOMPARE(w.comboBoxMainParameter->currentIndex(), 0);
        QCOMPARE(w.params.soundType, 0);
        QCOMPARE(w.lineEditFileName->text(),
                 QString("SUB001_test001_sinusoid_carrier frequency.txt"));
    }

    void frequencyTrackWithNoiseRevertsMainParameter()
    {
        MainWindow w;
        w.lineEditModDepthDev->setText("12.0000");
        w.lineEditFreqDiffDev->setText("7.0000");
        w.lineEditCarrierFreqDev->setText("800.00");
        ModalCatcher catcher;
        catcher.arm();
        w.comboBoxMainParameter->setCurrentIndex(0);
        catcher.verifyShown();
        QCOMPARE(catcher.boxes.size(), 1);
        QCOMPARE(catcher.boxes[0].title, QString("Conflicting Parameters"));
        QCOMPARE(catcher.boxes[0].text,
                 QString("The sound type 'noise' is incompatible with the internal parameter "
                         "'carrier frequency'. Internal parameter will be changed to "
                         "'modulation depth'"));
        QCOMPARE(watcher->shown.size(), 1);
        QCOMPARE(watcher->shown[0].parent, &w);
        QCOMPARE(watcher->shown[0].buttonCount, 1);
        QCOMPARE(w.comboBoxMainParameter->currentIndex(), 1);
        QCOMPARE(w.comboBoxSoundType->currentIndex(), 1);
        QCOMPARE(w.params.mainParameter, 1);
        // The modulation-depth start values at a 1000 Hz standard.
        QCOMPARE(deviantColumn(w), QStringList({"50.0000", "0.0000", "1000.00"}));
        QCOMPARE(w.params.modulationDepth[1], 0.5);
        QCOMPARE(w.params.frequencyDifference[1], 0.0);
        QCOMPARE(w.lineEditFileName->text(), QString("SUB001_test001_noise_modulation depth.txt"));
    }

    void mainParameterResetsDeviantColumn()
    {
        MainWindow w;
        w.checkBoxResetMdFd->setChecked(false);
        trackFrequency(w);
        QVERIFY(watcher->shown.isEmpty());
        QCOMPARE(deviantColumn(w), QStringList({"0.0000", "50.0000", "950.00"}));
        QVERIFY(near(w.params.frequencyDifference[1], 0.05));
        QVERIFY(near(w.params.carrierFrequency[1], 950.0));
        w.lineEditModDepthDev->setText("20.0000");
        w.comboBoxMainParameter->setCurrentIndex(1);
        QCOMPARE(deviantColumn(w), QStringList({"50.0000", "0.0000", "1000.00"}));
        QCOMPARE(w.lineEditFileName->text(),
                 QString("SUB001_test001_sinusoid_modulation depth.txt"));
    }

    void viewReadsEveryField()
    {
        MainWindow w;
        w.checkBoxResetMdFd->setChecked(false);
        trackFrequency(w);
        w.comboBoxSesType->setCurrentIndex(0);
        const QList<QPair<QLineEdit *, QString>> typed{{w.lineEditCarrierFreqStd, "500"},
                                                       {w.lineEditCarrierFreqDev, "480.5"},
                                                       {w.lineEditModFreqStd, "8"},
                                                       {w.lineEditModFreqDev, "12.25"},
                                                       {w.lineEditModDepthStd, "not a number"},
                                                       {w.lineEditModDepthDev, "30"},
                                                       {w.lineEditFreqDiffStd, "5"},
                                                       {w.lineEditFreqDiffDev, "20"},
                                                       {w.lineEditDurationStd, "250.5"},
                                                       {w.lineEditDurationDev, "300"},
                                                       {w.lineEditNumReversals, "6"},
                                                       {w.lineEditRevToCalc, "4"},
                                                       {w.lineEditSilentInterval, "500"},
                                                       {w.lineEditSamplingRate, "44100"},
                                                       {w.lineEditFilePath, "/tmp/results"},
                                                       {w.lineEditSesNum, "12"}};
        for (const auto &t : typed)
            t.first->setText(t.second);
        w.checkBoxSaveData->setChecked(true);
        // Conversions do not follow the locale: with a German default a point
        // is still the decimal point and a decimal comma is not a number.
        QLocale::setDefault(QLocale(QLocale::German));
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(watcher->shown.isEmpty());
        const SessionParameters &p = w.params;
        QCOMPARE(p.sessionType, 0);
        QCOMPARE(p.soundType, 0);
        QCOMPARE(p.mainParameter, 0);
        QCOMPARE(p.trialCount, 0);
        QVERIFY(near(p.carrierFrequency[0], 500) && near(p.carrierFrequency[1], 480.5));
        QVERIFY(near(p.modulationFrequency[0], 8) && near(p.modulationFrequency[1], 12.25));
        QCOMPARE(p.modulationDepth[0], 0.0);
        QVERIFY(near(p.modulationDepth[1], 0.3));
        QVERIFY(near(p.frequencyDifference[0], 0.01) && near(p.frequencyDifference[1], 0.04));
        QVERIFY(near(p.duration[0], 0.2505) && near(p.duration[1], 0.3));
        QCOMPARE(p.numberOfReversals, 6);
        QCOMPARE(p.reversalValues.size(), 6);
        QCOMPARE(p.reversalsToCalculate, 4);
        QVERIFY(near(p.silentInterval, 0.5));
        QCOMPARE(p.samplingRate, 44100.0);
        QCOMPARE(p.filePath, QString("/tmp/results"));
        QCOMPARE(p.sessionNumber, 12);
        QCOMPARE(p.fileName, QString("SUB001_practice012_sinusoid_carrier frequency.txt"));
        QVERIFY(p.saveData);
        QVERIFY(!p.resetMdFd);
        // 44100 × 0.2505 = 11047.05 and 44100 × 0.3 = 13230; 50 ms are 2205.
        QCOMPARE(p.nSamples, QVector<int>({11047, 13230}));
        QCOMPARE(p.displaySamples, QVector<int>({2205, 2205}));
        QCOMPARE(w.standardSound.size(), 11047);
        QCOMPARE(w.deviantSound.size(), 13230);
        // Nothing read is written back: the typed texts stay as typed.
        for (const auto &t : typed)
            QCOMPARE(t.first->text(), t.second);

        w.lineEditCarrierFreqStd->setText("1000,5");
        w.comboBoxMainParameter->setCurrentIndex(1);
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(watcher->shown.isEmpty());
        QCOMPARE(w.params.carrierFrequency[0], 0.0);
    }

    void reversalsToCalculateLoweredToReversals()
    {
        MainWindow w;
        w.lineEditRevToCalc->setText("20");
        w.lineEditNumReversals->setText("14");
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(watcher->shown.isEmpty());
        QCOMPARE(w.lineEditRevToCalc->text(), QString("14"));
        QCOMPARE(w.params.reversalsToCalculate, 14);
        QCOMPARE(w.params.reversalValues.size(), 14);
        w.lineEditRevToCalc->setText("3");
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QCOMPARE(w.lineEditRevToCalc->text(), QString("3"));
        QCOMPARE(w.params.reversalsToCalculate, 3);
    }

    void viewWithAndWithoutReset()
    {
        MainWindow w;
        w.checkBoxResetMdFd->setChecked(false);
        w.lineEditModDepthDev->setText("30.0000");
        w.lineEditFreqDiffDev->setText("0.0000");
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QCOMPARE(w.lineEditModDepthDev->text(), QString("30.0000"));
        QVERIFY(near(w.params.modulationDepth[1], 0.3));

        w.checkBoxResetMdFd->setChecked(true);
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QCOMPARE(deviantColumn(w), QStringList({"50.0000", "0.0000", "1000.00"}));
        QCOMPARE(w.params.modulationDepth[1], 0.5);
        QVERIFY(w.params.resetMdFd);

        // With the frequency track the reset replaces the typed deviant carrier too.
        trackFrequency(w);
        w.lineEditCarrierFreqStd->setText("2000");
        w.lineEditCarrierFreqDev->setText("1234");
        w.lineEditFreqDiffDev->setText("300");
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QCOMPARE(deviantColumn(w), QStringList({"0.0000", "100.0000", "1900.00"}));
        QVERIFY(near(w.params.frequencyDifference[1], 0.05));
        QVERIFY(near(w.params.carrierFrequency[1], 1900));
        QVERIFY(watcher->shown.isEmpty());
    }

    void zeroStandardCarrierLeavesFiniteRecord()
    {
        MainWindow w;
        w.checkBoxResetMdFd->setChecked(false);
        w.lineEditCarrierFreqStd->setText("0");
        w.lineEditFreqDiffStd->setText("5");
        w.lineEditFreqDiffDev->setText("10");
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(watcher->shown.isEmpty());
        QVERIFY(w.pushButtonGo->isEnabled());
        QCOMPARE(w.params.carrierFrequency[0], 0.0);
        QCOMPARE(w.params.frequencyDifference[0], 0.0);
        QCOMPARE(w.params.frequencyDifference[1], 0.0);

        w.checkBoxResetMdFd->setChecked(true);
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QCOMPARE(deviantColumn(w), QStringList({"50.0000", "0.0000", "0.00"}));
        QVERIFY(std::isfinite(w.params.frequencyDifference[0]));
    }

    void idleReadyTesting()
    {
        MainWindow w;
        QVERIFY(w.isEnabled());
        QVERIFY(w.pushButtonView->isEnabled());
        QVERIFY(!w.pushButtonGo->isEnabled());
        QVERIFY(!w.subjectWindow);

        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(w.pushButtonGo->isEnabled());
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(w.pushButtonGo->isEnabled());

        // Go reads the panel again without rebuilding the sounds.
        const QVector<double> viewed = w.standardSound;
        w.lineEditSilentInterval->setText("250");
        QTest::mouseClick(w.pushButtonGo, Qt::LeftButton);
        QVERIFY(!w.isEnabled());
        QVERIFY(w.pushButtonView->isEnabledTo(&w));
        QVERIFY(!w.pushButtonGo->isEnabledTo(&w));
        QVERIFY(near(w.params.silentInterval, 0.25));
        QCOMPARE(w.standardSound.constData(), viewed.constData());
        QPointer<SubjectWindow> first = w.subjectWindow;
        QVERIFY(first);
        QCOMPARE(first->parent(), &w);
        QVERIFY(first->isVisible());

        // While testing, the disabled window ignores View.
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(!w.pushButtonGo->isEnabledTo(&w));

        first->hide();
        emit first->subjectWindowClosed();
        QVERIFY(w.isEnabled());
        QVERIFY(w.pushButtonView->isEnabled());
        QVERIFY(!w.pushButtonGo->isEnabled());
        QTest::mouseClick(w.pushButtonGo, Qt::LeftButton);
        QCOMPARE(w.subjectWindow, first.data());

        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(w.pushButtonGo->isEnabled());
        QTest::mouseClick(w.pushButtonGo, Qt::LeftButton);
        QPointer<SubjectWindow> second = w.subjectWindow;
        QVERIFY(second && second != first);
        QVERIFY(first);
        QVERIFY(!first->isVisible());
        QVERIFY(second->isVisible());
        QCOMPARE(w.findChildren<SubjectWindow *>().size(), 2);

        // Each window got its own four connections; the earlier ones stay.
        for (SubjectWindow *s : {first.data(), second.data()}) {
            QVERIFY(QObject::disconnect(s, SIGNAL(subjectResponded(int)), &w,
                                        SLOT(updateMainwindow(int))));
            QVERIFY(QObject::disconnect(s, SIGNAL(subjectWindowClosed()), &w,
                                        SLOT(refreshMainWindow())));
            QVERIFY(QObject::disconnect(&w, SIGNAL(soundPlaying(int)), s,
                                        SLOT(updateSubjectWindow(int))));
            QVERIFY(QObject::disconnect(&w, SIGNAL(doneDataCollection(qreal, qreal, qint32, qreal)),
                                        s, SLOT(finishExperiment(qreal, qreal, qint32, qreal))));
        }
        QVERIFY(watcher->shown.isEmpty());
    }

    void guardRefusesField_data()
    {
        QTest::addColumn<QString>("edit");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("field");
        QTest::addColumn<bool>("reset");
        // The reset replaces the deviant's typed carrier and depth, so those two
        // are checked with it off.
        auto row = [](const char *name, const char *edit, const char *text, const char *field,
                      bool reset = true) {
            QTest::newRow(name) << QString(edit) << QString(text) << QString(field) << reset;
        };
        row("sampling rate low", "lineEditSamplingRate", "7999", "Sampling rate");
        row("sampling rate not a number", "lineEditSamplingRate", "fast", "Sampling rate");
        row("sampling rate inf", "lineEditSamplingRate", "inf", "Sampling rate");
        row("sampling rate high", "lineEditSamplingRate", "200000", "Sampling rate");
        row("duration one sample", "lineEditDurationStd", "0.03", "Duration (ms) Standard");
        row("duration too long", "lineEditDurationDev", "10000.5", "Duration (ms) Deviant");
        row("duration overflowing", "lineEditDurationDev", "1e300", "Duration (ms) Deviant");
        row("silent interval negative", "lineEditSilentInterval", "-1", "Silent interval (ms)");
        row("silent interval too long", "lineEditSilentInterval", "60001", "Silent interval (ms)");
        row("carrier at half the rate", "lineEditCarrierFreqStd", "20000",
            "Carrier frequency (Hz) Standard");
        row("deviant carrier negative", "lineEditCarrierFreqDev", "-5",
            "Carrier frequency (Hz) Deviant", false);
        row("modulation frequency negative", "lineEditModFreqStd", "-1",
            "Modulation frequency (Hz) Standard");
        row("modulation frequency nan", "lineEditModFreqDev", "nan",
            "Modulation frequency (Hz) Deviant");
        row("depth above 100", "lineEditModDepthStd", "100.5", "Modulation depth (%) Standard");
        row("deviant depth above 100", "lineEditModDepthDev", "101", "Modulation depth (%) Deviant",
            false);
        row("difference negative", "lineEditFreqDiffStd", "-3",
            "Frequency difference (Hz) Standard");
        row("reversals 0", "lineEditNumReversals", "0", "Number of reversals");
        row("reversals huge", "lineEditNumReversals", "2000000000", "Number of reversals");
        row("reversals to calculate 0", "lineEditRevToCalc", "0", "Reversals to calculate");
    }

    void guardRefusesField()
    {
        QFETCH(QString, edit);
        QFETCH(QString, text);
        QFETCH(QString, field);
        QFETCH(bool, reset);
        MainWindow w;
        w.checkBoxResetMdFd->setChecked(reset);
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        QVERIFY(w.pushButtonGo->isEnabled());
        // Typed deviant values and a count to lower show whether the refused
        // click wrote anything into the panel.
        if (edit != "lineEditModDepthDev")
            w.lineEditModDepthDev->setText("33.0000");
        w.lineEditRevToCalc->setText(edit == "lineEditRevToCalc" ? text : "20");
        w.findChild<QLineEdit *>(edit)->setText(text);
        const QVariantList before = snapshot(w.params);
        const QVector<double> standard = w.standardSound;
        const QVector<double> deviant = w.deviantSound;

        for (QPushButton *button : {w.pushButtonView, w.pushButtonGo}) {
            ModalCatcher catcher;
            catcher.arm();
            QTest::mouseClick(button, Qt::LeftButton);
            catcher.verifyShown();
            QCOMPARE(catcher.boxes.size(), 1);
            QCOMPARE(catcher.boxes[0].title, QString("Warning"));
            QVERIFY2(catcher.boxes[0].text.contains("\n" + field + ": "),
                     qPrintable(catcher.boxes[0].text));
            QCOMPARE(snapshot(w.params), before);
            QCOMPARE(w.standardSound.constData(), standard.constData());
            QCOMPARE(w.deviantSound.constData(), deviant.constData());
            QVERIFY(w.isEnabled());
            QVERIFY(w.pushButtonGo->isEnabled());
            QVERIFY(!w.subjectWindow);
            if (edit != "lineEditModDepthDev")
                QCOMPARE(w.lineEditModDepthDev->text(), QString("33.0000"));
            QCOMPARE(w.findChild<QLineEdit *>(edit)->text(), text);
        }
        QCOMPARE(watcher->shown.size(), 2);
        for (const BoxWatcher::Shown &box : watcher->shown) {
            QCOMPARE(box.parent, &w);
            QCOMPARE(box.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
            QCOMPARE(box.buttonCount, 1);
            QCOMPARE(box.icon, QMessageBox::Warning);
        }
    }

    void guardNamesEveryFieldAndFocusesTheFirst()
    {
        MainWindow w;
        w.show();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        trackFrequency(w);
        w.lineEditCarrierFreqStd->setText("0");
        w.lineEditModDepthDev->setText("-1");
        w.checkBoxResetMdFd->setChecked(false);
        w.lineEditSilentInterval->setText("-20");
        ModalCatcher catcher;
        catcher.arm();
        QTest::mouseClick(w.pushButtonView, Qt::LeftButton);
        catcher.verifyShown();
        QCOMPARE(catcher.boxes.size(), 1);
        const QString text = catcher.boxes[0].text;
        const int carrier = text.indexOf("\nCarrier frequency (Hz) Standard: ");
        const int depth = text.indexOf("\nModulation depth (%) Deviant: ");
        const int silence = text.indexOf("\nSilent interval (ms): 0 to 60000 ms");
        QVERIFY2(carrier > 0 && depth > carrier && silence > depth, qPrintable(text));
        QVERIFY(text.contains("above 0 Hz"));
        QVERIFY(text.contains("0 to 100 %"));
        QVERIFY(!w.pushButtonGo->isEnabled());
        QCOMPARE(w.focusWidget(), w.lineEditCarrierFreqStd);
        QCOMPARE(w.lineEditCarrierFreqStd->selectedText(), QString("0"));
    }

    void accessibleNames()
    {
        MainWindow w;
        const QList<QPair<QWidget *, QString>> names{
            {w.comboBoxSesType, "Session type"},
            {w.comboBoxSoundType, "Sound type"},
            {w.comboBoxMainParameter, "Main parameter"},
            {w.lineEditCarrierFreqStd, "Carrier frequency (Hz) Standard"},
            {w.lineEditCarrierFreqDev, "Carrier frequency (Hz) Deviant"},
            {w.lineEditModFreqStd, "Modulation frequency (Hz) Standard"},
            {w.lineEditModFreqDev, "Modulation frequency (Hz) Deviant"},
            {w.lineEditModDepthStd, "Modulation depth (%) Standard"},
            {w.lineEditModDepthDev, "Modulation depth (%) Deviant"},
            {w.lineEditFreqDiffStd, "Frequency difference (Hz) Standard"},
            {w.lineEditFreqDiffDev, "Frequency difference (Hz) Deviant"},
            {w.lineEditDurationStd, "Duration (ms) Standard"},
            {w.lineEditDurationDev, "Duration (ms) Deviant"},
            {w.lineEditNumReversals, "Number of reversals"},
            {w.lineEditRevToCalc, "Reversals to calculate"},
            {w.lineEditSilentInterval, "Silent interval (ms)"},
            {w.lineEditSamplingRate, "Sampling rate"},
            {w.lineEditSubCode, "Subject code"},
            {w.lineEditSesNum, "Session"},
            {w.lineEditFilePath, "Filepath"},
            {w.lineEditFileName, "Filename"},
            {w.checkBoxSaveData, "Save data to file"},
            {w.checkBoxResetMdFd, "Reset md/fd"},
            {w.pushButtonView, "View"},
            {w.pushButtonGo, "Go"},
            {w.pushButtonQuit, "Quit"}};
        int fields = 0;
        for (const auto &n : names) {
            // Buttons keep their texts as names; every input is named explicitly.
            if (!qobject_cast<QPushButton *>(n.first))
                QCOMPARE(n.first->accessibleName(), n.second);
            QAccessibleInterface *a = QAccessible::queryAccessibleInterface(n.first);
            QVERIFY(a);
            // On Linux a combo box reports its current item as its name and its
            // label through the label relation, as the toolkit does.
            if (qobject_cast<QComboBox *>(n.first)) {
                const auto labels = a->relations(QAccessible::Label);
                QCOMPARE(labels.size(), 1);
                QCOMPARE(labels[0].first->text(QAccessible::Name), n.second);
            } else {
                QCOMPARE(a->text(QAccessible::Name), n.second);
            }
            if (!qobject_cast<QPushButton *>(n.first))
                ++fields;
        }
        // Every input of the panel is in the list above.
        QCOMPARE(fields, w.centralWidget->findChildren<QLineEdit *>().size() +
                             w.centralWidget->findChildren<QComboBox *>().size() +
                             w.centralWidget->findChildren<QCheckBox *>().size());
    }
};

QTEST_MAIN(TestPanel)
#include "tst_panel.moc"
