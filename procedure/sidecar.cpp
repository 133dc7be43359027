// SPDX-License-Identifier: GPL-3.0-or-later
#include "sidecar.h"

#include "../app/sessionparameters.h"
#include "resultsfile.h"

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace
{

// Keys and labels written and read back, named once for both.
namespace key
{
const char *const settings = "Settings";
const char *const result = "Result";
const char *const playback = "Playback";
const char *const acquired = "AcquisitionDateTime";
const char *const faultyIntervals = "FaultyIntervals";
const char *const outputDevices = "OutputDevices";
const char *const device = "Device";
const char *const fromTrial = "FromTrial";
const char *const volume = "Volume";
const char *const percent = "Percent";
const char *const decibels = "Decibels";
const char *const muted = "Muted";
const char *const threshold = "Threshold";
const char *const standard = "Standard";
const char *const deviant = "Deviant";
const char *const sessionType = "Session type";
const char *const soundType = "Sound type";
const char *const mainParameter = "Main parameter";
const char *const carrierFrequency = "Carrier frequency (Hz)";
const char *const modulationFrequency = "Modulation frequency (Hz)";
const char *const modulationDepth = "Modulation depth (%)";
const char *const frequencyDifference = "Frequency difference (Hz)";
const char *const duration = "Duration (ms)";
const char *const numberOfReversals = "Number of reversals";
const char *const reversalsToCalculate = "Reversals to calculate";
const char *const subjectCode = "Subject code";
const char *const session = "Session";
} // namespace key

QJsonObject column(const QString &description, const QString &units = QString())
{
    QJsonObject object{{"Description", description}};
    if (!units.isEmpty())
        object.insert("Units", units);
    return object;
}

// The columns the results file has; a run without trials writes an empty
// file, which has none.
QJsonObject columns(const SessionParameters &p)
{
    const QHash<QString, QJsonObject> described{
        {"frequency difference (Hz)",
         column("Frequency difference of the deviant presented in the trial: how far its "
                "carrier frequency lay below the standard's",
                "Hz")},
        {"modulation depth (%)",
         column("Amplitude-modulation depth of the deviant presented in the trial", "%")},
        {"stimulus position", column("The sound of the trial that was the deviant: 2 or 3")},
        {"response position", column("The sound the participant chose")},
        {"correctness", column("1 when the response position equals the stimulus position, "
                               "else 0")},
        {"reaction time (ms)",
         column("Time from the end of the fourth sound to the answer, in whole milliseconds",
                "ms")}};
    QJsonObject object;
    if (p.trials.isEmpty())
        return object;
    for (const QString &name : ResultsFile::header(p.mainParameter).split('\t', Qt::SkipEmptyParts))
        object.insert(name, described.value(name));
    return object;
}

QJsonObject pair(double standard, double deviant)
{
    return {{key::standard, standard}, {key::deviant, deviant}};
}

// The panel as the run started, by row label and in the panel's units.
QJsonObject settings(const SessionParameters &p)
{
    const double carrier = p.carrierFrequency[0];
    return {
        {key::sessionType, p.sessionTypes.value(p.sessionType)},
        {key::soundType, p.soundTypes.value(p.soundType)},
        {key::mainParameter, p.mainParameters.value(p.mainParameter)},
        {key::carrierFrequency, pair(p.carrierFrequency[0], p.carrierFrequency[1])},
        {key::modulationFrequency, pair(p.modulationFrequency[0], p.modulationFrequency[1])},
        {key::modulationDepth, pair(100 * p.modulationDepth[0], 100 * p.modulationDepth[1])},
        {key::frequencyDifference,
         pair(carrier * p.frequencyDifference[0], carrier * p.frequencyDifference[1])},
        {key::duration, pair(1000 * p.duration[0], 1000 * p.duration[1])},
        {key::numberOfReversals, p.numberOfReversals},
        {key::reversalsToCalculate, p.reversalsToCalculate},
        {"Silent interval (ms)", 1000 * p.silentInterval},
        {"Sampling rate", p.samplingRate},
        {key::subjectCode, p.subjectCode},
        {key::session, p.sessionNumber},
        {"Filepath", p.filePath},
        {"Filename", p.fileName},
        {"Save data to file", p.saveData},
        {"Reset md/fd", p.resetMdFd},
    };
}

// The threshold and reversal values as the participant window shows them. A
// main parameter that tracks nothing has no unit; its values stay as stored.
QJsonObject result(const SessionParameters &p)
{
    double factor = 1.0;
    QString units;
    if (p.mainParameter == 0) {
        factor = p.carrierFrequency[0];
        units = "Hz";
    } else if (p.mainParameter == 1) {
        factor = 100.0;
        units = "%";
    }
    QJsonArray reversals;
    for (int i = 0; i < std::min(p.reversalCount, int(p.reversalValues.size())); ++i)
        reversals.append(factor * p.reversalValues[i]);
    // A run without an answer has no threshold and no reaction time.
    const bool answered = !p.trials.isEmpty();
    return {{key::threshold, answered ? QJsonValue(factor * p.threshold) : QJsonValue()},
            {"ThresholdUnits", units},
            {"ReversalValues", reversals},
            {"MeanReactionTime", answered ? QJsonValue(p.reactionTime) : QJsonValue()},
            {"MeanReactionTimeUnits", "ms"},
            {"NumberOfTrials", p.trials.size()}};
}

QJsonObject playback(const RunFacts &facts)
{
    QVector<FaultyInterval> faulty = facts.faultyIntervals;
    std::sort(faulty.begin(), faulty.end(), [](const FaultyInterval &a, const FaultyInterval &b) {
        return a.trial != b.trial ? a.trial < b.trial : a.sound < b.sound;
    });
    QJsonArray intervals;
    for (const FaultyInterval &f : faulty)
        intervals.append(QJsonObject{{"Trial", f.trial}, {"Sound", f.sound}});
    QJsonArray devices;
    for (const OutputDevice &d : facts.outputDevices) {
        const OutputLevel &l = d.level;
        const QJsonValue decibels =
            std::isfinite(l.decibels) ? QJsonValue(l.decibels) : QJsonValue();
        devices.append(QJsonObject{{key::device, d.device},
                                   {key::fromTrial, d.fromTrial},
                                   {key::volume, l.known ? QJsonObject{{key::percent, l.percent},
                                                                       {key::decibels, decibels}}
                                                         : QJsonValue()},
                                   {key::muted, l.known ? QJsonValue(l.muted) : QJsonValue()}});
    }
    const double stream = facts.streamVolume;
    return {{key::outputDevices, devices},
            {"StreamVolume", std::isfinite(stream) ? QJsonValue(stream) : QJsonValue()},
            {"SampleRate", facts.sampleRate},
            {"Channels", facts.channels},
            {"SampleType", facts.sampleType},
            {key::faultyIntervals, intervals}};
}

// The readers of one setting: each returns false when it is missing or of the
// wrong kind, and names it in `missing`.
bool text(const QJsonObject &settings, const QString &label, QString &value, QString &missing)
{
    const QJsonValue v = settings.value(label);
    value = v.toString();
    if (!v.isString())
        missing = label;
    return v.isString();
}

bool number(const QJsonObject &object, const QString &label, double &value, QString &missing)
{
    const QJsonValue v = object.value(label);
    value = v.toDouble();
    if (!v.isDouble())
        missing = label;
    return v.isDouble();
}

bool standardValue(const QJsonObject &settings, const QString &label, double &value,
                   QString &missing)
{
    if (number(settings.value(label).toObject(), key::standard, value, missing))
        return true;
    missing = label + "/" + key::standard;
    return false;
}

bool whole(const QJsonObject &settings, const QString &label, int &value, QString &missing)
{
    const QJsonValue v = settings.value(label);
    const double number = v.toDouble();
    value = static_cast<int>(number);
    if (v.isDouble() && number == std::floor(number) && std::abs(number) < 1e9)
        return true;
    missing = label;
    return false;
}

// The output devices with their volume and mute state; an entry without
// them (an earlier version) or with null for them has an unknown level.
QVector<OutputDevice> outputDevices(const QJsonObject &playback)
{
    QVector<OutputDevice> devices;
    for (const QJsonValue entry : playback.value(key::outputDevices).toArray()) {
        OutputDevice d{entry[key::device].toString(), entry[key::fromTrial].toInt(), {}};
        const QJsonValue percent = entry[key::volume][key::percent];
        const QJsonValue muted = entry[key::muted];
        d.level.known = percent.isDouble() && muted.isBool();
        if (d.level.known) {
            d.level.percent = percent.toInt();
            d.level.muted = muted.toBool();
            const QJsonValue decibels = entry[key::volume][key::decibels];
            if (decibels.isDouble())
                d.level.decibels = decibels.toDouble();
        }
        devices.append(d);
    }
    return devices;
}

} // namespace

