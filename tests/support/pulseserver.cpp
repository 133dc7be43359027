#include "pulseserver.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <poll.h>
#include <unistd.h>

namespace
{
const char sinkName[] = "veltrane_sink";
const char sinkFormat[] = "rate=40000 format=float32le channels=1";

QString sinkModule(PulseServer::Sink sink, const QString &fifo)
{
    return sink == PulseServer::Sink::Pipe
               ? QString("module-pipe-sink sink_name=%1 file=%2 %3 use_system_clock_for_timing=yes")
                     .arg(sinkName, fifo, sinkFormat)
               : QString("module-null-sink sink_name=%1 %2").arg(sinkName, sinkFormat);
}

// The recorder's latency: 2 ms blocks put a captured onset on a 2 ms grid
// instead of a 25 ms one; 10 ms is a sound card with a short latency.
QString latency(PulseServer::Sink sink)
{
    return sink == PulseServer::Sink::Pipe ? "2" : "10";
}
} // namespace

PulseServer::~PulseServer()
{
    stopProcesses();
    stopping = true;
    if (drainer.joinable())
        drainer.join();
    if (fifo >= 0)
        ::close(fifo);
}

qint64 PulseServer::nowNs()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<qint64>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

bool PulseServer::start(QString *error, Sink kind)
{
    sink = kind;
    if (!launch(error))
        return false;
    QDeadlineTimer ready(10000);
    while (!listening() || !pactl({"info"})) {
        if (ready.hasExpired() || daemon.state() == QProcess::NotRunning) {
            *error = "the private PulseAudio daemon did not start";
            return false;
        }
        QThread::msleep(20);
    }
    if (sink == Sink::Pipe) {
        fifo = ::open(QFile::encodeName(dir.filePath("sink.fifo")).constData(),
                      O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fifo < 0) {
            *error = "cannot open the pipe sink's FIFO";
            return false;
        }
        drainer = std::thread(&PulseServer::drain, this);
    }
    attachRecorder();
    QByteArray outputs;
    while (!pactl({"list", "short", "source-outputs"}, &outputs) || outputs.trimmed().isEmpty()) {
        if (ready.hasExpired() || recorder.state() == QProcess::NotRunning) {
            *error = "parec did not attach to the sink's monitor";
            return false;
        }
        QThread::msleep(20);
    }
    qputenv("PULSE_SERVER", ("unix:" + programSocket).toLocal8Bit());
    return true;
}

bool PulseServer::launch(QString *error)
{
    programSocket = dir.filePath("native");
    controlSocket = dir.filePath("control");
    QFile::remove(programSocket);
    QFile::remove(controlSocket);
    QFile config(dir.filePath("daemon.pa"));
    if (!dir.isValid() || !config.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = "cannot write the daemon's configuration in a temporary folder";
        return false;
    }
    // The sink comes first: once the program's socket exists, the sink is there.
    config.write(QString("load-module %1\nset-default-sink %2\n"
                         "load-module module-native-protocol-unix socket=%3 auth-anonymous=1\n"
                         "load-module module-native-protocol-unix socket=%4 auth-anonymous=1\n")
                     .arg(sinkModule(sink, dir.filePath("sink.fifo")), sinkName, controlSocket,
                          programSocket)
                     .toUtf8());
    config.close();

    environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_RUNTIME_DIR", dir.path());
    environment.insert("PULSE_RUNTIME_PATH", dir.path());
    environment.insert("HOME", dir.path());
    environment.insert("PULSE_SERVER", "unix:" + controlSocket);

    // The daemon runs under a shell that prints its process id and stops it
    // when this process's end of the shell's input closes, so that no daemon
    // outlives a crashed test.
    daemon.setProcessEnvironment(environment);
    daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    daemon.start("sh", {"-c",
                        "pulseaudio -n -F \"$1\" --daemonize=no --exit-idle-time=-1 "
                        "--disallow-exit --use-pid-file=no --log-target=file:\"$2\" & p=$!; "
                        "echo $p; exec 2>/dev/null; read _; kill $p; wait $p",
                        "sh", config.fileName(), dir.filePath("pulse.log")});
    if (!daemon.waitForStarted(5000) || !daemon.waitForReadyRead(5000)) {
        *error = "cannot start a shell for the daemon";
        return false;
    }
    daemonPid = daemon.readLine().trimmed().toLongLong();
    return daemonPid > 0;
}

void PulseServer::attachRecorder()
{
    recorder.setProcessEnvironment(environment);
    recorder.setStandardOutputFile(QProcess::nullDevice());
    recorder.start("parec", {"-d", QString(sinkName) + ".monitor", "--format=float32le",
                             "--rate=40000", "--channels=1", "--latency-msec=" + latency(sink)});
}

bool PulseServer::pactl(const QStringList &arguments, QByteArray *output) const
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start("pactl", arguments);
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(1000);
        return false;
    }
    if (output)
        *output = process.readAllStandardOutput();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

