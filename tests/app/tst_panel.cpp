#include "app/mainwindow.h"
#include "subject/subjectwindow.h"
#include "support/modalcatcher.h"

#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QtTest>

#include <cmath>
#include <memory>

namespace
{

// Answers every message box with OK (through ModalCatcher) and notes it as
// "title: text", marked when it is not a warning over the experimenter window
// with one OK button. A test that expects no box checks that none was noted.
struct Boxes : QObject {
    Boxes()
    {
        qApp->installEventFilter(this);
        catcher.arm(QMessageBox::Ok, 1000);
    }
    bool eventFilter(QObject *object, QEvent *event) override
    {
        auto *box = qobject_cast<QMessageBox *>(object);
        if (!box || event->type() != QEvent::Show)
            return false;
        const bool usual = qobject_cast<MainWindow *>(box->parentWidget()) &&
                           box->icon() == QMessageBox::Warning &&
                           box->standardButtons() == QMessageBox::Ok && box->buttons().size() == 1;
        shown << QString(usual ? "" : "UNUSUAL ") + box->windowTitle() + ": " + box->text();
        return false;
    }
    QStringList shown;
    ModalCatcher catcher;
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

QStringList panelTexts(const MainWindow &w)
{
    QStringList texts;
    for (const QLineEdit *edit : w.centralWidget->findChildren<QLineEdit *>())
        texts << edit->text();
    return texts;
}

QStringList deviantColumn(const MainWindow &w)
{
    return {w.lineEditModDepthDev->text(), w.lineEditFreqDiffDev->text(),
            w.lineEditCarrierFreqDev->text()};
}

} // namespace

class TestPanel : public QObject
{
    Q_OBJECT

    std::unique_ptr<Boxes> boxes;

private slots:
    void init() { boxes.reset(new Boxes); }

    void cleanup()
    {
        boxes.reset();
        QLocale::setDefault(QLocale::c());
    }

    // The session number padded to three digits, 0 when it is not a number;
    // the subject code as typed, blanks included.
    void fileName()
    {
        MainWindow w;
        for (const auto &session : QList<QPair<QString, QString>>{
                 {"7", "007"}, {"1234", "1234"}, {"", "000"}, {"seven", "000"}}) {
            w.lineEditSesNum->setText(session.first);
            QCOMPARE(w.lineEditFileName->text(),
                     "SUB001_test" + session.second + "_noise_modulation depth.txt");
        }
        w.lineEditSubCode->setText("Anna B 01");
        w.comboBoxSesType->setCurrentIndex(0);
        QCOMPARE(w.lineEditFileName->text(),
                 QString("Anna B 01_practice000_noise_modulation depth.txt"));
        QCOMPARE(w.params.fileName, w.lineEditFileName->text());
        QCOMPARE(boxes->shown.join('\n'), QString());
    }

    // From a panel with typed deviant values, one combo box changes: the
    // warning of a conflict, the sound type and main parameter it leaves (as
    // the file name shows them), and the Deviant column, reset by every change
    // of the main parameter whatever "Reset md/fd" says.
    void soundTypeAndMainParameter_data()
    {
        // Sound type and main parameter before, then the pair chosen.
        QTest::addColumn<QVector<int>>("change");
        QTest::addColumn<QString>("warning");
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QStringList>("deviant");
        const QString conflict = "Conflicting Parameters: The sound type 'noise' is incompatible "
                                 "with the internal parameter 'carrier frequency'. ";
        const QStringList typed{"12.0000", "7.0000", "800.00"};
        const QStringList depthStart{"50.0000", "0.0000", "1000.00"};
        QTest::newRow("noise while tracking frequency")
            << QVector<int>{0, 0, 1, 0} << conflict + "Sound type will be changed to 'sinusoid'"
            << "sinusoid_carrier frequency" << typed;
        QTest::newRow("carrier frequency with noise")
            << QVector<int>{1, 1, 1, 0}
            << conflict + "Internal parameter will be changed to 'modulation depth'"
            << "noise_modulation depth" << depthStart;
        QTest::newRow("carrier frequency with sinusoid")
            << QVector<int>{0, 1, 0, 0} << QString() << "sinusoid_carrier frequency"
            << QStringList{"0.0000", "50.0000", "950.00"};
        QTest::newRow("modulation depth with sinusoid")
            << QVector<int>{0, 0, 0, 1} << QString() << "sinusoid_modulation depth" << depthStart;
    }

