// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/sessionparameters.h"
#include "overview.h"
#include "procedure/resultsfile.h"
#include "procedure/sidecar.h"
#include "procedure/staircase.h"
#include "trackreplay.h"

#include <QtTest>

#include <cmath>

namespace
{
struct Outcome {
    int status;
    QStringList messages; // the tool's own stderr lines
    QString out;
};

Outcome runTool(const QString &program, const QStringList &arguments)
{
    QProcess tool;
    tool.start(program, arguments);
    if (!tool.waitForFinished(120000))
        return {-1, {}, {}};
    QStringList messages;
    for (const QString &line : QString(tool.readAllStandardError()).split('\n'))
        if (line.startsWith(QFileInfo(program).fileName() + ":"))
            messages.append(line);
    return {tool.exitCode(), messages, tool.readAllStandardOutput()};
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

// A tab-separated table as rows of named cells, keyed by the first column's
// file name (runs.tsv) or by subject (summary.tsv).
QMap<QString, QMap<QString, QString>> table(const QString &path, const QString &key)
{
    QStringList lines = QString(contents(path)).split('\n', Qt::SkipEmptyParts);
    const QStringList names = lines.takeFirst().split('\t');
    QMap<QString, QMap<QString, QString>> rows;
    for (const QString &line : lines) {
        QMap<QString, QString> row;
        const QStringList cells = line.split('\t');
        for (int i = 0; i < names.size(); ++i)
            row[names[i]] = cells.value(i);
        rows[QFileInfo(row[key]).fileName()] = row;
    }
    return rows;
}

// A run of the program's staircase, of modulation depth in noise or of
// frequency difference in a sinusoid, answered by a listener that is right
// exactly above 0.1, saved with the core's writers.
QString saveRun(const QDir &dir, const QString &subject, int sessionType, int session,
                bool withSidecar, int maxTrials = 1000, QVector<FaultyInterval> faulty = {},
                int mainParameter = 1)
{
    SessionParameters p;
    p.subjectCode = subject;
    p.sessionType = sessionType;
    p.sessionNumber = session;
    p.mainParameter = p.soundType = mainParameter;
    Staircase::resetStartValues(p);
    p.fileName = p.composedFileName();
    const SessionParameters start = p;
    while (p.trials.size() < maxTrials) {
        TrialRecord r;
        r.value = Staircase::trackedValue(p);
        r.stimPosition = 2 + p.trials.size() % 2;
        r.correct = r.value > 0.1;
        r.responsePosition = r.correct ? r.stimPosition : 5 - r.stimPosition;
        r.reactionTime = 400 + 10 * p.trials.size();
        p.trials.append(r);
        if (Staircase::applyReversalRule(p))
            break;
        Staircase::applyStep(p);
    }
    Staircase::computeResults(p);
    const QString name = dir.filePath(p.fileName);
    ResultsFile::save(name, p.trials, p.mainParameter, 1000.0);
    RunFacts facts;
    facts.started = QDateTime(QDate(2024, 3, 1), QTime(9, session), Qt::UTC);
    facts.faultyIntervals = faulty;
    if (withSidecar)
        Sidecar::save(Sidecar::path(name), Sidecar::content(start, p, facts));
    return name;
}

void rewrite(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(bytes);
}
} // namespace

// The two tools for a study: the simulated listener and the summary of a
// folder of runs.
class TestTools : public QObject
{
    Q_OBJECT

private slots:
    // A study folder with one run of each kind a lab meets.
    void mixedFolder()
    {
        QTemporaryDir temp;
        const QDir data(temp.filePath("data"));
        const QString good = saveRun(data, "S01", 1, 1, true);
        saveRun(data, "S01", 0, 2, true);               // practice
        saveRun(data, "S01", 1, 3, true, 10, {{2, 3}}); // stopped early, a sound lost
        const QString changed = saveRun(data, "S03", 1, 4, true, 1000, {}, 0);
        QByteArray sidecar = contents(Sidecar::path(changed));
        rewrite(Sidecar::path(changed), sidecar.replace("\"Threshold\": ", "\"Threshold\": 1"));
        const QString alone = saveRun(data, "S02", 1, 1, false);
        const QString cut = saveRun(data, "S01", 1, 5, true);
        const QByteArray whole = contents(cut);
        rewrite(cut, whole.left(whole.size() - 6)); // the last line loses its reaction time
        const int cutLine = whole.count('\n');
        const QString broken = Sidecar::path(saveRun(data, "S01", 1, 6, true));
        rewrite(broken, contents(broken).left(200));
        rewrite(data.filePath("notes.txt"), "S01 was tired today\n");

        // The expected threshold: the mean of the last 8 values at which
        // the answer changed from the one before, in %.
        QVector<double> values, reversals;
        QVector<bool> right;
        int chose2 = 0;
        for (const QString &line : QString(contents(good)).split("\r\n").mid(1, -1))
            if (!line.isEmpty()) {
                values.append(line.section('\t', 0, 0).toDouble());
                right.append(line.section('\t', 3, 3) == "1");
                chose2 += line.section('\t', 2, 2) == "2";
            }
        for (int i = 1; i < values.size(); ++i)
            if (right[i] != right[i - 1])
                reversals.append(values[i]);
        QCOMPARE(reversals.size(), 14);
        const double threshold = std::accumulate(reversals.end() - 8, reversals.end(), 0.0) / 8;

        const QString out = temp.filePath("out");
        const Outcome first =
            runTool(VELTRANE_SUMMARY_PATH, {"--out", out, "--bootstrap", "0", data.path()});
        const QString said = first.messages.join('\n');
        QVERIFY2(first.status == 1 && first.messages.size() == 2 &&
                     said.contains(QString("veltrane-summary: %1:%2: 4 columns instead of 5")
                                       .arg(cut)
                                       .arg(cutLine)) &&
                     said.contains(QRegularExpression(
                         "veltrane-summary: " + QRegularExpression::escape(broken) +
                         ":\\d+: not valid JSON")),
                 qPrintable(said));

        auto runs = table(out + "/runs.tsv", "file");
        QCOMPARE(runs.size(), 5);
        const auto &g = runs[QFileInfo(good).fileName()];
        QCOMPARE(g["included"] + " " + g["trials"] + " " + g["reversals"],
                 QString("1 %1 14").arg(values.size()));
        QVERIFY(qAbs(g["threshold"].toDouble() - threshold) < 1e-5);
        QVERIFY(qAbs(g["threshold_db"].toDouble() - 20 * std::log10(threshold / 100)) < 1e-5);
        QVERIFY(qAbs(g["percent_correct"].toDouble() -
                     100.0 * std::count(right.begin(), right.end(), true) / right.size()) < 1e-5);
        QVERIFY(qAbs(g["chose_2_pct"].toDouble() - 100.0 * chose2 / values.size()) < 1e-5);
        QVERIFY(qAbs(g["mean_rt_ms"].toDouble() - (400 + 5.0 * (values.size() - 1))) < 1e-5);
        QCOMPARE(g["acquired"], QString("2024-03-01T09:01:00+00:00"));
        const auto &faulty = runs["S01_test003_noise_modulation depth.txt"];
        QCOMPARE(runs["S01_practice002_noise_modulation depth.txt"]["excluded_because"] + "|" +
                     faulty["excluded_because"] + faulty["complete"] + faulty["faulty_intervals"] +
                     "|" + runs[QFileInfo(changed).fileName()]["excluded_because"],
                 QString("practice|incomplete,faulty01|threshold mismatch"));
        const auto &lone = runs[QFileInfo(alone).fileName()];
        // Without a sidecar the file name says who, which session and what.
        QCOMPARE(lone["subject"] + lone["session_type"] + lone["session"] + lone["sound_type"] +
                     lone["sidecar"] + lone["included"],
                 QString("S02test1noise01"));
        QCOMPARE(lone["carrier_hz"] + lone["acquired"], QString());

        auto summary = table(out + "/summary.tsv", "subject");
        // One run is too few for a spread or a fit; a group of excluded runs
        // keeps its row.
        QVERIFY(summary.size() == 3 && summary["S01"]["runs"] == "1" &&
                summary["S03"]["runs"] == "0" &&
                summary["S01"]["sd_db"] + summary["S01"]["alpha_db"] == "");
        QCOMPARE(summary["S01"]["mean_threshold_db"], g["threshold_db"]);
        QCOMPARE(summary["S01"]["fit_trials"].toInt(), values.size());
        QCOMPARE(summary["S02"]["carrier_hz"], QString());
        QVERIFY(QFileInfo(out + "/report.pdf").size() > 1000);
        QVERIFY(QJsonDocument::fromJson(
                    contents(out + "/summary.json"))["runs.tsv"]["threshold_db"]["Units"] == "dB");

        // The reasons a user may take away, an explicit file, and the refusals.
        QCOMPARE(
            runTool(VELTRANE_SUMMARY_PATH, {"--out", out, "--bootstrap", "0", "--include-practice",
                                            "--include-faulty", data.path()})
                .status,
            1);
        runs = table(out + "/runs.tsv", "file");
        QCOMPARE(runs["S01_practice002_noise_modulation depth.txt"]["included"] +
                     runs["S01_test003_noise_modulation depth.txt"]["excluded_because"],
                 QString("1incomplete"));
        QCOMPARE(table(out + "/summary.tsv", "subject")["S01"]["runs"], QString("2"));
        QCOMPARE(runTool(VELTRANE_SUMMARY_PATH, {"--out", out, good}).status, 0);
        QDir(temp.path()).mkdir("empty");
        for (const QStringList &arguments :
             {QStringList{"--out", out, temp.filePath("empty")},
              QStringList{"--bootstrap", "x", data.path()},
              QStringList{"--out", data.filePath("out"), data.path()}})
            QCOMPARE(runTool(VELTRANE_SUMMARY_PATH, arguments).status, 2);
        QVERIFY(!data.exists("out"));
    }

