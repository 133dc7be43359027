#pragma once

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

// A private PulseAudio daemon for the tests. Its default sink renders at
// 40000 Hz, mono, in small blocks because a recorder (parec) on its monitor
// asks for a short latency, like a sound card. The sink is either a null sink,
// or a pipe sink whose FIFO a thread drains continuously, so that the test can
// read back exactly what was played: one timeline where sample i came out
// i / rate seconds after the first, silence being exact zeros.
//
// The program talks to the daemon through one socket (PULSE_SERVER, set by
// start(), so start() must run before the process first touches audio); the
// helper's own pactl and parec use a second one, which survives the faults.
class PulseServer
{
public:
    enum class Sink { Null, Pipe };
    static constexpr int rate = 40000;

    PulseServer() = default;
    PulseServer(const PulseServer &) = delete;
    PulseServer &operator=(const PulseServer &) = delete;
    ~PulseServer();

    // False with a reason when the daemon cannot be started (say PulseAudio
    // is not installed).
    bool start(QString *error, Sink sink = Sink::Null);

    // What the pipe sink has played. position(): samples captured so far.
    // bytes(): float32le bytes of samples [from, from + count), fewer when not
    // all are captured yet. onsetOf(): where `sound` begins, when it is the
    // first thing other than silence within `within` samples from `from`, -1
    // otherwise; whether it is there bit for bit is for the caller to compare.
    // arrivalNs(): when sample i came out of the sink (nowNs() clock, to within
    // one block), -1 while it has not.
    qint64 position() const;
    QByteArray bytes(qint64 from, qint64 count) const;
    qint64 onsetOf(const QByteArray &sound, qint64 from, qint64 within) const;
    qint64 arrivalNs(qint64 sample) const;
    static qint64 nowNs(); // monotonic, the clock of QElapsedTimer

    // The faults. None waits for the daemon, so a running program is not held
    // up; listening() tells when the program's socket is there.
    void kill();                  // SIGKILL, as a crash of the server
    void restart();               // a killed daemon again, at the same sockets
    void dropClients(int downMs); // closes the program's socket, reopens it after downMs
    void unplugSink(int downMs);  // removes the sink (ending its streams), back after downMs
    bool listening() const;

private:
    bool launch(QString *error);
    void attachRecorder();
    bool pactl(const QStringList &arguments, QByteArray *output = nullptr) const;
    void background(const QString &script, const QStringList &arguments) const;
    void stopProcesses();
    void drain();

    Sink sink = Sink::Null;
    QTemporaryDir dir;
    QString programSocket;
    QString controlSocket;
    QProcessEnvironment environment;
    QProcess daemon;
    QProcess recorder;
    qint64 daemonPid = 0;
    QObject context; // ends the wait for a restarted daemon with this object

    int fifo = -1;
    std::thread drainer;
    std::atomic<bool> stopping{false};
    mutable std::mutex mutex;
    QByteArray data;
    std::vector<std::pair<qint64, qint64>> arrivals; // (time ns, bytes captured after the read)
};
