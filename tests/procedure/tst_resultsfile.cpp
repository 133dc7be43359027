#include "app/mainwindow.h"
#include "procedure/resultsfile.h"
#include "support/savedialogfiller.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace
{

TrialRecord record(double value, int stim, int response, double reactionTime)
{
    TrialRecord r;
    r.value = value;
    r.stimPosition = stim;
    r.responsePosition = response;
    r.correct = stim == response;
    r.reactionTime = reactionTime;
    return r;
}

QByteArray written(const QVector<TrialRecord> &trials, int mainParameter)
{
    QByteArray bytes;
    QTextStream out(&bytes);
    ResultsFile::write(out, trials, mainParameter, 1000.0);
    out.flush();
    return bytes;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// The two trials of the example of a modulation-depth run.
const QVector<TrialRecord> exampleTrials{record(0.5, 2, 2, 812),
                                         record(0.5 * std::pow(10.0, -2.0 / 20), 3, 2, 1034)};
const QByteArray exampleFile =
    "modulation depth (%)\tstimulus position\tresponse position\tcorrectness\treaction time "
    "(ms)\r\n50.000000\t2\t2\t1\t812\r\n39.716412\t3\t2\t0\t1034\r\n";

} // namespace

class TestResultsFile : public QObject
{
    Q_OBJECT

private slots:
    void trialLines_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("mainParameter");
        QTest::addColumn<double>("reactionTime");
        QTest::addColumn<QString>("expected");
        QTest::newRow("frequency start value in Hz")
            << 0.05 << 0 << 523.0 << "50.000000\t2\t2\t1\t523";
        QTest::newRow("frequency after one wrong answer")
            << 0.05 * std::pow(10.0, 4.0 / 20) << 0 << 1234567.0
            << "79.244660\t2\t2\t1\t1.23457e+06";
        QTest::newRow("fractional reaction time")
            << 0.25 << 1 << 523.25 << "25.000000\t2\t2\t1\t523.25";
    }

    void trialLines()
    {
        QFETCH(double, value);
        QFETCH(int, mainParameter);
        QFETCH(double, reactionTime);
        QFETCH(QString, expected);
        QCOMPARE(ResultsFile::trialLine(record(value, 2, 2, reactionTime), mainParameter, 1000.0),
                 expected);
    }

    void frequencyTrackAndWrongAnswer()
    {
        QCOMPARE(ResultsFile::header(0),
                 QString("frequency difference (Hz)\tstimulus position\tresponse "
                         "position\tcorrectness\treaction time (ms)"));
        QCOMPARE(ResultsFile::trialLine(record(0.05, 3, 2, 700), 0, 2000.0),
                 QString("100.000000\t3\t2\t0\t700"));
    }

    // The header once, a line per trial, CR LF after each; nothing at all
    // without trials or for a main parameter that tracks nothing.
    void wholeTable()
    {
        QCOMPARE(written(exampleTrials, 1), exampleFile);
        QVERIFY(written({}, 1).isEmpty());
        QVERIFY(written(exampleTrials, 2).isEmpty());
        QVERIFY(written(exampleTrials, -1).isEmpty());
    }

    // What the experimenter types into the save dialog (empty: cancel), and a
    // file already in the folder. The dialog never asks before replacing a
    // file; a file that cannot be opened gives the warning with its name.
    void saveResults_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("existing");
        QTest::addColumn<bool>("saved");
        QTest::newRow("new file") << "chosen.txt" << QString() << true;
        QTest::newRow("existing file replaced") << "old.txt"
                                                << "old.txt" << true;
        QTest::newRow("missing folders created") << "new/deeper/run.txt" << QString() << true;
        QTest::newRow("cancelled") << QString() << QString() << false;
        // A regular file where a folder should be: neither the folder nor the
        // file can be made, whatever the user's rights.
        QTest::newRow("unwritable") << "blocker/run.txt"
                                    << "blocker" << false;
    }

    void saveResults()
    {
        QFETCH(QString, typed);
        QFETCH(QString, existing);
        QFETCH(bool, saved);
        QTemporaryDir dir;
        const QByteArray old(5000, 'x');
        if (!existing.isEmpty()) {
            QFile file(dir.filePath(existing));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(old) == old.size());
        }
        MainWindow w;
        w.params.trials = exampleTrials;
        w.params.mainParameter = 1;
        w.params.filePath = dir.path();
        const QString path = typed.isEmpty() ? QString() : dir.filePath(typed);
        SaveDialogFiller filler(path);
        w.saveResults();
        QCOMPARE(filler.dialogs, 1);
        QCOMPARE(filler.title, QString("Save a file"));
        // The dialog trims the blank that follows ";;" in the filter list.
        QCOMPARE(filler.filters, QStringList({"All files (*.*)", "Text files (*.txt)"}));
        QCOMPARE(filler.selectedFilter, QString("Text files (*.txt)"));
        QCOMPARE(filler.proposed, dir.filePath("SUB001_test001_noise_modulation depth.txt"));
        QVERIFY(!filler.confirmsOverwrite && !filler.nativeDialog);
        QStringList boxes;
        for (const SaveDialogFiller::Box &box : filler.otherBoxes)
            boxes << box.title + ": " + box.text;
        if (saved) {
            QCOMPARE(boxes.join('\n'), QString());
            QCOMPARE(contents(path), exampleFile);
        } else {
            QCOMPARE(boxes.join('\n'), "Warning: could not open file for writing \r\n" + path);
            QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot),
                     existing.isEmpty() ? QStringList() : QStringList(existing));
            if (!existing.isEmpty())
                QCOMPARE(contents(dir.filePath(existing)), old);
        }
    }

    void readsAsFiveColumnTable()
    {
        const QString python = QStandardPaths::findExecutable("python3");
        if (python.isEmpty())
            QSKIP("python3 is not installed: no standard table reader to check with");
        QTemporaryDir dir;
        QFile file(dir.filePath("run.txt"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(written(exampleTrials + QVector<TrialRecord>{record(0.2, 2, 3, 1234567)}, 1));
        file.close();
        QProcess reader;
        reader.start(python, {"-c",
                              "import csv, sys\n"
                              "rows = list(csv.reader(open(sys.argv[1], newline=''), "
                              "delimiter='\\t'))\n"
                              "print(len(rows), sorted({len(r) for r in rows}), rows[0][0], "
                              "rows[-1][4])",
                              file.fileName()});
        QVERIFY(reader.waitForFinished(30000));
        QCOMPARE(reader.exitCode(), 0);
        QCOMPARE(reader.readAllStandardOutput().trimmed(),
                 QByteArray("4 [5] modulation depth (%) 1.23457e+06"));
    }
};

QTEST_MAIN(TestResultsFile)
#include "tst_resultsfile.moc"
