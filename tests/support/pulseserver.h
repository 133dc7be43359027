#pragma once

#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

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
        stop();
        if (drainer.joinable())
            drainer.join();
    }

    // False with a reason when the daemon cannot be started (say PulseAudio
    // is not installed).
    bool start(QString *error, Sink kind = Sink::Null)
    {
        sink = kind;
        *error = "no private PulseAudio daemon with a recorder on its sink (see pulse.log)";
        if (!launch() || !waitFor("pactl info"))
            return false;
        if (sink == Sink::Pipe)
            drainer = std::thread([this] { drain(); });
        shell(recorder(), {}, true);
        if (!waitFor("pactl list short source-outputs | grep ."))
            return false;
        qputenv("PULSE_SERVER", ("unix:" + path("native")).toLocal8Bit());
        return true;
    }

    // What the pipe sink played. position(): samples captured so far.
    // captured(): their float32le bytes. arrivalNs(): when sample i came out of
    // the sink, on the nowNs() clock to within one block; -1 while it has not.
    qint64 position() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return data.size() / 4;
    }
    QByteArray captured() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return data;
    }
    qint64 arrivalNs(qint64 sample) const
    {
        std::lock_guard<std::mutex> lock(mutex);
        const auto it = std::lower_bound(arrivals.begin(), arrivals.end(), 4 * (sample + 1),
                                         [](const auto &a, qint64 n) { return a.second < n; });
        return it == arrivals.end() ? -1 : it->first;
    }
    // Monotonic, the clock of QElapsedTimer.
    static qint64 nowNs() { return QDeadlineTimer::current(Qt::PreciseTimer).deadlineNSecs(); }

    // The faults. None waits for the daemon, so a running program is not held up.
    // kill(): SIGKILL, as a crash of the server. restart(): the killed daemon
    // again at the same sockets. dropClients(): closes the program's socket with
    // every connection on it, opens it again after downMs. unplugSink(): removes
    // the sink, as when the sound card is unplugged (its streams end), and plugs
    // it in again after downMs.
    void kill() { stop(); }
    void restart()
    {
        stop();
        if (launch())
            shell("for i in $(seq 500); do [ -S \"$0/native\" ] && break; sleep 0.01; done; " +
                      recorder(),
                  {}, true);
    }
    void dropClients(int downMs)
    {
        shell("i=$(pactl list short modules | grep \"socket=$1 \" | cut -f1); "
              "pactl unload-module \"$i\"; sleep \"$2\"; "
              "pactl load-module module-native-protocol-unix socket=\"$1\" auth-anonymous=1",
              {path("native"), QString::number(downMs / 1000.0)}, true);
    }
    void unplugSink(int downMs)
    {
        shell("pactl unload-module \"${1%% *}\"; sleep \"$2\"; pactl load-module $1 && "
              "pactl set-default-sink veltrane && " +
                  recorder(),
              {sinkModule(), QString::number(downMs / 1000.0)}, true);
    }

private:
    QString path(const QString &name) const { return dir.filePath(name); }
    // 2 ms blocks put a captured onset on a 2 ms grid instead of a 25 ms one;
    // 10 ms is a sound card with a short latency.
    QString recorder() const
    {
        return QString("exec parec -d veltrane.monitor --format=float32le --rate=40000 "
                       "--channels=1 --latency-msec=") +
               (sink == Sink::Pipe ? "2" : "10");
    }
    QString sinkModule() const
    {
        return QString(sink == Sink::Pipe
                           ? "module-pipe-sink file=%1 use_system_clock_for_timing=yes"
                           : "module-null-sink")
                   .arg(path("sink.fifo")) +
               " sink_name=veltrane rate=40000 format=float32le channels=1";
    }

    // Runs a shell script (pactl, parec) on the control socket with the
    // daemon's private folders ($0), its output discarded; true when it
    // succeeded, or, `detached`, when it was started in the background.
    QString exports() const
    {
        return "export HOME=\"$0\" XDG_RUNTIME_DIR=\"$0\" PULSE_RUNTIME_PATH=\"$0\" "
               "PULSE_SERVER=\"unix:$0/control\"; ";
    }
    bool shell(const QString &script, const QStringList &arguments = {},
               bool detached = false) const
    {
        const QStringList args =
            QStringList{"-c", exports() + "{ " + script + "; } >/dev/null 2>&1", dir.path()} +
            arguments;
        return detached ? QProcess::startDetached("sh", args) : QProcess::execute("sh", args) == 0;
    }

    bool waitFor(const QString &script) const
    {
        for (QDeadlineTimer ready(10000); !shell(script); QThread::msleep(20)) {
            if (ready.hasExpired() || daemon.state() == QProcess::NotRunning)
                return false;
        }
        return true;
    }

    // A shell prints the daemon's process id and stops it when this process's
    // end of the shell's input closes: no daemon outlives a crashed test. The
    // sink comes first: once the program's socket exists, the sink is there.
    bool launch()
    {
        daemon.start("sh", {"-c",
                            exports() + "u=module-native-protocol-unix; pulseaudio -n -L \"$1\" "
                                        "-L \"$u socket=$0/control auth-anonymous=1\" "
                                        "-L \"$u socket=$0/native auth-anonymous=1\" "
                                        "--daemonize=no --exit-idle-time=-1 --disallow-exit "
                                        "--use-pid-file=no --log-target=file:\"$0/pulse.log\" & "
                                        "p=$!; echo $p; exec 2>/dev/null; read _; kill $p; wait $p",
                            dir.path(), sinkModule()});
        daemonPid = daemon.waitForReadyRead(5000) ? daemon.readLine().trimmed().toLongLong() : 0;
        return daemonPid > 0;
    }

    // SIGKILL, as a crash: nothing of the daemon's state matters afterwards.
    // The recorder ends with its server.
    void stop()
    {
        if (daemonPid > 0)
            ::kill(static_cast<pid_t>(daemonPid), SIGKILL);
        daemon.closeWriteChannel();
        daemon.waitForFinished(5000);
        daemonPid = 0;
        QFile::remove(path("native"));
        QFile::remove(path("control"));
    }

    // Reads the FIFO until the daemon closes it.
    void drain()
    {
        const int fifo =
            ::open(QFile::encodeName(path("sink.fifo")).constData(), O_RDONLY | O_NONBLOCK);
        ::fcntl(fifo, F_SETFL, 0); // blocking reads from here on
        std::vector<char> chunk(1 << 16);
        for (ssize_t n; fifo >= 0 && (n = ::read(fifo, chunk.data(), chunk.size())) > 0;) {
            std::lock_guard<std::mutex> lock(mutex);
            data.append(chunk.data(), static_cast<int>(n));
            arrivals.emplace_back(nowNs(), data.size());
        }
        if (fifo >= 0)
            ::close(fifo);
    }

    Sink sink = Sink::Null;
    QTemporaryDir dir;
    QProcess daemon;
    qint64 daemonPid = 0;
    std::thread drainer;
    mutable std::mutex mutex;
    QByteArray data;
    std::vector<std::pair<qint64, qint64>> arrivals; // (time ns, bytes captured after the read)
};
