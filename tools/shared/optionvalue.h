// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QCommandLineParser>
#include <QString>

// Reading a whole-number option of the tools: the value, or a one-line
// message for the user when the text is not a whole number of at least `min`.
namespace OptionValue
{

// The option's value in *value; an empty text when it is usable, else what is
// wrong with it ("--runs needs a whole number of at least 1, not 'x'").
QString wholeNumber(const QCommandLineParser &parser, const QString &name, int min, int *value);

} // namespace OptionValue
