#include "../app/mainwindow.h"

void MainWindow::saveResults() {}
