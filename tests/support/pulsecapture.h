#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

// Records exactly what the process plays. start() runs a private PulseAudio
// daemon whose default sink is a pipe sink (float32 little-endian, mono,
// 40000 Hz, paced by the system clock) and points PULSE_SERVER at it, so it
// must run before the process first touches audio. A thread drains the sink's
// FIFO continuously and notes when each chunk came out; a recorder (parec) on
// the sink's monitor with a 2 ms latency makes the sink render in 2 ms blocks,
// so a sound's onset lands on a 2 ms grid instead of a 25 ms one. The capture
// is one continuous timeline: sample i was played i / rate seconds after the
// first, silence being exact zeros.
class PulseCapture
{
public:
    static constexpr int rate = 40000;

    PulseCapture() = default;
    PulseCapture(const PulseCapture &) = delete;
    PulseCapture &operator=(const PulseCapture &) = delete;
    ~PulseCapture();

    // Returns false with a reason when the daemon, the sink or the recorder
    // cannot be started (for example PulseAudio is not installed).
    bool start(QString *error);

    // Samples captured so far.
    qint64 position() const;
    // The bytes of samples [from, from + count), fewer when not all captured yet.
    QByteArray bytes(qint64 from, qint64 count) const;
    // Where the sound (float32 little-endian bytes, host order being little
    // endian) begins, when it is the first thing other than silence in the
    // `within` samples from `from`: the first non-zero sample captured aligned
    // with the sound's first non-zero sample. -1 when there is none (yet).
    // Whether the sound is there bit for bit is for the caller to compare.
    qint64 onsetOf(const QByteArray &sound, qint64 from, qint64 within) const;
    // Time (nowNs() clock) at which sample i came out of the sink, to within one
    // block; -1 while it has not.
    qint64 arrivalNs(qint64 sample) const;
    // Monotonic clock in ns, the clock of QElapsedTimer.
    static qint64 nowNs();

private:
    bool runPactl(const QStringList &arguments, QByteArray *output = nullptr);
    void drain();

    QTemporaryDir dir;
    QProcessEnvironment environment;
    QString server;
    QProcess daemon;
    QProcess recorder;
    int fifo = -1;
    std::thread drainer;
    std::atomic<bool> stopping{false};
    mutable std::mutex mutex;
    QByteArray data;
    std::vector<std::pair<qint64, qint64>> arrivals; // (time ns, bytes captured after the read)
};