    void soundTypeAndMainParameter()
    {
        QFETCH(QVector<int>, change);
        QFETCH(QString, warning);
        QFETCH(QString, fileName);
        QFETCH(QStringList, deviant);
        MainWindow w;
        w.checkBoxResetMdFd->setChecked(false);
        w.comboBoxSoundType->setCurrentIndex(change[0]);
        w.comboBoxMainParameter->setCurrentIndex(change[1]);
        w.lineEditModDepthDev->setText("12.0000");
        w.lineEditFreqDiffDev->setText("7.0000");
        w.lineEditCarrierFreqDev->setText("800.00");
        if (change[2] != change[0])
            w.comboBoxSoundType->setCurrentIndex(change[2]);
        else
            w.comboBoxMainParameter->setCurrentIndex(change[3]);
        QCOMPARE(boxes->shown.join('\n'), warning);
        QCOMPARE(w.params.fileName, "SUB001_test001_" + fileName + ".txt");
        QCOMPARE(w.lineEditFileName->text(), w.params.fileName);
        QCOMPARE(w.comboBoxSoundType->currentText() + "_" + w.comboBoxMainParameter->currentText(),
                 fileName);
        QCOMPARE(deviantColumn(w), deviant);
    }

    void viewReadsEveryField()
    {
        MainWindow w;
        w.checkBoxResetMdFd->setChecked(false);
        w.comboBoxSoundType->setCurrentIndex(0);
        w.comboBoxMainParameter->setCurrentIndex(0);
        w.comboBoxSesType->setCurrentIndex(0);
        const QList<QLineEdit *> edits{
            w.lineEditCarrierFreqStd, w.lineEditCarrierFreqDev, w.lineEditModFreqStd,
            w.lineEditModFreqDev,     w.lineEditModDepthStd,    w.lineEditModDepthDev,
            w.lineEditFreqDiffStd,    w.lineEditFreqDiffDev,    w.lineEditDurationStd,
            w.lineEditDurationDev,    w.lineEditSilentInterval, w.lineEditSamplingRate,
            w.lineEditNumReversals,   w.lineEditRevToCalc,      w.lineEditSesNum,
            w.lineEditFilePath};
        const QStringList typed{"500", "480.5", "8",     "12.25",       "no number", "30",
                                "5",   "20",    "250.5", "300",         "500",       "44100",
                                "6",   "4",     "12",    "/tmp/results"};
        for (int i = 0; i < edits.size(); ++i)
            edits[i]->setText(typed[i]);
        w.checkBoxSaveData->setChecked(true);
        w.params.trialCount = 3;
        // Conversions do not follow the locale: with a German default a point
        // is still the decimal point and a decimal comma is not a number.
        QLocale::setDefault(QLocale(QLocale::German));
        const QStringList before = panelTexts(w);
        w.pushButtonView->click();
        QCOMPARE(panelTexts(w), before); // nothing read is written back

        const SessionParameters &p = w.params;
        QVector<double> read;
        for (const QVector<double> &pair : {p.carrierFrequency, p.modulationFrequency,
                                            p.modulationDepth, p.frequencyDifference, p.duration})
            read << pair;
        read << p.silentInterval << p.samplingRate;
        const QVector<double> expected{500,  480.5, 8,      12.25, 0,   0.3,
                                       0.01, 0.04,  0.2505, 0.3,   0.5, 44100};
        for (int i = 0; i < read.size(); ++i)
            QVERIFY2(near(read[i], expected[i]), qPrintable(edits[i]->objectName()));
        // 44100 × 0.2505 = 11047.05 and 44100 × 0.3 = 13230; 50 ms are 2205.
        QCOMPARE(QVector<int>({p.sessionType, p.soundType, p.mainParameter, p.trialCount,
                               p.numberOfReversals, p.reversalValues.size(), p.reversalsToCalculate,
                               p.sessionNumber, p.nSamples[0], p.nSamples[1], p.displaySamples[0],
                               p.displaySamples[1], w.standardSound.size(), w.deviantSound.size()}),
                 QVector<int>({0, 0, 0, 0, 6, 6, 4, 12, 11047, 13230, 2205, 2205, 11047, 13230}));
        QCOMPARE(p.filePath + "/" + p.fileName,
                 QString("/tmp/results/SUB001_practice012_sinusoid_carrier frequency.txt"));
        QVERIFY(p.saveData && !p.resetMdFd);

        // A decimal comma reads as 0. With the depth track a standard carrier of
        // 0 is accepted, and the frequency differences it would divide become 0
        // instead of inf or nan. Reversals to calculate are lowered to the
        // number of reversals, in the panel too.
        w.comboBoxMainParameter->setCurrentIndex(1);
        w.lineEditCarrierFreqStd->setText("1000,5");
        w.lineEditFreqDiffDev->setText("10");
        w.lineEditNumReversals->setText("14");
        w.lineEditRevToCalc->setText("20");
        w.pushButtonView->click();
        QCOMPARE(w.params.carrierFrequency[0], 0.0);
        QCOMPARE(w.params.frequencyDifference, QVector<double>({0.0, 0.0}));
        QCOMPARE(w.lineEditRevToCalc->text(), QString("14"));
        QCOMPARE(w.params.reversalsToCalculate, 14);
        QCOMPARE(boxes->shown.join('\n'), QString());
    }

