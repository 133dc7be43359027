#include "app/mainwindow.h"
#include "procedure/resultsfile.h"
#include "savedialogscript.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

const QString header = "modulation depth (%)\tstimulus position\tresponse position\tcorrectness\t"
                       "reaction time (ms)";
const QString openWarning = "could not open file for writing \r\n";
const QString writeWarning = "The data were not completely saved to \r\n%1\r\nWriting to the "
                             "file failed (the disk may be full or gone). Choose another file "
                             "in the next dialog to keep them.";

// Three answered trials of a modulation-depth run.
QVector<TrialRecord> someTrials(int count = 3)
{
    QVector<TrialRecord> trials;
    for (int i = 0; i < count; ++i)
        trials.append({0.5 - 0.01 * (i % 40), 2 + i % 2, 2, i % 2 == 0, 500.0 + i});
    return trials;
}

void prepare(MainWindow &w, const QString &folder)
{
    w.params.trials = someTrials();
    w.params.mainParameter = 1;
    w.params.filePath = folder;
}

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System);
}

// A file saved whole: the header and one line per trial, each ended by CR LF.
bool savedWhole(const QString &path, int trials)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = file.readAll().split('\n');
    return lines.size() == trials + 2 && lines[0] == header.toLatin1() + "\r" &&
           lines.last().isEmpty();
}

const char *const saveIntoOption = "--save-into";
const char *const limitedOption = "--save-limited";

// Child process: saveResults with the given names typed into its dialogs.
// Prints each box's text with its line breaks escaped, then the number of
// dialogs.
int saveInto(const QStringList &names)
{
    MainWindow w;
    prepare(w, QDir::tempPath());
    SaveDialogScript script(names);
    w.saveResults();
    for (const SaveDialogScript::Box &box : script.boxes)
        std::printf("%s|%s\n", qPrintable(box.title),
                    qPrintable(QString(box.text).replace("\r", "\\r").replace("\n", "\\n")));
    std::printf("dialogs %d\n", static_cast<int>(script.answers.size()));
    return 0;
}

// Child process: saves a long table with files limited to `bytes` bytes, as a
// disk that fills up in the middle of the table. Prints the outcome.
int saveLimited(const QString &path, long bytes)
{
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{static_cast<rlim_t>(bytes), static_cast<rlim_t>(bytes)};
    setrlimit(RLIMIT_FSIZE, &limit);
    const ResultsFile::SaveOutcome outcome = ResultsFile::save(path, someTrials(2000), 1, 1000.0);
    std::printf("%d\n", static_cast<int>(outcome));
    return 0;
}

QString escaped(const QString &text)
{
    return QString(text).replace("\r", "\\r").replace("\n", "\\n");
}

} // namespace

