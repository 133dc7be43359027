#include "pulsedaemon.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QTimer>

#include <csignal>
#include <functional>
#include <memory>

namespace
{
const char *const sinkModule = "module-null-sink sink_name=reliability_null rate=40000 "
                               "format=float32le channels=1";
}

PulseDaemon::~PulseDaemon()
{
    stopProcesses();
}

bool PulseDaemon::start(QString *error)
{
    stopProcesses();
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
    attachRecorder();
    QByteArray outputs;
    while (!pactl({"list", "short", "source-outputs"}, &outputs) || outputs.trimmed().isEmpty()) {
        if (ready.hasExpired() || recorder.state() == QProcess::NotRunning) {
            *error = "parec did not attach to the null sink's monitor";
            return false;
        }
        QThread::msleep(20);
    }
    qputenv("PULSE_SERVER", ("unix:" + programSocket).toLocal8Bit());
    return true;
}

bool PulseDaemon::launch(QString *error)
{
    if (!dir.isValid()) {
        *error = "no temporary folder for the daemon";
        return false;
    }
    programSocket = dir.filePath("native");
    controlSocket = dir.filePath("control");
    QFile::remove(programSocket);
    QFile::remove(controlSocket);
    QFile config(dir.filePath("daemon.pa"));
    if (!config.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = "cannot write the daemon's configuration";
        return false;
    }
    // The sink comes first: once the program's socket exists, the sink is there.
    config.write(QString("load-module %1\n"
                         "set-default-sink reliability_null\n"
                         "load-module module-native-protocol-unix socket=%2 auth-anonymous=1\n"
                         "load-module module-native-protocol-unix socket=%3 auth-anonymous=1\n")
                     .arg(sinkModule, controlSocket, programSocket)
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

void PulseDaemon::attachRecorder()
{
    recorder.setProcessEnvironment(environment);
    recorder.setStandardOutputFile(QProcess::nullDevice());
    recorder.start("parec", {"-d", "reliability_null.monitor", "--latency-msec=10"});
}

void PulseDaemon::kill()
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

void PulseDaemon::restart()
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

void PulseDaemon::dropClients(int downMs)
{
    background("i=$(pactl list short modules | grep \"socket=$1 \" | cut -f1); "
               "pactl unload-module \"$i\"; sleep \"$2\"; "
               "pactl load-module module-native-protocol-unix socket=\"$1\" auth-anonymous=1 "
               ">/dev/null",
               {programSocket, QString::number(downMs / 1000.0)});
}

void PulseDaemon::unplugSink(int downMs)
{
    background("pactl unload-module module-null-sink; sleep \"$2\"; "
               "pactl load-module $1 >/dev/null && pactl set-default-sink reliability_null && "
               "exec parec -d reliability_null.monitor --latency-msec=10 >/dev/null 2>&1",
               {sinkModule, QString::number(downMs / 1000.0)});
}

void PulseDaemon::background(const QString &script, const QStringList &arguments) const
{
    // The tools talk to the daemon through the control socket, which stays
    // open whatever happens to the program's.
    QProcess shell;
    shell.setProgram("sh");
    shell.setArguments(QStringList{"-c", script, "sh"} + arguments);
    shell.setProcessEnvironment(environment);
    shell.startDetached();
}

bool PulseDaemon::listening() const
{
    return !programSocket.isEmpty() && QFileInfo::exists(programSocket);
}

bool PulseDaemon::pactl(const QStringList &arguments, QByteArray *output) const
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

void PulseDaemon::stopProcesses()
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
