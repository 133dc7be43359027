#pragma once

#include "app/mainwindow.h"
#include "subject/subjectwindow.h"
#include "support/modalcatcher.h"

#include <QCheckBox>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QLineEdit>
#include <QStringList>
#include <QTimer>

#include <functional>

// What the reliability tests share: a short session typed into the panel,
// waiting in a real event loop, closing the participant window as the
// experimenter does, and the warnings the program logs.
namespace RunHarness
{

// Waits in a real event loop, checking every few milliseconds, until done()
// holds or the time is up. QTRY_* would sleep between its checks and delay
// the sound timer's ticks and the outputs' notifications.
inline bool waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    if (done())
        return true;
    QDeadlineTimer deadline(timeoutMs);
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(2);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done() || deadline.hasExpired())
            loop.quit();
    });
    poll.start();
    loop.exec();
    return done();
}

// A short session as an experimenter would type it: modulation-depth track of
// a sinusoid, start value reset to 50 %, the given sound and silence lengths
// and reversal counts; the results go into `folder` when it is not empty.
struct ShortSession {
    int soundMs = 20;
    int silentMs = 10;
    int reversals = 2;
    int reversalsToCalculate = 2;
    QString folder;
};

inline void typeSession(MainWindow &w, const ShortSession &s)
{
    w.lineEditDurationStd->setText(QString::number(s.soundMs));
    w.lineEditDurationDev->setText(QString::number(s.soundMs));
    w.lineEditSilentInterval->setText(QString::number(s.silentMs));
    w.lineEditNumReversals->setText(QString::number(s.reversals));
    w.lineEditRevToCalc->setText(QString::number(s.reversalsToCalculate));
    w.checkBoxResetMdFd->setChecked(true);
    w.checkBoxSaveData->setChecked(!s.folder.isEmpty());
    if (!s.folder.isEmpty())
        w.lineEditFilePath->setText(s.folder);
}

// Closes the participant window with "Yes" to its question. Returns false
// when the question never came.
inline bool closeParticipantWindow(MainWindow &w)
{
    if (!w.subjectWindow || !w.subjectWindow->isVisible())
        return true;
    ModalCatcher catcher;
    catcher.arm(QMessageBox::Yes);
    w.subjectWindow->close();
    return waitUntil([&] { return catcher.boxes.size() == 1; }, 5000) &&
           !w.subjectWindow->isVisible();
}

// Notes every warning the program logs while it lives (and passes it on).
class WarningLog
{
public:
    WarningLog()
    {
        current = this;
        previous = qInstallMessageHandler(&WarningLog::handle);
    }
    ~WarningLog()
    {
        qInstallMessageHandler(previous);
        current = nullptr;
    }
    WarningLog(const WarningLog &) = delete;
    WarningLog &operator=(const WarningLog &) = delete;

    QStringList warnings;

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        if (type == QtWarningMsg && current)
            current->warnings.append(text);
        if (current && current->previous)
            current->previous(type, context, text);
    }

    static inline WarningLog *current = nullptr;
    QtMessageHandler previous = nullptr;
};

} // namespace RunHarness
