#include "../app/mainwindow.h"

void MainWindow::playOneSound() {}
void MainWindow::handleStateChanged(QAudio::State) {}
