#pragma once

#include <QMainWindow>

class QCloseEvent;
class QGridLayout;
class QLabel;
class QPushButton;

// The participant's window: four numbered buttons that light up with the
// sounds of a trial, "I am ready", the choice of sound 2 or 3, and the result.
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
};
