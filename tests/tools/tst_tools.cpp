// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/sessionparameters.h"
#include "procedure/resultsfile.h"
#include "procedure/sidecar.h"
#include "procedure/staircase.h"

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

using Row = QMap<QString, QString>;

// A tab-separated table as rows of named cells, keyed by the named columns'
// cells joined by spaces (a file by its name alone); `order` gets the keys in
// the table's order.
QMap<QString, Row> table(const QString &path, const QStringList &key, QStringList *order = nullptr)
{
    QStringList lines = QString(contents(path)).split('\n', Qt::SkipEmptyParts);
    const QStringList names = lines.takeFirst().split('\t');
    QMap<QString, Row> rows;
    for (const QString &line : lines) {
        Row row;
        const QStringList cells = line.split('\t');
        for (int i = 0; i < names.size(); ++i)
            row[names[i]] = cells.value(i);
        row["file"] = QFileInfo(row["file"]).fileName();
        QStringList k;
        for (const QString &column : key)
            k.append(row[column]);
        rows[k.join(' ')] = row;
        if (order)
            order->append(k.join(' '));
    }
    return rows;
}

bool near(const QString &cell, double expected, double tolerance = 1e-6)
{
    bool ok = false;
    const double value = cell.toDouble(&ok);
    return ok && std::abs(value - expected) <= tolerance * std::max(1.0, std::abs(expected));
}

double stdDev(const QVector<double> &v)
{
    const double m = std::accumulate(v.begin(), v.end(), 0.0) / v.size();
    double s = 0;
    for (double x : v)
        s += (x - m) * (x - m);
    return std::sqrt(s / (v.size() - 1));
}

// What a results file says when read by hand: the values at which the answer
// changed from the one before are the reversals, the threshold is the mean of
// the last 8 of them (%).
struct Facts {
    QVector<double> values, reactionTimes;
    QVector<bool> right;
    int chose2 = 0;
    QVector<double> averagedDb; // the last 8 reversals in dB
    double threshold = 0;
};

Facts facts(const QString &path)
{
    Facts f;
    for (const QString &line : QString(contents(path)).split("\r\n").mid(1))
        if (!line.isEmpty()) {
            const QStringList c = line.split('\t');
            f.values.append(c[0].toDouble());
            f.chose2 += c[2] == "2";
            f.right.append(c[3] == "1");
            f.reactionTimes.append(c[4].toDouble());
        }
    QVector<double> reversals;
    for (int i = 1; i < f.values.size(); ++i)
        if (f.right[i] != f.right[i - 1])
            reversals.append(f.values[i]);
    for (double v : reversals.mid(reversals.size() - 8)) {
        f.threshold += v / 8;
        f.averagedDb.append(20 * std::log10(v / 100));
    }
    return f;
}

// A run of the program's staircase, of modulation depth in noise or of
// frequency difference in a sinusoid, answered by a listener that is right
// exactly above `switchAt`, saved with the core's writers; started at 9:00
// plus `minute` (the session number when -1).
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

void rewrite(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(bytes);
}

// The task's psychometric function and the log-likelihood of pooled counts
// (level in dB: trials, correct) under it.
double psi(double x, double alpha, double beta, double lapse)
{
    return 0.5 + (0.5 - lapse) / (1 + std::exp(-(x - alpha) / beta));
}

using Counts = QMap<double, QPair<int, int>>;

double logLikelihood(const Counts &counts, double alpha, double beta, double lapse)
{
    double sum = 0;
    for (auto it = counts.begin(); it != counts.end(); ++it) {
        const double p = psi(it.key(), alpha, beta, lapse);
        sum += it->second * std::log(p) + (it->first - it->second) * std::log(1 - p);
    }
    return sum;
}

