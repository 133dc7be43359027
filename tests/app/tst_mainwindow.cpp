// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/mainwindow.h"
#include "app/windowgeometry.h"
#include "subject/subjectwindow.h"
#include "support/gridrows.h"
#include "support/modalcatcher.h"

#include <QtCharts>
#include <QtTest>
#include <QtWidgets>

#include <algorithm>

using namespace QtCharts;

// The experimenter window: panel, View and Go, refusals, charts.
class TestMainWindow : public QObject
{
    Q_OBJECT

    // Every box of the panel as "name=value", the name without its class
    // prefix, sorted by name.
    static QString panel(const MainWindow &w)
    {
        QStringList fields;
        for (const QLineEdit *edit : w.centralWidget->findChildren<QLineEdit *>())
            fields << edit->objectName().mid(8) + "=" + edit->text();
        for (const QComboBox *combo : w.centralWidget->findChildren<QComboBox *>())
            fields << combo->objectName().mid(8) + "=" + combo->currentText();
        for (const QCheckBox *check : w.centralWidget->findChildren<QCheckBox *>())
            fields << check->objectName().mid(8) + "=" + (check->isChecked() ? "on" : "off");
        fields.sort();
        return fields.join("; ");
    }

    static void type(MainWindow &w, const QString &fields)
    {
        for (const QString &f : fields.split("; "))
            w.findChild<QLineEdit *>("lineEdit" + f.section('=', 0, 0))->setText(f.section('=', 1));
    }

    static QString deviantColumn(const MainWindow &w)
    {
        return w.lineEditModDepthDev->text() + " " + w.lineEditFreqDiffDev->text() + " " +
               w.lineEditCarrierFreqDev->text();
    }

    static QValueAxis *axis(QChart *c, Qt::Orientation o)
    {
        return static_cast<QValueAxis *>(c->axes(o).value(0));
    }

    // The chart in a cell of the chart grid: the waveforms of the standard and
    // the deviant, below them their spectra, below them the trend over two
    // cells.
    static QChart *chartAt(const MainWindow &w, int cell)
    {
        QLayoutItem *item = w.gridLayoutCharts->itemAtPosition(cell / 2, cell % 2);
        return item ? static_cast<QChartView *>(item->widget())->chart() : nullptr;
    }

    // Waveforms draw (k / rate in ms, sample k) for the displayed samples over
    // a time axis as long as they; spectra draw (k × rate / 32768, amplitude k)
    // for 1638 bins over 0 to 2000 Hz. Amplitude axes span the whole vector.
    // Charts and axes keep their titles, and each series is drawn against the
    // two axes shown.
    static void verifyCharts(const MainWindow &w, double rate, int standardPoints,
                             int deviantPoints)
    {
        const QVector<const QVector<double> *> ys{&w.standardSound, &w.deviantSound,
                                                  &w.amplitudeSpectrumStd, &w.amplitudeSpectrumDev};
        const QStringList titles{"Time Waveform (standard)", "Time Waveform (Deviant)",
                                 "Amplitude Spectrum (standard)", "Amplitude Spectrum (Deviant)"};
        for (int i = 0; i < 4; ++i) {
            const QVector<double> &y = *ys[i];
            const int n = QVector<int>{standardPoints, deviantPoints, 1638, 1638}[i];
            QVector<QPointF> points;
            for (int k = 0; k < n; ++k)
                points << QPointF(i < 2 ? k * 1000.0 / rate : k * rate / 32768, y[k]);
            QChart *c = chartAt(w, i);
            QVERIFY(c);
            QCOMPARE(c->title() + "/" + axis(c, Qt::Horizontal)->titleText() + "/" +
                         axis(c, Qt::Vertical)->titleText(),
                     titles[i] + (i < 2 ? "/Time (ms)/Amplitude" : "/Frequency (Hz)/Amplitude"));
            QCOMPARE(static_cast<QLineSeries *>(c->series()[0])->pointsVector(), points);
            QCOMPARE(c->series()[0]->attachedAxes(), c->axes());
            QCOMPARE(axis(c, Qt::Horizontal)->max(), i < 2 ? n * 1000.0 / rate : 2000.0);
            const auto extremes = std::minmax_element(y.begin(), y.end());
            QVERIFY(axis(c, Qt::Horizontal)->min() == 0 &&
                    axis(c, Qt::Vertical)->min() == *extremes.first &&
                    axis(c, Qt::Vertical)->max() == *extremes.second);
        }
    }

