#include "sidecar.h"

#include "../app/sessionparameters.h"
#include "resultsfile.h"

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cstdlib>

namespace
{

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
    return {{"Standard", standard}, {"Deviant", deviant}};
}

// The panel as the run started, by row label and in the panel's units.
QJsonObject settings(const SessionParameters &p)
{
    const double carrier = p.carrierFrequency[0];
    return {
        {"Session type", p.sessionTypes.value(p.sessionType)},
        {"Sound type", p.soundTypes.value(p.soundType)},
        {"Main parameter", p.mainParameters.value(p.mainParameter)},
        {"Carrier frequency (Hz)", pair(p.carrierFrequency[0], p.carrierFrequency[1])},
        {"Modulation frequency (Hz)", pair(p.modulationFrequency[0], p.modulationFrequency[1])},
        {"Modulation depth (%)", pair(100 * p.modulationDepth[0], 100 * p.modulationDepth[1])},
        {"Frequency difference (Hz)",
         pair(carrier * p.frequencyDifference[0], carrier * p.frequencyDifference[1])},
        {"Duration (ms)", pair(1000 * p.duration[0], 1000 * p.duration[1])},
        {"Number of reversals", p.numberOfReversals},
        {"Reversals to calculate", p.reversalsToCalculate},
        {"Silent interval (ms)", 1000 * p.silentInterval},
        {"Sampling rate", p.samplingRate},
        {"Subject code", p.subjectCode},
        {"Session", p.sessionNumber},
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
    return {{"Threshold", answered ? QJsonValue(factor * p.threshold) : QJsonValue()},
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
    for (const OutputDevice &d : facts.outputDevices)
        devices.append(QJsonObject{{"Device", d.device}, {"FromTrial", d.fromTrial}});
    return {{"OutputDevices", devices},
            {"SampleRate", facts.sampleRate},
            {"Channels", facts.channels},
            {"SampleType", facts.sampleType},
            {"FaultyIntervals", intervals}};
}

} // namespace

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
    object.insert("AcquisitionDateTime", started.isEmpty() ? QJsonValue() : QJsonValue(started));
    // A 64-bit seed as text: a JSON number is read as a double, which keeps
    // only 53 bits.
    object.insert("RandomSeed", QString::number(facts.randomSeed));
    object.insert("Settings", settings(atStart));
    object.insert("Result", result(atEnd));
    object.insert("Playback", playback(facts));
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
