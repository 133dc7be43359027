// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "../procedure/sidecar.h"
#include "../stimulus/soundinginterval.h"
#include "sessionparameters.h"

#include <QAudio>
#include <QAudioFormat>
#include <QFont>
#include <QMainWindow>
#include <QPointF>
#include <QSet>
#include <QVector>

class OutputMonitor;
class QAudioOutput;
class QBuffer;
class QByteArray;
class QCheckBox;
class QComboBox;
class QElapsedTimer;
class QGridLayout;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;
class SubjectWindow;

namespace QtCharts
{
class QChart;
class QChartView;
class QLineSeries;
class QValueAxis;
} // namespace QtCharts

// The experimenter window: parameter panel, session record, sounds, charts,
// trial sequencing and playback. Members are public so that tests and tools can
// inspect the state a run leaves behind; only the window itself changes them.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

signals:
    void soundPlaying(int index);
    void doneDataCollection(qreal threshold, qreal reactionTime, qint32 mainParameter, qreal cfStd);

public slots:
    void on_pushButtonView_clicked();
    void on_pushButtonGo_clicked();
    void updateMainwindow(int response);
    void playOneSound();
    void handleStateChanged(QAudio::State state);
    void on_comboBoxSesType_currentIndexChanged(int index);
    void on_comboBoxSoundType_currentIndexChanged(int index);
    void on_comboBoxMainParameter_currentIndexChanged(int index);
    void on_lineEditSubCode_textChanged(const QString &arg1);
    void on_lineEditSesNum_textChanged(const QString &arg1);
    void refreshMainWindow();

