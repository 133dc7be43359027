#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

// Closes the modal boxes a test expects. arm() polls the event loop every few
// milliseconds for the next active modal widget, records its title and text
// and presses the named button (or rejects a dialog that has no such button).
// verifyShown() fails the test when an expected box never came.
//
// answerSaveDialogs() answers save dialogs like an experimenter who tries
// several names: each time a save dialog shows (a new one, or the same one
// still open because the name typed was a folder), the next name is typed and
// Save pressed; an empty name, or none left, cancels it. From then on, while
// the catcher lives, every message box that no arm() expects is recorded in
// `boxes` and closed with OK.
class ModalCatcher
{
public:
    struct Box {
        QString title;
        QString text;
    };
    struct SaveDialog {
        QString title;
        QString proposed;  // the file the dialog showed
        QString directory; // the folder it showed
        QStringList filters;
        QString selectedFilter;
        QFileDialog::Options options;
        QString typed;
    };

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

    QList<Box> boxes;
    QList<SaveDialog> saveDialogs;

private:
    void poll()
    {
        if (scheduled || (pending == 0 && !saving))
            return;
        scheduled = true;
        QTimer::singleShot(pollMs, &lifetime, [this] {
            scheduled = false;
            if (pending == 0 && !saving)
                return;
            QWidget *modal = QApplication::activeModalWidget();
            // The next poll is scheduled first: the click below may run the
            // rest of a save, with further boxes, in nested event loops.
            poll();
            auto *fileDialog = qobject_cast<QFileDialog *>(modal);
            if (fileDialog && saving) {
                if (fileDialog->isVisible())
                    save(fileDialog);
            } else if (auto *dialog = qobject_cast<QDialog *>(modal)) {
                auto *messageBox = qobject_cast<QMessageBox *>(modal);
                boxes.append({dialog->windowTitle(), messageBox ? messageBox->text() : QString()});
                QAbstractButton *b =
                    messageBox ? messageBox->button(pending ? answer : QMessageBox::Ok) : nullptr;
                pending = qMax(0, pending - 1);
                if (b)
                    b->click();
                else
                    dialog->reject();
            }
        });
    }

    void save(QFileDialog *dialog)
    {
        auto *edit = dialog->findChild<QLineEdit *>("fileNameEdit");
        auto *buttons = dialog->findChild<QDialogButtonBox *>("buttonBox");
        // While its name box has no focus, the dialog writes the file selected
        // in its list into the box whenever the list changes, and the list is
        // filled in the background: a typed name would be overwritten. So the
        // box gets the focus first, and the name is typed at a later poll.
        if (edit && !edit->hasFocus() && ++focusTries < maxFocusTries) {
            dialog->activateWindow();
            edit->setFocus(Qt::OtherFocusReason);
            return;
        }
        focusTries = 0;
        const QString typed = saveNames.value(saveDialogs.size());
        saveDialogs.append({dialog->windowTitle(), dialog->selectedFiles().value(0),
                            dialog->directory().absolutePath(), dialog->nameFilters(),
                            dialog->selectedNameFilter(), dialog->options(), typed});
        if (typed.isEmpty() || !edit || !buttons) {
            dialog->reject();
            return;
        }
        edit->clear();
        QTest::keyClicks(edit, typed);
        buttons->button(QDialogButtonBox::Save)->click();
    }

    static constexpr int pollMs = 10;
    static constexpr int maxFocusTries = 100;
    // Context of the polling timers: a catcher that goes away (say, after a
    // failed test) takes its pending polls with it.
    QObject lifetime;
    bool scheduled = false;
    int pending = 0;
    QMessageBox::StandardButton answer = QMessageBox::Ok;
    bool saving = false;
    QStringList saveNames;
    int focusTries = 0;
};
