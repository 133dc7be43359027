#include "subjectwindow.h"

SubjectWindow::SubjectWindow(QWidget *parent) : QMainWindow(parent) {}
SubjectWindow::~SubjectWindow() = default;
void SubjectWindow::on_pushButtonIAmReady_clicked() {}
void SubjectWindow::updateSubjectWindow(int) {}
void SubjectWindow::on_pushButtonChoice2_clicked() {}
void SubjectWindow::on_pushButtonChoice3_clicked() {}
void SubjectWindow::finishExperiment(qreal, qreal, qint32, qreal) {}
