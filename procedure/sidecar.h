// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "../stimulus/outputlevel.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <cstdint>
#include <limits>

class SessionParameters;

// One interval of a run whose sound did not play: its output stopped with an
// error or never reported the end of its sound. Trials count from 1, sounds
// from 1 to 4.
struct FaultyInterval {
    int trial;
    int sound;
};

// An audio output device a run played through at one volume and mute state,
// from the trial (counted from 1) in which its first sound so played started.
struct OutputDevice {
    QString device;
    int fromTrial;
    OutputLevel level;
};

// What a run's sidecar needs beyond the session record.
struct RunFacts {
    QDateTime started; // local time of "I am ready"; invalid when no run started
    std::uint64_t randomSeed = 0;
    QVector<OutputDevice> outputDevices; // in order; empty when there was no device
    QVector<int> silentTrials; // trials with a sound played muted or at 0 %, for the warning
    double streamVolume = std::numeric_limits<double>::quiet_NaN(); // NaN before a sound
    int sampleRate = 0;
    int channels = 0;
    QString sampleType;
    QVector<FaultyInterval> faultyIntervals;
};

// What a sidecar read back tells about its run: the panel's settings an
// analysis needs, in the panel's units (the standard's values of the paired
// rows), when the run started, its threshold and how many sounds did not play.
struct SidecarRecord {
    QString subjectCode;
    QString sessionType;
    int session = 0;
    QString soundType;
    QString mainParameter;
    double carrierFrequency = 0.0;    // Hz
    double modulationFrequency = 0.0; // Hz
    double modulationDepth = 0.0;     // %
    double duration = 0.0;            // ms
    int numberOfReversals = 0;
    int reversalsToCalculate = 0;
    QString acquired;       // as written; empty when the run never started
    double threshold = 0.0; // in the unit shown to the participant (Hz or %)
    int faultyIntervals = 0;
    QVector<OutputDevice> outputDevices; // empty in sidecars of earlier versions
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

// Reads back what an analysis needs. Fields it does not need (the column
// descriptions, the audio format) may be missing, as in sidecars of earlier
// versions; a missing list of faulty intervals counts as none, a missing
// volume or mute state as unknown. Returns an empty string, or what is missing or of the wrong
// kind.
QString read(const QJsonObject &content, SidecarRecord &record);

// Writes the content pretty-printed in UTF-8, replacing an existing file.
// False when the file could not be opened or written whole.
bool save(const QString &path, const QJsonObject &content);

} // namespace Sidecar
