// SPDX-License-Identifier: GPL-3.0-or-later
#include "mainwindow.h"

#include "../stimulus/outputmonitor.h"
#include "../subject/subjectwindow.h"
#include "windowgeometry.h"

#include <QAudioDeviceInfo>
#include <QAudioOutput>
#include <QBuffer>
#include <QCheckBox>
#include <QComboBox>
#include <QDebug>
#include <QElapsedTimer>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QtCharts/QChartView>

namespace
{
template <typename T> T *named(T *object, const char *name)
{
    object->setObjectName(QString::fromLatin1(name));
    return object;
}
} // namespace

#define MAKE(type, member, ...) member(named(new type(__VA_ARGS__), #member))

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent), MAKE(QLabel, labelSesType, "Session type"),
      MAKE(QLabel, labelSoundType, "Sound type"),
      MAKE(QLabel, labelMainParameter, "Main parameter"), MAKE(QLabel, labelStandard, "Standard"),
      MAKE(QLabel, labelDeviant, "Deviant"),
      MAKE(QLabel, labelCarrierFreq, "Carrier frequency (Hz)"),
      MAKE(QLabel, labelModFreq, "Modulation frequency (Hz)"),
      MAKE(QLabel, labelModDepth, "Modulation depth (%)"),
      MAKE(QLabel, labelFreqDiff, "Frequency difference (Hz)"),
      MAKE(QLabel, labelDuration, "Duration (ms)"),
      MAKE(QLabel, labelNumReversals, "Number of reversals"),
      MAKE(QLabel, labelRevToCalc, "Reversals to calculate"),
      MAKE(QLabel, labelSilentInterval, "Silent interval (ms)"),
      MAKE(QLabel, labelSamplingRate, "Sampling rate"), MAKE(QLabel, labelSubCode, "Subject code"),
      MAKE(QLabel, labelSesNum, "Session"), MAKE(QLabel, labelFilePath, "Filepath"),
      MAKE(QLabel, labelFileName, "Filename"), MAKE(QComboBox, comboBoxSesType),
      MAKE(QComboBox, comboBoxSoundType), MAKE(QComboBox, comboBoxMainParameter),
      MAKE(QLineEdit, lineEditCarrierFreqStd), MAKE(QLineEdit, lineEditModFreqStd),
      MAKE(QLineEdit, lineEditModDepthStd), MAKE(QLineEdit, lineEditFreqDiffStd),
      MAKE(QLineEdit, lineEditDurationStd), MAKE(QLineEdit, lineEditCarrierFreqDev),
      MAKE(QLineEdit, lineEditModFreqDev), MAKE(QLineEdit, lineEditModDepthDev),
      MAKE(QLineEdit, lineEditFreqDiffDev), MAKE(QLineEdit, lineEditDurationDev),
      MAKE(QLineEdit, lineEditNumReversals), MAKE(QLineEdit, lineEditRevToCalc),
      MAKE(QLineEdit, lineEditSilentInterval), MAKE(QLineEdit, lineEditSamplingRate),
      MAKE(QLineEdit, lineEditSubCode, "SUB001"), MAKE(QLineEdit, lineEditSesNum, "1"),
      MAKE(QLineEdit, lineEditFilePath), MAKE(QLineEdit, lineEditFileName),
      MAKE(QPushButton, pushButtonView, "View"), MAKE(QPushButton, pushButtonGo, "Go"),
      MAKE(QPushButton, pushButtonQuit, "Quit"),
      MAKE(QCheckBox, checkBoxSaveData, "Save data to file"),
      MAKE(QCheckBox, checkBoxResetMdFd, "Reset md/fd"), MAKE(QHBoxLayout, hBoxLayoutButtons),
      MAKE(QHBoxLayout, hBoxLayoutFilePath), MAKE(QHBoxLayout, hBoxLayoutFileName),
      MAKE(QGridLayout, gridLayoutPanel), MAKE(QGridLayout, gridLayoutCharts),
      MAKE(QGridLayout, gridLayoutMain), MAKE(QWidget, centralWidget), params(), trendMin(0.0),
      trendMax(100.0), seriesWaveStd(nullptr), seriesWaveDev(nullptr), seriesSpecStd(nullptr),
      seriesSpecDev(nullptr), seriesTrend(nullptr), axisXWaveStd(nullptr), axisYWaveStd(nullptr),
      axisXWaveDev(nullptr), axisYWaveDev(nullptr), axisXSpecStd(nullptr), axisYSpecStd(nullptr),
      axisXSpecDev(nullptr), axisYSpecDev(nullptr), axisXTrend(nullptr), axisYTrend(nullptr),
      chartWaveStd(nullptr), chartWaveDev(nullptr), chartSpecStd(nullptr), chartSpecDev(nullptr),
      chartTrend(nullptr), chartViewWaveStd(nullptr), chartViewWaveDev(nullptr),
      chartViewSpecStd(nullptr), chartViewSpecDev(nullptr), chartViewTrend(nullptr),
      subjectWindow(nullptr), soundTimer(nullptr), reactionClock(nullptr), reactionClockStarts(0),
      sequenceLength(0), sequenceIndex(0), audioBytes(nullptr), audioBuffer(nullptr),
      audioOutput(nullptr), centreWindow(true), widthFraction(0.8), heightFraction(0.9),
      intervalTimer(nullptr), standardSoundRate(0.0), deviantSoundRate(0.0),
      outputMonitor(new OutputMonitor), runNumber(0), intervalRun(0)
{
    // lineEditFilePath is built before params in declaration order, so it
    // takes the record's desktop folder here.
    lineEditFilePath->setText(params.filePath);

    connect(pushButtonView, SIGNAL(clicked(bool)), this, SLOT(on_pushButtonView_clicked()));
    connect(pushButtonGo, SIGNAL(clicked(bool)), this, SLOT(on_pushButtonGo_clicked()));
    connect(pushButtonQuit, SIGNAL(clicked(bool)), this, SLOT(close()));
    connect(comboBoxSesType, SIGNAL(currentIndexChanged(int)), this,
            SLOT(on_comboBoxSesType_currentIndexChanged(int)));
    connect(comboBoxSoundType, SIGNAL(currentIndexChanged(int)), this,
            SLOT(on_comboBoxSoundType_currentIndexChanged(int)));
    connect(comboBoxMainParameter, SIGNAL(currentIndexChanged(int)), this,
            SLOT(on_comboBoxMainParameter_currentIndexChanged(int)));
    connect(lineEditSubCode, SIGNAL(textChanged(QString)), this,
            SLOT(on_lineEditSubCode_textChanged(QString)));
    connect(lineEditSesNum, SIGNAL(textChanged(QString)), this,
            SLOT(on_lineEditSesNum_textChanged(QString)));

    buildLayout();
    initialisePanel();

    generateSounds();
    createWaveformCharts();
    computeSpectra();
    createSpectrumCharts();
    createTrendChart();
}

