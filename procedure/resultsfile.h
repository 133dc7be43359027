// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "../app/trialrecord.h"

#include <QString>
#include <QVector>

class QTextStream;

// The results file: a tab-separated table with one header line and one line
// per answered trial, every line ended by CR LF. Column 1 is the tracked value
// in display units (frequency difference in Hz for main parameter 0,
// modulation depth in percent for main parameter 1) with 6 decimals; then the
// stimulus position, the response position, correctness as 1 or 0, and the
// reaction time in ms in the text stream's default number form (523, 1.23457e+06).
namespace ResultsFile
{

// The header line for the main parameter, without its line end; empty for a
// main parameter that tracks nothing.
QString header(int mainParameter);

// One trial's line without its line end. standardCarrierFrequency converts a
// frequency difference (a fraction of it) to Hz.
QString trialLine(const TrialRecord &record, int mainParameter, double standardCarrierFrequency);

// Writes the header and one line per record. Nothing is written without
// records or for a main parameter that tracks nothing.
void write(QTextStream &out, const QVector<TrialRecord> &trials, int mainParameter,
           double standardCarrierFrequency);

// What became of a table saved to a file.
enum class SaveOutcome {
    Saved,               // every line is in the file
    NotOpened,           // no file could be opened under the name; nothing written
    NotCompletelyWritten // the file was opened but a write failed (a full or
                         // vanished disk): the file may hold part of the table
};

// Writes the table to the file `name` (text mode, an existing file truncated),
// creating its folder and any missing parent folders first. An empty name, or
// one with a zero character, opens nothing.
SaveOutcome save(const QString &name, const QVector<TrialRecord> &trials, int mainParameter,
                 double standardCarrierFrequency);

} // namespace ResultsFile
