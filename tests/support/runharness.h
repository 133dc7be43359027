// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/mainwindow.h"
#include "procedure/staircase.h"
#include "subject/subjectwindow.h"
#include "support/modalcatcher.h"
#include "support/pulseserver.h"

#include <QtMultimedia>

#include <functional>

// A short session as an experimenter would type it: modulation-depth track of
// a sinusoid with the start value reset to 50 %, the given sound and silence
// lengths and reversal counts; "Save data to file" into `folder` when it is set.
struct ShortSession {
    int soundMs = 20;
    int silentMs = 10;
    int reversals = 2;
    int reversalsToCalculate = 2;
    QString folder;
};

// Runs a window as experimenter and participant do, and notes what every
// interval did and what the program logged while the harness lives. The
// simulated participant hears the deviant whenever the tracked value presented
// is at least `threshold` and otherwise picks the other sound, answering
// `delayMs` after the fourth sound has ended, through the participant window's
// buttons once Go has made it (before, it sends the codes to updateMainwindow
// as that window would). The notes of several runs in one window run on.
class RunHarness
{
public:
    struct Trial {
        QVector<double> standard; // the sounds and deviant place in force at its first interval
        QVector<double> deviant;
        int stimPosition = 0;
        qint64 endNs = -1; // soundPlaying(-1), just after the reaction clock started
    };
    struct Interval {
        int trial = 0; // index into trials
        int index = 0;
        qint64 startNs = -1;         // soundPlaying(index), just after the output started
        qint64 capturePosition = -1; // how far the capture had come then
        bool idle = false;           // its output reported the end of its sound
        qint64 stoppedNs = -1;       // when it stopped while sounding (error or not), or -1
    };

    RunHarness(MainWindow &window, double threshold, int delayMs,
               const PulseServer *capture = nullptr)
        : window(window), threshold(threshold), delayMs(delayMs), capture(capture)
    {
        QObject::connect(&window, &MainWindow::soundPlaying, &context,
                         [this](int index) { note(index); });
        QObject::connect(&window, &MainWindow::doneDataCollection, &context,
                         [this] { ++finished; });
        current = this;
        previousHandler = qInstallMessageHandler(&RunHarness::log);
    }
    ~RunHarness() { qInstallMessageHandler(previousHandler); }

    static void typeSession(MainWindow &w, const ShortSession &s)
    {
        w.lineEditDurationStd->setText(QString::number(s.soundMs));
        w.lineEditDurationDev->setText(QString::number(s.soundMs));
        w.lineEditSilentInterval->setText(QString::number(s.silentMs));
        w.lineEditNumReversals->setText(QString::number(s.reversals));
        w.lineEditRevToCalc->setText(QString::number(s.reversalsToCalculate));
        w.checkBoxResetMdFd->setChecked(true);
        w.checkBoxSaveData->setChecked(!s.folder.isEmpty());
        if (!s.folder.isEmpty())
            w.lineEditFilePath->setText(s.folder);
    }
    void begin(const ShortSession &session) // typeSession, View and Go
    {
        typeSession(window, session);
        window.on_pushButtonView_clicked();
        window.on_pushButtonGo_clicked();
    }
    void pressReady() { respond(0); }
    // "I am ready", then waits until the run has finished (doneDataCollection).
    bool run(int timeoutMs)
    {
        const int before = finished;
        pressReady();
        return waitUntil([&] { return finished > before; }, timeoutMs);
    }
    // Closes the participant window with "Yes" to its question; false when the
    // question never came.
    static bool closeParticipantWindow(MainWindow &window)
    {
        if (!window.subjectWindow || !window.subjectWindow->isVisible())
            return true;
        ModalCatcher catcher;
        catcher.arm(QMessageBox::Yes);
        window.subjectWindow->close();
        return waitUntil([&] { return catcher.boxes.size() == 1; }, 5000) &&
               !window.subjectWindow->isVisible();
    }
    // Waits in a real event loop, checking every 2 ms, until done() holds or
    // the time is up. QTRY_* would sleep between its checks and delay the
    // sound timer's ticks and the outputs' notifications.
    static bool waitUntil(const std::function<bool()> &done, int timeoutMs)
    {
        for (QDeadlineTimer deadline(timeoutMs); !done() && !deadline.hasExpired();) {
            QEventLoop loop;
            QTimer::singleShot(2, Qt::PreciseTimer, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return done();
    }

    QVector<Interval> intervalsOf(int trial) const
    {
        QVector<Interval> played;
        std::copy_if(intervals.begin(), intervals.end(), std::back_inserter(played),
                     [trial](const Interval &i) { return i.trial == trial; });
        return played;
    }
    int liveOutputs() const { return outputs.size() - outputs.count(nullptr); }
    int liveBuffers() const { return buffers.size() - buffers.count(nullptr); }

    int finished = 0;                    // doneDataCollection signals seen
    std::function<void()> afterResponse; // after every code sent, the ready code included
    QVector<Trial> trials;
    QVector<Interval> intervals;
    QStringList warnings;
    QStringList debugLines;

private:
    void note(int index)
    {
        const qint64 now = PulseServer::nowNs();
        if (index == 1 || trials.isEmpty())
            trials.append({window.standardSound, window.deviantSound, window.params.stimPosition});
        if (index == -1) {
            trials.last().endNs = now;
            const int stim = window.params.stimPosition;
            const int answer =
                Staircase::trackedValue(window.params) >= threshold ? stim : 5 - stim;
            QTimer::singleShot(delayMs, Qt::PreciseTimer, &context,
                               [this, answer] { respond(answer); });
            return;
        }
        const int at = intervals.size();
        intervals.append(
            {trials.size() - 1, index, now, capture ? capture->captured().size() / 4 : -1});
        buffers.append(window.audioBuffer);
        if (QAudioOutput *output = window.audioOutput) {
            outputs.append(output);
            // An error reported inside start() comes before this point.
            const auto noteState = [this, at, output](QAudio::State state) {
                intervals[at].idle |= state == QAudio::IdleState;
                // Only while it sounds: the program's own release stops it too.
                if (state == QAudio::StoppedState && window.audioOutput == output &&
                    intervals[at].stoppedNs < 0)
                    intervals[at].stoppedNs = PulseServer::nowNs();
            };
            noteState(output->state());
            QObject::connect(output, &QAudioOutput::stateChanged, &context, noteState);
        }
    }

    void respond(int code)
    {
        SubjectWindow *subject = window.subjectWindow;
        if (!subject)
            window.updateMainwindow(code);
        else
            (code == 0   ? subject->pushButtonIAmReady
             : code == 2 ? subject->pushButtonChoice2
                         : subject->pushButtonChoice3)
                ->click();
        if (afterResponse)
            afterResponse();
    }

    static void log(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        if (type == QtWarningMsg || type == QtDebugMsg)
            (type == QtWarningMsg ? current->warnings : current->debugLines).append(text);
        if (current->previousHandler)
            current->previousHandler(type, context, text);
    }

    MainWindow &window;
    double threshold;
    int delayMs;
    const PulseServer *capture;
    QVector<QPointer<QObject>> outputs; // null once destroyed
    QVector<QPointer<QObject>> buffers;
    // The harness that notes the log: one at a time.
    static inline RunHarness *current = nullptr;
    QtMessageHandler previousHandler = nullptr;
    QObject context;
};
