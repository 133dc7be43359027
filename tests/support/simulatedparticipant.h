#pragma once

#include "app/mainwindow.h"
#include "procedure/staircase.h"
#include "subject/subjectwindow.h"

#include <QObject>
#include <QPushButton>
#include <QTimer>

#include <functional>

// A listener who hears the deviant whenever the tracked value presented is at
// least `threshold` and otherwise picks the other sound, answering `delayMs`
// after the fourth sound has ended. When the window has a participant window
// (after Go) it clicks that window's buttons; otherwise it sends the codes to
// updateMainwindow as the participant window would.
class SimulatedParticipant
{
public:
    SimulatedParticipant(MainWindow &window, double threshold, int delayMs)
        : window(window), threshold(threshold), delayMs(delayMs)
    {
        QObject::connect(&window, &MainWindow::soundPlaying, &context, [this](int index) {
            if (index == -1)
                QTimer::singleShot(this->delayMs, Qt::PreciseTimer, &context, [this] { answer(); });
        });
        QObject::connect(&window, &MainWindow::doneDataCollection, &context,
                         [this] { ++finished; });
    }

    void pressReady()
    {
        if (window.subjectWindow)
            window.subjectWindow->pushButtonIAmReady->click();
        else
            window.updateMainwindow(0);
        if (afterResponse)
            afterResponse();
    }

    int answers = 0;
    int finished = 0;
    // Runs after every code the participant has sent, the ready code included.
    std::function<void()> afterResponse;

private:
    void answer()
    {
        const int stim = window.params.stimPosition;
        const bool hears = Staircase::trackedValue(window.params) >= threshold;
        const int response = hears ? stim : 5 - stim;
        ++answers;
        if (window.subjectWindow) {
            (response == 2 ? window.subjectWindow->pushButtonChoice2
                           : window.subjectWindow->pushButtonChoice3)
                ->click();
        } else {
            window.updateMainwindow(response);
        }
        if (afterResponse)
            afterResponse();
    }

    MainWindow &window;
    double threshold;
    int delayMs;
    QObject context;
};
