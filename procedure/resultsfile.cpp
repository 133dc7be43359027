#include "resultsfile.h"

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
