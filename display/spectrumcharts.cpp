#include "../app/mainwindow.h"

void MainWindow::setUpSpectra() {}
void MainWindow::computeSpectra() {}
void MainWindow::createSpectrumCharts() {}
void MainWindow::updateSpectrumCharts() {}
