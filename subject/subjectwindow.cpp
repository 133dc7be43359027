// SPDX-License-Identifier: GPL-3.0-or-later
#include "subjectwindow.h"

#include "../app/windowgeometry.h"

#include <QCloseEvent>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>

namespace
{
// Looks of the numbered buttons: the sound now playing, a played standard
// (sounds 1 and 4), a played candidate (sounds 2 and 3), and a candidate
// waiting for the participant's choice.
const char *const stylePlaying =
    " QPushButton {background-color: rgb(0, 255, 0); border: 1px solid rgb(180, 180, 180);} ";
const char *const stylePlayedOuter =
    " QPushButton {background-color: rgb(190, 190, 190); border: none;} ";
const char *const stylePlayedChoice =
    " QPushButton {background-color: rgb(240, 240, 240); border: 1px solid rgb(180, 180, 180);} ";
const char *const styleReadyToChoose =
    "QPushButton:hover {background-color: rgb(0, 255, 255); border: 1px solid blue;}";
} // namespace

SubjectWindow::SubjectWindow(QWidget *parent)
    : QMainWindow(parent, Qt::WindowFlags()), pushButtonChoice1(new QPushButton("1")),
      pushButtonChoice2(new QPushButton("2")), pushButtonChoice3(new QPushButton("3")),
      pushButtonChoice4(new QPushButton("4")), pushButtonIAmReady(new QPushButton("I am ready")),
      pushButtonDone(new QPushButton("Done")), labelResult(new QLabel("Threshold = ")),
      gridLayout(new QGridLayout()), centralWidget(new QWidget()), centreWindow(true),
      widthFraction(0.55), heightFraction(0.3)
{
    connect(pushButtonIAmReady, SIGNAL(clicked(bool)), this, SLOT(on_pushButtonIAmReady_clicked()));
    connect(pushButtonDone, SIGNAL(clicked(bool)), this, SLOT(close()));
    connect(pushButtonChoice2, SIGNAL(clicked(bool)), this, SLOT(on_pushButtonChoice2_clicked()));
    connect(pushButtonChoice3, SIGNAL(clicked(bool)), this, SLOT(on_pushButtonChoice3_clicked()));

    layOutWindow();

    // The experimenter window, the parent, stays disabled for the whole run,
    // yet "I am ready" must take the click from the moment this window is
    // shown. Qt lets a window be enabled explicitly whatever its parent's
    // state; changeEvent keeps it that way afterwards.
    setEnabled(true);
}

SubjectWindow::~SubjectWindow()
{
    delete pushButtonChoice1;
    pushButtonChoice1 = nullptr;
    delete pushButtonChoice2;
    pushButtonChoice2 = nullptr;
    delete pushButtonChoice3;
    pushButtonChoice3 = nullptr;
    delete pushButtonChoice4;
    pushButtonChoice4 = nullptr;
    delete pushButtonIAmReady;
    pushButtonIAmReady = nullptr;
    delete pushButtonDone;
    pushButtonDone = nullptr;
    delete labelResult;
    labelResult = nullptr;
    delete gridLayout;
    gridLayout = nullptr;
    delete centralWidget;
    centralWidget = nullptr;
}

void SubjectWindow::setWindowGeometry(bool centre, double widthFraction, double heightFraction)
{
    // Without a screen there is nothing to measure; the window keeps the
    // toolkit's default geometry.
    if (QScreen *screen = QGuiApplication::primaryScreen())
        setGeometry(windowGeometry(screen->availableSize(), centre, widthFraction, heightFraction));
}

void SubjectWindow::layOutWindow()
{
    setWindowGeometry(centreWindow, widthFraction, heightFraction);
    setWindowTitle("Quorvan Lab | Veltrane (v062) | Subject Window");

    gridLayout->addWidget(pushButtonChoice1, 0, 0, 1, 1);
    gridLayout->addWidget(pushButtonChoice2, 0, 1, 1, 1);
    gridLayout->addWidget(pushButtonChoice3, 0, 2, 1, 1);
    gridLayout->addWidget(pushButtonChoice4, 0, 3, 1, 1);
    gridLayout->addWidget(labelResult, 1, 0, 1, 4);
    gridLayout->addWidget(pushButtonIAmReady, 2, 1, 1, 2);
    gridLayout->addWidget(pushButtonDone, 3, 1, 1, 2);
    centralWidget->setLayout(gridLayout);
    setCentralWidget(centralWidget);

    for (QPushButton *button :
         {pushButtonChoice1, pushButtonChoice2, pushButtonChoice3, pushButtonChoice4})
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    labelResult->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    labelResult->setAlignment(Qt::AlignHCenter);
    labelResult->setTextInteractionFlags(Qt::TextSelectableByMouse);

    for (QPushButton *button :
         {pushButtonChoice1, pushButtonChoice2, pushButtonChoice3, pushButtonChoice4})
        button->hide();
    pushButtonIAmReady->show();
    pushButtonDone->hide();
    labelResult->hide();
}

