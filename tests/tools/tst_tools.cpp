// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/sessionparameters.h"
#include "plotfigures.h"
#include "procedure/resultsfile.h"
#include "procedure/sidecar.h"
#include "procedure/staircase.h"

#include <QImage>
#include <QtTest>

#include <cmath>

namespace
{
struct Outcome {
    int status;
    QString err, out;
    QString said() const { return QString::number(status) + ' ' + err; }
};

// A tool run from words: the summary after an S, the simulator after an L, @
// standing for `folder`. Run as a start over ssh or as root runs it, without
// XDG_RUNTIME_DIR, which Qt would complain about on stderr.
Outcome runTool(QString words, const QString &folder)
{
    const QStringList w = words.replace('@', folder).split(' ');
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("XDG_RUNTIME_DIR");
    QProcess tool;
    tool.setProcessEnvironment(environment);
    tool.start(w[0] == "S" ? VELTRANE_SUMMARY_PATH : SIMULATE_LISTENER_PATH, w.mid(1));
    if (!tool.waitForFinished(120000))
        return {-1, {}, {}};
    return {tool.exitCode(), tool.readAllStandardError(), tool.readAllStandardOutput()};
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

void rewrite(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(bytes);
}

using Row = QMap<QString, QString>;

// A tab-separated table as rows of named cells, keyed by the cells of the
// columns named in `key` (a file by its name alone).
QMap<QString, Row> table(const QString &path, const QString &key)
{
    QStringList lines = QString(contents(path)).split('\n', Qt::SkipEmptyParts);
    const QStringList names = lines.takeFirst().split('\t');
    QMap<QString, Row> rows;
    for (const QString &line : lines) {
        Row row;
        for (int i = 0; i < names.size(); ++i)
            row[names[i]] = line.section('\t', i, i);
        row["file"] = QFileInfo(row["file"]).fileName();
        QStringList k;
        for (const QString &column : key.split(' '))
            k.append(row[column]);
        rows[k.join(' ')] = row;
    }
    return rows;
}

// Whether the named cells of a row hold the expected numbers, within a
// relative tolerance (absolute near zero); an empty cell never does.
bool matches(const Row &row, const QString &names, const QVector<double> &expected,
             double tolerance = 1e-6)
{
    const QStringList columns = names.split(' ');
    for (int i = 0; i < columns.size(); ++i)
        if (!(std::abs(row[columns[i]].toDouble() - expected[i]) <=
              tolerance * std::max(1.0, std::abs(expected[i]))) ||
            row[columns[i]].isEmpty())
            return false;
    return true;
}

double mean(const QVector<double> &v)
{
    return std::accumulate(v.begin(), v.end(), 0.0) / v.size();
}

// The sample SD from the sum of squares.
double stdDev(const QVector<double> &v)
{
    const double squares = std::inner_product(v.begin(), v.end(), v.begin(), 0.0);
    return std::sqrt((squares - v.size() * mean(v) * mean(v)) / (v.size() - 1));
}

// A results file read by hand: the values at which the answer changed from
// the one before are the reversals; the threshold is the mean of the last 8.
struct Facts {
    QVector<double> values, averagedDb, rt; // rt sorted
    QVector<bool> right;
    QVector<int> reversals; // trials, from 0
    double chose2 = 0;      // answers "sound 2"
    double threshold = 0;   // %
    double db() const { return 20 * std::log10(threshold / 100); }
};

Facts facts(const QString &path)
{
    Facts f;
    for (const QString &line : QString(contents(path)).split("\r\n").mid(1, -1))
        if (!line.isEmpty()) {
            f.values.append(line.section('\t', 0, 0).toDouble());
            f.right.append(line.section('\t', 3, 3) == "1");
            f.rt.append(line.section('\t', 4, 4).toDouble());
            f.chose2 += line.section('\t', 2, 2) == "2";
        }
    std::sort(f.rt.begin(), f.rt.end()); // for the median
    for (int i = 1; i < f.values.size(); ++i)
        if (f.right[i] != f.right[i - 1])
            f.reversals.append(i);
    for (int i : f.reversals.mid(f.reversals.size() - 8)) {
        f.threshold += f.values[i] / 8;
        f.averagedDb.append(20 * std::log10(f.values[i] / 100));
    }
    return f;
}

// A run of the program's staircase, of modulation depth in noise or of
// frequency difference in a sinusoid, answered by a listener that is right
// exactly above 0.1 (above `switchAt` when given), saved with the core's
// writers; started at 9:00 plus `minute` (the session number when -1).
QString saveRun(const QDir &dir, const QString &subject, int sessionType, int session,
                bool withSidecar, int maxTrials = 1000, QVector<FaultyInterval> faulty = {},
                int mainParameter = 1, double switchAt = 0.1, int minute = -1)
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
        r.correct = r.value > switchAt;
        r.responsePosition = r.correct ? r.stimPosition : 5 - r.stimPosition;
        r.reactionTime = 400 + 37 * (p.trials.size() * 7 % 13);
        p.trials.append(r);
        if (Staircase::applyReversalRule(p))
            break;
        Staircase::applyStep(p);
    }
    Staircase::computeResults(p);
    const QString name = dir.filePath(p.fileName);
    ResultsFile::save(name, p.trials, p.mainParameter, 1000.0);
    RunFacts facts;
    facts.started = QDateTime(QDate(2024, 3, 1), QTime(9, minute < 0 ? session : minute), Qt::UTC);
    facts.faultyIntervals = faulty;
    if (withSidecar)
        Sidecar::save(Sidecar::path(name), Sidecar::content(start, p, facts));
    return name;
}