    // Unchecked, "Reset md/fd" keeps the typed deviant values (see
    // viewReadsEveryField); checked, View replaces them with the start values,
    // the typed deviant carrier included.
    void viewWithReset()
    {
        MainWindow w;
        w.lineEditModDepthDev->setText("30.0000");
        w.pushButtonView->click();
        QCOMPARE(deviantColumn(w), QStringList({"50.0000", "0.0000", "1000.00"}));
        QCOMPARE(w.params.modulationDepth[1], 0.5);

        w.comboBoxSoundType->setCurrentIndex(0);
        w.comboBoxMainParameter->setCurrentIndex(0);
        w.lineEditCarrierFreqStd->setText("2000");
        w.lineEditCarrierFreqDev->setText("1234");
        w.lineEditFreqDiffDev->setText("300");
        w.pushButtonView->click();
        QCOMPARE(deviantColumn(w), QStringList({"0.0000", "100.0000", "1900.00"}));
        QVERIFY(near(w.params.frequencyDifference[1], 0.05));
        QVERIFY(near(w.params.carrierFrequency[1], 1900));
        QCOMPARE(boxes->shown.join('\n'), QString());
    }

    void idleReadyTesting()
    {
        MainWindow w;
        // Enabled states of the window, View and Go.
        auto state = [&w] {
            return QVector<bool>{w.isEnabled(), w.pushButtonView->isEnabledTo(&w),
                                 w.pushButtonGo->isEnabledTo(&w)};
        };
        const QVector<bool> idle{true, true, false}, ready{true, true, true};
        QCOMPARE(state(), idle);
        w.pushButtonView->click();
        w.pushButtonView->click();
        QCOMPARE(state(), ready);

        // Go reads the panel again without rebuilding the sounds.
        const QVector<double> viewed = w.standardSound;
        w.lineEditSilentInterval->setText("250");
        w.pushButtonGo->click();
        QCOMPARE(state(), QVector<bool>({false, true, false}));
        QVERIFY(near(w.params.silentInterval, 0.25));
        QCOMPARE(w.standardSound.constData(), viewed.constData());
        QPointer<SubjectWindow> first = w.subjectWindow;
        QVERIFY(first && first->parent() == &w && first->isVisible());

        first->hide();
        emit first->subjectWindowClosed();
        QCOMPARE(state(), idle);
        w.pushButtonView->click();
        QCOMPARE(state(), ready);
        w.pushButtonGo->click();
        QPointer<SubjectWindow> second = w.subjectWindow;
        QVERIFY(second && second != first && second->isVisible());
        QVERIFY(first && !first->isVisible());

        // Each window got its own four connections; the earlier ones stay.
        for (SubjectWindow *s : {first.data(), second.data()}) {
            QVERIFY(disconnect(s, SIGNAL(subjectResponded(int)), &w, SLOT(updateMainwindow(int))));
            QVERIFY(disconnect(s, SIGNAL(subjectWindowClosed()), &w, SLOT(refreshMainWindow())));
            QVERIFY(disconnect(&w, SIGNAL(soundPlaying(int)), s, SLOT(updateSubjectWindow(int))));
            QVERIFY(disconnect(&w, SIGNAL(doneDataCollection(qreal, qreal, qint32, qreal)), s,
                               SLOT(finishExperiment(qreal, qreal, qint32, qreal))));
        }
        QCOMPARE(boxes->shown.join('\n'), QString());
    }

    void guardRefusesField_data()
    {
        QTest::addColumn<QString>("edit");
        QTest::addColumn<QString>("text");
        for (const QString row :
             {"SamplingRate fast", "SamplingRate inf", "SamplingRate 200000", "DurationStd 0.03",
              "DurationDev 1e300", "SilentInterval -1", "SilentInterval 60001",
              "CarrierFreqStd 20000", "CarrierFreqDev -5", "ModFreqStd -1", "ModFreqDev nan",
              "ModDepthStd 100.5", "ModDepthDev 101", "FreqDiffStd -3", "NumReversals 0",
              "NumReversals 2000000000", "RevToCalc 0"})
            QTest::newRow(qPrintable(row))
                << "lineEdit" + row.section(' ', 0, 0) << row.section(' ', 1);
    }