void SubjectWindow::disableIntervalButtons()
{
    for (QPushButton *button :
         {pushButtonChoice1, pushButtonChoice2, pushButtonChoice3, pushButtonChoice4})
        button->setEnabled(false);
}

void SubjectWindow::on_pushButtonIAmReady_clicked()
{
    setEnabled(false);
    disableIntervalButtons();
    for (QPushButton *button :
         {pushButtonChoice1, pushButtonChoice2, pushButtonChoice3, pushButtonChoice4})
        button->show();
    pushButtonIAmReady->hide();
    pushButtonDone->hide();
    emit subjectResponded(0);
}

void SubjectWindow::updateSubjectWindow(int index)
{
    if (closed)
        return;
    setEnabled(false);
    disableIntervalButtons();
    switch (index) {
    case 1:
        pushButtonChoice1->setStyleSheet(stylePlaying);
        break;
    case 2:
        pushButtonChoice1->setStyleSheet(stylePlayedOuter);
        pushButtonChoice2->setStyleSheet(stylePlaying);
        break;
    case 3:
        pushButtonChoice2->setStyleSheet(stylePlayedChoice);
        pushButtonChoice3->setStyleSheet(stylePlaying);
        break;
    case 4:
        pushButtonChoice3->setStyleSheet(stylePlayedChoice);
        pushButtonChoice4->setStyleSheet(stylePlaying);
        break;
    case -1:
        pushButtonChoice2->setStyleSheet(styleReadyToChoose);
        pushButtonChoice3->setStyleSheet(styleReadyToChoose);
        pushButtonChoice4->setStyleSheet(stylePlayedOuter);
        pushButtonChoice1->setEnabled(false);
        pushButtonChoice2->setEnabled(true);
        pushButtonChoice3->setEnabled(true);
        pushButtonChoice4->setEnabled(false);
        setEnabled(true);
        break;
    default:
        break;
    }
}

void SubjectWindow::on_pushButtonChoice2_clicked()
{
    setEnabled(false);
    emit subjectResponded(2);
}

void SubjectWindow::on_pushButtonChoice3_clicked()
{
    setEnabled(false);
    emit subjectResponded(3);
}

void SubjectWindow::finishExperiment(qreal threshold, qreal reactionTime, qint32 mainParameter,
                                     qreal cfStd)
{
    if (closed)
        return;
    for (QPushButton *button :
         {pushButtonChoice1, pushButtonChoice2, pushButtonChoice3, pushButtonChoice4})
        button->hide();
    QString text;
    if (mainParameter == 0)
        text = "Frequency Difference = " + QString::number(threshold * cfStd) +
               " Hz,   Reaction Time = " + QString::number(reactionTime) + " ms";
    else if (mainParameter == 1)
        text = "Modulation Threshold = " + QString::number(100 * threshold) +
               " %,   Reaction Time = " + QString::number(reactionTime) + " ms";
    labelResult->setText(text);
    labelResult->show();
    pushButtonDone->show();
    setEnabled(true);
}

// Qt passes a parent's change of enabled state on to its child windows unless
// they disabled themselves. Only this window's own slots decide whether the
// participant can click, so a disabled state that arrives from the parent
// (Qt::WA_ForceDisabled unset) is undone at once.
void SubjectWindow::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::EnabledChange && !isEnabled() &&
        !testAttribute(Qt::WA_ForceDisabled))
        setEnabled(true);
}

void SubjectWindow::closeEvent(QCloseEvent *event)
{
    const QMessageBox::StandardButton answer = QMessageBox::question(
        this, "Confirmation MessageBox", tr("Do you want to close this window?\n"),
        QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel, QMessageBox::Yes);
    if (answer == QMessageBox::Yes) {
        closed = true;
        emit subjectWindowClosed();
        event->accept();
    } else {
        event->ignore();
    }
}
