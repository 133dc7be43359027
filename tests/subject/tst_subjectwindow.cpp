#include "app/windowgeometry.h"
#include "subject/subjectwindow.h"
#include "support/modalcatcher.h"

#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QtTest>

namespace
{
const QString playing =
    " QPushButton {background-color: rgb(0, 255, 0); border: 1px solid rgb(180, 180, 180);} ";
const QString playedOuter = " QPushButton {background-color: rgb(190, 190, 190); border: none;} ";
const QString playedChoice =
    " QPushButton {background-color: rgb(240, 240, 240); border: 1px solid rgb(180, 180, 180);} ";
const QString readyToChoose =
    "QPushButton:hover {background-color: rgb(0, 255, 255); border: 1px solid blue;}";

QList<QPushButton *> numbered(const SubjectWindow &w)
{
    return {w.pushButtonChoice1, w.pushButtonChoice2, w.pushButtonChoice3, w.pushButtonChoice4};
}

// Which of the four numbered buttons, "I am ready", the result line and Done
// are visible, as a string of 1s and 0s.
QString visible(const SubjectWindow &w)
{
    QString shown;
    for (QWidget *widget : QList<QWidget *>(
             {w.pushButtonChoice1, w.pushButtonChoice2, w.pushButtonChoice3, w.pushButtonChoice4,
              w.pushButtonIAmReady, w.labelResult, w.pushButtonDone}))
        shown += widget->isVisible() ? '1' : '0';
    return shown;
}

// The same for the enabled state of the window and the numbered buttons.
QString enabled(const SubjectWindow &w)
{
    QString state = w.isEnabled() ? "1" : "0";
    for (QPushButton *b : numbered(w))
        state += b->isEnabled() ? '1' : '0';
    return state;
}

// A shown participant window whose parent, like the experimenter window
// during a run, was disabled before the participant window was made.
struct Run {
    QMainWindow parent;
    SubjectWindow *window;
    Run()
    {
        parent.setEnabled(false);
        window = new SubjectWindow(&parent);
        window->show();
    }
};
} // namespace

class TestSubjectWindow : public QObject
{
    Q_OBJECT

private slots:
    // Ready → Listening → Choosing → Result → Closed, twice through a trial
    // (answers 2 and 3): one ready code, one answer per trial, and clicks on
    // buttons that should not take them send nothing. The parent is disabled,
    // as the experimenter window is during a run; Qt hands a parent's change
    // of enabled state on to its child windows, and the participant window
    // keeps its own state anyway.
    void wholeRun()
    {
        Run run;
        SubjectWindow &w = *run.window;
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QCOMPARE(w.windowTitle(), QString("Quorvan Lab | Veltrane (v062) | Subject Window"));
        QCOMPARE(w.geometry(), windowGeometry(QGuiApplication::primaryScreen()->availableSize(),
                                              true, 0.55, 0.3));
        QCOMPARE(visible(w), QString("0000100"));
        QSignalSpy responded(&w, SIGNAL(subjectResponded(int)));
        QSignalSpy closed(&w, SIGNAL(subjectWindowClosed()));
        QTest::mouseClick(w.pushButtonIAmReady, Qt::LeftButton);
        QCOMPARE(visible(w), QString("1111000"));

        for (int choice : {2, 3}) {
            for (int index = 1; index <= 4; ++index) {
                w.updateSubjectWindow(index);
                run.parent.setEnabled(true);
                QCOMPARE(enabled(w), QString("00000"));
                run.parent.setEnabled(false);
                for (QPushButton *b :
                     {w.pushButtonIAmReady, w.pushButtonChoice2, w.pushButtonChoice3})
                    b->click();
            }
            w.updateSubjectWindow(-1);
            run.parent.setEnabled(true);
            run.parent.setEnabled(false);
            QCOMPARE(enabled(w), QString("10110"));
            QTest::mouseClick(w.pushButtonChoice1, Qt::LeftButton);
            QTest::mouseClick(w.pushButtonChoice4, Qt::LeftButton);
            QTest::mouseClick(numbered(w)[choice - 1], Qt::LeftButton);
            QVERIFY(!w.isEnabled());
            w.pushButtonChoice2->click();
            w.pushButtonChoice3->click();
        }
        QCOMPARE(responded.size(), 3);
        QCOMPARE(QVector<int>(
                     {responded[0][0].toInt(), responded[1][0].toInt(), responded[2][0].toInt()}),
                 QVector<int>({0, 2, 3}));

        w.finishExperiment(0.2, 600, 1, 1000);
        QVERIFY(w.isEnabled());
        QCOMPARE(visible(w), QString("0000011"));

        // Done, or closing by the frame, asks first: No and Cancel keep the
        // window; Yes hides it (it is not destroyed) and says so once.
        ModalCatcher catcher;
        catcher.arm(QMessageBox::No);
        QTest::mouseClick(w.pushButtonDone, Qt::LeftButton);
        catcher.verifyShown();
        catcher.arm(QMessageBox::Cancel);
        QVERIFY(!w.close());
        catcher.verifyShown();
        QVERIFY(w.isVisible());
        QCOMPARE(closed.size(), 0);
        catcher.arm(QMessageBox::Yes);
        QTest::mouseClick(w.pushButtonDone, Qt::LeftButton);
        catcher.verifyShown();
        QCOMPARE(closed.size(), 1);
        QVERIFY(!w.isVisible() && w.parent() == &run.parent);
        QCOMPARE(responded.size(), 3);
        QCOMPARE(catcher.boxes.size(), 3);
        for (const ModalCatcher::Box &box : catcher.boxes)
            QCOMPARE(box.title + ": " + box.text,
                     QString("Confirmation MessageBox: Do you want to close this window?\n"));
    }