class TestFileFaults : public QObject
{
    Q_OBJECT

private slots:
    // Names under which no file can be made. Each fails to open, nothing is
    // written, and no folder is made where none can be.
    void namesThatCannotBeOpened_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("a folder") << "%1";
        QTest::newRow("longer than a file name may be") << "%1/" + QString(300, 'r') + ".txt";
        QTest::newRow("with a zero character") << "%1/run" + QString(QChar(0)) + ".txt";
        QTest::newRow("under a file") << "%1/blocker/run.txt";
        QTest::newRow("in a read-only file system") << "/sys/veltrane-results.txt";
    }

    void namesThatCannotBeOpened()
    {
        QFETCH(QString, name);
        QTemporaryDir dir;
        QFile blocker(dir.filePath("blocker"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        const QString path = name.contains("%1") ? name.arg(dir.path()) : name;
        QCOMPARE(ResultsFile::save(path, someTrials(), 1, 1000.0),
                 ResultsFile::SaveOutcome::NotOpened);
        QCOMPARE(entries(dir.path()), QStringList{"blocker"});
        QCOMPARE(QFileInfo(dir.filePath("blocker")).size(), 0);
        QVERIFY(!QFileInfo::exists("/sys/veltrane-results.txt"));
    }

    // The save dialog does not return a folder: a folder typed as the name
    // opens it, and the experimenter names a file there or cancels. A cancel
    // gives the open warning with no name; nothing is written.
    void folderTypedInTheDialog()
    {
        QTemporaryDir dir;
        const QString folder = dir.filePath("results");
        QVERIFY(QDir().mkpath(folder));
        MainWindow w;
        prepare(w, dir.path());
        {
            SaveDialogScript script({folder, ""});
            w.saveResults();
            QCOMPARE(script.answers.size(), 2);
            QCOMPARE(script.answers[1].directory, folder);
            QCOMPARE(script.boxes.size(), 1);
            QCOMPARE(script.boxes[0].title, QString("Warning"));
            QCOMPARE(script.boxes[0].text, openWarning);
            QCOMPARE(entries(folder), QStringList());
        }
        {
            SaveDialogScript script({folder, "run.txt"});
            w.saveResults();
            QCOMPARE(script.boxes.size(), 0);
            QVERIFY(savedWhole(folder + "/run.txt", 3));
        }
    }

    // Names the system refuses, typed in the dialog. The dialog itself keeps
    // a file name longer than its folder allows and stays open; a path with a
    // folder name that is too long passes it, fails to open with the open
    // warning and the name, and nothing is written.
    void invalidNamesTypedInTheDialog()
    {
        QTemporaryDir dir;
        const QString longFile = dir.filePath(QString(300, 'r') + ".txt");
        const QString longFolder = dir.filePath(QString(300, 'f') + "/run.txt");
        MainWindow w;
        prepare(w, dir.path());
        SaveDialogScript script({longFile, longFolder});
        w.saveResults();
        QCOMPARE(script.answers.size(), 2);
        QCOMPARE(script.boxes.size(), 1);
        QCOMPARE(script.boxes[0].title, QString("Warning"));
        QCOMPARE(script.boxes[0].text, openWarning + longFolder);
        QCOMPARE(entries(dir.path()), QStringList());
    }

    // A folder without write permission. Root ignores permission bits, so the
    // save runs in a child process: as root, without the capabilities that
    // override them (setpriv), so that the folder's bits count as they do
    // for every other user. Neither a file in the folder nor a new folder
    // inside it can be made: the open warning with the name, nothing written.
    void folderWithoutWritePermission()
    {
        QTemporaryDir dir;
        const QString locked = dir.filePath("locked");
        QVERIFY(QDir().mkpath(locked));
        QVERIFY(QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner |
                                                  QFile::ReadGroup | QFile::ExeGroup |
                                                  QFile::ReadOther | QFile::ExeOther));
        QString program = QCoreApplication::applicationFilePath();
        QStringList arguments;
        if (geteuid() == 0) {
            const QString setpriv = QStandardPaths::findExecutable("setpriv");
            if (setpriv.isEmpty())
                QSKIP("running as root without setpriv: permission bits cannot be made to count");
            arguments = QStringList{"--bounding-set=-dac_override,-dac_read_search",
                                    "--inh-caps=-dac_override,-dac_read_search", "--", program};
            program = setpriv;
        }
        const QString direct = locked + "/run.txt";
        const QString nested = locked + "/new/run.txt";
        for (const QString &path : {direct, nested}) {
            QProcess child;
            child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            child.start(program, arguments + QStringList{saveIntoOption, path});
            QVERIFY(child.waitForFinished(60000));
            QCOMPARE(child.exitStatus(), QProcess::NormalExit);
            QCOMPARE(child.exitCode(), 0);
            QCOMPARE(QString::fromUtf8(child.readAllStandardOutput()),
                     "Warning|" + escaped(openWarning + path) + "\ndialogs 1\n");
        }
        QCOMPARE(entries(locked), QStringList());
    }

    // A write that fails after the file was opened: the outcome says so, also
    // when the disk fills up in the middle of the table and part of it is in
    // the file. Nothing to write cannot fail.
    void writeFailuresAreDetected()
    {
        QCOMPARE(ResultsFile::save("/dev/full", someTrials(), 1, 1000.0),
                 ResultsFile::SaveOutcome::NotCompletelyWritten);
        QCOMPARE(ResultsFile::save("/dev/full", {}, 1, 1000.0), ResultsFile::SaveOutcome::Saved);

        QTemporaryDir dir;
        const QString path = dir.filePath("run.txt");
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(QCoreApplication::applicationFilePath(), {limitedOption, path, "20000"});
        QVERIFY(child.waitForFinished(60000));
        QCOMPARE(child.exitCode(), 0);
        QCOMPARE(child.readAllStandardOutput().trimmed().toInt(),
                 static_cast<int>(ResultsFile::SaveOutcome::NotCompletelyWritten));
        QCOMPARE(QFileInfo(path).size(), 20000);
    }

    // The experimenter is told which file failed and that the data were not
    // completely saved, and the dialog comes again at that name; the data
    // then go into another file.
    void failedWriteOffersTheDialogAgain()
    {
        QTemporaryDir dir;
        const QString kept = dir.filePath("kept.txt");
        MainWindow w;
        prepare(w, dir.path());
        SaveDialogScript script({"/dev/full", kept});
        w.saveResults();
        QCOMPARE(script.answers.size(), 2);
        QCOMPARE(script.answers[1].proposed, QString("/dev/full"));
        QCOMPARE(script.boxes.size(), 1);
        QCOMPARE(script.boxes[0].title, QString("Warning"));
        QCOMPARE(script.boxes[0].text, writeWarning.arg("/dev/full"));
        QVERIFY(savedWhole(kept, 3));
    }

    // Two failures in a row, then a cancel: two write warnings, then the open
    // warning of a cancelled dialog, and the save ends.
    void failedWriteThenCancel()
    {
        QTemporaryDir dir;
        MainWindow w;
        prepare(w, dir.path());
        SaveDialogScript script({"/dev/full", "/dev/full", ""});
        w.saveResults();
        QCOMPARE(script.answers.size(), 3);
        QCOMPARE(script.boxes.size(), 3);
        QCOMPARE(script.boxes[0].text, writeWarning.arg("/dev/full"));
        QCOMPARE(script.boxes[1].text, writeWarning.arg("/dev/full"));
        QCOMPARE(script.boxes[2].text, openWarning);
        QCOMPARE(entries(dir.path()), QStringList());
    }
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc > 2 && QByteArray(argv[1]) == saveIntoOption)
        return saveInto({QString::fromLocal8Bit(argv[2])});
    if (argc > 3 && QByteArray(argv[1]) == limitedOption)
        return saveLimited(QString::fromLocal8Bit(argv[2]), std::atol(argv[3]));
    TestFileFaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_filefaults.moc"