    // The trend chart's value axis, trials axis and tick count, then its
    // points.
    static QVector<double> trend(const MainWindow &w)
    {
        QVector<double> t{w.axisYTrend->min(), w.axisYTrend->max(), w.axisXTrend->min(),
                          w.axisXTrend->max(), double(w.axisXTrend->tickCount())};
        for (const QPointF &p : w.seriesTrend->pointsVector())
            t << p.x() << p.y();
        return t;
    }

private slots:
    void startUp()
    {
        QCOMPARE(windowGeometry(QSize(1920, 1040), true, 0.8, 0.9), QRect(192, 52, 1536, 936));
        MainWindow w;
        QCOMPARE(w.geometry(),
                 windowGeometry(QGuiApplication::primaryScreen()->availableSize(), true, 0.8, 0.9));
        QCOMPARE(w.windowTitle(), QString("Quorvan Lab | Veltrane (v062) | Main Window"));
        QCOMPARE(panel(w),
                 "CarrierFreqDev=1000.00; CarrierFreqStd=1000.00; DurationDev=600.00; "
                 "DurationStd=600.00; FileName=SUB001_test001_noise_modulation depth.txt; "
                 "FilePath=" +
                     QStandardPaths::writableLocation(QStandardPaths::DesktopLocation) +
                     "; FreqDiffDev=0.0000; FreqDiffStd=0.0000; MainParameter=modulation "
                     "depth; ModDepthDev=50.0000; ModDepthStd=0.0000; ModFreqDev=40.00; "
                     "ModFreqStd=40.00; NumReversals=14; ResetMdFd=on; RevToCalc=8; "
                     "SamplingRate=40000; SaveData=off; SesNum=1; SesType=test; "
                     "SilentInterval=1000.00; SoundType=noise; SubCode=SUB001");
        QVERIFY(!w.lineEditFileName->isEnabled() && w.pushButtonView->isEnabled() &&
                !w.pushButtonGo->isEnabled());

        // Where each control of the panel sits, row by row.
        QCOMPARE(
            gridRows(w.gridLayoutPanel),
            QStringList(
                {"labelSesType comboBoxSesType:2", "labelSoundType comboBoxSoundType:2",
                 "labelMainParameter comboBoxMainParameter:2", "- labelStandard labelDeviant",
                 "labelCarrierFreq lineEditCarrierFreqStd lineEditCarrierFreqDev",
                 "labelModFreq lineEditModFreqStd lineEditModFreqDev",
                 "labelModDepth lineEditModDepthStd lineEditModDepthDev",
                 "labelFreqDiff lineEditFreqDiffStd lineEditFreqDiffDev",
                 "labelDuration lineEditDurationStd lineEditDurationDev",
                 "labelNumReversals lineEditNumReversals -", "labelRevToCalc lineEditRevToCalc -",
                 "labelSilentInterval lineEditSilentInterval -",
                 "pushButtonView+pushButtonGo+pushButtonQuit:3",
                 "labelSamplingRate lineEditSamplingRate checkBoxSaveData",
                 "labelSubCode lineEditSubCode checkBoxResetMdFd", "labelSesNum lineEditSesNum:2",
                 "labelFilePath+lineEditFilePath:3", "labelFileName+lineEditFileName:3"}));

        // The trend chart spans the row below the spectra.
        QVERIFY(chartAt(w, 4) == w.chartTrend && chartAt(w, 5) == w.chartTrend);
        QVERIFY(w.chartTrend->title() == "Response Trend" &&
                w.axisXTrend->titleText() == "Number of Trials" &&
                w.axisYTrend->titleText() == "Modulation Depth (%)");
        QVERIFY(w.seriesTrend->pointsVisible() && !w.axisXTrend->labelsVisible() &&
                w.seriesTrend->attachedAxes() == w.chartTrend->axes());
        verifyCharts(w, 40000, 2000, 2000);

        // A staircase step writes the tracked value into the Deviant column:
        // two 2 dB steps up from 5 % of 1000 Hz, or from 50 %, give 79.2447.
        for (int mainParameter : {0, 1}) {
            w.params.mainParameter = mainParameter;
            w.resetStartValues();
            w.params.stepDirection = w.params.stepUp;
            w.applyStep();
            QCOMPARE(deviantColumn(w), QString(mainParameter == 0 ? "0.0000 79.2447 920.76"
                                                                  : "79.2447 0.0000 1000.00"));
        }

        // The trials axis spans 0 to the trial count with a tick per trial;
        // the value axis keeps 0 to 100 until two values differ, then hugs
        // them. View clears the run and the value axis, leaves the trials
        // axis, and titles the value axis for the tracked quantity.
        auto answer = [&w](double value) {
            w.params.modulationDepth[1] = value / 100;
            ++w.params.trialCount;
            w.appendTrendPoint();
        };
        for (const auto &[value, expected] :
             QList<QPair<double, QVector<double>>>{{50, {0, 100, 0, 1, 2, 0, 50}},
                                                   {40, {40, 50, 0, 2, 3, 0, 50, 1, 40}},
                                                   {60, {40, 60, 0, 3, 4, 0, 50, 1, 40, 2, 60}}}) {
            answer(value);
            QCOMPARE(trend(w), expected);
        }
        w.comboBoxSoundType->setCurrentIndex(0);
        w.comboBoxMainParameter->setCurrentIndex(0);
        w.pushButtonView->click();
        QCOMPARE(trend(w), QVector<double>({0, 100, 0, 3, 4}));
        QCOMPARE(w.axisYTrend->titleText(), QString("Frequency difference (Hz)"));
        w.comboBoxMainParameter->setCurrentIndex(1);
        w.pushButtonView->click();
        answer(70);
        answer(70);
        QCOMPARE(trend(w), QVector<double>({0, 100, 0, 2, 3, 0, 70, 1, 70}));

        w.show();
        w.pushButtonQuit->click();
        QVERIFY(!w.isVisible());
    }