QString Sidecar::read(const QJsonObject &content, SidecarRecord &record)
{
    const QJsonObject s = content.value(key::settings).toObject();
    if (s.isEmpty())
        return QString("no %1").arg(key::settings);
    QString missing;
    const bool settingsRead =
        text(s, key::subjectCode, record.subjectCode, missing) &&
        text(s, key::sessionType, record.sessionType, missing) &&
        whole(s, key::session, record.session, missing) &&
        text(s, key::soundType, record.soundType, missing) &&
        text(s, key::mainParameter, record.mainParameter, missing) &&
        standardValue(s, key::carrierFrequency, record.carrierFrequency, missing) &&
        standardValue(s, key::modulationFrequency, record.modulationFrequency, missing) &&
        standardValue(s, key::modulationDepth, record.modulationDepth, missing) &&
        standardValue(s, key::duration, record.duration, missing) &&
        whole(s, key::numberOfReversals, record.numberOfReversals, missing) &&
        whole(s, key::reversalsToCalculate, record.reversalsToCalculate, missing);
    if (!settingsRead)
        return QString("no %1 in %2").arg(missing, key::settings);
    if (!number(content.value(key::result).toObject(), key::threshold, record.threshold, missing))
        return QString("no %1 in %2").arg(missing, key::result);
    record.acquired = content.value(key::acquired).toString();
    const QJsonObject playback = content.value(key::playback).toObject();
    record.faultyIntervals = playback.value(key::faultyIntervals).toArray().size();
    record.outputDevices = outputDevices(playback);
    return QString();
}