void PulseServer::kill()
{
    if (daemonPid > 0)
        ::kill(static_cast<pid_t>(daemonPid), SIGKILL);
    daemonPid = 0;
    // The shell ends as soon as its input closes; the recorder ends with its server.
    daemon.closeWriteChannel();
    daemon.waitForFinished(5000);
    recorder.waitForFinished(5000);
    QFile::remove(programSocket);
    QFile::remove(controlSocket);
}

void PulseServer::restart()
{
    stopProcesses();
    QString error;
    if (!launch(&error))
        return;
    auto poll = std::make_shared<std::function<void()>>();
    *poll = [this, poll] {
        if (daemon.state() == QProcess::NotRunning)
            return;
        if (QFileInfo::exists(controlSocket) && listening())
            attachRecorder();
        else
            QTimer::singleShot(10, &context, *poll);
    };
    QTimer::singleShot(10, &context, *poll);
}

void PulseServer::dropClients(int downMs)
{
    background("i=$(pactl list short modules | grep \"socket=$1 \" | cut -f1); "
               "pactl unload-module \"$i\"; sleep \"$2\"; "
               "pactl load-module module-native-protocol-unix socket=\"$1\" auth-anonymous=1 "
               ">/dev/null",
               {programSocket, QString::number(downMs / 1000.0)});
}

void PulseServer::unplugSink(int downMs)
{
    const QString module = sinkModule(sink, dir.filePath("sink.fifo"));
    background("pactl unload-module \"${1%% *}\"; sleep \"$2\"; "
               "pactl load-module $1 >/dev/null && pactl set-default-sink \"$3\" && "
               "exec parec -d \"$3.monitor\" --format=float32le --rate=40000 --channels=1 "
               "--latency-msec=\"$4\" >/dev/null 2>&1",
               {module, QString::number(downMs / 1000.0), sinkName, latency(sink)});
}

// Runs a shell script of pactl commands in the background, on the control
// socket, which stays open whatever happens to the program's.
void PulseServer::background(const QString &script, const QStringList &arguments) const
{
    QProcess shell;
    shell.setProgram("sh");
    shell.setArguments(QStringList{"-c", script, "sh"} + arguments);
    shell.setProcessEnvironment(environment);
    shell.startDetached();
}

bool PulseServer::listening() const
{
    return !programSocket.isEmpty() && QFileInfo::exists(programSocket);
}

void PulseServer::stopProcesses()
{
    if (recorder.state() != QProcess::NotRunning) {
        recorder.kill();
        recorder.waitForFinished(3000);
    }
    if (daemon.state() != QProcess::NotRunning) {
        daemon.closeWriteChannel();
        if (!daemon.waitForFinished(5000)) {
            kill();
            daemon.kill();
            daemon.waitForFinished(3000);
        }
    }
    daemonPid = 0;
}

void PulseServer::drain()
{
    std::vector<char> chunk(1 << 16);
    while (!stopping) {
        pollfd p{fifo, POLLIN, 0};
        if (::poll(&p, 1, 50) <= 0)
            continue;
        const ssize_t n = ::read(fifo, chunk.data(), chunk.size());
        if (n == 0)
            break; // the daemon has gone: nothing more will come
        if (n < 0)
            continue;
        const qint64 t = nowNs();
        std::lock_guard<std::mutex> lock(mutex);
        data.append(chunk.data(), static_cast<int>(n));
        arrivals.emplace_back(t, data.size());
    }
}

qint64 PulseServer::position() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return data.size() / 4;
}

QByteArray PulseServer::bytes(qint64 from, qint64 count) const
{
    std::lock_guard<std::mutex> lock(mutex);
    const qint64 available = data.size() / 4;
    const qint64 begin = qBound<qint64>(0, from, available);
    const qint64 end = qBound<qint64>(begin, from + count, available);
    return data.mid(static_cast<int>(4 * begin), static_cast<int>(4 * (end - begin)));
}

qint64 PulseServer::onsetOf(const QByteArray &sound, qint64 from, qint64 within) const
{
    // The first non-zero sample captured is aligned with the sound's first non-zero sample.
    const float *expected = reinterpret_cast<const float *>(sound.constData());
    const int n = sound.size() / 4;
    int lead = 0;
    while (lead < n && expected[lead] == 0.0f)
        ++lead;
    const QByteArray window = bytes(from, within);
    const float *captured = reinterpret_cast<const float *>(window.constData());
    for (int i = 0; lead < n && i < window.size() / 4; ++i) {
        if (captured[i] != 0.0f)
            return from + i - lead;
    }
    return -1;
}

qint64 PulseServer::arrivalNs(qint64 sample) const
{
    std::lock_guard<std::mutex> lock(mutex);
    const auto it = std::lower_bound(
        arrivals.begin(), arrivals.end(), 4 * (sample + 1),
        [](const std::pair<qint64, qint64> &a, qint64 bytes) { return a.second < bytes; });
    return it == arrivals.end() ? -1 : it->first;
}
