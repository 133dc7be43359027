#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <cstdint>

class SessionParameters;

// One interval of a run whose sound did not play: its output stopped with an
// error or never reported the end of its sound. Trials count from 1, sounds
// from 1 to 4.
struct FaultyInterval {
    int trial;
    int sound;
};

// An audio output device a run played through, from the trial (counted
// from 1) in which its first sound of the run started.
struct OutputDevice {
    QString device;
    int fromTrial;
};

// What a run's sidecar needs beyond the session record.
struct RunFacts {
    QDateTime started; // local time of "I am ready"; invalid when no run started
    std::uint64_t randomSeed = 0;
    QVector<OutputDevice> outputDevices; // in order; empty when there was no device
    int sampleRate = 0;
    int channels = 0;
    QString sampleType;
    QVector<FaultyInterval> faultyIntervals;
};

// The JSON file written beside the results file: a description of each of
// its columns, the program and its version, when the run started, the random
// seed, the panel's settings at the start of the run, the run's result and
// the health of its playback. It keeps with the data what the tab-separated
// table alone cannot say.
namespace Sidecar
{

// The sidecar's name: the results file's name with ".json" instead of a
// final ".txt", or with ".json" appended to any other name.
QString path(const QString &resultsPath);

// ISO 8601 with seconds and a numeric UTC offset, "+00:00" rather than "Z"
// for UTC, so that every file gives the offset in the same form.
QString isoDateTime(const QDateTime &time);

// The sidecar's content. `atStart` is the record when the run started (the
// panel's settings, the deviant's start values); `atEnd` the record when it
// ended (trials, reversals, threshold, mean reaction time).
QJsonObject content(const SessionParameters &atStart, const SessionParameters &atEnd,
                    const RunFacts &facts);

// Writes the content pretty-printed in UTF-8, replacing an existing file.
// False when the file could not be opened or written whole.
bool save(const QString &path, const QJsonObject &content);

} // namespace Sidecar
