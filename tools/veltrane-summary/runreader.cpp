// SPDX-License-Identifier: GPL-3.0-or-later
#include "runreader.h"

#include "app/sessionparameters.h"
#include "procedure/resultsfile.h"
#include "procedure/sidecar.h"
#include "procedure/staircase.h"
#include "statistics.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <cmath>
#include <limits>

namespace
{
constexpr double notAvailable = std::numeric_limits<double>::quiet_NaN();
// The sidecar's threshold is computed from unrounded values, the file keeps
// six decimals; anything beyond this means one of the two was changed.
constexpr double thresholdTolerance = 0.001;

RunReading leftOut(const QString &where, int line, const QString &reason)
{
    RunReading reading;
    reading.kind = RunReading::Kind::LeftOut;
    reading.where = where;
    reading.line = line;
    reading.reason = reason;
    return reading;
}

// The output's volume and mute state over the run, from the sidecar's
// entries (none in sidecars of earlier versions). Entries of unknown volume
// leave the run's volume unknown but change nothing.
void takeOutput(const QVector<OutputDevice> &devices, RunRow &row)
{
    bool allKnown = !devices.isEmpty(), silent = false;
    const OutputDevice *known = nullptr;
    for (const OutputDevice &d : devices) {
        allKnown = allKnown && d.level.known;
        silent = silent || d.level.silent();
        row.outputChanged = row.outputChanged || d.device != devices.first().device ||
                            (known && d.level.known && d.level.percent != known->level.percent);
        if (!known && d.level.known)
            known = &d;
    }
    if (allKnown && !row.outputChanged)
        row.outputVolumePct = known->level.percent;
    row.outputMuted = silent ? 1 : allKnown ? 0 : -1;
}

// Settings from the sidecar; a reason (and its line, where there is one)
// when it cannot be used.
QString takeSidecar(const QString &path, RunRow &row, SidecarRecord &record, int &line)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return "cannot be opened: " + file.errorString();
    const QByteArray bytes = file.readAll();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        line = bytes.left(error.offset).count('\n') + 1;
        return "not valid JSON: " + error.errorString();
    }
    if (!document.isObject())
        return "not a JSON object";
    const QString missing = Sidecar::read(document.object(), record);
    if (!missing.isEmpty())
        return missing;
    const QStringList quantities = SessionParameters().mainParameters;
    if (quantities.indexOf(record.mainParameter) != row.trackedQuantity)
        return QString("main parameter '%1' differs from the results file's '%2'")
            .arg(record.mainParameter, quantities.value(row.trackedQuantity));
    row.hasSidecar = true;
    row.subject = record.subjectCode;
    row.sessionType = record.sessionType;
    row.session = record.session;
    row.soundType = record.soundType;
    row.mainParameter = record.mainParameter;
    // A noise has no carrier: its sidecar's carrier frequency was never used.
    row.carrierHz = record.soundType == "noise" ? notAvailable : record.carrierFrequency;
    row.modulationHz = record.modulationFrequency;
    row.standardDepthPct = record.modulationDepth;
    row.durationMs = record.duration;
    row.acquired = record.acquired;
    row.faultyIntervals = record.faultyIntervals;
    takeOutput(record.outputDevices, row);
    return QString();
}

// What only the file name tells about a run without a sidecar.
void takeFileName(RunRow &row)
{
    SessionParameters named;
    row.mainParameter = named.mainParameters.value(row.trackedQuantity);
    if (named.takeFileName(row.file)) {
        row.subject = named.subjectCode;
        row.sessionType = named.sessionTypes.value(named.sessionType);
        row.session = named.sessionNumber;
        row.soundType = named.soundTypes.value(named.soundType);
    }
    row.carrierHz = row.modulationHz = row.standardDepthPct = row.durationMs = notAvailable;
}

