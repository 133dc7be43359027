#include "runharness.h"

#include "procedure/staircase.h"
#include "subject/subjectwindow.h"
#include "support/modalcatcher.h"

#include <QAudioOutput>
#include <QBuffer>
#include <QCheckBox>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

#include <algorithm>
#include <iterator>

RunHarness::RunHarness(MainWindow &window, double threshold, int delayMs,
                       const PulseServer *capture)
    : window(window), threshold(threshold), delayMs(delayMs), capture(capture)
{
    QObject::connect(&window, &MainWindow::soundPlaying, &context, [this](int index) {
        noteInterval(index);
        if (index == -1)
            QTimer::singleShot(this->delayMs, Qt::PreciseTimer, &context, [this] { answer(); });
    });
    QObject::connect(&window, &MainWindow::doneDataCollection, &context, [this] { ++finished; });
}

void RunHarness::noteInterval(int index)
{
    const qint64 now = PulseServer::nowNs();
    indexes.append(index);
    if (index == 1 || trials.isEmpty())
        trials.append({window.standardSound, window.deviantSound, window.params.stimPosition});
    if (index == -1) {
        trials.last().endNs = now;
        return;
    }
    const int at = intervals.size();
    intervals.append({trials.size() - 1, index, now, capture ? capture->position() : -1});
    if (QAudioOutput *output = window.audioOutput) {
        ++outputsMade;
        // An error reported inside start() comes before this point.
        intervals[at].stoppedWithError =
            output->state() == QAudio::StoppedState && output->error() != QAudio::NoError;
        QObject::connect(output, &QAudioOutput::stateChanged, &context,
                         [this, at, output](QAudio::State state) {
                             intervals[at].idle |= state == QAudio::IdleState;
                             intervals[at].stoppedWithError |= state == QAudio::StoppedState &&
                                                               output->error() != QAudio::NoError;
                         });
        QObject::connect(output, &QObject::destroyed, &context, [this, at] {
            ++outputsDestroyed;
            intervals[at].releasedNs = PulseServer::nowNs();
        });
    }
    if (QBuffer *buffer = window.audioBuffer) {
        ++buffersMade;
        QObject::connect(buffer, &QObject::destroyed, &context, [this] { ++buffersDestroyed; });
    }
}

QVector<RunHarness::Interval> RunHarness::intervalsOf(int trial) const
{
    QVector<Interval> played;
    std::copy_if(intervals.begin(), intervals.end(), std::back_inserter(played),
                 [trial](const Interval &i) { return i.trial == trial; });
    return played;
}

void RunHarness::typeSession(MainWindow &w, const ShortSession &s)
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

void RunHarness::begin(const ShortSession &session)
{
    typeSession(window, session);
    window.on_pushButtonView_clicked();
    window.on_pushButtonGo_clicked();
}

void RunHarness::pressReady()
{
    if (window.subjectWindow)
        window.subjectWindow->pushButtonIAmReady->click();
    else
        window.updateMainwindow(0);
    if (afterResponse)
        afterResponse();
}

bool RunHarness::run(int timeoutMs)
{
    const int before = finished;
    pressReady();
    return waitUntil([&] { return finished > before; }, timeoutMs);
}

void RunHarness::answer()
{
    const int stim = window.params.stimPosition;
    const int response = Staircase::trackedValue(window.params) >= threshold ? stim : 5 - stim;
    ++answers;
    if (window.subjectWindow)
        (response == 2 ? window.subjectWindow->pushButtonChoice2
                       : window.subjectWindow->pushButtonChoice3)
            ->click();
    else
        window.updateMainwindow(response);
    if (afterResponse)
        afterResponse();
}

bool RunHarness::closeParticipantWindow(MainWindow &window)
{
    if (!window.subjectWindow || !window.subjectWindow->isVisible())
        return true;
    ModalCatcher catcher;
    catcher.arm(QMessageBox::Yes);
    window.subjectWindow->close();
    return waitUntil([&] { return catcher.boxes.size() == 1; }, 5000) &&
           !window.subjectWindow->isVisible();
}

bool RunHarness::waitUntil(const std::function<bool()> &done, int timeoutMs)
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

MessageLog::MessageLog()
{
    current = this;
    previous = qInstallMessageHandler(&MessageLog::handle);
}

MessageLog::~MessageLog()
{
    qInstallMessageHandler(previous);
    current = nullptr;
}

void MessageLog::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (current && type == QtWarningMsg)
        current->warnings.append(text);
    if (current && type == QtDebugMsg)
        current->debugLines.append(text);
    if (current && current->previous)
        current->previous(type, context, text);
}
