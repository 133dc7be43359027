// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "../app/trialrecord.h"

#include <QString>
#include <QVector>

#include <functional>

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

// A results file read back.
struct Table {
    // 0 or 1 from the header line; -1 when the first line is no results header
    // (the file is something else and nothing more was read).
    int mainParameter = -1;
    // One record per trial line; the tracked value in the file's display units
    // (Hz or %), as written, not converted to stored units.
    QVector<TrialRecord> trials;
    QString error;     // why the file cannot be used; empty when it was read whole
    int errorLine = 0; // the line of that fault, counted from 1; 0 for the file as a whole
};

// Reads a results file: the header, then each trial line with five columns,
// positions 2 or 3, a correctness of 1 or 0 that agrees with them, and
// numbers that are finite. CR LF and LF line ends are both accepted. The
// first faulty line ends the reading with its reason; a file with a header
// and no trial line is a fault too.
Table read(const QString &path);

// What became of a table saved to a file.
enum class SaveOutcome {
    Saved,               // every line is in the file
    NotOpened,           // no file could be opened under the name; nothing written
    NotCompletelyWritten // the file was opened but a write failed (a full or
                         // vanished disk): the file may hold part of the table
};

// Writes the table to the file `name` (text mode, an existing file truncated),
// creating its folder and any missing parent folders first. An empty name, or
// one with a zero character, opens nothing. `opened`, when given, is called
// once the file is open and before anything is written to it.
SaveOutcome save(const QString &name, const QVector<TrialRecord> &trials, int mainParameter,
                 double standardCarrierFrequency, const std::function<void()> &opened = {});

} // namespace ResultsFile
