// SPDX-License-Identifier: GPL-3.0-or-later
#include "tables.h"

#include <QJsonArray>

#include <cmath>
#include <functional>

namespace
{
template <typename Row> struct Column {
    const char *name;
    const char *description;
    const char *units; // empty when the column has none
    std::function<QString(const Row &)> cell;
};

QString cell(double v)
{
    return std::isfinite(v) ? QString::number(v, 'g', 8) : QString();
}

QString cell(const QString &text)
{
    QString t = text;
    return t.replace('\t', ' ').replace('\n', ' ').replace('\r', ' ');
}

QString cell(int v)
{
    return QString::number(v);
}

QString flag(bool v)
{
    return v ? "1" : "0";
}

// The file's unit, for the columns in it.
const char *const fileUnit = "Hz or % (frequency difference or modulation depth)";

const QVector<Column<RunRow>> &runColumns()
{
    static const QVector<Column<RunRow>> columns{
        {"file", "The results file as found", "", [](const RunRow &r) { return cell(r.file); }},
        {"subject", "Subject code", "", [](const RunRow &r) { return cell(r.subject); }},
        {"session_type", "practice or test", "",
         [](const RunRow &r) { return cell(r.sessionType); }},
        {"session", "Session number", "",
         [](const RunRow &r) { return r.session < 0 ? QString() : cell(r.session); }},
        {"sound_type", "sinusoid or noise", "", [](const RunRow &r) { return cell(r.soundType); }},
        {"main_parameter", "The tracked quantity: carrier frequency or modulation depth", "",
         [](const RunRow &r) { return cell(r.mainParameter); }},
        {"carrier_hz", "The standard's carrier frequency", "Hz",
         [](const RunRow &r) { return cell(r.carrierHz); }},
        {"modulation_hz", "The standard's modulation frequency", "Hz",
         [](const RunRow &r) { return cell(r.modulationHz); }},
        {"standard_depth_pct", "The standard's modulation depth", "%",
         [](const RunRow &r) { return cell(r.standardDepthPct); }},
        {"duration_ms", "The standard's duration", "ms",
         [](const RunRow &r) { return cell(r.durationMs); }},
        {"acquired", "When the run started, from the sidecar (ISO 8601 with UTC offset)", "",
         [](const RunRow &r) { return cell(r.acquired); }},
        {"trials", "Answered trials", "", [](const RunRow &r) { return cell(r.trials.size()); }},
        {"reversals", "Reversals of the staircase, recomputed from the trials", "",
         [](const RunRow &r) { return cell(r.reversals); }},
        {"complete", "1 when the run reached its set number of reversals, else 0", "",
         [](const RunRow &r) { return flag(r.complete); }},
        {"threshold", "Mean of the last reversal values, recomputed from the trials", fileUnit,
         [](const RunRow &r) { return cell(r.threshold); }},
        {"threshold_db",
         "20 log10 of the threshold as a fraction (depth / 100, frequency difference / carrier)",
         "dB", [](const RunRow &r) { return cell(r.thresholdDb); }},
        {"reversal_sd_db", "Standard deviation (n - 1) of the averaged reversal values", "dB",
         [](const RunRow &r) { return cell(r.reversalSdDb); }},
        {"percent_correct", "Share of correct answers", "%",
         [](const RunRow &r) { return cell(r.percentCorrect); }},
        {"chose_2_pct", "Share of answers naming sound 2", "%",
         [](const RunRow &r) { return cell(r.chose2Pct); }},
        {"mean_rt_ms", "Mean reaction time over all trials", "ms",
         [](const RunRow &r) { return cell(r.meanRtMs); }},
        {"median_rt_ms", "Median reaction time over all trials", "ms",
         [](const RunRow &r) { return cell(r.medianRtMs); }},
        {"faulty_intervals", "Sounds that did not play, from the sidecar", "",
         [](const RunRow &r) { return cell(r.faultyIntervals); }},
        {"sidecar", "1 when the run's sidecar was read, else 0", "",
         [](const RunRow &r) { return flag(r.hasSidecar); }},
        {"included", "1 when the run enters the means and the fit, else 0", "",
         [](const RunRow &r) { return flag(r.included()); }},
        {"excluded_because",
         "Every reason the run is left out, comma-separated: practice, incomplete, faulty, "
         "threshold mismatch (the sidecar's threshold differs from the recomputed one by more "
         "than 0.001), unstable, carrier unknown (a frequency run without a sidecar)",
         "", [](const RunRow &r) { return cell(r.excludedBecause.join(',')); }},
    };
    return columns;
}

struct GroupView {
    const StudyGroup *g;
    const RunRow *r; // a run of the group, for its condition
};

const QVector<Column<GroupView>> &summaryColumns()
{
    using V = GroupView;
    static const QVector<Column<GroupView>> columns{
        {"subject", "Subject code", "", [](const V &v) { return cell(v.g->subject); }},
        {"sound_type", "sinusoid or noise", "", [](const V &v) { return cell(v.r->soundType); }},
        {"main_parameter", "The tracked quantity", "",
         [](const V &v) { return cell(v.r->mainParameter); }},
        {"carrier_hz", "The standard's carrier frequency", "Hz",
         [](const V &v) { return cell(v.r->carrierHz); }},
        {"modulation_hz", "The standard's modulation frequency", "Hz",
         [](const V &v) { return cell(v.r->modulationHz); }},
        {"standard_depth_pct", "The standard's modulation depth", "%",
         [](const V &v) { return cell(v.r->standardDepthPct); }},
        {"duration_ms", "The standard's duration", "ms",
         [](const V &v) { return cell(v.r->durationMs); }},
        {"runs", "Included runs summarised (the last --last of them when set)", "",
         [](const V &v) { return cell(v.g->used.size()); }},
        {"mean_threshold_db", "Mean of threshold_db", "dB",
         [](const V &v) { return cell(v.g->meanDb); }},
        {"sd_db", "Standard deviation (n - 1) of threshold_db", "dB",
         [](const V &v) { return cell(v.g->sdDb); }},
        {"se_db", "Standard error of the mean", "dB", [](const V &v) { return cell(v.g->seDb); }},
        {"ci95_low_db", "Lower end of the 95 % interval of the mean (t distribution)", "dB",
         [](const V &v) { return cell(v.g->ciLowDb); }},
        {"ci95_high_db", "Upper end of the 95 % interval of the mean (t distribution)", "dB",
         [](const V &v) { return cell(v.g->ciHighDb); }},
        {"geometric_mean", "Geometric mean of the thresholds (the mean in dB, converted back)",
         fileUnit, [](const V &v) { return cell(v.g->geometricMean); }},
        {"median_threshold", "Median of the thresholds", fileUnit,
         [](const V &v) { return cell(v.g->median); }},
        {"first_to_last_db", "Last summarised run minus the first, in acquisition order", "dB",
         [](const V &v) { return cell(v.g->firstToLastDb); }},
        {"fit_trials", "Trials pooled into the fit", "",
         [](const V &v) { return cell(v.g->fit.trials); }},
        {"alpha_db", "Fitted alpha: the midpoint of the logistic", "dB",
         [](const V &v) { return cell(v.g->fit.alpha); }},
        {"alpha_db_ci95_low",
         "Lower end of the 95 % interval of alpha: 1.7th percentile over the re-run bootstrap",
         "dB", [](const V &v) { return cell(v.g->fit.alphaLow); }},
        {"alpha_db_ci95_high",
         "Upper end of the 95 % interval of alpha: 98.3rd percentile over the re-run bootstrap",
         "dB", [](const V &v) { return cell(v.g->fit.alphaHigh); }},
        {"beta_db", "Fitted beta: the spread of the logistic", "dB",
         [](const V &v) { return cell(v.g->fit.beta); }},
        {"beta_db_ci95_low",
         "Lower end of the 95 % interval of beta: 1.7th percentile over the bootstrap", "dB",
         [](const V &v) { return cell(v.g->fit.betaLow); }},
        {"beta_db_ci95_high",
         "Upper end of the 95 % interval of beta: 98.3rd percentile over the bootstrap", "dB",
         [](const V &v) { return cell(v.g->fit.betaHigh); }},
        {"lapse", "Lapse rate: fixed (--lapse) or fitted within 0 to 0.06 (--free-lapse)", "",
         [](const V &v) { return cell(v.g->fit.lapse); }},
        {"x66_db", "Level at 66.7 % correct, the point the staircase aims at", "dB",
         [](const V &v) { return cell(v.g->fit.x66); }},
        {"x66_db_ci95_low",
         "Lower end of the 95 % interval of x66_db: 1.7th percentile over the bootstrap", "dB",
         [](const V &v) { return cell(v.g->fit.x66Low); }},
        {"x66_db_ci95_high",
         "Upper end of the 95 % interval of x66_db: 98.3rd percentile over the bootstrap", "dB",
         [](const V &v) { return cell(v.g->fit.x66High); }},
        {"x75_db", "Level at 75 % correct", "dB", [](const V &v) { return cell(v.g->fit.x75); }},
        {"bootstrap_failed", "Bootstrap replicates whose fit did not converge", "",
         [](const V &v) { return v.g->fit.fitted ? cell(v.g->fit.bootstrapFailed) : QString(); }},
        {"deviance", "Deviance of the fit against the saturated model, trials pooled by level", "",
         [](const V &v) { return cell(v.g->fit.deviance); }},
        {"deviance_p",
         "Monte Carlo p-value of the deviance: (1 + replicates at least as large) / (1 + "
         "replicates)",
         "", [](const V &v) { return cell(v.g->fit.devianceP); }},
    };
    return columns;
}

template <typename Row> QString table(const QVector<Column<Row>> &columns, const QVector<Row> &rows)
{
    QStringList lines, names;
    for (const Column<Row> &c : columns)
        names.append(c.name);
    lines.append(names.join('\t'));
    for (const Row &row : rows) {
        QStringList cells;
        for (const Column<Row> &c : columns)
            cells.append(c.cell(row));
        lines.append(cells.join('\t'));
    }
    return lines.join('\n') + '\n';
}

template <typename Row> QJsonObject describe(const QVector<Column<Row>> &columns)
{
    QJsonObject object;
    for (const Column<Row> &c : columns) {
        QJsonObject column{{"Description", c.description}};
        if (*c.units)
            column.insert("Units", c.units);
        object.insert(c.name, column);
    }
    return object;
}
} // namespace

QString Tables::runs(const QVector<RunRow> &rows)
{
    return table(runColumns(), rows);
}

QString Tables::summary(const QVector<StudyGroup> &groups, const QVector<RunRow> &rows)
{
    QVector<GroupView> views;
    for (const StudyGroup &g : groups)
        views.append({&g, &rows[g.first]});
    return table(summaryColumns(), views);
}

QJsonObject Tables::description(const QJsonObject &about)
{
    QJsonObject object = about;
    object.insert("runs.tsv", describe(runColumns()));
    object.insert("summary.tsv", describe(summaryColumns()));
    return object;
}
