#pragma once

#include <QObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

// A private PulseAudio daemon that a test can break in the ways a lab's audio
// breaks: killed and started again, dropping its clients, losing its sound
// card. Its default sink is a null sink at 40000 Hz with a recorder (parec) on
// its monitor asking for 10 ms, so that it renders in small blocks like a
// sound card with a short latency and an output reports the end of its sound
// in time. The program talks to it through one socket (PULSE_SERVER, which
// stays at the same path across restarts); the test's own tools use a second
// one, which survives when the program's is dropped.
class PulseDaemon
{
public:
    PulseDaemon() = default;
    PulseDaemon(const PulseDaemon &) = delete;
    PulseDaemon &operator=(const PulseDaemon &) = delete;
    ~PulseDaemon();

    // Starts the daemon and points PULSE_SERVER of this process at it. Returns
    // false with a reason when it cannot (for example PulseAudio is missing).
    bool start(QString *error);

    // The faults. None of them waits for the daemon, so a running program is
    // not held up; listening() tells when the program's socket is back.
    //
    // Kills the daemon at once (SIGKILL), as a crash of the server would.
    void kill();
    // Starts a killed daemon again at the same sockets.
    void restart();
    // The daemon closes the program's socket with every connection on it and,
    // after `downMs`, opens it again; the daemon itself keeps running.
    void dropClients(int downMs);
    // Removes the sink, as when the sound card is unplugged, and plugs it in
    // again after `downMs`. The daemon ends every stream playing into it.
    void unplugSink(int downMs);

    bool listening() const;

private:
    bool launch(QString *error);
    void attachRecorder();
    void background(const QString &script, const QStringList &arguments) const;
    bool pactl(const QStringList &arguments, QByteArray *output = nullptr) const;
    void stopProcesses();

    QTemporaryDir dir;
    QString programSocket;
    QString controlSocket;
    QProcessEnvironment environment;
    QProcess daemon;
    QProcess recorder;
    qint64 daemonPid = 0;
    QObject context; // ends the wait for a restarted daemon with this object
};
