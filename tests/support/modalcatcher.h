#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QMessageBox>
#include <QTest>
#include <QTimer>

// Closes the modal boxes a test expects. arm() polls the event loop every few milliseconds for
// the next active modal widget, records its title and text and presses the
// named button (or rejects a dialog that has no such button). verifyShown()
// fails the test when an expected box never came.
class ModalCatcher
{
public:
    struct Box {
        QString title;
        QString text;
    };

    void arm(QMessageBox::StandardButton button = QMessageBox::Ok, int count = 1)
    {
        pending += count;
        answer = button;
        poll();
    }

    // Callers check QTest::currentTestFailed() afterwards.
    void verifyShown(int timeoutMs = 5000) { QTRY_VERIFY_WITH_TIMEOUT(pending == 0, timeoutMs); }

    QList<Box> boxes;

private:
    void poll()
    {
        QTimer::singleShot(pollMs, &lifetime, [this] {
            if (pending == 0)
                return;
            QWidget *modal = QApplication::activeModalWidget();
            if (!modal) {
                poll();
                return;
            }
            Box box{modal->windowTitle(), QString()};
            if (auto *messageBox = qobject_cast<QMessageBox *>(modal)) {
                box.text = messageBox->text();
                boxes.append(box);
                --pending;
                QAbstractButton *b = messageBox->button(answer);
                if (b)
                    b->click();
                else
                    messageBox->reject();
            } else if (auto *dialog = qobject_cast<QDialog *>(modal)) {
                boxes.append(box);
                --pending;
                dialog->reject();
            }
            if (pending > 0)
                poll();
        });
    }

    static constexpr int pollMs = 10;
    // Context of the polling timers: a catcher that goes away (say, after a
    // failed test) takes its pending polls with it.
    QObject lifetime;
    int pending = 0;
    QMessageBox::StandardButton answer = QMessageBox::Ok;
};
