// SPDX-License-Identifier: GPL-3.0-or-later
#include "../app/mainwindow.h"
#include "chartdata.h"
#include "chartsetup.h"

#include <QGridLayout>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>

using namespace QtCharts;

namespace
{

// Steps shared by create and update: the displayed stretch of each sound goes
// to its series in one replace, and the ranges cover the whole sounds.
void refreshWaveforms(MainWindow &w)
{
    ChartData::fillPoints(w.waveformPointsStd, w.waveformTime, w.standardSound,
                          w.params.displaySamples[0]);
    ChartData::fillPoints(w.waveformPointsDev, w.waveformTime, w.deviantSound,
                          w.params.displaySamples[1]);
    w.seriesWaveStd->replace(w.waveformPointsStd);
    w.seriesWaveDev->replace(w.waveformPointsDev);
    w.waveformRangeStd = ChartData::valueRange(w.standardSound);
    w.waveformRangeDev = ChartData::valueRange(w.deviantSound);
}

// The time axis ends where the displayed stretch of sound i ends, in ms.
void setTimeRange(QValueAxis *axis, const MainWindow &w, int i)
{
    ChartSetup::setRange(axis, 0.0, w.params.displaySamples[i] / w.params.samplingRate * 1000.0);
}

} // namespace

void MainWindow::createWaveformCharts()
{
    updateDisplaySamples();
    if (!seriesWaveStd)
        seriesWaveStd = new QLineSeries;
    if (!seriesWaveDev)
        seriesWaveDev = new QLineSeries;
    refreshWaveforms(*this);

    if (!axisXWaveStd)
        axisXWaveStd = ChartSetup::newAxis("Time (ms)", axisLabelFont, axisTitleFont);
    setTimeRange(axisXWaveStd, *this, 0);
    if (!axisYWaveStd)
        axisYWaveStd = ChartSetup::newAxis("Amplitude", axisLabelFont, axisTitleFont);
    ChartSetup::setRange(axisYWaveStd, waveformRangeStd[0], waveformRangeStd[1]);
    if (!chartWaveStd)
        chartWaveStd = ChartSetup::newChart(seriesWaveStd, axisXWaveStd, axisYWaveStd,
                                            "Time Waveform (standard)", chartTitleFont);
    if (!chartViewWaveStd)
        chartViewWaveStd = ChartSetup::newView(chartWaveStd, gridLayoutCharts, 0, 0);

    if (!axisXWaveDev)
        axisXWaveDev = ChartSetup::newAxis("Time (ms)", axisLabelFont, axisTitleFont);
    setTimeRange(axisXWaveDev, *this, 1);
    if (!axisYWaveDev)
        axisYWaveDev = ChartSetup::newAxis("Amplitude", axisLabelFont, axisTitleFont);
    ChartSetup::setRange(axisYWaveDev, waveformRangeDev[0], waveformRangeDev[1]);
    if (!chartWaveDev)
        chartWaveDev = ChartSetup::newChart(seriesWaveDev, axisXWaveDev, axisYWaveDev,
                                            "Time Waveform (Deviant)", chartTitleFont);
    if (!chartViewWaveDev)
        chartViewWaveDev = ChartSetup::newView(chartWaveDev, gridLayoutCharts, 0, 1);
}

void MainWindow::updateWaveformCharts()
{
    updateDisplaySamples();
    refreshWaveforms(*this);
    setTimeRange(axisXWaveStd, *this, 0);
    setTimeRange(axisXWaveDev, *this, 1);
    ChartSetup::setRange(axisYWaveStd, waveformRangeStd[0], waveformRangeStd[1]);
    ChartSetup::setRange(axisYWaveDev, waveformRangeDev[0], waveformRangeDev[1]);
}
