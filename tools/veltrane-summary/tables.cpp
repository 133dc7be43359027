// SPDX-License-Identifier: GPL-3.0-or-later
#include "tables.h"

#include "tablecolumns.h"

#include <QJsonArray>

#include <cmath>

namespace
{
using TableColumns::describe;
using TableColumns::table;

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
        {"carrier_hz", "The standard's carrier frequency; empty for a noise", "Hz",
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
        {"output_volume_pct",
         "Volume of the audio output, from the sidecar, where it was one known value for the "
         "whole run",
         "%", [](const RunRow &r) { return cell(r.outputVolumePct); }},
        {"output_muted",
         "1 when a sound of the run played on a muted output (or one at 0 %), 0 when none did, "
         "empty where unknown",
         "", [](const RunRow &r) { return r.outputMuted < 0 ? QString() : cell(r.outputMuted); }},
        {"sidecar", "1 when the run's sidecar was read, else 0", "",
         [](const RunRow &r) { return flag(r.hasSidecar); }},
        {"included", "1 when the run enters the means and the fit, else 0", "",
         [](const RunRow &r) { return flag(r.included()); }},
        {"excluded_because",
         "Every reason the run is left out, comma-separated: practice, incomplete, faulty, "
         "threshold mismatch (the sidecar's threshold differs from the recomputed one by more "
         "than 0.001), unstable, carrier unknown (a frequency run without a sidecar), muted (a "
         "sound "
         "played on a muted output or one at 0 %), volume changed (the output's volume or device "
         "changed during the run)",
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
        {"carrier_hz", "The standard's carrier frequency; empty for a noise", "Hz",
         [](const V &v) { return cell(v.r->carrierHz); }},
        {"modulation_hz", "The standard's modulation frequency", "Hz",
         [](const V &v) { return cell(v.r->modulationHz); }},
        {"standard_depth_pct", "The standard's modulation depth", "%",
         [](const V &v) { return cell(v.r->standardDepthPct); }},
        {"duration_ms", "The standard's duration", "ms",
         [](const V &v) { return cell(v.r->durationMs); }},
        {"output_volume_pct",
         "The output volume of the summarised runs, or mixed when they differ (runs of unknown "
         "volume not counted)",
         "%",
         [](const V &v) {
             const QVector<double> &volumes = v.g->outputVolumes;
             return volumes.size() > 1 ? "mixed" : volumes.isEmpty() ? QString() : cell(volumes[0]);
         }},
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

struct TrialView {
    const RunRow *r;
    int t; // the trial, from 0
};

// A runs.tsv column repeated on each of the run's trials.
Column<TrialView> runColumn(const char *name)
{
    for (const Column<RunRow> &c : runColumns())
        if (c.name == QLatin1String(name))
            return {c.name, c.description, c.units,
                    [cell = c.cell](const TrialView &v) { return cell(*v.r); }};
    qFatal("runs.tsv has no column %s", name);
}

const QVector<Column<TrialView>> &trialColumns()
{
    using V = TrialView;
    static const QVector<Column<TrialView>> columns{
        runColumn("file"),
        runColumn("subject"),
        runColumn("sound_type"),
        runColumn("main_parameter"),
        runColumn("carrier_hz"),
        runColumn("modulation_hz"),
        runColumn("standard_depth_pct"),
        runColumn("duration_ms"),
        runColumn("session"),
        {"trial", "Trial of the run, from 1", "", [](const V &v) { return cell(v.t + 1); }},
        // All the digits the results file has (six decimals), so a level can be
        // matched to its line there.
        {"level", "The deviant's tracked value, as in the results file", fileUnit,
         [](const V &v) { return QString::number(v.r->trials[v.t].value, 'g', 15); }},
        {"level_db",
         "20 log10 of the level as a fraction (depth / 100, frequency difference / carrier)", "dB",
         [](const V &v) { return cell(v.r->levelDb(v.t)); }},
        {"stimulus_position", "The sound that differed: 2 or 3", "",
         [](const V &v) { return cell(v.r->trials[v.t].stimPosition); }},
        {"response_position", "The sound the participant named: 2 or 3", "",
         [](const V &v) { return cell(v.r->trials[v.t].responsePosition); }},
        {"correct", "1 for a right answer, else 0", "",
         [](const V &v) { return flag(v.r->trials[v.t].correct); }},
        {"reaction_time_ms", "Time from the end of the fourth sound to the answer", "ms",
         [](const V &v) { return cell(v.r->trials[v.t].reactionTime); }},
        {"reversal", "1 when the staircase took this trial's level as a reversal value, else 0", "",
         [](const V &v) { return flag(v.r->reversalTrials.contains(v.t)); }},
        {"counted", "1 when this trial's reversal value enters the run's threshold, else 0", "",
         [](const V &v) {
             const int k = v.r->reversalTrials.indexOf(v.t);
             return flag(k >= 0 && k >= v.r->reversalTrials.size() - v.r->averagedReversals);
         }},
        runColumn("included"),
    };
    return columns;
}

// A point of a report figure, with the page it is on (from 1).
struct PointView {
    int page;
    const ReportPage *p;
    const Figure *f;
    const Figure::Series *s;
    int i;
};

const QVector<Column<PointView>> &figureColumns()
{
    using V = PointView;
    static const QVector<Column<PointView>> columns{
        {"page", "The report's page, from 1 (the study page)", "",
         [](const V &v) { return cell(v.page); }},
        {"subject", "Subject code; empty on the study page", "",
         [](const V &v) { return cell(v.p->subject); }},
        {"condition", "The condition as the report names it; on the study page the panel's", "",
         [](const V &v) { return cell(v.p->condition.isEmpty() ? v.f->title : v.p->condition); }},
        {"figure", "tracks, thresholds, psychometric, or study (a panel of the study page)", "",
         [](const V &v) { return cell(v.f->name); }},
        {"series", "What the point belongs to: a run (tracks), a reason, a subject ...", "",
         [](const V &v) { return cell(v.s->name); }},
        {"x", "The point's x as drawn: trial, run, level or threshold", "dB or count",
         [](const V &v) { return cell(v.s->points[v.i].x()); }},
        {"y", "The point's y as drawn: level, threshold, proportion correct or row from the foot",
         "dB, proportion or count", [](const V &v) { return cell(v.s->points[v.i].y()); }},
        {"size", "A marker's diameter (a bin's area grows with its trials); empty on a line",
         "pixels",
         [](const V &v) {
             return v.s->markers() ? cell(v.s->sizes.value(v.i, v.s->size)) : QString();
         }},
        {"x_from", "Where the figure's x axis begins as drawn", "dB or count",
         [](const V &v) { return cell(v.f->x.min); }},
        {"x_to", "Where the figure's x axis ends as drawn", "dB or count",
         [](const V &v) { return cell(v.f->x.max); }},
        {"y_from", "Where the figure's y axis begins as drawn", "dB, proportion or count",
         [](const V &v) { return cell(v.f->y.min); }},
        {"y_to", "Where the figure's y axis ends as drawn", "dB, proportion or count",
         [](const V &v) { return cell(v.f->y.max); }},
    };
    return columns;
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

QString Tables::trials(const QVector<RunRow> &rows)
{
    QVector<TrialView> views;
    for (const RunRow &r : rows)
        for (int t = 0; t < r.trials.size(); ++t)
            views.append({&r, t});
    return table(trialColumns(), views);
}

QString Tables::figures(const QVector<ReportPage> &pages)
{
    QVector<PointView> views;
    for (int k = 0; k < pages.size(); ++k)
        for (const Figure &f : pages[k].figures)
            for (const Figure::Series &s : f.series)
                for (int i = 0; i < s.points.size(); ++i)
                    views.append({k + 1, &pages[k], &f, &s, i});
    return table(figureColumns(), views);
}

QJsonObject Tables::description(const QJsonObject &about, const Overview &o)
{
    QJsonObject object = about;
    QJsonObject leftOut;
    for (const QPair<QString, int> &e : o.excluded)
        leftOut.insert(e.first, e.second);
    object.insert("Runs", QJsonObject{{"Read", o.read},
                                      {"Included", o.included},
                                      {"Unusable", o.unusable},
                                      {"LeftOut", leftOut}});
    object.insert("runs.tsv", describe(runColumns()));
    object.insert("summary.tsv", describe(summaryColumns()));
    object.insert("trials.tsv", describe(trialColumns()));
    object.insert("figures.tsv", describe(figureColumns()));
    return object;
}
