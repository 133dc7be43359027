// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QMainWindow>

class QCloseEvent;
class QGridLayout;
class QLabel;
class QPushButton;

// The participant's window: four numbered buttons that light up with the
// sounds of a trial, "I am ready", the choice of sound 2 or 3, and the result.
// It knows nothing of the procedure: clicks leave through subjectResponded,
// and its look changes only through its slots. Members are public so that
// tests can inspect them; only the window itself changes them.
class SubjectWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit SubjectWindow(QWidget *parent);
    ~SubjectWindow() override;

signals:
    void subjectResponded(int response);
    void subjectWindowClosed();

public slots:
    void on_pushButtonIAmReady_clicked();
    void updateSubjectWindow(int index);
    void on_pushButtonChoice2_clicked();
    void on_pushButtonChoice3_clicked();
    void finishExperiment(qreal threshold, qreal reactionTime, qint32 mainParameter, qreal cfStd);

protected:
    void closeEvent(QCloseEvent *event) override;
    // Keeps the window's enabled state its own (see the definition).
    void changeEvent(QEvent *event) override;

public:
    void disableIntervalButtons();
    void setWindowGeometry(bool centre, double widthFraction, double heightFraction);
    void layOutWindow();

    QPushButton *pushButtonChoice1;
    QPushButton *pushButtonChoice2;
    QPushButton *pushButtonChoice3;
    QPushButton *pushButtonChoice4;
    QPushButton *pushButtonIAmReady;
    QPushButton *pushButtonDone;
    QLabel *labelResult;
    QGridLayout *gridLayout;
    QWidget *centralWidget;
    bool centreWindow;
    double widthFraction;
    double heightFraction;
    // Set once the participant has confirmed closing. A closed window is
    // never shown again but stays connected to the experimenter window, so
    // its slots return at once instead of restyling hidden buttons for every
    // sound of every later run.
    bool closed = false;
};