// The level at which the task's psychometric function reaches p: its
// closed-form inverse.
double levelAt(double p, double alpha, double beta, double lapse)
{
    const double f = (p - 0.5) / (0.5 - lapse);
    return alpha + beta * std::log(f / (1 - f));
}
} // namespace

// The two tools for a study: the simulated listener and the summary of a
// folder of runs.
class TestTools : public QObject
{
    Q_OBJECT

private slots:
    // One study folder with a run of each kind a lab meets, groups whose
    // statistics are known by hand, and simulated runs of a known listener.
    void study()
    {
        QTemporaryDir temp;
        const QDir data(temp.filePath("data"));
        const QString good = saveRun(data, "S01", 1, 1, true);
        saveRun(data, "S01", 0, 2, true); // practice
        // Stopped early, a sound lost.
        const QString early = saveRun(data, "S01", 1, 3, true, 10, {{2, 3}});
        const QString changed = Sidecar::path(saveRun(data, "S03", 1, 4, true, 1000, {}, 0));
        rewrite(changed, contents(changed).replace("\"Threshold\": ", "\"Threshold\": 1"));
        const QString alone = saveRun(data, "S02", 1, 1, false);
        const QString broken = Sidecar::path(saveRun(data, "S01", 1, 6, true));
        rewrite(broken, contents(broken).left(200));
        // S01's included runs answer alike: the pooled trials separate
        // perfectly at -20 dB, which no fit may claim to describe.
        for (int session : {7, 8, 9})
            saveRun(data, "S01", 1, session, true);
        // S04: two runs, the second session started first.
        const Facts later = facts(saveRun(data, "S04", 1, 1, true, 1000, {}, 1, 0.3, 40));
        const Facts earlier = facts(saveRun(data, "S04", 1, 2, true, 1000, {}, 1, 0.1, 20));
        // S05 at the output's volumes: 80 and 50 %, a volume and a device that
        // changed, a muted trial, and unknown (no entries, as in earlier
        // versions, or null).
        const QByteArray at50 =
            R"({"Device":"a","FromTrial":1,"Volume":{"Percent":50},"Muted":false})";
        const QVector<QByteArray> outputs{
            QByteArray(at50).replace("50", "80"),
            at50,
            at50 + R"(,{"Device":"a","FromTrial":5,"Volume":{"Percent":80},"Muted":false})",
            at50 + R"(,{"Device":"b","FromTrial":5,"Volume":{"Percent":50},"Muted":false})",
            at50 + R"(,{"Device":"a","FromTrial":3,"Volume":{"Percent":50},"Muted":true})",
            "",
            R"({"Device":"a","FromTrial":1,"Volume":null,"Muted":null})"};
        for (int s = 0; s < outputs.size(); ++s) {
            const QString sidecar = Sidecar::path(saveRun(data, "S05", 1, s, true));
            rewrite(sidecar, contents(sidecar).replace(
                                 "\"OutputDevices\": [",
                                 s == 5 ? "\"Earlier\": [" : "\"OutputDevices\": [" + outputs[s]));
        }
        // Simulated participants: frequency runs of two by a listener who hears
        // a difference above 1 % of the carrier (a step), depth runs of one.
        QStringList simulated;
        Outcome simulator;
        for (const char *batch : {"--quantity frequency --carrier 500 --listener step --alpha -40 "
                                  "--runs 4 --runs-per-subject 2 --reversals 8 --calculate 8",
                                  "--lapse 0.02 --runs 5 --plot @/sim.png"}) {
            simulator = runTool(QString("L %1 --seed 3 --tsv @/sim --save-runs @/data").arg(batch),
                                temp.path());
            simulated +=
                QString(contents(temp.filePath("sim"))).split('\n', Qt::SkipEmptyParts).mid(1);
        }

        const QString out = temp.filePath("out");
        // The folder given twice, the second time as data/. (each run counted once).
        const QString options =
            "--seed 5 --bootstrap 200 --free-lapse --lapse 0.06 @/data @/data/.";
        const QDir png(temp.filePath("png"));
        const Outcome first = runTool("S --out @/out --png @/png " + options, temp.path());
        auto runs = table(out + "/runs.tsv", "file");
        const QStringList lines = QString(contents(out + "/runs.tsv")).split('\n').mid(1, 26);
        QVERIFY(first.status == 1 && runs.size() == 26 &&
                std::is_sorted(lines.begin(), lines.end()));
        // Qt's own words on what is wrong with the JSON left out.
        QCOMPARE(QString(first.err).replace(QRegularExpression("JSON: .*\n"), "JSON\n"),
                 QString("veltrane-summary: %1:%2: not valid JSON\nveltrane-summary: S05, noise, "
                         "modulation depth: included runs played at output volumes 50 %, 80 %\n")
                     .arg(broken)
                     .arg(contents(broken).count('\n') + 1));
        const Facts g = facts(good);
        const Row &r = runs[QFileInfo(good).fileName()];
        QVERIFY(matches(r,
                        "threshold threshold_db reversal_sd_db percent_correct chose_2_pct "
                        "mean_rt_ms median_rt_ms",
                        {g.threshold, g.db(), stdDev(g.averagedDb),
                         100.0 * g.right.count(true) / g.right.size(), 100 * g.chose2 / g.rt.size(),
                         mean(g.rt), (g.rt[(g.rt.size() - 1) / 2] + g.rt[g.rt.size() / 2]) / 2}));
        const Row &faulty = runs["S01_test003_noise_modulation depth.txt"];
        const Row &lone = runs[QFileInfo(alone).fileName()];
        // Without a sidecar the file name says who, which session and what.
        QCOMPARE(runs["S01_practice002_noise_modulation depth.txt"]["excluded_because"] + "|" +
                     faulty["excluded_because"] + faulty["complete"] + faulty["faulty_intervals"] +
                     "|" + runs["S03_test004_sinusoid_carrier frequency.txt"]["excluded_because"] +
                     "|" + lone["subject"] + lone["session_type"] + lone["session"] +
                     lone["sound_type"] + lone["sidecar"] + lone["included"] + lone["carrier_hz"] +
                     lone["acquired"],
                 QString("practice|incomplete,faulty01|threshold mismatch|S02test1noise01"));
        QVERIFY(matches(faulty, "reversal_sd_db", {stdDev(facts(early).averagedDb)}));
        QString cells;
        for (int session = 0; session < outputs.size(); ++session) {
            const Row &v = runs[QString("S05_test%1_noise_modulation depth.txt")
                                    .arg(session, 3, 10, QChar('0'))];
            cells += v["output_volume_pct"] + "/" + v["output_muted"] + "/" +
                     v["excluded_because"] + " ";
        }
        QCOMPARE(cells,
                 QString("80/0/ 50/0/ /0/volume changed /0/volume changed 50/1/muted // // "));
        // trials.tsv: the good run's trials as its results file has them, in
        // order, the reversals (answer changed) marked and the last 8 counted.
        // A frequency run whose threshold averages all its 8 reversals counts
        // each of them.
        const QStringList trials = QString(contents(out + "/trials.tsv")).split('\n');
        const QStringList goodTrials = trials.filter(good + '\t');
        const QStringList goodLines = QString(contents(good)).split("\r\n").mid(1);
        for (int t = 0; t < g.values.size(); ++t) {
            const QStringList cells = goodTrials.value(t).split('\t');
            const int k = g.reversals.indexOf(t);
            QCOMPARE(QStringList(cells.mid(1, 1) + cells.mid(8, 2) + cells.mid(12)).join(' '),
                     QString("S01 1 %1 %2 %3 %4 1")
                         .arg(t + 1)
                         .arg(goodLines[t].section('\t', 1, 4).replace('\t', ' '))
                         .arg(k >= 0)
                         .arg(k >= 0 && k >= g.reversals.size() - 8));
        }
        int counted = 0;
        for (const QString &line : trials)
            counted += line.startsWith(data.filePath("SIM001_test001_sinusoid")) &&
                       line.endsWith("\t1\t1\t1");
        QVERIFY(counted == 8 && goodTrials.size() == g.values.size());
        // summary.json accounts for every file: the broken one unusable, six
        // runs left out (one for two reasons), the other 20 included; and it
        // describes every column of runs.tsv.
        const QJsonDocument json = QJsonDocument::fromJson(contents(out + "/summary.json"));
        QVERIFY(json["runs.tsv"].toObject().keys() == runs.first().keys() &&
                json["runs.tsv"]["threshold_db"]["Units"] == "dB");
        QCOMPARE(QJsonDocument(json["Runs"].toObject()).toJson(QJsonDocument::Compact),
                 QByteArray(R"({"Included":20,"LeftOut":{"faulty":1,"incomplete":1,"muted":1,)"
                            R"("practice":1,"threshold mismatch":1,"volume changed":2},"Read":27,)"
                            R"("Unusable":1})"));
        // The simulated runs as the simulator found them (its lines with 6 and
        // 4 decimals, finished and below the upper limit), under its names,
        // sound types, carrier and start times; the depth runs' trials pooled
        // by level (dB: trials, correct).
        QMap<double, QPair<int, int>> counts;
        QVector<double> depthDb;
        int pooled = 0;
        for (int i = 0; i < simulated.size(); ++i) {
            const int depth = i >= 4, run = i - 4 * depth, perSubject = depth ? 5 : 2;
            const QString name =
                QString("SIM%1_test%2_%3.txt")
                    .arg(run / perSubject + 1, 3, 10, QChar('0'))
                    .arg(run % perSubject + 1, 3, 10, QChar('0'))
                    .arg(depth ? "noise_modulation depth" : "sinusoid_carrier frequency");
            const Row &row = runs[name];
            const QStringList sim = simulated[i].split('\t');
            const QString started =
                QString("2024-01-01T09:%1:00+00:00").arg(10 * run, 2, 10, QChar('0'));
            QVERIFY2(
                row["included"] + row["trials"] + row["acquired"] == "1" + sim[1] + started &&
                    simulated[i].contains(QRegularExpression("\\.\\d{6}\t-\\d+\\.\\d{4}\t0\t1$")) &&
                    matches(row,
                            depth ? "threshold threshold_db" : "threshold threshold_db carrier_hz",
                            {sim[3].toDouble(), sim[4].toDouble(), 500}, 1e-4),
                qPrintable(name));
            const Facts f = facts(data.filePath(name));
            for (int t = 0; depth && t < f.values.size(); ++t, ++pooled) {
                auto &c = counts[20 * std::log10(f.values[t] / 100)];
                c.first += 1;
                c.second += f.right[t];
            }
            if (depth)
                depthDb.append(row["threshold_db"].toDouble());
        }

        auto summary = table(out + "/summary.tsv", "subject sound_type");
        const Row &s01 = summary["S01 noise"];
        QCOMPARE(s01["runs"] + " " + s01["fit_trials"] + " " + s01["alpha_db"] + s01["x66_db"] +
                     s01["deviance"] + s01["bootstrap_failed"] + summary["S03 sinusoid"]["runs"] +
                     summary["SIM002 sinusoid"]["alpha_db"] +
                     summary["S05 noise"]["output_volume_pct"],
                 QString("4 %1 0mixed").arg(4 * g.values.size()));
        // Two runs: the t interval with 1 degree of freedom, t = tan(0.475 pi).
        const double a = earlier.db(), b = later.db(), d = std::abs(a - b);
        const double half = std::tan(0.475 * M_PI) * d / 2;
        QVERIFY(matches(summary["S04 noise"],
                        "mean_threshold_db sd_db se_db ci95_low_db ci95_high_db geometric_mean "
                        "median_threshold first_to_last_db",
                        {(a + b) / 2, d / std::sqrt(2.0), d / 2, (a + b) / 2 - half,
                         (a + b) / 2 + half, std::sqrt(earlier.threshold * later.threshold),
                         (earlier.threshold + later.threshold) / 2, b - a}));

        // The report's figures as figures.tsv lists them (x, y, marker size),
        // by subject and sound type (a study page panel by its condition),
        // figure and series. S04's tracks in order of
        // acquisition, answers and reversals marked, and its thresholds.
        // The axes of each figure (x from, to, y from, to), and points outside
        // them or not on their page (the study page first).
        QMap<QString, QVector<QVector<double>>> drawn, expected;
        QMap<QString, QVector<double>> axes;
        QStringList outside;
        for (const QString &line :
             QString(contents(out + "/figures.tsv")).split('\n', Qt::SkipEmptyParts).mid(1)) {
            const QStringList c = line.split('\t');
            const QString figure =
                (c[1].isEmpty() ? c[2] : c[1] + ' ' + c[2].section(',', 0, 0)) + ' ' + c[3];
            drawn[figure + ' ' + c[4]].append({c[5].toDouble(), c[6].toDouble(), c[7].toDouble()});
            axes[figure] = {c[8].toDouble(), c[9].toDouble(), c[10].toDouble(), c[11].toDouble()};
            if (!(axes[figure][0] <= c[5].toDouble() && c[5].toDouble() <= axes[figure][1] &&
                  axes[figure][2] <= c[6].toDouble() && c[6].toDouble() <= axes[figure][3]) ||
                (c[3] == "study") != (c[0] == "1"))
                outside << line;
        }
        for (int k = 0; k < 2; ++k)
            for (int t = 0; t < (k ? later : earlier).values.size(); ++t) {
                const Facts &f = k ? later : earlier;
                const double x = t + 1, y = 20 * std::log10(f.values[t] / 100);
                expected[QString("S04 noise tracks run %1").arg(k + 1)].append({x, y, 0});
                expected[f.right[t] ? "S04 noise tracks correct" : "S04 noise tracks wrong"].append(
                    {x, y, 5});
                if (f.reversals.contains(t))
                    expected["S04 noise tracks reversal"].append({x, y, 10});
            }
        expected["S04 noise thresholds included"] = {{1, a, 10}, {2, b, 10}};
        // The simulated listener's fit: the maximum of the log-likelihood
        // computed here, its deviance (twice the distance to the saturated
        // model's), x66 and x75 from the inverse of the function, and α's
        // interval holding the estimate and the listener's alpha, β's high end
        // above β.
        const Row fit = summary["SIM001 noise"];
        const double alpha = fit["alpha_db"].toDouble(), beta = fit["beta_db"].toDouble();
        const double lapse = fit["lapse"].toDouble();
        // The log-likelihood at the estimate moved by (da, db, dl), or the
        // saturated model's.
        const auto logLikelihood = [&](double da, double db, double dl, bool saturated = false) {
            double sum = 0;
            for (auto it = counts.begin(); it != counts.end(); ++it) {
                const double m = it->first, k = it->second;
                const double p =
                    saturated ? k / m
                              : 0.5 + (0.5 - lapse - dl) /
                                          (1 + std::exp((alpha + da - it.key()) / (beta + db)));
                sum += (k > 0 ? k * std::log(p) : 0) + (k < m ? (m - k) * std::log(1 - p) : 0);
            }
            return sum;
        };
        const double best = logLikelihood(0, 0, 0);
        const double replicates = 201 - fit["bootstrap_failed"].toInt();
        const double larger = fit["deviance_p"].toDouble() * replicates;
        QVERIFY2(matches(fit, "mean_threshold_db sd_db fit_trials deviance x66_db x75_db",
                         {mean(depthDb), stdDev(depthDb), double(pooled),
                          2 * (logLikelihood(0, 0, 0, true) - best),
                          levelAt(2.0 / 3, alpha, beta, lapse), levelAt(0.75, alpha, beta, lapse)},
                         1e-5) &&
                     lapse >= 0 && lapse <= 0.06 && replicates > 180 &&
                     std::abs(larger - std::round(larger)) < 1e-3 && larger > 0.5 &&
                     logLikelihood(-.05, 0, 0) < best && logLikelihood(.05, 0, 0) < best &&
                     logLikelihood(0, -.05, 0) < best && logLikelihood(0, .05, 0) < best &&
                     logLikelihood(0, 0, lapse > .03 ? -.005 : .005) < best &&
                     fit["alpha_db_ci95_low"].toDouble() < std::min(-20.0, alpha) &&
                     fit["alpha_db_ci95_high"].toDouble() > std::max(-20.0, alpha) &&
                     beta < fit["beta_db_ci95_high"].toDouble(),
                 qPrintable(QStringList(fit.values()).join(' ')));
        // SIM001's trials in 1 dB bins, each marker's area in proportion to
        // its trials; the fitted function across the bins and 3 β either side
        // of α; α's interval level with ψ(α).
        QMap<long, QPair<double, double>> bins;
        for (auto it = counts.begin(); it != counts.end(); ++it) {
            bins[std::lround(it.key())].first += it->first;
            bins[std::lround(it.key())].second += it->second;
        }
        const double most = std::max_element(bins.begin(), bins.end())->first;
        double lowest = 0.4;
        for (auto it = bins.begin(); it != bins.end(); ++it) {
            expected["SIM001 noise psychometric 1 dB bins"].append(
                {double(it.key()), it->second / it->first,
                 std::max(3.0, 18 * std::sqrt(it->first / most))});
            lowest = std::min(lowest, it->second / it->first);
        }
        const double from = std::min(alpha - 3 * beta, double(bins.firstKey()));
        const double to = std::max(alpha + 3 * beta, double(bins.lastKey()));
        const auto psi = [&](double x) {
            return 0.5 + (0.5 - lapse) / (1 + std::exp((alpha - x) / beta));
        };
        for (int k = 0; k <= 100; ++k)
            expected["SIM001 noise psychometric fit"].append(
                {from + (to - from) * k / 100, psi(from + (to - from) * k / 100), 0});
        expected["SIM001 noise psychometric 95 % interval of α"] = {
            {fit["alpha_db_ci95_low"].toDouble(), psi(alpha), 0},
            {fit["alpha_db_ci95_high"].toDouble(), psi(alpha), 0}};
        // The study page's panel of the noise runs: a row per subject from the
        // top with its mean, then the mean of the subjects' means with its t
        // interval (t 0.975 with 3 df is 3.182446).
        const QString panel =
            "noise, modulation depth, modulation 40 Hz, standard depth 0 %, 600 ms "
            "study ";
        QVector<double> means;
        for (const char *subject : {"S01", "S04", "S05", "SIM001"}) {
            const Row &s = summary[QString(subject) + " noise"];
            const double y = 5 - means.size(), m = s["mean_threshold_db"].toDouble();
            means.append(m);
            expected[panel + "subjects' means"].append({m, y, 7});
        }
        const double h = 3.182446 * stdDev(means) / 2;
        expected[panel + "mean of subjects"] = {{mean(means), 1, 9}};
        expected[panel + "mean of 4"] = {{mean(means) - h, 1, 0}, {mean(means) + h, 1, 0}};
        for (auto it = expected.begin(); it != expected.end(); ++it) {
            bool same = drawn[it.key()].size() == it->size();
            for (int i = 0; same && i < it->size(); ++i)
                for (int j = 0; j < 3; ++j)
                    same &= std::abs(drawn[it.key()][i][j] - (*it)[i][j]) <=
                            1e-6 * std::max(1.0, std::abs((*it)[i][j]));
            QVERIFY2(same, qPrintable(it.key()));
        }
        // Axes that hold every point: whole runs with half a run to spare,
        // proportions up to 1 from 0.4 or the tenth below the lowest bin, a
        // panel's rows with half a row to spare.
        const QVector<double> &psychometric = axes["SIM001 noise psychometric"];
        QVERIFY2(outside.isEmpty() &&
                     axes["S04 noise thresholds"].mid(0, 2) == (QVector<double>{0, 3}) &&
                     psychometric[3] == 1 && psychometric[2] <= lowest &&
                     psychometric[2] > lowest - 0.1 &&
                     axes[panel.trimmed()].mid(2) == (QVector<double>{0.5, 5.5}),
                 qPrintable(outside.join('\n')));

        // The simulator's own table of the depth runs: its listener (alpha
        // -20 dB is 10 %) and the mean threshold re the listener's 66.7 %
        // point, from the inverse of its function.
        const QString shown = simulator.out.section("re that point", 1).simplified();
        QVERIFY2(simulator.status == 0 && simulator.out.contains("Runs:      5 (5 finished)") &&
                     simulator.out.contains("-20.00 dB (10.0000 %), beta 2.00 dB, lapse 0.020") &&
                     std::abs(shown.section(' ', 0, 0).toDouble() - mean(depthDb) +
                              levelAt(2.0 / 3, -20, 2, 0.02)) < 0.011,
                 qPrintable(simulator.out));
        // Its mean, SD and 5th to 95th percentiles (interpolated between the
        // 5 sorted runs) of the thresholds in % and in dB, in columns of 11
        // characters with 4 and 2 decimals.
        const QStringList rows = simulator.out.split('\n').filter("Threshold (");
        for (int r = 0; r < 2; ++r) {
            QVector<double> v = depthDb;
            for (double &x : v)
                x = r ? x : 100 * std::pow(10, x / 20);
            std::sort(v.begin(), v.end());
            int k = 0;
            for (double x : {mean(v), stdDev(v), v[0] + 0.2 * (v[1] - v[0]), v[1], v[2], v[3],
                             v[3] + 0.8 * (v[4] - v[3])}) {
                const QString cell = rows.value(r).mid(18 + 11 * k++, 11);
                QVERIFY(cell.section('.', 1).size() == 4 - 2 * r && rows[r].size() == 95 &&
                        std::abs(cell.toDouble() - x) < (r ? 6e-3 : 6e-5));
            }
        }

        // A picture of every page (A4 landscape at twice 96 dots per inch),
        // and the simulator's picture (two figures of 760 x 560 side by side):
        // each drawn on white, its charts and text covering about a twentieth
        // of it.
        QCOMPARE(contents(out + "/report.pdf").count("/Type /Page\n"), 9);
        for (const QString &page : png.entryList(QDir::Files) + QStringList("../sim.png")) {
            const QImage image(png.filePath(page));
            double ink = 0, area = image.width() * image.height() / 4.0;
            for (int y = 0; y < image.height(); y += 2)
                for (int x = 0; x < image.width(); x += 2)
                    ink += (image.pixel(x, y) != qRgb(255, 255, 255)) / area;
            QVERIFY2(image.pixel(0, 0) == qRgb(255, 255, 255) && ink > 0.02 && ink < 0.2 &&
                         image.size() == (page[0] == '.' ? QSize(1520, 560) : QSize(2246, 1588)),
                     qPrintable(page));
        }

        // The same inputs and seed give the same tables, byte for byte.
        runTool("S --out @/again " + options, temp.path());
        for (const char *name : {"/runs.tsv", "/summary.tsv"})
            QCOMPARE(contents(temp.filePath("again") + name), contents(out + name));

        // Refusals: status 2 and the tool's own message, nothing written (@ is
        // the study folder).
        for (const char *refusal : {"S --bootstrap x @", "S --lapse 0.5 @", "S --seed x @",
                                    "S @/none", "S --out @/out @", "L --quantity x", "L --beta 0",
                                    "L --lapse 0.5", "L --runs 0", "L --carrier 0", "L extra"}) {
            const Outcome refused = runTool(refusal, data.path());
            QVERIFY2(refused.status == 2 && refused.err.endsWith("; see --help\n"), refusal);
        }
    }

