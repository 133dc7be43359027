// SPDX-License-Identifier: GPL-3.0-or-later
#include "runfiles.h"

#include "app/sessionparameters.h"
#include "procedure/resultsfile.h"
#include "procedure/sidecar.h"
#include "procedure/staircase.h"

#include <QDir>

QString RunFiles::save(const QString &folder, const SessionParameters &start,
                       const RunOutcome &outcome, int index, int runsPerSubject, std::uint64_t seed)
{
    SessionParameters atStart = start;
    atStart.subjectCode = QString("SIM%1").arg(index / runsPerSubject + 1, 3, 10, QChar('0'));
    atStart.sessionType = atStart.sessionTypes.indexOf("test");
    atStart.sessionNumber = index % runsPerSubject + 1;
    atStart.filePath = QDir(folder).absolutePath();
    atStart.fileName = atStart.composedFileName();
    atStart.saveData = true;

    // The record at the end of the run, its threshold computed as the
    // experimenter window computes it (also for a run that was abandoned).
    SessionParameters atEnd = atStart;
    atEnd.trials = outcome.trials;
    atEnd.reversalValues = outcome.reversalValues;
    atEnd.reversalCount = outcome.reversalValues.size();
    Staircase::computeResults(atEnd);

    RunFacts facts;
    facts.started = QDateTime(QDate(2024, 1, 1), QTime(9, 0), Qt::UTC).addSecs(600LL * index);
    facts.randomSeed = seed;

    const QString name = QDir(folder).filePath(atStart.fileName);
    if (ResultsFile::save(name, atEnd.trials, atEnd.mainParameter, atEnd.carrierFrequency[0]) !=
        ResultsFile::SaveOutcome::Saved)
        return name;
    const QString sidecar = Sidecar::path(name);
    if (!Sidecar::save(sidecar, Sidecar::content(atStart, atEnd, facts)))
        return sidecar;
    return QString();
}
