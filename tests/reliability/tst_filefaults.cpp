// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/mainwindow.h"
#include "support/modalcatcher.h"

#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace
{

const QString openWarning = "Warning: could not open file for writing \r\n";
const QString writeWarning = "Warning: The data were not completely saved to \r\n%1\r\nWriting to "
                             "the file failed (the disk may be full or gone). Choose another "
                             "file in the next dialog to keep them.";
const QString sidecarWarning = "Warning: The settings and result of the run could not be saved "
                               "to \r\n%1/run.json\r\nThe results file was saved.";
const QByteArray table = "modulation depth (%)\tstimulus position\tresponse position\tcorrectness\t"
                         "reaction time (ms)\r\n50.000000\t2\t2\t1\t812\r\n"
                         "39.716412\t3\t2\t0\t1034\r\n";
const QByteArray oldFile(5000, 'x');

} // namespace

class TestFileFaults : public QObject
{
    Q_OBJECT

private slots:
    // One save at the end of a run, with the names of each row typed into its
    // dialogs in turn ("" cancels; %1 is a folder holding an earlier results
    // file old.txt, a plain file "blocker", a folder "run.json", full.txt, a
    // link to a full device, and lock.txt, a link to a path under "blocker",
    // each with the sidecar (full.json, lock.json) of an earlier run):
    // the boxes shown, and the table written where it was saved, under a name
    // ending in ".txt", with its sidecar beside it, and nowhere else; no
    // sidecar stays beside a table that was not saved whole, and one beside a
    // table that could not be opened stays.
    void saveDialog_data()
    {
        QTest::addColumn<QStringList>("typed");
        QTest::addColumn<QStringList>("boxes");
        QTest::addColumn<QString>("savedAs");
        QTest::addColumn<QString>("files");
        QTest::newRow("missing folders created")
            << QStringList{"%1/new/deep/run.txt"} << QStringList() << "new/deep/run.txt"
            << "blocker full.json full.txt lock.json new/deep/run.json new/deep/run.txt old.txt";
        QTest::newRow("existing file replaced, .txt added")
            << QStringList{"%1/old"} << QStringList() << "old.txt"
            << "blocker full.json full.txt lock.json old.json old.txt";
        QTest::newRow("cancelled") << QStringList{""} << QStringList{openWarning} << QString()
                                   << "blocker full.json full.txt lock.json old.txt";
        QTest::newRow("no file can be opened, the earlier sidecar kept")
            << QStringList{"%1/lock.txt"} << QStringList{openWarning + "%1/lock.txt"} << QString()
            << "blocker full.json full.txt lock.json old.txt";
        // The data stay in memory: the dialog comes again at the failed name.
        QTest::newRow("write fails after opening, then cancelled")
            << QStringList{"%1/full", ""}
            << QStringList{writeWarning.arg("%1/full.txt"), openWarning} << QString()
            << "blocker full.txt lock.json old.txt";
        QTest::newRow("sidecar cannot be written, results kept")
            << QStringList{"%1/run.txt"} << QStringList{sidecarWarning} << "run.txt"
            << "blocker full.json full.txt lock.json old.txt run.txt";
    }

    void saveDialog()
    {
        QFETCH(QStringList, typed);
        QFETCH(QStringList, boxes);
        QFETCH(QString, savedAs);
        QTemporaryDir dir;
        typed.replaceInStrings("%1", dir.path());
        boxes.replaceInStrings("%1", dir.path());
        QFile old(dir.filePath("old.txt")), blocker(dir.filePath("blocker"));
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write(oldFile) == oldFile.size());
        old.close();
        QVERIFY(blocker.open(QIODevice::WriteOnly) && QDir(dir.path()).mkdir("run.json") &&
                QFile::link("/dev/full", dir.filePath("full.txt")) &&
                QFile::copy(old.fileName(), dir.filePath("full.json")) &&
                QFile::link(dir.filePath("blocker/run.txt"), dir.filePath("lock.txt")) &&
                QFile::copy(old.fileName(), dir.filePath("lock.json")));

        MainWindow w;
        w.params.trials = {{0.5, 2, 2, true, 812}, {0.5 * std::pow(10, -0.1), 3, 2, false, 1034}};
        w.params.mainParameter = 1;
        w.params.filePath = dir.path();
        ModalCatcher catcher;
        catcher.answerSaveDialogs(typed);
        w.saveResults();
        QCOMPARE(catcher.saveDialogs.size(), typed.size());
        QCOMPARE(catcher.saveDialogs[0], dir.filePath("SUB001_test001_noise_modulation depth.txt"));
        if (typed.size() > 1)
            QCOMPARE(catcher.saveDialogs[1], typed[0] + ".txt");
        QCOMPARE(catcher.boxes, boxes);

        // Only the saved file and its sidecar are new, and only a replaced
        // file has changed.
        QStringList files;
        for (QDirIterator it(dir.path(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
            files << QDir(dir.path()).relativeFilePath(it.next());
        files.sort();
        QTEST(files.join(' '), "files");
        if (!savedAs.isEmpty()) {
            QFile saved(dir.filePath(savedAs));
            QVERIFY(saved.open(QIODevice::ReadOnly));
            QCOMPARE(saved.readAll(), table);
        }
    }
};

QTEST_MAIN(TestFileFaults)
#include "tst_filefaults.moc"
