// SPDX-License-Identifier: GPL-3.0-or-later
#include "resultsfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace
{
const char *const lineEnd = "\r\n";
}

QString ResultsFile::header(int mainParameter)
{
    QString first;
    if (mainParameter == 0)
        first = "frequency difference (Hz)";
    else if (mainParameter == 1)
        first = "modulation depth (%)";
    else
        return QString();
    return first + "\tstimulus position\tresponse position\tcorrectness\treaction time (ms)";
}

QString ResultsFile::trialLine(const TrialRecord &record, int mainParameter,
                               double standardCarrierFrequency)
{
    const double shown =
        mainParameter == 0 ? record.value * standardCarrierFrequency : record.value * 100;
    QString line;
    QTextStream out(&line);
    // The reaction time goes through a stream with default settings, so it is
    // written exactly as a text stream writes a double.
    out << QString::number(shown, 'f', 6) << '\t' << record.stimPosition << '\t'
        << record.responsePosition << '\t' << (record.correct ? 1 : 0) << '\t'
        << record.reactionTime;
    out.flush();
    return line;
}

void ResultsFile::write(QTextStream &out, const QVector<TrialRecord> &trials, int mainParameter,
                        double standardCarrierFrequency)
{
    if (trials.isEmpty() || (mainParameter != 0 && mainParameter != 1))
        return;
    out << header(mainParameter) << lineEnd;
    for (const TrialRecord &record : trials)
        out << trialLine(record, mainParameter, standardCarrierFrequency) << lineEnd;
}

ResultsFile::SaveOutcome ResultsFile::save(const QString &name, const QVector<TrialRecord> &trials,
                                           int mainParameter, double standardCarrierFrequency)
{
    // The system cuts a name at a zero character and would write another
    // file than the one named, so such a name names none.
    if (name.isEmpty() || name.contains(QChar(0)))
        return SaveOutcome::NotOpened;
    const QString folder = QFileInfo(name).absolutePath();
    if (!QFileInfo::exists(folder))
        QDir().mkpath(folder);
    QFile file(name);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate))
        return SaveOutcome::NotOpened;
    QTextStream out(&file);
    write(out, trials, mainParameter, standardCarrierFrequency);
    // The stream reports a failed write of its buffer (and the file's flush);
    // the file reports one at closing.
    out.flush();
    const bool written = out.status() == QTextStream::Ok;
    file.close();
    return written && file.error() == QFileDevice::NoError ? SaveOutcome::Saved
                                                           : SaveOutcome::NotCompletelyWritten;
}
