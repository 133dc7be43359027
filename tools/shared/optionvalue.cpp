// SPDX-License-Identifier: GPL-3.0-or-later
#include "optionvalue.h"

QString OptionValue::wholeNumber(const QCommandLineParser &parser, const QString &name, int min,
                                 int *value)
{
    bool ok = false;
    *value = parser.value(name).toInt(&ok);
    if (ok && *value >= min)
        return QString();
    return QString("--%1 needs a whole number of at least %2, not '%3'")
        .arg(name)
        .arg(min)
        .arg(parser.value(name));
}
