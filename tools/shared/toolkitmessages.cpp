// SPDX-License-Identifier: GPL-3.0-or-later
#include "toolkitmessages.h"

#include <QTextStream>
#include <QtGlobal>

namespace
{
const char *toolName = "";

void handle(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtFatalMsg)
        QTextStream(stderr) << toolName << ": " << text << '\n';
}
} // namespace

void ToolkitMessages::keepOffStderr(const char *tool)
{
    toolName = tool;
    qInstallMessageHandler(handle);
}
