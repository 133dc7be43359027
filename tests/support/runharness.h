#pragma once

#include "app/mainwindow.h"
#include "support/pulseserver.h"

#include <QObject>
#include <QStringList>
#include <QVector>

#include <functional>

// A short session as an experimenter would type it: modulation-depth track of
// a sinusoid with the start value reset to 50 %, the given sound and silence
// lengths and reversal counts; the results go into `folder` when it is set.
struct ShortSession {
    int soundMs = 20;
    int silentMs = 10;
    int reversals = 2;
    int reversalsToCalculate = 2;
    QString folder;
};

// Runs a window as experimenter and participant do, and notes what every
// interval did. The simulated participant hears the deviant whenever the
// tracked value presented is at least `threshold` and otherwise picks the
// other sound, answering `delayMs` after the fourth sound has ended, through
// the participant window's buttons once Go has made it (otherwise it sends
// the codes to updateMainwindow as that window would). One harness may serve
// many runs of its window; its notes then run on.
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
        qint64 releasedNs = -1;      // when its output was destroyed
        bool idle = false;           // its output reported the end of its sound
        bool stoppedWithError = false;
    };

    RunHarness(MainWindow &window, double threshold, int delayMs,
               const PulseServer *capture = nullptr);

    static void typeSession(MainWindow &window, const ShortSession &session);
    void begin(const ShortSession &session); // typeSession, View, Go
    void pressReady();
    // pressReady, then waits until the run has finished (doneDataCollection).
    bool run(int timeoutMs);
    // Closes the participant window with "Yes" to its question; false when the
    // question never came.
    static bool closeParticipantWindow(MainWindow &window);
    // Waits in a real event loop, checking every 2 ms, until done() holds or
    // the time is up. QTRY_* would sleep between its checks and delay the
    // sound timer's ticks and the outputs' notifications.
    static bool waitUntil(const std::function<bool()> &done, int timeoutMs);

    QVector<Interval> intervalsOf(int trial) const;
    int liveOutputs() const { return outputsMade - outputsDestroyed; }
    int liveBuffers() const { return buffersMade - buffersDestroyed; }

    int answers = 0;
    int finished = 0;                    // doneDataCollection signals seen
    std::function<void()> afterResponse; // after every code sent, the ready code included
    QVector<Trial> trials;
    QVector<Interval> intervals;
    QVector<int> indexes; // every index soundPlaying carried, in order

private:
    void noteInterval(int index);
    void answer();

    MainWindow &window;
    double threshold;
    int delayMs;
    const PulseServer *capture;
    int outputsMade = 0;
    int outputsDestroyed = 0;
    int buffersMade = 0;
    int buffersDestroyed = 0;
    QObject context;
};

// Notes the warnings and debug lines logged while it lives, and passes them on.
class MessageLog
{
public:
    MessageLog();
    ~MessageLog();
    MessageLog(const MessageLog &) = delete;
    MessageLog &operator=(const MessageLog &) = delete;

    QStringList warnings;
    QStringList debugLines;

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);
    static inline MessageLog *current = nullptr;
    QtMessageHandler previous = nullptr;
};