    // Both tools answer a mistyped option in their own words and --help with
    // their usage, and name an output they cannot write whole: a table on a
    // full disk, the summary's report where a folder is in its way (a
    // failure, though every run was used).
    void toolManners()
    {
        QTemporaryDir temp;
        const auto tool = [&](const char *words) { return runTool(words, temp.path()); };
        QCOMPARE(tool("S --x @").said() + tool("L --runs 3 --x=1").said() +
                     tool("S --help").said() + tool("L -h").said(),
                 QString("2 veltrane-summary: unknown option '--x'; see --help\n"
                         "2 simulate-listener: unknown option '--x'; see --help\n0 0 "));
        QCOMPARE(tool("L --runs 3 --tsv /dev/full --plot @/plot.png --save-runs @/runs").said(),
                 QString("1 simulate-listener: cannot write /dev/full\n"));
        QDir().mkpath(temp.filePath("out/report.pdf")); // in the way of the report
        QFile::link("/dev/full", temp.filePath("out/runs.tsv"));
        QCOMPARE(tool("S --bootstrap 0 --last 2 --out @/out @/runs").said(),
                 QString("1 veltrane-summary: %1/runs.tsv: cannot be written\nveltrane-summary: "
                         "%1/report.pdf: the report could not be written whole\n")
                     .arg(temp.filePath("out")));
        // --last 2: the group's last two runs by their start times.
        const QString sim = temp.filePath("runs/SIM001_test00%1_noise_modulation depth.txt");
        const double a = facts(sim.arg(2)).db(), b = facts(sim.arg(3)).db();
        QVERIFY(matches(table(temp.filePath("out/summary.tsv"), "subject")["SIM001"],
                        "runs mean_threshold_db", {2, (a + b) / 2}));

        // A listener wrong at every level takes the track to the upper limit
        // of 100 %, where it never reverses; with no run finished, its chance
        // at the mean threshold is unknown.
        QVERIFY(tool("L --listener step --alpha 0 --runs 1 --max-trials 20 --tsv /dev/stdout")
                    .out.contains(QRegularExpression(
                        "upper limit +100.0 %\nPercent correct at the mean threshold +- %[\\s\\S]*"
                        "\n1\t20\t0\t\t\t1\t0\n$")));
    }

