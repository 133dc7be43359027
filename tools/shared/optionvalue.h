// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QCommandLineParser>
#include <QString>

// Reading the tools' command lines: one-line messages for the user instead of
// the parser's own texts.
namespace OptionValue
{

// Parses `arguments` (the program's name first). --help and --version print
// and end the program with status 0. Returns an empty text when the command
// line can be used, else what is wrong with it ("unknown option '--x'").
QString parse(QCommandLineParser &parser, const QStringList &arguments);

// The option's value in *value; an empty text when it is usable, else what is
// wrong with it ("--runs needs a whole number of at least 1, not 'x'").
QString wholeNumber(const QCommandLineParser &parser, const QString &name, int min, int *value);

} // namespace OptionValue
