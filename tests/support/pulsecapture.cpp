#include "pulsecapture.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

static const char sinkName[] = "veltrane_capture";

PulseCapture::~PulseCapture()
{
    if (recorder.state() != QProcess::NotRunning) {
        recorder.kill();
        recorder.waitForFinished(3000);
    }
    if (daemon.state() != QProcess::NotRunning) {
        // The wrapper shell stops the daemon when its input closes.
        daemon.closeWriteChannel();
        if (!daemon.waitForFinished(5000)) {
            daemon.kill();
            daemon.waitForFinished(3000);
        }
    }
    stopping = true;
    if (drainer.joinable())
        drainer.join();
    if (fifo >= 0)
        ::close(fifo);
}

qint64 PulseCapture::nowNs()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<qint64>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

bool PulseCapture::runPactl(const QStringList &arguments, QByteArray *output)
{
    QProcess pactl;
    pactl.setProcessEnvironment(environment);
    pactl.start("pactl", QStringList{"--server=" + server} + arguments);
    if (!pactl.waitForFinished(5000)) {
        pactl.kill();
        pactl.waitForFinished(1000);
        return false;
    }
    if (output)
        *output = pactl.readAllStandardOutput();
    return pactl.exitStatus() == QProcess::NormalExit && pactl.exitCode() == 0;
}

bool PulseCapture::start(QString *error)
{
    const QString socket = dir.filePath("native");
    const QString fifoPath = dir.filePath("sink.fifo");
    server = "unix:" + socket;
    QFile config(dir.filePath("capture.pa"));
    if (!config.open(QIODevice::WriteOnly)) {
        *error = "cannot write the daemon's configuration in a temporary folder";
        return false;
    }
    config.write(QString("load-module module-native-protocol-unix socket=%1 auth-anonymous=1\n"
                         "load-module module-pipe-sink sink_name=%2 file=%3 format=float32le "
                         "rate=%4 channels=1 use_system_clock_for_timing=yes\n"
                         "set-default-sink %2\n")
                     .arg(socket, sinkName, fifoPath)
                     .arg(rate)
                     .toUtf8());
    config.close();

    environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_RUNTIME_DIR", dir.path());
    environment.insert("PULSE_RUNTIME_PATH", dir.path());
    environment.insert("HOME", dir.path());
    environment.insert("PULSE_SERVER", server);

    // The daemon runs under a shell that stops it when this process's end of
    // the shell's input closes, so that no daemon outlives a crashed test.
    daemon.setProcessEnvironment(environment);
    daemon.setStandardOutputFile(QProcess::nullDevice());
    daemon.setStandardErrorFile(dir.filePath("pulse.stderr"));
    daemon.start("sh", {"-c",
                        "pulseaudio -n -F \"$1\" --daemonize=no --exit-idle-time=-1 "
                        "--disallow-exit --use-pid-file=no --log-target=file:\"$2\" & p=$!; "
                        "read _; kill $p; wait $p",
                        "sh", config.fileName(), dir.filePath("pulse.log")});
    if (!daemon.waitForStarted(5000)) {
        *error = "cannot start a shell for the capture daemon";
        return false;
    }
    QDeadlineTimer ready(10000);
    while (!runPactl({"info"})) {
        if (ready.hasExpired() || daemon.state() == QProcess::NotRunning) {
            *error = "the capture daemon (pulseaudio with module-pipe-sink) did not start";
            return false;
        }
        QThread::msleep(50);
    }

    fifo = ::open(QFile::encodeName(fifoPath).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fifo < 0) {
        *error = "cannot open the pipe sink's FIFO " + fifoPath;
        return false;
    }
    drainer = std::thread(&PulseCapture::drain, this);

    recorder.setProcessEnvironment(environment);
    recorder.setStandardOutputFile(QProcess::nullDevice());
    recorder.start("parec", {"--server=" + server, "-d", QString(sinkName) + ".monitor",
                             "--format=float32le", QString("--rate=%1").arg(rate), "--channels=1",
                             "--latency-msec=2"});
    if (!recorder.waitForStarted(5000)) {
        *error = "cannot start parec on the pipe sink's monitor";
        return false;
    }
    QByteArray outputs;
    while (!runPactl({"list", "short", "source-outputs"}, &outputs) ||
           outputs.trimmed().isEmpty()) {
        if (ready.hasExpired() || recorder.state() == QProcess::NotRunning) {
            *error = "parec did not attach to the pipe sink's monitor";
            return false;
        }
        QThread::msleep(20);
    }
    qputenv("PULSE_SERVER", server.toLocal8Bit());
    return true;
}

void PulseCapture::drain()
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

qint64 PulseCapture::position() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return data.size() / 4;
}

QByteArray PulseCapture::bytes(qint64 from, qint64 count) const
{
    std::lock_guard<std::mutex> lock(mutex);
    const qint64 available = data.size() / 4;
    const qint64 begin = qBound<qint64>(0, from, available);
    const qint64 end = qBound<qint64>(begin, from + count, available);
    return data.mid(static_cast<int>(4 * begin), static_cast<int>(4 * (end - begin)));
}

qint64 PulseCapture::onsetOf(const QByteArray &sound, qint64 from, qint64 within) const
{
    const float *expected = reinterpret_cast<const float *>(sound.constData());
    const int n = sound.size() / 4;
    int lead = 0;
    while (lead < n && expected[lead] == 0.0f)
        ++lead;
    if (lead == n)
        return -1;
    const QByteArray window = bytes(from, within);
    const float *captured = reinterpret_cast<const float *>(window.constData());
    for (int i = 0; i < window.size() / 4; ++i) {
        if (captured[i] != 0.0f)
            return from + i - lead;
    }
    return -1;
}

qint64 PulseCapture::arrivalNs(qint64 sample) const
{
    std::lock_guard<std::mutex> lock(mutex);
    const qint64 needed = 4 * (sample + 1);
    const auto it = std::lower_bound(
        arrivals.begin(), arrivals.end(), needed,
        [](const std::pair<qint64, qint64> &a, qint64 bytes) { return a.second < bytes; });
    return it == arrivals.end() ? -1 : it->first;
}
