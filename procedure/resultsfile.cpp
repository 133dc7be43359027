// SPDX-License-Identifier: GPL-3.0-or-later
#include "resultsfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <cmath>

namespace
{
const char *const lineEnd = "\r\n";
constexpr int columnCount = 5;

// One trial line into a record, or the reason it is not one.
QString trialFrom(const QString &line, TrialRecord &record)
{
    const QStringList fields = line.split('\t');
    if (fields.size() != columnCount)
        return QString("%1 columns instead of %2").arg(fields.size()).arg(columnCount);
    bool ok = false;
    record.value = fields[0].toDouble(&ok);
    if (!ok || !std::isfinite(record.value))
        return QString("tracked value '%1' is not a number").arg(fields[0]);
    record.reactionTime = fields[4].toDouble(&ok);
    if (!ok || !std::isfinite(record.reactionTime))
        return QString("reaction time '%1' is not a number").arg(fields[4]);
    const QString names[] = {"stimulus position", "response position"};
    int positions[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        positions[i] = fields[1 + i].toInt(&ok);
        if (!ok || (positions[i] != 2 && positions[i] != 3))
            return QString("%1 '%2' is not 2 or 3").arg(names[i], fields[1 + i]);
    }
    record.stimPosition = positions[0];
    record.responsePosition = positions[1];
    const int correctness = fields[3].toInt(&ok);
    if (!ok || (correctness != 0 && correctness != 1))
        return QString("correctness '%1' is not 1 or 0").arg(fields[3]);
    record.correct = correctness == 1;
    if (record.correct != (record.stimPosition == record.responsePosition))
        return QString("correctness %1 disagrees with positions %2 and %3")
            .arg(correctness)
            .arg(record.stimPosition)
            .arg(record.responsePosition);
    return QString();
}
} // namespace

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
                                           int mainParameter, double standardCarrierFrequency,
                                           const std::function<void()> &opened)
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
    if (opened)
        opened();
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

ResultsFile::Table ResultsFile::read(const QString &path)
{
    Table table;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        table.error = "cannot be opened: " + file.errorString();
        return table;
    }
    QStringList lines = QString::fromLatin1(file.readAll()).split('\n');
    // The last line end leaves an empty piece behind it.
    if (lines.size() > 1 && lines.constLast().isEmpty())
        lines.removeLast();
    for (QString &line : lines)
        if (line.endsWith('\r'))
            line.chop(1);
    for (int parameter : {0, 1})
        if (lines.constFirst() == header(parameter))
            table.mainParameter = parameter;
    if (table.mainParameter < 0)
        return table;
    for (int i = 1; i < lines.size(); ++i) {
        TrialRecord record;
        table.error = trialFrom(lines[i], record);
        if (!table.error.isEmpty()) {
            table.errorLine = i + 1;
            table.trials.clear();
            return table;
        }
        table.trials.append(record);
    }
    if (table.trials.isEmpty())
        table.error = "no trials";
    return table;
}