public:
    // Construction and layout (app/mainwindow.cpp).
    void setWindowGeometry(bool centre, double widthFraction, double heightFraction);
    void buildLayout();
    void initialisePanel();
    void configureAudioFormat(double rate);

    // Panel (app/panel.cpp).
    void readPanel();
    void buildSounds(); // both sounds from the record, and their charts
    void composeFileName();
    void setPanelAccessibleNames();

    // Staircase (procedure/mainwindow_staircase.cpp).
    void applyStep();
    void resetStartValues();
    void computeResults();

    // Trial sequencing (procedure/sequencing.cpp).
    void startTrial();
    void chooseStimPosition();
    void nextTrial();
    void finishRun();
    int randomInteger(int min, int max);

    // Results file and its sidecar (procedure/mainwindow_results.cpp).
    void saveResults();
    void noteRunStart();
    void noteOutputDevice(const QString &device, const OutputLevel &level);
    void warnFaultyRun();
    void saveSidecar(const QString &resultsPath);

    // Playback beyond the two slots (stimulus/playback.cpp).
    void checkInterval();
    void finishInterval();
    void endTrial();
    void overtakeInterval();
    void releaseInterval(const SoundingInterval &interval);
    void releaseExpiredIntervals();
    void releasePlayback();
    void settleOvertakenIntervals();
    bool outputAccepted();

    // Synthesis (stimulus/mainwindow_synthesis.cpp).
    void generateSounds();
    void updateDisplaySamples();

    // Charts and spectra (display/).
    void createTrendChart();
    void appendTrendPoint();
    void resetRun();
    void createWaveformCharts();
    void updateWaveformCharts();
    void setUpSpectra();
    void computeSpectra();
    void createSpectrumCharts();
    void updateSpectrumCharts();

    // 1. Panel labels.
    QLabel *labelSesType;
    QLabel *labelSoundType;
    QLabel *labelMainParameter;
    QLabel *labelStandard;
    QLabel *labelDeviant;
    QLabel *labelCarrierFreq;
    QLabel *labelModFreq;
    QLabel *labelModDepth;
    QLabel *labelFreqDiff;
    QLabel *labelDuration;
    QLabel *labelNumReversals;
    QLabel *labelRevToCalc;
    QLabel *labelSilentInterval;
    QLabel *labelSamplingRate;
    QLabel *labelSubCode;
    QLabel *labelSesNum;
    QLabel *labelFilePath;
    QLabel *labelFileName;

    // 2. Combo boxes.
    QComboBox *comboBoxSesType;
    QComboBox *comboBoxSoundType;
    QComboBox *comboBoxMainParameter;

    // 3. Line edits.
    QLineEdit *lineEditCarrierFreqStd;
    QLineEdit *lineEditModFreqStd;
    QLineEdit *lineEditModDepthStd;
    QLineEdit *lineEditFreqDiffStd;
    QLineEdit *lineEditDurationStd;
    QLineEdit *lineEditCarrierFreqDev;
    QLineEdit *lineEditModFreqDev;
    QLineEdit *lineEditModDepthDev;
    QLineEdit *lineEditFreqDiffDev;
    QLineEdit *lineEditDurationDev;
    QLineEdit *lineEditNumReversals;
    QLineEdit *lineEditRevToCalc;
    QLineEdit *lineEditSilentInterval;
    QLineEdit *lineEditSamplingRate;
    QLineEdit *lineEditSubCode;
    QLineEdit *lineEditSesNum;
    QLineEdit *lineEditFilePath;
    QLineEdit *lineEditFileName;

    // 4. Buttons and check boxes.
    QPushButton *pushButtonView;
    QPushButton *pushButtonGo;
    QPushButton *pushButtonQuit;
    QCheckBox *checkBoxSaveData;
    QCheckBox *checkBoxResetMdFd;

    // 5. Layouts and container.
    QHBoxLayout *hBoxLayoutButtons;
    QHBoxLayout *hBoxLayoutFilePath;
    QHBoxLayout *hBoxLayoutFileName;
    QGridLayout *gridLayoutPanel;
    QGridLayout *gridLayoutCharts;
    QGridLayout *gridLayoutMain;
    QWidget *centralWidget;

    // 6. Session record.
    SessionParameters params;

    // 7. Sound and chart data.
    QVector<double> waveformTime;
    QVector<double> trendTrials;
    QVector<double> standardSound;
    QVector<double> deviantSound;
    QVector<double> trendValues;
    double trendMin;
    double trendMax;
    QVector<QPointF> waveformPointsStd;
    QVector<QPointF> waveformPointsDev;
    QVector<double> waveformRangeStd;
    QVector<double> waveformRangeDev;
    QVector<int> fftLength;
    QVector<double> fftDuration;
    QVector<double> frequencyResolution;
    QVector<double> spectrumFrequency;
    QVector<double> amplitudeSpectrumStd;
    QVector<double> amplitudeSpectrumDev;
    QVector<double> spectrumRangeStd;
    QVector<double> spectrumRangeDev;
    QVector<QPointF> spectrumPointsStd;
    QVector<QPointF> spectrumPointsDev;

    // 8. Chart objects, null until first built.
    QtCharts::QLineSeries *seriesWaveStd;
    QtCharts::QLineSeries *seriesWaveDev;
    QtCharts::QLineSeries *seriesSpecStd;
    QtCharts::QLineSeries *seriesSpecDev;
    QtCharts::QLineSeries *seriesTrend;
    QtCharts::QValueAxis *axisXWaveStd;
    QtCharts::QValueAxis *axisYWaveStd;
    QtCharts::QValueAxis *axisXWaveDev;
    QtCharts::QValueAxis *axisYWaveDev;
    QtCharts::QValueAxis *axisXSpecStd;
    QtCharts::QValueAxis *axisYSpecStd;
    QtCharts::QValueAxis *axisXSpecDev;
    QtCharts::QValueAxis *axisYSpecDev;
    QtCharts::QValueAxis *axisXTrend;
    QtCharts::QValueAxis *axisYTrend;
    QtCharts::QChart *chartWaveStd;
    QtCharts::QChart *chartWaveDev;
    QtCharts::QChart *chartSpecStd;
    QtCharts::QChart *chartSpecDev;
    QtCharts::QChart *chartTrend;
    QtCharts::QChartView *chartViewWaveStd;
    QtCharts::QChartView *chartViewWaveDev;
    QtCharts::QChartView *chartViewSpecStd;
    QtCharts::QChartView *chartViewSpecDev;
    QtCharts::QChartView *chartViewTrend;

    // 9. Test machinery.
    SubjectWindow *subjectWindow;
    QTimer *soundTimer;
    QElapsedTimer *reactionClock;
    int reactionClockStarts;
    int sequenceLength;
    int sequenceIndex;
    QVector<bool> deviantFlags;

    // 10. Chart fonts.
    QFont axisLabelFont;
    QFont axisTitleFont;
    QFont chartTitleFont;

    // 11. Audio objects.
    QByteArray *audioBytes;
    QBuffer *audioBuffer;
    QAudioFormat audioFormat;
    QAudioOutput *audioOutput;

    // 12. Window geometry settings.
    bool centreWindow;
    double widthFraction;
    double heightFraction;

    // 13. Playback bookkeeping (stimulus/playback.cpp): the fallback that ends
    // an interval whose output never reports idle with its deadline and limit,
    // the sampling rates the two sounds were built at, intervals overtaken by
    // the next tick, and the rates the device was found not to support (each
    // is logged once, not at every interval that asks for it).
    QTimer *intervalTimer;
    QDeadlineTimer intervalDeadline;
    QDeadlineTimer intervalLimit;
    double standardSoundRate;
    double deviantSoundRate;
    QVector<SoundingInterval> overtakenIntervals;
    QSet<int> unsupportedRatesLogged;
    // The volume and mute state of the outputs, kept up to date by the sound
    // server's client library on its own thread.
    OutputMonitor *outputMonitor;

    // 14. The current run, for its sidecar (procedure/mainwindow_results.cpp):
    // the record as the run started, when it started and through what, and
    // the intervals whose sound did not play; the number of the run (runs
    // started so far) and the run of the interval now sounding, so that a
    // sound of an abandoned run never counts for the next one.
    SessionParameters runSettings;
    RunFacts runFacts;
    int runNumber;
    int intervalRun;
};