    // Twenty simulated runs against a step listener that is right above -20 dB
    // and wrong at or below. Once the steps are 1 dB the reversals alternate
    // between the last value at or below the switch and the value 2 dB above
    // it, so every threshold, and their mean, lies from 0 to
    // 20 log10((1 + 10^(2/20)) / 2), about 1.05 dB, above the switch.
    void simulatedStepListener()
    {
        const Outcome run = runTool(SIMULATE_LISTENER_PATH, {"--listener", "step", "--alpha", "-20",
                                                             "--runs", "20", "--seed", "7"});
        bool ok = false;
        const double above = run.out.section("Mean threshold re the switching value", 1)
                                 .section("dB", 0, 0)
                                 .toDouble(&ok);
        QVERIFY2(run.out.contains("Runs:      20 (20 finished)") && ok && above >= 0.0 &&
                     above <= 1.05,
                 qPrintable(run.out));
    }

    // 200 runs of a listener with known alpha, beta and lapse, saved by the
    // simulator as the program saves them: the bootstrap intervals, narrower
    // than 1 dB with this many trials, hold the true values.
    void fitRecoversListener()
    {
        QTemporaryDir temp;
        QCOMPARE(runTool(SIMULATE_LISTENER_PATH,
                         {"--runs", "200", "--alpha", "-20", "--beta", "2", "--lapse", "0.02",
                          "--seed", "11", "--save-runs", temp.filePath("runs")})
                     .status,
                 0);
        const QString out = temp.filePath("out");
        QCOMPARE(
            runTool(VELTRANE_SUMMARY_PATH, {"--seed", "2", "--out", out, temp.filePath("runs")})
                .status,
            0);
        const auto row = table(out + "/summary.tsv", "subject")["SIM001"];
        QCOMPARE(row["runs"] + " " + row["bootstrap_failed"], QString("200 0"));
        // Each estimate inside its interval, the true value too, and intervals
        // narrow enough for that to mean something.
        for (const auto &[name, truth] : {std::pair{"alpha_db", -20.0}, {"beta_db", 2.0}}) {
            const double low = row[name + QString("_ci95_low")].toDouble();
            const double high = row[name + QString("_ci95_high")].toDouble();
            const double estimate = row[name].toDouble();
            QVERIFY2(
                low < truth && truth < high && high - low < 1 && low < estimate && estimate < high,
                qPrintable(QString("%1 %2 (%3 to %4)").arg(name).arg(estimate).arg(low).arg(high)));
        }
    }