QString Sidecar::path(const QString &resultsPath)
{
    if (resultsPath.endsWith(".txt"))
        return resultsPath.chopped(4) + ".json";
    return resultsPath + ".json";
}

QString Sidecar::isoDateTime(const QDateTime &time)
{
    if (!time.isValid())
        return QString();
    // Built from the numbers rather than with a format string, which takes
    // the system locale's digits (Persian, Arabic, Bengali) in Qt 5; QString::arg
    // always writes ASCII digits.
    const QDate d = time.date();
    const QTime t = time.time();
    const int offset = time.offsetFromUtc();
    const int minutes = std::abs(offset) / 60;
    const auto two = [](int n) { return QString("%1").arg(n, 2, 10, QLatin1Char('0')); };
    return QString("%1-%2-%3T%4:%5:%6%7%8:%9")
        .arg(d.year(), 4, 10, QLatin1Char('0'))
        .arg(two(d.month()), two(d.day()), two(t.hour()), two(t.minute()), two(t.second()),
             QString(offset < 0 ? '-' : '+'), two(minutes / 60), two(minutes % 60));
}

QJsonObject Sidecar::content(const SessionParameters &atStart, const SessionParameters &atEnd,
                             const RunFacts &facts)
{
    QJsonObject object = columns(atEnd);
    object.insert("Software", QJsonObject{{"Name", "Veltrane"}, {"Version", VELTRANE_VERSION}});
    const QString started = isoDateTime(facts.started);
    object.insert(key::acquired, started.isEmpty() ? QJsonValue() : QJsonValue(started));
    // A 64-bit seed as text: a JSON number is read as a double, which keeps
    // only 53 bits.
    object.insert("RandomSeed", QString::number(facts.randomSeed));
    object.insert(key::settings, settings(atStart));
    object.insert(key::result, result(atEnd));
    object.insert(key::playback, playback(facts));
    return object;
}

bool Sidecar::save(const QString &path, const QJsonObject &content)
{
    if (path.contains(QChar(0)))
        return false;
    const QByteArray bytes = QJsonDocument(content).toJson(QJsonDocument::Indented);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const bool written = file.write(bytes) == bytes.size() && file.flush();
    file.close();
    return written && file.error() == QFileDevice::NoError;
}