// The level at which the function reaches p, from its closed-form inverse.
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
    // A study folder with one run of each kind a lab meets, and groups whose
    // statistics are known by hand.
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
        // Three more runs of S01 like the first: the pooled trials separate
        // perfectly at the switch, so no fit converges.
        int s01Trials = facts(good).values.size();
        for (int session : {7, 8, 9})
            s01Trials += facts(saveRun(data, "S01", 1, session, true)).values.size();
        // Two runs of S04, the second session started first.
        const Facts later = facts(saveRun(data, "S04", 1, 1, true, 1000, {}, 1, 0.3, 40));
        const Facts earlier = facts(saveRun(data, "S04", 1, 2, true, 1000, {}, 1, 0.1, 20));

        const Facts g = facts(good);
        const int n = g.values.size();
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

        QStringList order;
        auto runs = table(out + "/runs.tsv", {"file"}, &order);
        QCOMPARE(runs.size(), 10);
        QVERIFY(std::is_sorted(order.begin(), order.end()));
        const Row &r = runs[QFileInfo(good).fileName()];
        QCOMPARE(r["included"] + " " + r["trials"] + " " + r["reversals"],
                 QString("1 %1 14").arg(n));
        QVector<double> rt = g.reactionTimes;
        std::sort(rt.begin(), rt.end());
        QVERIFY(near(r["threshold"], g.threshold) &&
                near(r["threshold_db"], 20 * std::log10(g.threshold / 100)) &&
                near(r["reversal_sd_db"], stdDev(g.averagedDb)) &&
                near(r["percent_correct"],
                     100.0 * std::count(g.right.begin(), g.right.end(), true) / n) &&
                near(r["chose_2_pct"], 100.0 * g.chose2 / n) &&
                near(r["mean_rt_ms"], std::accumulate(rt.begin(), rt.end(), 0.0) / n) &&
                near(r["median_rt_ms"], (rt[(n - 1) / 2] + rt[n / 2]) / 2));
        QCOMPARE(r["acquired"], QString("2024-03-01T09:01:00+00:00"));
        const Row &faulty = runs["S01_test003_noise_modulation depth.txt"];
        QCOMPARE(runs["S01_practice002_noise_modulation depth.txt"]["excluded_because"] + "|" +
                     faulty["excluded_because"] + faulty["complete"] + faulty["faulty_intervals"] +
                     "|" + runs[QFileInfo(changed).fileName()]["excluded_because"],
                 QString("practice|incomplete,faulty01|threshold mismatch"));
        const Row &lone = runs[QFileInfo(alone).fileName()];
        // Without a sidecar the file name says who, which session and what.
        QCOMPARE(lone["subject"] + lone["session_type"] + lone["session"] + lone["sound_type"] +
                     lone["sidecar"] + lone["included"],
                 QString("S02test1noise01"));
        QCOMPARE(lone["carrier_hz"] + lone["acquired"], QString());

        QStringList subjects;
        auto summary = table(out + "/summary.tsv", {"subject"}, &subjects);
        QCOMPARE(subjects, QStringList({"S01", "S02", "S03", "S04"}));
        // Separated answers: counted, but no fit; a group of excluded runs
        // keeps its row.
        const Row &s01 = summary["S01"];
        QCOMPARE(s01["runs"] + " " + s01["fit_trials"] + " " + summary["S03"]["runs"],
                 QString("4 %1 0").arg(s01Trials));
        QCOMPARE(s01["alpha_db"] + s01["x66_db"] + s01["deviance"] + s01["bootstrap_failed"],
                 QString());
        // S04: the t interval with 1 degree of freedom, t = tan(0.475 pi).
        const Row &s04 = summary["S04"];
        const double a = 20 * std::log10(earlier.threshold / 100);
        const double b = 20 * std::log10(later.threshold / 100);
        const double half = std::tan(0.475 * M_PI) * std::abs(a - b) / 2;
        QVERIFY2(near(s04["mean_threshold_db"], (a + b) / 2) &&
                     near(s04["sd_db"], std::abs(a - b) / std::sqrt(2.0)) &&
                     near(s04["se_db"], std::abs(a - b) / 2) &&
                     near(s04["ci95_low_db"], (a + b) / 2 - half) &&
                     near(s04["ci95_high_db"], (a + b) / 2 + half) &&
                     near(s04["geometric_mean"], std::sqrt(earlier.threshold * later.threshold)) &&
                     near(s04["median_threshold"], (earlier.threshold + later.threshold) / 2) &&
                     near(s04["first_to_last_db"], b - a),
                 qPrintable(QStringList(s04.values()).join(' ')));
        QCOMPARE(summary["S02"]["carrier_hz"], QString());
        QVERIFY(QFileInfo(out + "/report.pdf").size() > 1000);
        QVERIFY(QJsonDocument::fromJson(
                    contents(out + "/summary.json"))["runs.tsv"]["threshold_db"]["Units"] == "dB");

        // The reasons a user may take away, the last run of each group, and
        // an explicit file.
        QCOMPARE(
            runTool(VELTRANE_SUMMARY_PATH, {"--out", out, "--bootstrap", "0", "--last", "1",
                                            "--include-practice", "--include-faulty", data.path()})
                .status,
            1);
        runs = table(out + "/runs.tsv", {"file"});
        QCOMPARE(runs["S01_practice002_noise_modulation depth.txt"]["included"] +
                     runs["S01_test003_noise_modulation depth.txt"]["excluded_because"],
                 QString("1incomplete"));
        summary = table(out + "/summary.tsv", {"subject"});
        QCOMPARE(summary["S04"]["runs"] + summary["S04"]["sd_db"], QString("1"));
        QVERIFY(near(summary["S04"]["mean_threshold_db"], b));
        QCOMPARE(runTool(VELTRANE_SUMMARY_PATH, {"--out", out, good}).status, 0);
        QVERIFY(near(table(out + "/summary.tsv", {"subject"})["S01"]["mean_threshold_db"],
                     20 * std::log10(g.threshold / 100)));

        // Refusals: status 2 and the tool's own one-line message.
        QDir(temp.path()).mkdir("empty");
        const QString summaryTool = VELTRANE_SUMMARY_PATH, simulator = SIMULATE_LISTENER_PATH;
        const QString missing = temp.filePath("missing");
        for (const QStringList &arguments :
             {QStringList{summaryTool, "--out", out, temp.filePath("empty")},
              {summaryTool, "--bootstrap", "x", good},
              {summaryTool, "--last", "0", good},
              {summaryTool, "--lapse", "0.5", good},
              {summaryTool, "--free-lapse", "--lapse", "0.07", good},
              {summaryTool, "--max-reversal-sd", "-1", good},
              {summaryTool, "--seed", "x", good},
              {summaryTool, "--out", out},
              {summaryTool, "--out", out, missing},
              {summaryTool, "--out", data.filePath("out"), data.path()},
              {summaryTool, "--png", data.filePath("png"), "--out", out, data.path()},
              {simulator, "--quantity", "x"},
              {simulator, "--listener", "x"},
              {simulator, "--beta", "0"},
              {simulator, "--lapse", "0.5"},
              {simulator, "--lapse", "-0.1"},
              {simulator, "--carrier", "0"},
              {simulator, "--runs", "0"},
              {simulator, "--alpha", "x"},
              {simulator, "--seed", "x"},
              {simulator, "--reversals", "0"},
              {simulator, "extra"}}) {
            const Outcome refused = runTool(arguments.first(), arguments.mid(1));
            QVERIFY2(refused.status == 2 && refused.messages.size() >= 1,
                     qPrintable(arguments.join(' ')));
        }
        QVERIFY(!data.exists("out") && !data.exists("png"));
    }

    // Simulated runs saved as the program saves them, summarised: every run's
    // threshold as the simulator found it, the files' conditions, and a fit
    // that is the maximum of the likelihood computed by hand.
    void simulatedStudy()
    {
        QTemporaryDir temp;
        const QString runs = temp.filePath("runs");
        const QStringList batches[] = {{"--quantity", "frequency", "--carrier", "500", "--alpha",
                                        "-40", "--runs", "4", "--runs-per-subject", "2"},
                                       {"--alpha", "-20", "--lapse", "0.02", "--runs", "5"}};
        QVector<QStringList> simulated(2); // each run's table line
        for (int k = 0; k < 2; ++k) {
            const QString tsv = temp.filePath(QString::number(k));
            QCOMPARE(
                runTool(SIMULATE_LISTENER_PATH,
                        batches[k] + QStringList{"--seed", "3", "--tsv", tsv, "--save-runs", runs})
                    .status,
                0);
            simulated[k] = QString(contents(tsv)).split('\n', Qt::SkipEmptyParts).mid(1);
        }
        const QString out = temp.filePath("out");
        const QStringList options{"--seed", "5", "--bootstrap", "200", runs};
        QCOMPARE(runTool(VELTRANE_SUMMARY_PATH, QStringList{"--out", out} + options).status, 0);
        const auto rows = table(out + "/runs.tsv", {"file"});
        QCOMPARE(rows.size(), 9);
        Counts counts; // the depth runs' trials pooled by level
        QVector<double> depthDb;
        for (int k = 0; k < 2; ++k)
            for (int i = 0; i < simulated[k].size(); ++i) {
                const int perSubject = k == 0 ? 2 : 5;
                const QString name =
                    QString("SIM%1_test%2_%3.txt")
                        .arg(i / perSubject + 1, 3, 10, QChar('0'))
                        .arg(i % perSubject + 1, 3, 10, QChar('0'))
                        .arg(k == 0 ? "sinusoid_carrier frequency" : "noise_modulation depth");
                const Row &row = rows[name];
                const double db = simulated[k][i].section('\t', 4, 4).toDouble();
                QVERIFY2(row["included"] == "1" && near(row["threshold_db"], db, 1e-4) &&
                             row["trials"] == simulated[k][i].section('\t', 1, 1) &&
                             row["acquired"] == QDateTime(QDate(2024, 1, 1), QTime(9, 0), Qt::UTC)
                                                    .addSecs(600 * i)
                                                    .toString(Qt::ISODate)
                                                    .replace("Z", "+00:00") &&
                             (k == 1 || near(row["carrier_hz"], 500)),
                         qPrintable(name));
                if (k == 0)
                    continue;
                depthDb.append(db);
                const Facts f = facts(runs + "/" + name);
                for (int t = 0; t < f.values.size(); ++t) {
                    auto &c = counts[20 * std::log10(f.values[t] / 100)];
                    ++c.first;
                    c.second += f.right[t];
                }
            }

        // The depth group: its mean and SD, and the fit.
        auto summary = table(out + "/summary.tsv", {"subject", "sound_type"});
        QCOMPARE(summary.keys(),
                 QStringList({"SIM001 noise", "SIM001 sinusoid", "SIM002 sinusoid"}));
        const Row fixed = summary["SIM001 noise"];
        QVERIFY(near(fixed["mean_threshold_db"],
                     std::accumulate(depthDb.begin(), depthDb.end(), 0.0) / 5, 1e-4) &&
                near(fixed["sd_db"], stdDev(depthDb), 1e-3));
        int trials = 0;
        double deviance = 0;
        const double alpha = fixed["alpha_db"].toDouble(), beta = fixed["beta_db"].toDouble();
        for (auto it = counts.begin(); it != counts.end(); ++it) {
            const double n = it->first, k = it->second, p = psi(it.key(), alpha, beta, 0.02);
            trials += n;
            deviance += 2 * ((k > 0 ? k * std::log(k / (n * p)) : 0) +
                             (k < n ? (n - k) * std::log((n - k) / (n * (1 - p))) : 0));
        }
        const int failed = fixed["bootstrap_failed"].toInt();
        const double p = fixed["deviance_p"].toDouble() * (201 - failed);
        QVERIFY2(fixed["fit_trials"].toInt() == trials && trials >= 100 &&
                     fixed["lapse"] == "0.02" && near(fixed["deviance"], deviance, 1e-5) &&
                     near(fixed["x66_db"], levelAt(2.0 / 3, alpha, beta, 0.02), 1e-5) &&
                     near(fixed["x75_db"], levelAt(0.75, alpha, beta, 0.02), 1e-5) && failed < 20 &&
                     std::abs(p - std::round(p)) < 1e-3 && p > 0.5,
                 qPrintable(QStringList(fixed.values()).join(' ')));
        // Each estimate inside its bootstrap interval, the listener's alpha too.
        for (const QString name : {"alpha_db", "beta_db", "x66_db"}) {
            const double low = fixed[name + "_ci95_low"].toDouble();
            const double high = fixed[name + "_ci95_high"].toDouble();
            QVERIFY2(low < fixed[name].toDouble() && fixed[name].toDouble() < high &&
                         (name != "alpha_db" || (low < -20 && -20 < high)),
                     qPrintable(name));
        }

        // The free lapse rate: within its bounds, at least as likely as the
        // fixed one, and both fits maxima of the likelihood.
        QCOMPARE(runTool(VELTRANE_SUMMARY_PATH,
                         QStringList{"--out", temp.filePath("free"), "--free-lapse"} + options)
                     .status,
                 0);
        const Row free =
            table(temp.filePath("free/summary.tsv"), {"subject", "sound_type"})["SIM001 noise"];
        const double lapse = free["lapse"].toDouble();
        QVERIFY(lapse >= 0 && lapse <= 0.06 &&
                logLikelihood(counts, free["alpha_db"].toDouble(), free["beta_db"].toDouble(),
                              lapse) >= logLikelihood(counts, alpha, beta, 0.02) - 1e-6);
        for (const Row &fit : {fixed, free}) {
            const double a = fit["alpha_db"].toDouble(), b = fit["beta_db"].toDouble();
            const double l = fit["lapse"].toDouble();
            const double best = logLikelihood(counts, a, b, l);
            for (double step : {-0.05, 0.05})
                QVERIFY(logLikelihood(counts, a + step, b, l) < best &&
                        logLikelihood(counts, a, b + step, l) < best &&
                        (fit["lapse"] == "0.02" || l + step / 10 < 0 || l + step / 10 > 0.06 ||
                         logLikelihood(counts, a, b, l + step / 10) < best));
        }

        // The same inputs and seed give the same tables, byte for byte.
        QCOMPARE(
            runTool(VELTRANE_SUMMARY_PATH, QStringList{"--out", temp.filePath("again")} + options)
                .status,
            0);
        for (const char *name : {"runs.tsv", "summary.tsv"})
            QCOMPARE(contents(temp.filePath("again/") + name), contents(out + "/" + name));
        QCOMPARE(QJsonDocument::fromJson(contents(out + "/summary.json"))["Seed"].toString(),
                 QString("5"));
    }

    // The simulator's terminal table against its own per-run table, and the
    // listener's known points.
    void simulatorReport()
    {
        QTemporaryDir temp;
        const QString tsv = temp.filePath("runs.tsv");
        const Outcome run = runTool(SIMULATE_LISTENER_PATH,
                                    {"--alpha", "-20", "--beta", "3", "--lapse", "0.04", "--runs",
                                     "30", "--max-trials", "40", "--seed", "9", "--tsv", tsv});
        QVector<double> pct, db, trials;
        for (const QString &line : QString(contents(tsv)).split('\n', Qt::SkipEmptyParts).mid(1))
            if (line.endsWith("\t1")) {
                pct.append(line.section('\t', 3, 3).toDouble());
                db.append(line.section('\t', 4, 4).toDouble());
                trials.append(line.section('\t', 1, 1).toDouble());
            }
        const int finished = pct.size();
        QVERIFY2(run.status == 0 && finished > 10 && finished < 30, qPrintable(run.out));
        const auto numbers = [&](const QString &label) {
            QVector<double> v;
            for (const QString &word : run.out.section(label, 1).section('\n', 0, 0).split(' '))
                if (!word.isEmpty() && word != "%" && word != "dB")
                    v.append(word.toDouble());
            return v;
        };
        const auto mean = [](const QVector<double> &v) {
            return std::accumulate(v.begin(), v.end(), 0.0) / v.size();
        };
        // Percentiles by linear interpolation between order statistics.
        const auto percentile = [](QVector<double> v, double q) {
            std::sort(v.begin(), v.end());
            const double rank = q / 100 * (v.size() - 1);
            const int below = int(rank);
            return v[below] +
                   (rank - below) * (v[std::min(below + 1, int(v.size()) - 1)] - v[below]);
        };
        const QVector<double> inPct = numbers("Threshold (%)"), inDb = numbers("Threshold (dB)");
        QVERIFY2(inPct.size() == 7 && inDb.size() == 7, qPrintable(run.out));
        QVector<double> expected{mean(pct), stdDev(pct)};
        for (double q : {5, 25, 50, 75, 95})
            expected.append(percentile(pct, q));
        for (int i = 0; i < 7; ++i)
            QVERIFY2(std::abs(inPct[i] - expected[i]) < 1e-3, qPrintable(QString::number(i)));
        const double point = levelAt(2.0 / 3, -20, 3, 0.04);
        const double atMean = 100 * psi(20 * std::log10(inPct[0] / 100), -20, 3, 0.04);
        QVERIFY2(run.out.contains(QString("Runs:      30 (%1 finished)").arg(finished)) &&
                     run.out.contains(QString("%1 runs did not reach 14 reversals within 40 trials")
                                          .arg(30 - finished)) &&
                     std::abs(inDb[0] - mean(db)) < 0.006 &&
                     std::abs(inDb[1] - stdDev(db)) < 0.006 &&
                     std::abs(numbers("Trials per run (mean)").value(0) - mean(trials)) < 0.06 &&
                     std::abs(numbers("Percent correct at the mean threshold").value(0) - atMean) <
                         0.06 &&
                     std::abs(numbers("Listener's 66.7 % point").value(0) - point) < 0.006 &&
                     std::abs(numbers("Mean threshold re that point").value(0) -
                              (inDb[0] - point)) < 0.011,
                 qPrintable(run.out));

        // A listener who is always wrong climbs to the ceiling and stays there.
        const Outcome deaf =
            runTool(SIMULATE_LISTENER_PATH, {"--listener", "step", "--alpha", "10", "--runs", "3",
                                             "--max-trials", "20", "--seed", "1"});
        QVERIFY2(
            deaf.out.contains("Runs:      3 (0 finished)") &&
                deaf.out.contains("3 runs did not reach 14 reversals within 20 trials") &&
                deaf.out.contains(QRegularExpression("Runs that reached the upper limit +100.0 %")),
            qPrintable(deaf.out));

        // Twenty runs against a step listener that is right above -20 dB and
        // wrong at or below. Once the steps are 1 dB the reversals alternate
        // between the last value at or below the switch and the value 2 dB
        // above it, so every threshold lies from 0 to
        // 20 log10((1 + 10^(2/20)) / 2), about 1.05 dB, above the switch.
        const Outcome step =
            runTool(SIMULATE_LISTENER_PATH,
                    {"--listener", "step", "--alpha", "-20", "--runs", "20", "--seed", "7"});
        bool ok = false;
        const double above = step.out.section("Mean threshold re the switching value", 1)
                                 .section("dB", 0, 0)
                                 .toDouble(&ok);
        QVERIFY2(step.out.contains("Runs:      20 (20 finished)") && ok && above >= 0.0 &&
                     above <= 1.05,
                 qPrintable(step.out));
    }
};

QTEST_GUILESS_MAIN(TestTools)
#include "tst_tools.moc"