    // Every trial of a noise and of a sinusoid run in trials.tsv, against the
    // results files: a reversal is a trial whose answer differs from the one
    // before, and the threshold averages the last 8 of the 14.
    void trialsTable()
    {
        QTemporaryDir temp;
        const QDir data(temp.filePath("data"));
        const QStringList runs{saveRun(data, "S01", 1, 1, true),
                               saveRun(data, "S02", 1, 2, true, 1000, {}, 0)};
        const QString out = temp.filePath("out");
        QCOMPARE(
            runTool(VELTRANE_SUMMARY_PATH, {"--out", out, "--bootstrap", "0", data.path()}).status,
            0);
        QStringList rows = QString(contents(out + "/trials.tsv")).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(rows.takeFirst(),
                 QString("file\tsubject\tsound_type\tmain_parameter\tcarrier_hz\tmodulation_hz\t"
                         "standard_depth_pct\tduration_ms\tsession\ttrial\tlevel\tlevel_db\t"
                         "stimulus_position\tresponse_position\tcorrect\treaction_time_ms\t"
                         "reversal\tcounted\tincluded"));
        for (int run = 0; run < 2; ++run) {
            const QStringList lines = QString(contents(runs[run])).split("\r\n").mid(1);
            QVector<int> reversals;
            for (int i = 1; i < lines.size() - 1; ++i)
                if (lines[i].section('\t', 3, 3) != lines[i - 1].section('\t', 3, 3))
                    reversals.append(i);
            QCOMPARE(reversals.size(), 14);
            for (int i = 0; i < lines.size() - 1; ++i) {
                const QStringList file = lines[i].split('\t');
                const QStringList cells = rows.takeFirst().split('\t');
                const int k = reversals.indexOf(i);
                QCOMPARE(
                    QStringList(cells.mid(0, 2) + cells.mid(4, 1) + cells.mid(8, 2) + cells.mid(12))
                        .join(' '),
                    QStringList({runs[run], run == 0 ? "S01" : "S02", run == 0 ? "" : "1000",
                                 QString::number(run + 1), QString::number(i + 1), file[1], file[2],
                                 file[3], file[4], k >= 0 ? "1" : "0", k >= 6 ? "1" : "0", "1"})
                        .join(' '));
                const double level = file[0].toDouble();
                QCOMPARE(cells[10].toDouble(), level);
                QVERIFY(qAbs(cells[11].toDouble() - 20 * std::log10(level / (run ? 1000 : 100))) <
                        1e-6);
            }
        }
        QVERIFY(rows.isEmpty());
    }

