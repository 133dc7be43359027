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

QStringList sheets(const SubjectWindow &w)
{
    QStringList list;
    for (QPushButton *b : numbered(w))
        list << b->styleSheet();
    return list;
}

void click(QPushButton *button)
{
    QTest::mouseClick(button, Qt::LeftButton);
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
    void construction()
    {
        Run run;
        SubjectWindow &w = *run.window;
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QCOMPARE(w.windowTitle(), QString("Quorvan Lab | Veltrane (v062) | Subject Window"));
        QVERIFY(w.isWindow());
        QCOMPARE(w.geometry(), windowGeometry(QGuiApplication::primaryScreen()->availableSize(),
                                              true, 0.55, 0.3));
        for (QPushButton *b : numbered(w))
            QVERIFY(!b->isVisible());
        QVERIFY(w.pushButtonIAmReady->isVisible());
        QVERIFY(!w.pushButtonDone->isVisible());
        QVERIFY(!w.labelResult->isVisible());
        QCOMPARE(w.pushButtonIAmReady->text(), QString("I am ready"));
        QCOMPARE(w.pushButtonChoice3->text(), QString("3"));
        QCOMPARE(w.labelResult->textInteractionFlags(), Qt::TextSelectableByMouse);
        QCOMPARE(w.pushButtonChoice1->sizePolicy().verticalPolicy(), QSizePolicy::Expanding);
    }

    // Qt hands a parent's change to disabled on to its child windows; the
    // participant window must take the ready click anyway, and must not be
    // enabled by its parent while it waits for the sounds.
    void enabledStateIsItsOwn()
    {
        Run run;
        SubjectWindow &w = *run.window;
        QMainWindow ordinaryChild(&run.parent);
        ordinaryChild.show();
        run.parent.setEnabled(true);
        run.parent.setEnabled(false);
        QVERIFY(!ordinaryChild.isEnabled());

        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QVERIFY(w.isEnabled());
        QSignalSpy responded(&w, SIGNAL(subjectResponded(int)));
        click(w.pushButtonIAmReady);
        QCOMPARE(responded.count(), 1);
        QCOMPARE(responded.at(0).at(0).toInt(), 0);

        // Hidden and inside a disabled window, the button cannot send again.
        click(w.pushButtonIAmReady);
        w.pushButtonIAmReady->click();
        QCOMPARE(responded.count(), 1);
        QVERIFY(!w.pushButtonIAmReady->isVisible());
        QVERIFY(!w.isEnabled());
        for (QPushButton *b : numbered(w)) {
            QVERIFY(b->isVisible());
            QVERIFY(!b->isEnabled());
        }

        run.parent.setEnabled(true);
        QVERIFY(!w.isEnabled());
        run.parent.setEnabled(false);
        w.updateSubjectWindow(-1);
        QVERIFY(w.isEnabled());
        run.parent.setEnabled(true);
        run.parent.setEnabled(false);
        QVERIFY(w.isEnabled());
        click(w.pushButtonChoice3);
        QCOMPARE(responded.count(), 2);
        QCOMPARE(responded.at(1).at(0).toInt(), 3);
    }

    void wholeRun()
    {
        Run run;
        SubjectWindow &w = *run.window;
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QSignalSpy responded(&w, SIGNAL(subjectResponded(int)));
        QSignalSpy closed(&w, SIGNAL(subjectWindowClosed()));
        click(w.pushButtonIAmReady);

        for (int choice : {2, 3}) {
            for (int index = 1; index <= 4; ++index) {
                w.updateSubjectWindow(index);
                QVERIFY(!w.isEnabled());
                for (QPushButton *b : numbered(w))
                    QVERIFY(!b->isEnabled());
                click(w.pushButtonChoice2);
                click(w.pushButtonChoice3);
            }
            QCOMPARE(responded.count(), choice - 1);

            w.updateSubjectWindow(-1);
            QVERIFY(w.isEnabled());
            QVERIFY(!w.pushButtonChoice1->isEnabled());
            QVERIFY(w.pushButtonChoice2->isEnabled());
            QVERIFY(w.pushButtonChoice3->isEnabled());
            QVERIFY(!w.pushButtonChoice4->isEnabled());
            click(w.pushButtonChoice1);
            click(w.pushButtonChoice4);
            QCOMPARE(responded.count(), choice - 1);

            click(choice == 2 ? w.pushButtonChoice2 : w.pushButtonChoice3);
            QVERIFY(!w.isEnabled());
            click(w.pushButtonChoice2);
            click(w.pushButtonChoice3);
            QCOMPARE(responded.count(), choice);
            QCOMPARE(responded.last().at(0).toInt(), choice);
        }
        QCOMPARE(responded.first().at(0).toInt(), 0);

        w.finishExperiment(0.2, 600, 1, 1000);
        QVERIFY(w.isEnabled());
        for (QPushButton *b : numbered(w))
            QVERIFY(!b->isVisible());
        QVERIFY(w.labelResult->isVisible());
        QVERIFY(w.pushButtonDone->isVisible());
        QVERIFY(!w.pushButtonIAmReady->isVisible());

        ModalCatcher catcher;
        for (auto answer : {QMessageBox::No, QMessageBox::Cancel}) {
            catcher.arm(answer);
            click(w.pushButtonDone);
            catcher.verifyShown();
            QVERIFY(w.isVisible());
            QCOMPARE(closed.count(), 0);
        }
        catcher.arm(QMessageBox::Yes);
        click(w.pushButtonDone);
        catcher.verifyShown();
        QCOMPARE(closed.count(), 1);
        QVERIFY(!w.isVisible());
        QCOMPARE(responded.count(), 3);

        QCOMPARE(catcher.boxes.size(), 3);
        for (const ModalCatcher::Box &box : catcher.boxes) {
            QCOMPARE(box.title, QString("Confirmation MessageBox"));
            QCOMPARE(box.text, QString("Do you want to close this window?\n"));
        }
    }

    void frameCloseAsksToo()
    {
        Run run;
        SubjectWindow &w = *run.window;
        QSignalSpy closed(&w, SIGNAL(subjectWindowClosed()));
        ModalCatcher catcher;
        catcher.arm(QMessageBox::Cancel);
        QVERIFY(!w.close());
        catcher.verifyShown();
        QVERIFY(w.isVisible());
        catcher.arm(QMessageBox::Yes);
        QVERIFY(w.close());
        catcher.verifyShown();
        QCOMPARE(closed.count(), 1);
        QVERIFY(!w.isVisible());
        QVERIFY(w.parent() == &run.parent); // hidden, not destroyed
    }

    void lighting_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QStringList>("expected");
        // Starting from a window that has been through one whole trial.
        const QStringList before{playedOuter, readyToChoose, readyToChoose, playedOuter};
        QTest::newRow("1") << 1 << QStringList{playing, readyToChoose, readyToChoose, playedOuter};
        QTest::newRow("2") << 2 << QStringList{playedOuter, playing, readyToChoose, playedOuter};
        QTest::newRow("3") << 3 << QStringList{playedOuter, playedChoice, playing, playedOuter};
        QTest::newRow("4") << 4 << QStringList{playedOuter, readyToChoose, playedChoice, playing};
        QTest::newRow("-1") << -1 << before;
        QTest::newRow("0 changes nothing") << 0 << before;
        QTest::newRow("5 changes nothing") << 5 << before;
    }

    void lighting()
    {
        QFETCH(int, index);
        QFETCH(QStringList, expected);
        Run run;
        SubjectWindow &w = *run.window;
        QCOMPARE(sheets(w), (QStringList{QString(), QString(), QString(), QString()}));
        w.on_pushButtonIAmReady_clicked();
        for (int i : {1, 2, 3, 4, -1})
            w.updateSubjectWindow(i);
        QCOMPARE(sheets(w), (QStringList{playedOuter, readyToChoose, readyToChoose, playedOuter}));

        w.updateSubjectWindow(index);
        QCOMPARE(sheets(w), expected);
        QCOMPARE(w.isEnabled(), index == -1);
        QCOMPARE(w.pushButtonChoice2->isEnabled(), index == -1);
        QVERIFY(!w.pushButtonChoice1->isEnabled());
        QVERIFY(!w.pushButtonChoice4->isEnabled());
    }

    void resultText_data()
    {
        QTest::addColumn<double>("threshold");
        QTest::addColumn<double>("reactionTime");
        QTest::addColumn<int>("mainParameter");
        QTest::addColumn<double>("cfStd");
        QTest::addColumn<QString>("text");
        QTest::newRow("frequency") << 0.012345678 << 523.25 << 0 << 1000.0
                                   << "Frequency Difference = 12.3457 Hz,   Reaction Time = "
                                      "523.25 ms";
        QTest::newRow("modulation") << 0.2 << 600.0 << 1 << 1000.0
                                    << "Modulation Threshold = 20 %,   Reaction Time = 600 ms";
        QTest::newRow("six digits") << 0.123456789 << 1234567.0 << 1 << 1000.0
                                    << "Modulation Threshold = 12.3457 %,   Reaction Time = "
                                       "1.23457e+06 ms";
        QTest::newRow("other parameter") << 0.2 << 600.0 << 2 << 1000.0 << QString();
    }

    void resultText()
    {
        QFETCH(double, threshold);
        QFETCH(double, reactionTime);
        QFETCH(int, mainParameter);
        QFETCH(double, cfStd);
        QFETCH(QString, text);
        Run run;
        run.window->finishExperiment(threshold, reactionTime, mainParameter, cfStd);
        QCOMPARE(run.window->labelResult->text(), text);
        QVERIFY(run.window->labelResult->isVisible());
    }
};

QTEST_MAIN(TestSubjectWindow)
#include "tst_subjectwindow.moc"