    // The simulator's figures: the finished runs' thresholds (dB) in
    // ceil(sqrt(n)) bins, 10 to 40, from 0.25 dB below the lowest to 0.25 dB
    // above the highest, drawn as an outline; the mean and the listener's
    // 66.7 % point as vertical lines up to the tallest bin; the first run's
    // track with its answers and its threshold. The track's axes by hand for 5
    // runs: trials 0.5 to 5.5 in steps of 1 (1 to 5 steps would be 0.83),
    // levels -30 to -21.46 dB, 5 % and 0.5 dB to spare, in steps of 2.
    void simulatorFigures()
    {
        const double target = levelAt(2.0 / 3, -20, 2, 0.02);
        for (const int n : {5, 150, 2000}) {
            QVector<RunOutcome> runs(n + 1); // the last one unfinished, left out
            QVector<double> db;
            QVector<QPointF> track, right, wrong;
            for (int k = 0; k < n; ++k) {
                db.append(-30 + 10 * std::fmod(k * 0.618034, 1.0));
                runs[k] = {{}, {}, std::pow(10, db[k] / 20), true, false};
                runs[0].trials.append({runs[k].threshold, 2, 2, k % 3 > 0, 500});
                (k % 3 > 0 ? right : wrong) << (track << QPointF(k + 1, db[k])).last();
            }
            const auto f = PlotFigures::of({}, Listener::logistic(-20, 2, 0.02), runs);
            const int bins = n < 100 ? 10 : n < 1600 ? std::ceil(std::sqrt(n)) : 40;
            const double low = *std::min_element(db.begin(), db.end()) - 0.25;
            const double width = (*std::max_element(db.begin(), db.end()) + 0.25 - low) / bins;
            QVector<QPointF> bars;
            double top = 0;
            for (int i = 0; i < bins; ++i) {
                const double count = std::count_if(db.begin(), db.end(), [&](double v) {
                    return v >= low + i * width && v < low + (i + 1) * width;
                });
                bars << QPointF(low + i * width, count) << QPointF(low + (i + 1) * width, count);
                top = std::max(top, count);
            }
            QVERIFY(f[0].series[0].points == bars &&
                    f[0].series[1].points == (QVector<QPointF>{{mean(db), 0}, {mean(db), top}}) &&
                    f[0].series[2].points == (QVector<QPointF>{{target, 0}, {target, top}}) &&
                    f[1].series[0].points == track && f[1].series[1].points == right &&
                    f[1].series[2].points == wrong &&
                    f[1].series[3].points == (QVector<QPointF>{{1, db[0]}, {double(n), db[0]}}) &&
                    f[0].y.min == 0 && f[0].y.step >= 1 && f[0].y.max >= top && f[0].x.min <= low &&
                    f[1].x.max >= n &&
                    (n > 5 ||
                     QVector<double>{f[1].x.min, f[1].x.max, f[1].x.step, f[1].y.min, f[1].y.max,
                                     f[1].y.step} == QVector<double>{0, 6, 1, -32, -20, 2}));
        }
    }
};

QTEST_GUILESS_MAIN(TestTools)
#include "tst_tools.moc"
