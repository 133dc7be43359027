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

QByteArray written(const QVector<TrialRecord> &trials, int mainParameter, double cf)
{
    QByteArray bytes;
    QTextStream out(&bytes);
    ResultsFile::write(out, trials, mainParameter, cf);
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
    void headers()
    {
        QCOMPARE(ResultsFile::header(0),
                 QString("frequency difference (Hz)\tstimulus position\tresponse "
                         "position\tcorrectness\treaction time (ms)"));
        QCOMPARE(ResultsFile::header(1),
                 QString("modulation depth (%)\tstimulus position\tresponse "
                         "position\tcorrectness\treaction time (ms)"));
        QVERIFY(ResultsFile::header(2).isEmpty());
    }

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
        QTest::newRow("depth in percent") << 0.5 << 1 << 812.0 << "50.000000\t2\t2\t1\t812";
        QTest::newRow("fractional reaction time")
            << 0.25 << 1 << 523.25 << "25.000000\t2\t2\t1\t523.25";
        QTest::newRow("zero") << 0.0 << 1 << 0.0 << "0.000000\t2\t2\t1\t0";
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

    void wrongAnswerWritesZeroAndBothPositions()
    {
        QCOMPARE(ResultsFile::trialLine(record(0.05, 3, 2, 700), 0, 2000.0),
                 QString("100.000000\t3\t2\t0\t700"));
    }

    void wholeTableWithCrLf() { QCOMPARE(written(exampleTrials, 1, 1000.0), exampleFile); }

    void emptyWhenNothingToWrite()
    {
        QVERIFY(written({}, 1, 1000.0).isEmpty());
        QVERIFY(written(exampleTrials, 2, 1000.0).isEmpty());
        QVERIFY(written(exampleTrials, -1, 1000.0).isEmpty());
    }

    void savedThroughTheDialog()
    {
        QTemporaryDir dir;
        MainWindow w;
        prepare(w, dir.path());
        const QString path = dir.filePath("chosen.txt");
        SaveDialogFiller filler(path);
        w.saveResults();
        QCOMPARE(filler.dialogs, 1);
        QCOMPARE(filler.title, QString("Save a file"));
        // The dialog trims the blank that follows ";;" in the filter list.
        QCOMPARE(filler.filters, QStringList({"All files (*.*)", "Text files (*.txt)"}));
        QCOMPARE(filler.selectedFilter, QString("Text files (*.txt)"));
        QCOMPARE(filler.proposed, dir.filePath("SUB001_test001_noise_modulation depth.txt"));
        QVERIFY(!filler.confirmsOverwrite);
        QVERIFY(!filler.nativeDialog);
        QCOMPARE(filler.otherBoxes.size(), 0);
        QCOMPARE(contents(path), exampleFile);
    }

    void existingFileReplacedWithoutQuestion()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("old.txt");
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(5000, 'x'));
        old.close();
        MainWindow w;
        prepare(w, dir.path());
        SaveDialogFiller filler(path);
        w.saveResults();
        QCOMPARE(filler.dialogs, 1);
        QVERIFY2(filler.otherBoxes.isEmpty(), qPrintable(filler.otherBoxes.value(0).text));
        QCOMPARE(contents(path), exampleFile);
    }

    void missingFoldersAreCreated()
    {
        QTemporaryDir dir;
        MainWindow w;
        prepare(w, dir.path());
        const QString path = dir.filePath("new/deeper/run.txt");
        SaveDialogFiller filler(path);
        w.saveResults();
        QCOMPARE(filler.dialogs, 1);
        QCOMPARE(contents(path), exampleFile);
    }

    void cancelWarnsWithEmptyName()
    {
        QTemporaryDir dir;
        MainWindow w;
        prepare(w, dir.path());
        SaveDialogFiller filler("");
        w.saveResults();
        QCOMPARE(filler.dialogs, 1);
        QCOMPARE(filler.otherBoxes.size(), 1);
        QCOMPARE(filler.otherBoxes[0].title, QString("Warning"));
        QCOMPARE(filler.otherBoxes[0].text, QString("could not open file for writing \r\n"));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList());
    }

    void unwritablePathWarnsWithItsName()
    {
        QTemporaryDir dir;
        // A regular file where a folder should be: neither the folder nor the
        // file can be made, whatever the user's rights.
        QFile blocker(dir.filePath("blocker"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        const QString path = dir.filePath("blocker/run.txt");
        MainWindow w;
        prepare(w, dir.path());
        SaveDialogFiller filler(path);
        w.saveResults();
        QCOMPARE(filler.otherBoxes.size(), 1);
        QCOMPARE(filler.otherBoxes[0].title, QString("Warning"));
        QCOMPARE(filler.otherBoxes[0].text, "could not open file for writing \r\n" + path);
        QCOMPARE(contents(dir.filePath("blocker")), QByteArray());
    }

    void readsAsFiveColumnTable()
    {
        const QString python = QStandardPaths::findExecutable("python3");
        if (python.isEmpty())
            QSKIP("python3 is not installed: no standard table reader to check with");
        QTemporaryDir dir;
        const QString path = dir.filePath("run.txt");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Text));
        QTextStream out(&file);
        QVector<TrialRecord> trials = exampleTrials;
        trials.append(record(0.2, 2, 3, 1234567));
        ResultsFile::write(out, trials, 1, 1000.0);
        out.flush();
        file.close();
        QProcess reader;
        reader.start(python, {"-c",
                              "import csv, sys\n"
                              "rows = list(csv.reader(open(sys.argv[1], newline=''), "
                              "delimiter='\\t'))\n"
                              "print(len(rows), sorted({len(r) for r in rows}), rows[0][0], "
                              "rows[-1][4])",
                              path});
        QVERIFY(reader.waitForFinished(30000));
        QCOMPARE(reader.exitCode(), 0);
        QCOMPARE(reader.readAllStandardOutput().trimmed(),
                 QByteArray("4 [5] modulation depth (%) 1.23457e+06"));
    }

private:
    static void prepare(MainWindow &w, const QString &folder)
    {
        w.params.trials = exampleTrials;
        w.params.mainParameter = 1;
        w.params.filePath = folder;
    }
};

QTEST_MAIN(TestResultsFile)
#include "tst_resultsfile.moc"