// Replays the answers through the staircase's reversal rule and threshold.
void recompute(RunRow &row, int numberOfReversals, int reversalsToCalculate)
{
    // The staircase works in stored units; a frequency difference whose
    // carrier is unknown stays in Hz, which changes neither the reversals
    // nor the threshold's value in Hz.
    const double factor = std::isnan(row.unitsPerFraction()) ? 1.0 : row.unitsPerFraction();
    SessionParameters params;
    params.mainParameter = row.trackedQuantity;
    params.numberOfReversals = numberOfReversals;
    params.reversalsToCalculate = std::min(reversalsToCalculate, numberOfReversals);
    params.reversalValues.fill(0.0, numberOfReversals);
    params.reversalCount = 0;
    for (int i = 0; i < row.trials.size(); ++i) {
        TrialRecord record = row.trials[i];
        record.value /= factor;
        params.trials.append(record);
        const int before = params.reversalCount;
        Staircase::applyReversalRule(params);
        if (params.reversalCount > before)
            row.reversalTrials.append(i);
    }
    Staircase::computeResults(params);
    row.averagedReversals = Staircase::averagedReversals(params);
    row.reversals = params.reversalCount;
    row.complete = row.reversals >= numberOfReversals;
    row.threshold = row.reversals > 0 ? params.threshold * factor : notAvailable;
    row.thresholdDb = row.threshold > 0.0
                          ? 20.0 * std::log10(row.threshold / row.unitsPerFraction())
                          : notAvailable;
    // The spread of the reversals the threshold averages, in dB: the same
    // whatever the unit, so it is known for every run.
    QVector<double> averagedDb;
    for (int i = row.reversals - row.averagedReversals; i < row.reversals; ++i)
        averagedDb.append(20.0 * std::log10(params.reversalValues[i]));
    row.reversalSdDb =
        averagedDb.size() >= 2 ? Statistics::standardDeviation(averagedDb) : notAvailable;

    QVector<double> times;
    int correct = 0;
    int chose2 = 0;
    for (const TrialRecord &t : row.trials) {
        correct += t.correct;
        chose2 += t.responsePosition == 2;
        times.append(t.reactionTime);
    }
    row.percentCorrect = 100.0 * correct / row.trials.size();
    row.chose2Pct = 100.0 * chose2 / row.trials.size();
    row.meanRtMs = Statistics::mean(times);
    row.medianRtMs = Statistics::percentile(times, 50.0);
}
} // namespace

QStringList RunReader::candidates(const QStringList &paths, QStringList &missing)
{
    QStringList files;
    for (const QString &given : paths) {
        const QString path = QDir::cleanPath(given); // ./data/ as data
        const QFileInfo info(path);
        if (info.isFile()) {
            files.append(path);
        } else if (info.isDir()) {
            QDirIterator it(path, {"*.txt"}, QDir::Files, QDirIterator::Subdirectories);
            while (it.hasNext())
                files.append(it.next());
        } else {
            missing.append(given);
        }
    }
    files.sort();
    // A file found twice, or under two paths (through a link), is one run:
    // its first path in order stays.
    QStringList once;
    QSet<QString> seen;
    for (const QString &file : files) {
        const QString canonical = QFileInfo(file).canonicalFilePath();
        if (!seen.contains(canonical))
            once.append(file);
        seen.insert(canonical);
    }
    return once;
}

RunReading RunReader::read(const QString &path, const RunRules &rules)
{
    const ResultsFile::Table table = ResultsFile::read(path);
    if (table.mainParameter < 0 && table.error.isEmpty())
        return RunReading();
    if (!table.error.isEmpty())
        return leftOut(path, table.errorLine, table.error);

    RunReading reading;
    reading.kind = RunReading::Kind::Usable;
    RunRow &row = reading.row;
    row.file = path;
    row.trackedQuantity = table.mainParameter;
    row.trials = table.trials;

    const SessionParameters defaults;
    SidecarRecord sidecar;
    sidecar.numberOfReversals = defaults.numberOfReversals;
    sidecar.reversalsToCalculate = defaults.reversalsToCalculate;
    const QString sidecarPath = Sidecar::path(path);
    if (QFileInfo::exists(sidecarPath)) {
        int line = 0;
        const QString reason = takeSidecar(sidecarPath, row, sidecar, line);
        if (!reason.isEmpty())
            return leftOut(sidecarPath, line, reason);
    } else {
        takeFileName(row);
    }
    recompute(row, sidecar.numberOfReversals, sidecar.reversalsToCalculate);

    if (row.sessionType == "practice" && !rules.includePractice)
        row.excludedBecause << "practice";
    if (!row.complete)
        row.excludedBecause << "incomplete";
    if (row.faultyIntervals > 0 && !rules.includeFaulty)
        row.excludedBecause << "faulty";
    if (row.outputMuted == 1)
        row.excludedBecause << "muted";
    if (row.outputChanged)
        row.excludedBecause << "volume changed";
    if (row.hasSidecar && !(std::abs(sidecar.threshold - row.threshold) <= thresholdTolerance))
        row.excludedBecause << "threshold mismatch";
    if (row.reversalSdDb > rules.maxReversalSdDb)
        row.excludedBecause << "unstable";
    if (std::isnan(row.unitsPerFraction()))
        row.excludedBecause << "carrier unknown";
    return reading;
}
