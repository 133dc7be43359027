// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QtCore>

#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <thread>
#include <unistd.h>

// A private PulseAudio daemon for the tests. Its default sink renders 40000 Hz
// mono float samples in small blocks, because a recorder (parec) on its monitor
// asks for a short latency as a sound card would. The sink is a null sink, or a
// pipe sink whose FIFO a thread drains, so that a test can read back exactly
// what was played: one timeline on which sample i came out i / rate seconds
// after the first, silence being exact zeros.
//
// The program talks to the daemon through the socket PULSE_SERVER names (set
// by start(), so start() must run before the process first touches audio); the
// helper's own pactl and parec use a second socket, which survives the faults.
class PulseServer
{
public:
    enum class Sink { Null, Pipe };
    static constexpr int rate = 40000;

    ~PulseServer()
    {
        kill();
        if (drainer.joinable())
            drainer.join();
    }

    // False with a reason when the daemon cannot be started (say PulseAudio
    // is not installed).
    bool start(QString *error, Sink kind = Sink::Null)
    {
        sink = kind;
        *error = "no private PulseAudio daemon with a recorder on its sink (see pulse.log)";
        if (!launch() || !shell(recorder(), {}, true))
            return false;
        for (QDeadlineTimer ready(10000); !shell("pactl list short source-outputs | grep .");
             QThread::msleep(20)) {
            if (ready.hasExpired() || daemon.state() == QProcess::NotRunning)
                return false;
        }
        // The FIFO exists once the recorder is attached.
        if (sink == Sink::Pipe)
            drainer = std::thread([this] { drain(); });
        qputenv("PULSE_SERVER", ("unix:" + dir.filePath("native")).toLocal8Bit());
        return true;
    }

    // What the pipe sink played: captured() holds its float32le bytes, so far;
    // arrivalNs(i) is when sample i came out of the sink, on the nowNs() clock,
    // or -1 while it has not. The sink keeps to the system clock, so sample i
    // comes out i / rate seconds after sample 0; when sample 0 did is the
    // earliest that every read allows.
    QByteArray captured() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return data;
    }
    qint64 arrivalNs(qint64 sample) const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return 4 * sample < data.size() ? firstNs + sample * 1000000000 / rate : -1;
    }
    // Monotonic, the clock of QElapsedTimer.
    static qint64 nowNs() { return QDeadlineTimer::current(Qt::PreciseTimer).deadlineNSecs(); }

    // The faults. None waits for the daemon, so a running program is not held up.
    // kill(): SIGKILL, as a crash of the server (the recorder ends with it).
    // restart(): the killed daemon again at the same sockets. dropClients():
    // closes the program's socket with every connection on it, opens it again
    // after downMs. unplugSink(): removes the sink, as when the sound card is
    // unplugged (its streams end), and plugs it in again after downMs.
    void kill()
    {
        if (daemonPid > 0)
            ::kill(static_cast<pid_t>(daemonPid), SIGKILL);
        daemon.closeWriteChannel();
        daemon.waitForFinished(5000);
        daemonPid = 0;
        QFile::remove(dir.filePath("native"));
        QFile::remove(dir.filePath("control"));
    }

    void restart()
    {
        kill();
        if (launch())
            shell(recorder(), {}, true);
    }
    void dropClients(int downMs)
    {
        shell("i=$(pactl list short modules | grep \"socket=$1 \" | cut -f1); "
              "pactl unload-module \"$i\"; sleep \"$2\"; "
              "pactl load-module module-native-protocol-unix socket=\"$1\" auth-anonymous=1",
              {dir.filePath("native"), QString::number(downMs / 1000.0)}, true);
    }
    // Adds a null sink `name` that renders in short blocks, as the default one
    // does, and returns once it has played a sample: a new sink first renders
    // 2 s ahead, and one without a recorder keeps doing so, so that a sound
    // sent to it would wait behind up to 2 s of silence.
    void addSink(const QString &name)
    {
        shell("pactl load-module module-null-sink sink_name=\"$1\" && { parec -d \"$1.monitor\" "
              "--latency-msec=10 & } && head -c 4 /dev/zero | pacat -d \"$1\"",
              {name});
    }
    // Makes the sink `name` the default output, as when another device is chosen.
    void switchSink(const QString &name) { shell("pactl set-default-sink \"$1\"", {name}); }
    // pactl with these arguments on the daemon, as for "set-sink-mute veltrane 1".
    bool pactl(const QStringList &arguments) const { return shell("pactl \"$@\"", arguments); }
    void unplugSink(int downMs)
    {
        shell("pactl unload-module \"${1%% *}\"; sleep \"$2\"; pactl load-module $1 && "
              "pactl set-default-sink veltrane && " +
                  recorder(),
              {sinkModule(), QString::number(downMs / 1000.0)}, true);
    }