    // One session at the panel: the file name follows every change; the
    // conflict rules leave a usable pair behind, and every change of the main
    // parameter resets the Deviant column, whatever "Reset md/fd" says. View
    // reads the panel and draws the sounds; a refused View or Go changes
    // nothing; Go starts a test in a new participant window.
    void panelViewAndGo()
    {
        MainWindow w;
        w.show();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        ModalCatcher catcher;
        catcher.arm(QMessageBox::Ok, 100);
        // The proposed file name follows each of its inputs changed alone.
        const QList<std::tuple<QWidget *, QString, QString>> changes{
            {w.lineEditSesNum, "1234", "SUB001_test1234_noise_modulation depth"},
            {w.lineEditSesNum, "seven", "SUB001_test000_noise_modulation depth"},
            {w.lineEditSesNum, "7", "SUB001_test007_noise_modulation depth"},
            {w.lineEditSubCode, "Anna B 01", "Anna B 01_test007_noise_modulation depth"},
            {w.comboBoxSesType, "0", "Anna B 01_practice007_noise_modulation depth"},
            {w.comboBoxSoundType, "0", "Anna B 01_practice007_sinusoid_modulation depth"},
            {w.comboBoxMainParameter, "0", "Anna B 01_practice007_sinusoid_carrier frequency"},
            {w.comboBoxMainParameter, "1", "Anna B 01_practice007_sinusoid_modulation depth"},
            {w.comboBoxSoundType, "1", "Anna B 01_practice007_noise_modulation depth"}};
        for (const auto &[widget, value, name] : changes) {
            if (auto *edit = qobject_cast<QLineEdit *>(widget))
                edit->setText(value);
            else
                static_cast<QComboBox *>(widget)->setCurrentIndex(value.toInt());
            QCOMPARE(w.lineEditFileName->text(), name + ".txt");
        }
        w.checkBoxResetMdFd->setChecked(false);
        const QString typed = "ModDepthDev=12; FreqDiffDev=7; CarrierFreqDev=800";
        type(w, typed);
        w.comboBoxMainParameter->setCurrentIndex(0);
        QCOMPARE(deviantColumn(w), QString("50.0000 0.0000 1000.00"));
        w.comboBoxSoundType->setCurrentIndex(0);
        type(w, typed);
        w.comboBoxMainParameter->setCurrentIndex(0);
        QCOMPARE(deviantColumn(w), QString("0.0000 50.0000 950.00"));
        type(w, typed);
        w.comboBoxSoundType->setCurrentIndex(1);
        QCOMPARE(deviantColumn(w), QString("12 7 800"));
        QCOMPARE(w.params.fileName,
                 QString("Anna B 01_practice007_sinusoid_carrier frequency.txt"));
        const QString conflict = "Conflicting Parameters: The sound type 'noise' is incompatible "
                                 "with the internal parameter 'carrier frequency'. ";
        QCOMPARE(catcher.boxes.join('|'), conflict +
                                              "Internal parameter will be changed to 'modulation "
                                              "depth'|" +
                                              conflict +
                                              "Sound type will be changed to 'sinusoid'");
        catcher.boxes.clear();

        // A decimal comma or a word reads as 0.
        w.checkBoxSaveData->setChecked(true);
        type(w, "CarrierFreqStd=500; CarrierFreqDev=480.5; ModFreqStd=8; ModFreqDev=12,25; "
                "ModDepthStd=none; ModDepthDev=30; FreqDiffStd=5; FreqDiffDev=20; "
                "DurationStd=250.5; DurationDev=20; NumReversals=6; RevToCalc=20; "
                "SilentInterval=500; SamplingRate=44100; SubCode=Anna B; SesNum=12; "
                "FilePath=/tmp/results");
        w.pushButtonView->click();
        // Compared to 10 significant digits. 44100 × 0.2505 = 11047.05 and
        // 44100 × 0.02 = 882 samples; 50 ms are 2205, lowered to a shorter
        // sound. Reversals to calculate are lowered to the number of reversals.
        const SessionParameters &p = w.params;
        QStringList read;
        for (double v : p.carrierFrequency + p.modulationFrequency + p.modulationDepth +
                            p.frequencyDifference + p.duration +
                            QVector<double>{p.silentInterval, p.samplingRate})
            read << QString::number(v, 'g', 10);
        QCOMPARE(read.join(' '), QString("500 480.5 8 0 0 0.3 0.01 0.04 0.2505 0.02 0.5 44100"));
        QCOMPARE(QVector<int>({p.sessionType, p.soundType, p.mainParameter, p.numberOfReversals,
                               p.reversalValues.size(), p.reversalsToCalculate, p.sessionNumber,
                               p.nSamples[0], p.nSamples[1], p.displaySamples[0],
                               p.displaySamples[1], w.standardSound.size(), w.deviantSound.size()}),
                 QVector<int>({0, 0, 0, 6, 6, 6, 12, 11047, 882, 2205, 882, 11047, 882}));
        QCOMPARE(p.filePath + "/" + p.fileName,
                 QString("/tmp/results/Anna B_practice012_sinusoid_carrier frequency.txt"));
        QVERIFY(p.saveData && !p.resetMdFd);
        QCOMPARE(deviantColumn(w) + " " + w.lineEditRevToCalc->text(), QString("30 20 480.5 6"));
        // The spectra keep the transform length of start-up while their bins
        // follow the rate.
        verifyCharts(w, 44100, 2205, 882);

        // Checked, "Reset md/fd" replaces the typed deviant values, carrier
        // included, with the start values for the standard carrier.
        w.checkBoxResetMdFd->setChecked(true);
        w.lineEditCarrierFreqStd->setText("2000");
        w.pushButtonView->click();
        QCOMPARE(deviantColumn(w), QString("0.0000 100.0000 1900.00"));

        // A refused View or Go names every offending field in a warning,
        // gives the first the focus with its text selected, and changes
        // nothing. Field names follow the labels, with the column in the two
        // columns.
        w.checkBoxResetMdFd->setChecked(false);
        type(w, "NumReversals=14; RevToCalc=20; ModDepthDev=101; SamplingRate=inf");
        const QString texts = panel(w);
        for (QPushButton *button : {w.pushButtonView, w.pushButtonGo}) {
            w.lineEditSubCode->setFocus();
            button->click();
            QVERIFY(w.focusWidget() == w.lineEditModDepthDev &&
                    w.lineEditModDepthDev->selectedText() == "101");
        }
        QCOMPARE(
            catcher.boxes.join('|').count("Warning: No session can be made from these values."), 2);
        QCOMPARE(catcher.boxes.join('|').count(
                     "\nModulation depth (%) Deviant: 0 to 100 %\nSampling rate: "),
                 2);
        QCOMPARE(panel(w), texts);
        QVERIFY(p.numberOfReversals == 6 && p.reversalsToCalculate == 6 && p.resetMdFd &&
                w.isEnabled() && w.pushButtonGo->isEnabled() && !w.subjectWindow);
        type(w, "ModDepthDev=30; SamplingRate=44100");

        // Go reads the panel again and builds both sounds and their charts
        // from it; the window stays disabled until the participant window is
        // closed, and Go until the next View.
        w.lineEditSilentInterval->setText("250");
        w.lineEditDurationStd->setText("100");
        w.pushButtonGo->click();
        QVERIFY(!w.isEnabled() && w.pushButtonView->isEnabledTo(&w) &&
                !w.pushButtonGo->isEnabledTo(&w));
        QVERIFY(p.silentInterval == 0.25 && w.standardSound.size() == 4410);
        verifyCharts(w, 44100, 2205, 882);
        QPointer<SubjectWindow> first = w.subjectWindow;
        QVERIFY(first && first->parent() == &w && first->isVisible());
        first->hide();
        emit first->subjectWindowClosed();
        QVERIFY(w.isEnabled() && w.pushButtonView->isEnabled() && !w.pushButtonGo->isEnabled());
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
