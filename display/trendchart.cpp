#include "../app/mainwindow.h"

void MainWindow::createTrendChart() {}
void MainWindow::appendTrendPoint() {}
void MainWindow::resetRun() {}
