#include "../app/mainwindow.h"

void MainWindow::createWaveformCharts() {}
void MainWindow::updateWaveformCharts() {}
