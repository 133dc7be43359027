// SPDX-License-Identifier: GPL-3.0-or-later
#include "../app/mainwindow.h"
#include "chartdata.h"
#include "chartsetup.h"
#include "spectrum.h"

#include <QGridLayout>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>

using namespace QtCharts;

namespace
{

// Steps shared by create and update: the drawn bins go to each series in one
// replace, and the ranges cover every computed bin, drawn or not.
void refreshSpectra(MainWindow &w)
{
    ChartData::fillPoints(w.spectrumPointsStd, w.spectrumFrequency, w.amplitudeSpectrumStd,
                          w.params.spectrumPoints[0]);
    ChartData::fillPoints(w.spectrumPointsDev, w.spectrumFrequency, w.amplitudeSpectrumDev,
                          w.params.spectrumPoints[1]);
    w.seriesSpecStd->replace(w.spectrumPointsStd);
    w.seriesSpecDev->replace(w.spectrumPointsDev);
    w.spectrumRangeStd = ChartData::valueRange(w.amplitudeSpectrumStd);
    w.spectrumRangeDev = ChartData::valueRange(w.amplitudeSpectrumDev);
}

QValueAxis *newFrequencyAxis(const MainWindow &w, int i)
{
    QValueAxis *axis = ChartSetup::newAxis("Frequency (Hz)", w.axisLabelFont, w.axisTitleFont);
    ChartSetup::setRange(axis, 0.0, w.params.spectrumMaxFrequency[i]);
    axis->setLabelFormat("%.0f");
    return axis;
}

} // namespace

// Runs once, at construction. The transform lengths, and with them the number
// of drawn bins, stay as the start-up settings give them for the life of the
// window; later changes of duration or sampling rate only move the bin width.
void MainWindow::setUpSpectra()
{
    for (int i = 0; i < 2; ++i) {
        fftLength[i] = Spectrum::transformLength(params.nSamples[i]);
        fftDuration[i] = fftLength[i] / params.samplingRate;
    }
    const int bins = qMax(fftLength[0], fftLength[1]) / 2;
    spectrumFrequency.fill(0.0, bins);
    amplitudeSpectrumStd.fill(0.0, bins);
    amplitudeSpectrumDev.fill(0.0, bins);
    for (int i = 0; i < 2; ++i)
        params.spectrumPoints[i] =
            Spectrum::drawnBinCount(params.spectrumMaxFrequency[i], fftDuration[i], bins);
    spectrumPointsStd.resize(params.spectrumPoints[0]);
    spectrumPointsDev.resize(params.spectrumPoints[1]);
}

// The transform lengths are those of the set-up; the bin width follows the
// current sampling rate. Each amplitude is divided by half the record's
// sample count nSamples[i]. A standard built at View keeps its length through
// the run even when Go read another duration; its spectrum is still scaled
// by the record's count.
void MainWindow::computeSpectra()
{
    Spectrum::amplitudeSpectrum(standardSound, fftLength[0], params.nSamples[0],
                                amplitudeSpectrumStd);
    Spectrum::amplitudeSpectrum(deviantSound, fftLength[1], params.nSamples[1],
                                amplitudeSpectrumDev);
    for (int i = 0; i < 2; ++i) {
        fftDuration[i] = fftLength[i] / params.samplingRate;
        frequencyResolution[i] = 1.0 / fftDuration[i];
    }
    Spectrum::binFrequencies(spectrumFrequency, fftLength[0] / 2, frequencyResolution[0]);
}

void MainWindow::createSpectrumCharts()
{
    if (!seriesSpecStd)
        seriesSpecStd = new QLineSeries;
    if (!seriesSpecDev)
        seriesSpecDev = new QLineSeries;
    refreshSpectra(*this);

    if (!axisXSpecStd)
        axisXSpecStd = newFrequencyAxis(*this, 0);
    if (!axisYSpecStd)
        axisYSpecStd = ChartSetup::newAxis("Amplitude", axisLabelFont, axisTitleFont);
    ChartSetup::setRange(axisYSpecStd, spectrumRangeStd[0], spectrumRangeStd[1]);
    if (!chartSpecStd)
        chartSpecStd = ChartSetup::newChart(seriesSpecStd, axisXSpecStd, axisYSpecStd,
                                            "Amplitude Spectrum (standard)", chartTitleFont);
    if (!chartViewSpecStd)
        chartViewSpecStd = ChartSetup::newView(chartSpecStd, gridLayoutCharts, 1, 0);

    if (!axisXSpecDev)
        axisXSpecDev = newFrequencyAxis(*this, 1);
    if (!axisYSpecDev)
        axisYSpecDev = ChartSetup::newAxis("Amplitude", axisLabelFont, axisTitleFont);
    ChartSetup::setRange(axisYSpecDev, spectrumRangeDev[0], spectrumRangeDev[1]);
    if (!chartSpecDev)
        chartSpecDev = ChartSetup::newChart(seriesSpecDev, axisXSpecDev, axisYSpecDev,
                                            "Amplitude Spectrum (Deviant)", chartTitleFont);
    if (!chartViewSpecDev)
        chartViewSpecDev = ChartSetup::newView(chartSpecDev, gridLayoutCharts, 1, 1);
}

void MainWindow::updateSpectrumCharts()
{
    refreshSpectra(*this);
    ChartSetup::setRange(axisYSpecStd, spectrumRangeStd[0], spectrumRangeStd[1]);
    ChartSetup::setRange(axisYSpecDev, spectrumRangeDev[0], spectrumRangeDev[1]);
}
