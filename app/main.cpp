// SPDX-License-Identifier: GPL-3.0-or-later
#include "../stimulus/randomsource.h"
#include "mainwindow.h"

#include <QApplication>

#include <random>

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    RandomSource::seed((static_cast<std::uint64_t>(std::random_device{}()) << 32) ^
                       std::random_device{}());
    MainWindow window;
    window.show();
    return application.exec();
}