    // A refused View or Go names the field as its accessible name does, gives
    // it the focus, and changes nothing: not the record, the sounds, the panel
    // or the state.
    void guardRefusesField()
    {
        QFETCH(QString, edit);
        QFETCH(QString, text);
        MainWindow w;
        w.show();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        // The reset would replace the deviant's typed carrier and depth.
        w.checkBoxResetMdFd->setChecked(
            !edit.contains(QRegularExpression("CarrierFreqDev|ModDepthDev")));
        w.pushButtonView->click();
        // Typed deviant values and a count to lower show whether the refused
        // click wrote anything into the panel.
        if (edit != "lineEditModDepthDev")
            w.lineEditModDepthDev->setText("33.0000");
        w.lineEditRevToCalc->setText(edit == "lineEditRevToCalc" ? text : "20");
        auto *field = w.findChild<QLineEdit *>(edit);
        field->setText(text);
        const QVariantList record = snapshot(w.params);
        const QStringList texts = panelTexts(w);
        const double *standard = w.standardSound.constData();
        const double *deviant = w.deviantSound.constData();
        for (QPushButton *button : {w.pushButtonView, w.pushButtonGo}) {
            w.lineEditSubCode->setFocus();
            button->click();
            const QString box = boxes->shown.join('\n');
            boxes->shown.clear();
            QVERIFY2(box.startsWith("Warning: ") && box.count("Warning: ") == 1 &&
                         box.contains("\n" + field->accessibleName() + ": "),
                     qPrintable(box));
            QCOMPARE(w.focusWidget(), field);
            QCOMPARE(field->selectedText(), text);
            QCOMPARE(snapshot(w.params), record);
            QCOMPARE(panelTexts(w), texts);
            QVERIFY(w.standardSound.constData() == standard &&
                    w.deviantSound.constData() == deviant);
            QVERIFY(w.isEnabled() && w.pushButtonGo->isEnabled() && !w.subjectWindow);
        }
    }

    // What a screen reader reads for each input of the panel: its row label,
    // with the column for the two columns. Buttons keep their texts.
    void accessibleNames()
    {
        MainWindow w;
        const QList<QWidget *> inputs{
            w.comboBoxSesType,        w.comboBoxSoundType,      w.comboBoxMainParameter,
            w.lineEditCarrierFreqStd, w.lineEditCarrierFreqDev, w.lineEditModFreqStd,
            w.lineEditModFreqDev,     w.lineEditModDepthStd,    w.lineEditModDepthDev,
            w.lineEditFreqDiffStd,    w.lineEditFreqDiffDev,    w.lineEditDurationStd,
            w.lineEditDurationDev,    w.lineEditNumReversals,   w.lineEditRevToCalc,
            w.lineEditSilentInterval, w.lineEditSamplingRate,   w.lineEditSubCode,
            w.lineEditSesNum,         w.lineEditFilePath,       w.lineEditFileName,
            w.checkBoxSaveData,       w.checkBoxResetMdFd,      w.pushButtonView,
            w.pushButtonGo,           w.pushButtonQuit};
        QStringList names;
        for (QWidget *input : inputs) {
            QAccessibleInterface *a = QAccessible::queryAccessibleInterface(input);
            // On Linux a combo box reports its current item as its name and its
            // label through the label relation, as the toolkit does.
            const auto labels = a->relations(QAccessible::Label);
            names << (input->inherits("QComboBox") && labels.size() == 1
                          ? labels[0].first->text(QAccessible::Name)
                          : a->text(QAccessible::Name));
        }
        QStringList expected{"Session type", "Sound type", "Main parameter"};
        for (const QString row :
             {"Carrier frequency (Hz)", "Modulation frequency (Hz)", "Modulation depth (%)",
              "Frequency difference (Hz)", "Duration (ms)"})
            expected << row + " Standard" << row + " Deviant";
        expected << "Number of reversals"
                 << "Reversals to calculate"
                 << "Silent interval (ms)"
                 << "Sampling rate"
                 << "Subject code"
                 << "Session"
                 << "Filepath"
                 << "Filename"
                 << "Save data to file"
                 << "Reset md/fd"
                 << "View"
                 << "Go"
                 << "Quit";
        QCOMPARE(names, expected);
        // Every input of the panel is in the list above.
        QCOMPARE(inputs.size() - 3, w.centralWidget->findChildren<QLineEdit *>().size() +
                                        w.centralWidget->findChildren<QComboBox *>().size() +
                                        w.centralWidget->findChildren<QCheckBox *>().size());
    }
};

QTEST_MAIN(TestPanel)
#include "tst_panel.moc"