private:
    // Attaches parec once the daemon has loaded its modules (the program's
    // socket comes last). 2 ms blocks put a captured onset on a 2 ms grid
    // instead of a 25 ms one; 10 ms is a sound card with a short latency.
    QString recorder() const
    {
        return QString("for i in $(seq 500); do [ -S \"$0/native\" ] && break; sleep 0.01; done; "
                       "exec parec -d veltrane.monitor --format=float32le --rate=40000 "
                       "--channels=1 --latency-msec=") +
               (sink == Sink::Pipe ? "2" : "10");
    }
    QString sinkModule() const
    {
        const QString module = sink == Sink::Pipe
                                   ? "module-pipe-sink use_system_clock_for_timing=yes file=" +
                                         dir.filePath("sink.fifo")
                                   : "module-null-sink";
        return module + " sink_name=veltrane rate=40000 format=float32le channels=1";
    }

    // Runs a shell script (pactl, parec) on the control socket with the
    // daemon's private folders ($0), its output discarded; true when it
    // succeeded, or, `detached`, when it was started in the background.
    bool shell(const QString &script, const QStringList &arguments = {},
               bool detached = false) const
    {
        const QStringList args =
            QStringList{"-c", exports + "{ " + script + "; } >/dev/null 2>&1", dir.path()} +
            arguments;
        return detached ? QProcess::startDetached("sh", args) : QProcess::execute("sh", args) == 0;
    }

    // A shell prints the daemon's process id and stops it when this process's
    // end of the shell's input closes: no daemon outlives a crashed test. The
    // sink comes first: once the program's socket exists, the sink is there.
    bool launch()
    {
        daemon.start("sh", {"-c",
                            exports + "u=module-native-protocol-unix; pulseaudio -n -L \"$1\" "
                                      "-L \"$u socket=$0/control auth-anonymous=1\" "
                                      "-L \"$u socket=$0/native auth-anonymous=1\" "
                                      "--daemonize=no --exit-idle-time=-1 --disallow-exit "
                                      "--use-pid-file=no --log-target=file:\"$0/pulse.log\" & "
                                      "p=$!; echo $p; exec 2>/dev/null; read _; kill $p; wait $p",
                            dir.path(), sinkModule()});
        daemonPid = daemon.waitForReadyRead(5000) ? daemon.readLine().trimmed().toLongLong() : 0;
        return daemonPid > 0;
    }

    // Reads the FIFO until the daemon closes it.
    void drain()
    {
        const int fifo = ::open(QFile::encodeName(dir.filePath("sink.fifo")).constData(), O_RDONLY);
        char chunk[1 << 16];
        for (ssize_t n; fifo >= 0 && (n = ::read(fifo, chunk, sizeof chunk)) > 0;) {
            std::lock_guard<std::mutex> lock(mutex);
            data.append(chunk, static_cast<int>(n));
            firstNs = std::min(firstNs, nowNs() - data.size() / 4 * 1000000000LL / rate);
        }
        ::close(fifo);
    }

    // Every tool runs with the daemon's private folders ($0) and on its control socket.
    const QString exports = "export HOME=\"$0\" XDG_RUNTIME_DIR=\"$0\" PULSE_RUNTIME_PATH=\"$0\" "
                            "PULSE_SERVER=\"unix:$0/control\"; ";
    Sink sink = Sink::Null;
    QTemporaryDir dir;
    QProcess daemon;
    qint64 daemonPid = 0;
    std::thread drainer;
    mutable std::mutex mutex;
    QByteArray data;
    qint64 firstNs = std::numeric_limits<qint64>::max();
};
