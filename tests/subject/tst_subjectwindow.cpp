// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/windowgeometry.h"
#include "subject/subjectwindow.h"
#include "support/gridrows.h"
#include "support/modalcatcher.h"

#include <QtTest>
#include <QtWidgets>

class TestSubjectWindow : public QObject
{
    Q_OBJECT

    // The numbered buttons' looks (P playing in green, O played outer sound in
    // grey, C played choice sound in light grey, R ready to choose with a
    // hover look, - none); 1 or 0 for the window and each numbered button
    // taking a click; which of the numbered buttons, "I am ready", Done and
    // the result line are visible.
    static QString state(const SubjectWindow &w)
    {
        QString looks, enabled = QString::number(w.isEnabled()), visible;
        for (QPushButton *b : {w.pushButtonChoice1, w.pushButtonChoice2, w.pushButtonChoice3,
                               w.pushButtonChoice4, w.pushButtonIAmReady, w.pushButtonDone}) {
            const QString sheet = b->styleSheet();
            looks += sheet.contains("rgb(0, 255, 0)")        ? 'P'
                     : sheet.contains("rgb(190, 190, 190)")  ? 'O'
                     : sheet.contains("rgb(240, 240, 240)")  ? 'C'
                     : sheet.startsWith("QPushButton:hover") ? 'R'
                                                             : '-';
            enabled += QString::number(b->isEnabled());
            visible += QString::number(b->isVisible());
        }
        return looks.left(4) + " " + enabled.left(5) + " " + visible +
               QString::number(w.labelResult->isVisible());
    }

private slots:
    // Ready, two trials answered 2 and 3, the result (the other main
    // parameter's is the whole run's) and the close, in a
    // window whose parent is disabled as the experimenter window is during a
    // run: the parent's changes of state must not reach the window.
    void wholeRun()
    {
        QMainWindow parent;
        parent.setEnabled(false);
        auto *w = new SubjectWindow(&parent);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        QCOMPARE(w->windowTitle(), QString("Quorvan Lab | Veltrane (v062) | Subject Window"));
        QCOMPARE(w->geometry(), windowGeometry(QGuiApplication::primaryScreen()->availableSize(),
                                               true, 0.55, 0.3));
        QCOMPARE(gridRows(w->gridLayout),
                 QStringList({"1 2 3 4", "QLabel:4", "- I am ready:2 -", "- Done:2 -"}));
        QCOMPARE(state(*w), QString("---- 11111 0000100"));
        QSignalSpy responded(w, SIGNAL(subjectResponded(int)));
        QSignalSpy closed(w, SIGNAL(subjectWindowClosed()));
        QTest::mouseClick(w->pushButtonIAmReady, Qt::LeftButton);
        QCOMPARE(state(*w), QString("---- 00000 1111000"));
        // The numbered buttons take the height left over; the result can be
        // selected to copy it.
        QVERIFY2(
            w->pushButtonChoice1->height() > w->height() / 3,
            qPrintable(QString("%1 of %2").arg(w->pushButtonChoice1->height()).arg(w->height())));
        QVERIFY(w->labelResult->textInteractionFlags() & Qt::TextSelectableByMouse);

        const QStringList trials[2] = {{"P---", "OP--", "OCP-", "OCCP", "ORRO"},
                                       {"PRRO", "OPRO", "OCPO", "OCCP", "ORRO"}};
        for (int trial = 0; trial < 2; ++trial) {
            for (int i = 0; i < 5; ++i) {
                w->updateSubjectWindow(i < 4 ? i + 1 : -1);
                parent.setEnabled(true);
                parent.setEnabled(false);
                QCOMPARE(state(*w), trials[trial][i] + (i < 4 ? " 00000" : " 10110") + " 1111000");
            }
            // Any other index only disables; -1 enables the choice again.
            w->updateSubjectWindow(trial == 0 ? 0 : 5);
            QCOMPARE(state(*w), QString("ORRO 00000 1111000"));
            w->updateSubjectWindow(-1);
            QTest::mouseClick(trial == 0 ? w->pushButtonChoice2 : w->pushButtonChoice3,
                              Qt::LeftButton);
            QVERIFY(!w->isEnabled());
        }
        QVERIFY(responded == QList<QVariantList>({{0}, {2}, {3}}));

        w->finishExperiment(0.012345678, 523.25, 0, 1000);
        QCOMPARE(w->labelResult->text(),
                 QString("Frequency Difference = 12.3457 Hz,   Reaction Time = 523.25 ms"));
        QCOMPARE(state(*w), QString("ORRO 10110 0000011"));

        // Done asks first: No keeps the window, Yes hides it and says so once.
        ModalCatcher catcher;
        for (auto answer : {QMessageBox::No, QMessageBox::Yes}) {
            catcher.arm(answer);
            QTest::mouseClick(w->pushButtonDone, Qt::LeftButton);
            catcher.verifyShown();
            QCOMPARE(catcher.boxes.last(),
                     QString("Confirmation MessageBox: Do you want to close this window?\n"));
            QCOMPARE(w->isVisible(), answer == QMessageBox::No);
            QCOMPARE(closed.size(), answer == QMessageBox::No ? 0 : 1);
        }
        // Closed, it stays connected but follows no later sound or result.
        const QString closedState = state(*w) + w->labelResult->text();
        w->updateSubjectWindow(1);
        w->finishExperiment(0.5, 100, 1, 1000);
        QCOMPARE(state(*w) + w->labelResult->text(), closedState);
    }
};

QTEST_MAIN(TestSubjectWindow)
#include "tst_subjectwindow.moc"
