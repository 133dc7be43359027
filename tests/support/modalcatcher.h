// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QtTest>
#include <QtWidgets>

// Closes the modal boxes a test expects. arm() polls the event loop every few
// milliseconds for the next active modal widget, records its title and text
// and presses the named button (or rejects a dialog that has no such button).
// verifyShown() fails the test when an expected box never came.
//
// answerSaveDialogs() answers save dialogs like an experimenter who tries
// several names: each time a save dialog shows (a new one, or the same one
// still open because the name typed was a folder), the next name is typed and
// Save pressed; an empty name, or none left, cancels it. From then on, while
// the catcher lives, message boxes that no arm() expects are recorded in
// `boxes` and closed with OK.
class ModalCatcher
{
public:
    void arm(QMessageBox::StandardButton button = QMessageBox::Ok, int count = 1)
    {
        pending += count;
        answer = button;
        poll();
    }
    void answerSaveDialogs(const QStringList &names)
    {
        saveNames = names;
        saving = true;
        poll();
    }
    // Callers check QTest::currentTestFailed() afterwards.
    void verifyShown(int timeoutMs = 5000) { QTRY_VERIFY_WITH_TIMEOUT(pending == 0, timeoutMs); }

    QStringList boxes;       // what each box said, as "title: text"
    QStringList saveDialogs; // the file each save dialog proposed

private:
    void poll()
    {
        if (scheduled || (pending == 0 && !saving))
            return;
        scheduled = true;
        QTimer::singleShot(10, &lifetime, [this] {
            scheduled = false;
            QWidget *modal = QApplication::activeModalWidget();
            // The next poll comes first: a click below may run the rest of a
            // save, with further boxes, in nested event loops.
            poll();
            auto *fileDialog = qobject_cast<QFileDialog *>(modal);
            auto *box = qobject_cast<QMessageBox *>(modal);
            if (fileDialog && saving) {
                // The name goes into the dialog's name box and is accepted at
                // once: the box gets no chance to be refilled from the file list.
                const QString typed = saveNames.value(saveDialogs.size());
                auto *edit = fileDialog->findChild<QLineEdit *>("fileNameEdit");
                if (!fileDialog->isVisible())
                    return;
                saveDialogs.append(fileDialog->selectedFiles().value(0));
                if (typed.isEmpty() || !edit)
                    return fileDialog->reject();
                edit->setText(typed);
                QMetaObject::invokeMethod(fileDialog, "accept"); // a protected slot
            } else if (modal && (pending > 0 || (box && saving))) {
                boxes.append(modal->windowTitle() + ": " + (box ? box->text() : QString()));
                QAbstractButton *button =
                    box ? box->button(pending ? answer : QMessageBox::Ok) : nullptr;
                pending = qMax(0, pending - 1);
                if (button)
                    button->click();
                else if (auto *dialog = qobject_cast<QDialog *>(modal))
                    dialog->reject();
            }
        });
    }

    QObject lifetime; // a catcher that goes away takes its pending polls with it
    bool scheduled = false;
    int pending = 0;
    QMessageBox::StandardButton answer = QMessageBox::Ok;
    bool saving = false;
    QStringList saveNames;
};
