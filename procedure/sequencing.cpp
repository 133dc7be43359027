#include "../app/mainwindow.h"

void MainWindow::updateMainwindow(int) {}
void MainWindow::startTrial() {}
void MainWindow::chooseStimPosition() {}
void MainWindow::nextTrial() {}
void MainWindow::finishRun() {}
int MainWindow::randomInteger(int min, int) { return min; }