    // Both tools answer a mistyped option in their own words, and nothing but
    // their own lines reaches stderr, even without XDG_RUNTIME_DIR.
    void toolManners()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove("XDG_RUNTIME_DIR");
        const auto run = [&](const QString &program, const QStringList &arguments) {
            QProcess tool;
            tool.setProcessEnvironment(environment);
            tool.start(program, arguments);
            tool.waitForFinished(120000);
            return QString::number(tool.exitCode()) + ' ' + tool.readAllStandardError();
        };
        QTemporaryDir temp;
        QCOMPARE(run(VELTRANE_SUMMARY_PATH, {"--x", temp.path()}),
                 QString("2 veltrane-summary: unknown option '--x'; see --help\n"));
        QCOMPARE(run(SIMULATE_LISTENER_PATH, {"--runs", "3", "--x=1"}),
                 QString("2 simulate-listener: unknown option '--x'; see --help\n"));
        QCOMPARE(run(SIMULATE_LISTENER_PATH, {"--runs", "3", "--plot", temp.filePath("plot.png"),
                                              "--save-runs", temp.filePath("runs")}),
                 QString("0 "));
        QCOMPARE(run(VELTRANE_SUMMARY_PATH, {"--out", temp.filePath("out"), "--png",
                                             temp.filePath("png"), temp.filePath("runs")}),
                 QString("0 "));
    }

    // The study page's figures: one condition's mean over the subjects that
    // have one, its t interval (t 0.975 with 1 df is 12.7062), and the runs
    // left out counted under each of their reasons.
    void studyOverview()
    {
        QVector<RunRow> rows(5);
        for (int i = 0; i < rows.size(); ++i) {
            rows[i].hasSidecar = true;
            rows[i].soundType = "noise";
            rows[i].carrierHz = NAN;
            rows[i].modulationHz = i == 4 ? 8 : 40;
        }
        rows[2].excludedBecause = QStringList{"incomplete", "faulty"};
        rows[3].excludedBecause = QStringList{"faulty"};
        const auto group = [](int first, double meanDb) {
            StudyGroup g;
            g.first = first;
            g.meanDb = meanDb;
            return g;
        };
        const Overview o =
            Overview::of({group(0, -20), group(1, -22), group(2, NAN), group(4, -30)}, rows, 2);
        QCOMPARE(o.conditions.size(), 2);
        const Overview::Condition &c = o.conditions[0]; // modulation 40 Hz sorts before 8 Hz
        QCOMPARE(c.subjects, 2);
        QVERIFY(qAbs(c.meanDb + 21) < 1e-9 && qAbs(c.ciHighDb - (-21 + 12.7062)) < 1e-3 &&
                qAbs(c.ciLowDb - (-21 - 12.7062)) < 1e-3);
        QVERIFY(c.groups.size() == 3 && std::isnan(o.conditions[1].ciLowDb));
        QCOMPARE(QString("%1 %2 %3").arg(o.read).arg(o.included).arg(o.unusable), QString("7 3 2"));
        QCOMPARE(o.excluded, (QVector<QPair<QString, int>>{{"incomplete", 1}, {"faulty", 2}}));
    }