#undef MAKE

MainWindow::~MainWindow()
{
    releasePlayback();
    // The views own their charts, and the charts their series and axes, so
    // deleting a view releases its whole chart with nothing still attached.
    delete chartViewWaveStd;
    delete chartViewWaveDev;
    delete chartViewSpecStd;
    delete chartViewSpecDev;
    delete chartViewTrend;
    delete soundTimer;
    delete reactionClock;
    delete audioOutput;
    delete audioBuffer;
    delete audioBytes;
    delete outputMonitor;
    // The panel widgets and layouts belong to the central widget.
    delete centralWidget;
}

void MainWindow::setWindowGeometry(bool centre, double widthFraction, double heightFraction)
{
    // Without a screen there is nothing to measure; the window keeps the
    // toolkit's default geometry.
    if (QScreen *screen = QGuiApplication::primaryScreen())
        setGeometry(windowGeometry(screen->availableSize(), centre, widthFraction, heightFraction));
}

void MainWindow::buildLayout()
{
    setWindowGeometry(centreWindow, widthFraction, heightFraction);
    setWindowTitle("Quorvan Lab | Veltrane (v062) | Main Window");

    QGridLayout *g = gridLayoutPanel;
    g->addWidget(labelSesType, 0, 0);
    g->addWidget(comboBoxSesType, 0, 1, 1, 2);
    g->addWidget(labelSoundType, 1, 0);
    g->addWidget(comboBoxSoundType, 1, 1, 1, 2);
    g->addWidget(labelMainParameter, 2, 0);
    g->addWidget(comboBoxMainParameter, 2, 1, 1, 2);
    g->addWidget(labelStandard, 3, 1);
    g->addWidget(labelDeviant, 3, 2);
    const QVector<QLabel *> rowLabels{labelCarrierFreq, labelModFreq, labelModDepth, labelFreqDiff,
                                      labelDuration};
    const QVector<QLineEdit *> standardColumn{lineEditCarrierFreqStd, lineEditModFreqStd,
                                              lineEditModDepthStd, lineEditFreqDiffStd,
                                              lineEditDurationStd};
    const QVector<QLineEdit *> deviantColumn{lineEditCarrierFreqDev, lineEditModFreqDev,
                                             lineEditModDepthDev, lineEditFreqDiffDev,
                                             lineEditDurationDev};
    for (int r = 0; r < rowLabels.size(); ++r) {
        g->addWidget(rowLabels[r], 4 + r, 0);
        g->addWidget(standardColumn[r], 4 + r, 1);
        g->addWidget(deviantColumn[r], 4 + r, 2);
        standardColumn[r]->setAccessibleName(rowLabels[r]->text() + " " + labelStandard->text());
        deviantColumn[r]->setAccessibleName(rowLabels[r]->text() + " " + labelDeviant->text());
    }
    g->addWidget(labelNumReversals, 9, 0);
    g->addWidget(lineEditNumReversals, 9, 1);
    g->addWidget(labelRevToCalc, 10, 0);
    g->addWidget(lineEditRevToCalc, 10, 1);
    g->addWidget(labelSilentInterval, 11, 0);
    g->addWidget(lineEditSilentInterval, 11, 1);
    hBoxLayoutButtons->addWidget(pushButtonView);
    hBoxLayoutButtons->addWidget(pushButtonGo);
    hBoxLayoutButtons->addWidget(pushButtonQuit);
    g->addLayout(hBoxLayoutButtons, 12, 0, 1, 3);
    g->addWidget(labelSamplingRate, 13, 0);
    g->addWidget(lineEditSamplingRate, 13, 1);
    g->addWidget(checkBoxSaveData, 13, 2);
    g->addWidget(labelSubCode, 14, 0);
    g->addWidget(lineEditSubCode, 14, 1);
    g->addWidget(checkBoxResetMdFd, 14, 2);
    g->addWidget(labelSesNum, 15, 0);
    g->addWidget(lineEditSesNum, 15, 1, 1, 2);
    hBoxLayoutFilePath->addWidget(labelFilePath);
    hBoxLayoutFilePath->addWidget(lineEditFilePath);
    g->addLayout(hBoxLayoutFilePath, 16, 0, 1, 3);
    hBoxLayoutFileName->addWidget(labelFileName);
    hBoxLayoutFileName->addWidget(lineEditFileName);
    g->addLayout(hBoxLayoutFileName, 17, 0, 1, 3);

    gridLayoutMain->addLayout(gridLayoutPanel, 0, 0, 1, 1);
    gridLayoutMain->addLayout(gridLayoutCharts, 0, 1, 1, 1);
    centralWidget->setLayout(gridLayoutMain);
    setCentralWidget(centralWidget);

    labelStandard->setAlignment(Qt::AlignHCenter);
    labelDeviant->setAlignment(Qt::AlignHCenter);
    for (QLineEdit *edit :
         {lineEditCarrierFreqStd, lineEditModFreqStd, lineEditModDepthStd, lineEditFreqDiffStd,
          lineEditDurationStd, lineEditCarrierFreqDev, lineEditModFreqDev, lineEditModDepthDev,
          lineEditFreqDiffDev, lineEditDurationDev, lineEditNumReversals, lineEditRevToCalc,
          lineEditSilentInterval})
        edit->setAlignment(Qt::AlignHCenter);
    for (QLabel *label : {labelStandard, labelDeviant}) {
        label->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
        label->setMinimumWidth(100);
    }
    gridLayoutMain->setColumnStretch(0, 1);
    gridLayoutMain->setColumnStretch(1, 2);
    setPanelAccessibleNames();
}

