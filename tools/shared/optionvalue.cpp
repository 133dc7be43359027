// SPDX-License-Identifier: GPL-3.0-or-later
#include "optionvalue.h"

#include <QRegularExpression>

QString OptionValue::parse(QCommandLineParser &parser, const QStringList &arguments)
{
    if (!parser.parse(arguments)) {
        const QStringList unknown = parser.unknownOptionNames();
        if (unknown.isEmpty()) {
            // "Missing value after '--out'." in the tools' form
            const QString text = parser.errorText();
            return text.left(1).toLower() + text.mid(1).remove(QRegularExpression("\\.$"));
        }
        // The option as typed: its name alone does not tell one dash from two.
        for (const QString &argument : arguments.mid(1)) {
            if (argument == "--")
                break;
            const QString typed = argument.section('=', 0, 0);
            if (QString(typed).remove(QRegularExpression("^-+")) == unknown.first())
                return QString("unknown option '%1'").arg(typed);
        }
        return QString("unknown option '-%1'").arg(unknown.first());
    }
    const QStringList given = parser.optionNames();
    for (const char *help : {"h", "?", "help", "help-all"})
        if (given.contains(help))
            parser.showHelp(0);
    if (given.contains("v") || given.contains("version"))
        parser.showVersion();
    return QString();
}

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