    // The output's volume and mute state from the sidecars: one volume (50
    // and 80 %), a volume that changed, a muted trial, and unknown (no
    // entries, as in earlier versions, or null).
    void outputVolume()
    {
        QTemporaryDir temp;
        const QDir data(temp.filePath("data"));
        const QByteArray at50 =
            R"({"Device":"a","FromTrial":1,"Volume":{"Percent":50},"Muted":false})";
        const QVector<QByteArray> outputs{
            at50,
            R"({"Device":"a","FromTrial":1,"Volume":{"Percent":80},"Muted":false})",
            at50 + R"(,{"Device":"a","FromTrial":5,"Volume":{"Percent":80},"Muted":false})",
            at50 + R"(,{"Device":"a","FromTrial":3,"Volume":{"Percent":50},"Muted":true})",
            "",
            R"({"Device":"a","FromTrial":1,"Volume":null,"Muted":null})"};
        QStringList files;
        for (int s = 0; s < outputs.size(); ++s) {
            files << QFileInfo(saveRun(data, "S01", 1, s + 1, true)).fileName();
            const QString sidecar = Sidecar::path(data.filePath(files.last()));
            rewrite(sidecar, contents(sidecar).replace(
                                 "\"OutputDevices\": [",
                                 s == 4 ? "\"Earlier\": [" : "\"OutputDevices\": [" + outputs[s]));
        }
        const Outcome run = runTool(VELTRANE_SUMMARY_PATH, {"--out", temp.filePath("out"),
                                                            "--bootstrap", "0", data.path()});
        QCOMPARE(QString::number(run.status) + run.messages.join('|'),
                 QString("0veltrane-summary: S01, noise, modulation depth: included runs played at "
                         "output volumes 50 %, 80 %"));
        const auto runs = table(temp.filePath("out/runs.tsv"), "file");
        QString cells;
        for (const QString &file : files)
            cells += runs[file]["output_volume_pct"] + "/" + runs[file]["output_muted"] + "/" +
                     runs[file]["excluded_because"] + " ";
        QCOMPARE(cells, QString("50/0/ 80/0/ /0/volume changed 50/1/muted // // "));
        QCOMPARE(table(temp.filePath("out/summary.tsv"), "subject")["S01"]["output_volume_pct"],
                 QString("mixed"));
    }

    // The bootstrap runs each track again from its start under the fitted
    // function. Right above −30 dB and guessing below, a depth track from 40 %
    // falls in 2 dB steps, right once at each level from −7.96 to −23.96 dB
    // (it never climbs back there), and is first wrong below −29 dB.
    void replayedTrack()
    {
        TrackReplay tracks;
        tracks.add(1, 0.4, 14);
        gsl_rng *rng = gsl_rng_alloc(gsl_rng_mt19937);
        const QVector<LevelCount> levels = tracks.replicate(-30.0, 0.2, 0.0, rng);
        gsl_rng_free(rng);
        QVERIFY(levels.size() > 9 && levels[0].levelDb < -29.0 && levels[0].levelDb > -40.0);
        for (int k = 0; k < 9; ++k) {
            const LevelCount &l = levels[levels.size() - 1 - k];
            QVERIFY(std::abs(l.levelDb + 7.9588 + 2 * k) < 1e-4 && l.trials == 1 && l.correct == 1);
        }
        for (const LevelCount &l : levels)
            QVERIFY(l.levelDb < -29.0 || l.correct == l.trials);
    }
};

QTEST_GUILESS_MAIN(TestTools)
#include "tst_tools.moc"