void MainWindow::initialisePanel()
{
    comboBoxSesType->addItems(params.sessionTypes);
    comboBoxSoundType->addItems(params.soundTypes);
    comboBoxMainParameter->addItems(params.mainParameters);
    params.sessionType = 1;
    params.soundType = 1;
    params.mainParameter = 1;
    comboBoxSesType->setCurrentIndex(params.sessionType);
    comboBoxSoundType->setCurrentIndex(params.soundType);
    comboBoxMainParameter->setCurrentIndex(params.mainParameter);

    const double cf0 = params.carrierFrequency[0];
    lineEditModFreqStd->setText(QString::number(params.modulationFrequency[0], 'f', 2));
    lineEditModDepthStd->setText(QString::number(100 * params.modulationDepth[0], 'f', 4));
    lineEditFreqDiffStd->setText(QString::number(params.frequencyDifference[0] * cf0, 'f', 4));
    lineEditCarrierFreqStd->setText(QString::number(params.carrierFrequency[0], 'f', 2));
    lineEditDurationStd->setText(QString::number(1000 * params.duration[0], 'f', 2));
    lineEditModFreqDev->setText(QString::number(params.modulationFrequency[1], 'f', 2));
    lineEditModDepthDev->setText(QString::number(100 * params.modulationDepth[1], 'f', 4));
    lineEditFreqDiffDev->setText(QString::number(params.frequencyDifference[1] * cf0, 'f', 4));
    lineEditCarrierFreqDev->setText(QString::number(params.carrierFrequency[1], 'f', 2));
    lineEditDurationDev->setText(QString::number(1000 * params.duration[1], 'f', 2));
    checkBoxResetMdFd->setChecked(params.resetMdFd);
    checkBoxSaveData->setChecked(params.saveData);
    lineEditNumReversals->setText(QString::number(params.numberOfReversals));
    lineEditRevToCalc->setText(QString::number(params.reversalsToCalculate));
    lineEditSilentInterval->setText(QString::number(1000 * params.silentInterval, 'f', 2));
    lineEditFilePath->setText(params.filePath);
    composeFileName();
    lineEditFileName->setEnabled(false);
    lineEditSesNum->setText(QString::number(params.sessionNumber));
    lineEditSubCode->setText(params.subjectCode);
    lineEditSamplingRate->setText(QString::number(params.samplingRate, 'g', 6));
    pushButtonView->setEnabled(true);
    pushButtonGo->setEnabled(false);

    sequenceLength = 4;
    sequenceIndex = 0;
    trendTrials.clear();
    trendValues.clear();
    updateDisplaySamples();
    waveformPointsStd.resize(params.displaySamples[0]);
    waveformPointsDev.resize(params.displaySamples[1]);
    waveformRangeStd.resize(2);
    waveformRangeDev.resize(2);
    spectrumRangeStd.resize(2);
    spectrumRangeDev.resize(2);
    fftLength.resize(2);
    fftDuration.resize(2);
    frequencyResolution.resize(2);
    setUpSpectra();

    for (QFont *font : {&axisLabelFont, &axisTitleFont, &chartTitleFont}) {
        font->setPixelSize(font == &chartTitleFont ? 12 : 10);
        font->setWeight(50);
    }

    deviantFlags.resize(sequenceLength);
    soundTimer = new QTimer(this);
    connect(soundTimer, SIGNAL(timeout()), this, SLOT(playOneSound()));
    reactionClock = new QElapsedTimer();
    configureAudioFormat(params.samplingRate);
}

void MainWindow::configureAudioFormat(double rate)
{
    audioFormat.setSampleRate(static_cast<int>(rate));
    audioFormat.setChannelCount(1);
    audioFormat.setSampleSize(32);
    audioFormat.setCodec("audio/pcm");
    audioFormat.setByteOrder(QAudioFormat::LittleEndian);
    audioFormat.setSampleType(QAudioFormat::Float);
    // A run whose standard and deviant were built at different rates switches
    // the format at nearly every interval; one warning per rate says it all.
    if (!QAudioDeviceInfo::defaultOutputDevice().isFormatSupported(audioFormat) &&
        !unsupportedRatesLogged.contains(audioFormat.sampleRate())) {
        unsupportedRatesLogged.insert(audioFormat.sampleRate());
        qWarning() << "Raw audio format not supported by backend, cannot play audio.";
    }
}