    // Lighting from a window that has been through one whole trial; 0 and 5
    // light nothing and only disable.
    void lighting_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QStringList>("expected");
        const QStringList before{playedOuter, readyToChoose, readyToChoose, playedOuter};
        QTest::newRow("1") << 1 << QStringList{playing, readyToChoose, readyToChoose, playedOuter};
        QTest::newRow("2") << 2 << QStringList{playedOuter, playing, readyToChoose, playedOuter};
        QTest::newRow("3") << 3 << QStringList{playedOuter, playedChoice, playing, playedOuter};
        QTest::newRow("4") << 4 << QStringList{playedOuter, readyToChoose, playedChoice, playing};
        QTest::newRow("-1") << -1 << before;
        QTest::newRow("0") << 0 << before;
        QTest::newRow("5") << 5 << before;
    }

    void lighting()
    {
        QFETCH(int, index);
        QFETCH(QStringList, expected);
        Run run;
        SubjectWindow &w = *run.window;
        w.on_pushButtonIAmReady_clicked();
        for (int i : {1, 2, 3, 4, -1})
            w.updateSubjectWindow(i);
        w.updateSubjectWindow(index);
        QStringList sheets;
        for (QPushButton *b : numbered(w))
            sheets << b->styleSheet();
        QCOMPARE(sheets, expected);
        QCOMPARE(enabled(w), index == -1 ? QString("10110") : QString("00000"));
    }

    void resultText_data()
    {
        QTest::addColumn<double>("threshold");
        QTest::addColumn<double>("reactionTime");
        QTest::addColumn<int>("mainParameter");
        QTest::addColumn<QString>("text");
        QTest::newRow("frequency")
            << 0.012345678 << 523.25 << 0
            << "Frequency Difference = 12.3457 Hz,   Reaction Time = 523.25 ms";
        QTest::newRow("modulation")
            << 0.2 << 600.0 << 1 << "Modulation Threshold = 20 %,   Reaction Time = 600 ms";
        QTest::newRow("six digits")
            << 0.123456789 << 1234567.0 << 1
            << "Modulation Threshold = 12.3457 %,   Reaction Time = 1.23457e+06 ms";
        QTest::newRow("other parameter") << 0.2 << 600.0 << 2 << QString();
    }

    void resultText()
    {
        QFETCH(double, threshold);
        QFETCH(double, reactionTime);
        QFETCH(int, mainParameter);
        QFETCH(QString, text);
        Run run;
        run.window->finishExperiment(threshold, reactionTime, mainParameter, 1000.0);
        QCOMPARE(run.window->labelResult->text(), text);
    }
};

QTEST_MAIN(TestSubjectWindow)
#include "tst_subjectwindow.moc"
