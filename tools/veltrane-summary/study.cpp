// SPDX-License-Identifier: GPL-3.0-or-later
#include "study.h"

#include "statistics.h"
#include "trackreplay.h"

#include <gsl/gsl_cdf.h>
#include <gsl/gsl_errno.h>

#include <QDateTime>
#include <QMap>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

namespace
{
constexpr double notAvailable = std::numeric_limits<double>::quiet_NaN();

QString number(double v)
{
    return QString::number(v, 'g', 17);
}

QString conditionKey(const RunRow &r)
{
    if (!r.hasSidecar)
        return "\x1f" + r.file;
    return QStringList{r.soundType,
                       r.mainParameter,
                       number(r.carrierHz),
                       number(r.modulationHz),
                       number(r.standardDepthPct),
                       number(r.durationMs)}
        .join('\x1f');
}

void fitOne(StudyGroup &group, const QVector<RunRow> &rows, const FitOptions &options,
            std::uint64_t seed)
{
    QVector<LevelCount> levels;
    TrackReplay tracks;
    for (int i : group.used) {
        const RunRow &row = rows[i];
        for (int t = 0; t < row.trials.size(); ++t) {
            LevelCount &level = PsychometricFit::level(levels, row.levelDb(t));
            ++level.trials;
            level.correct += row.trials[t].correct;
        }
        // An included run is complete, and a run ends at the reversal that
        // completes it, so its reversal count is its setting.
        tracks.add(row.trackedQuantity, row.trials[0].value / row.unitsPerFraction(),
                   row.reversals);
    }
    group.fit = PsychometricFit::fit(levels, tracks, options, seed);
}

QDateTime acquired(const RunRow &r)
{
    return QDateTime::fromString(r.acquired, Qt::ISODate);
}
} // namespace

QVector<StudyGroup> Study::group(const QVector<RunRow> &rows, int last)
{
    QMap<QString, StudyGroup> byKey;
    for (int i = 0; i < rows.size(); ++i) {
        StudyGroup &g = byKey[rows[i].subject + '\x1e' + conditionKey(rows[i])];
        if (g.runs.isEmpty()) {
            g.subject = rows[i].subject;
            g.first = i;
        }
        g.runs.append(i);
    }
    QVector<StudyGroup> groups;
    for (StudyGroup g : byKey) {
        const bool allTimed = std::all_of(g.runs.cbegin(), g.runs.cend(),
                                          [&](int i) { return acquired(rows[i]).isValid(); });
        std::stable_sort(g.runs.begin(), g.runs.end(), [&](int a, int b) {
            if (allTimed)
                return acquired(rows[a]) < acquired(rows[b]);
            return rows[a].session < rows[b].session;
        });
        for (int i : g.runs)
            if (rows[i].included())
                g.used.append(i);
        if (last > 0 && g.used.size() > last)
            g.used = g.used.mid(g.used.size() - last);
        summarise(g, rows);
        groups.append(g);
    }
    return groups;
}

double Study::halfWidth95(const QVector<double> &values)
{
    const int n = values.size();
    return n >= 2 ? gsl_cdf_tdist_Pinv(0.975, n - 1) * Statistics::standardDeviation(values) /
                        std::sqrt(n)
                  : notAvailable;
}

void Study::summarise(StudyGroup &g, const QVector<RunRow> &rows)
{
    QVector<double> db, thresholds;
    for (int i : g.used) {
        db.append(rows[i].thresholdDb);
        thresholds.append(rows[i].threshold);
    }
    const int n = db.size();
    g.meanDb = Statistics::mean(db);
    g.sdDb = n >= 2 ? Statistics::standardDeviation(db) : notAvailable;
    g.seDb = g.sdDb / std::sqrt(n);
    const double half = halfWidth95(db);
    g.ciLowDb = g.meanDb - half;
    g.ciHighDb = g.meanDb + half;
    g.geometricMean = rows[g.first].unitsPerFraction() * std::pow(10.0, g.meanDb / 20.0);
    g.median = Statistics::percentile(thresholds, 50.0);
    g.firstToLastDb = n >= 2 ? db.constLast() - db.constFirst() : notAvailable;
    g.outputVolumes.clear();
    for (int i : g.used)
        if (!std::isnan(rows[i].outputVolumePct) &&
            !g.outputVolumes.contains(rows[i].outputVolumePct))
            g.outputVolumes.append(rows[i].outputVolumePct);
    std::sort(g.outputVolumes.begin(), g.outputVolumes.end());
}

void Study::fitAll(QVector<StudyGroup> &groups, const QVector<RunRow> &rows,
                   const FitOptions &options, std::uint64_t seed,
                   const std::function<void(int)> &progress)
{
    // Each group's bootstrap has its own seed, so the groups can be shared out
    // between threads and still give the same results.
    gsl_set_error_handler_off();            // a fit that fails is reported, never aborts
    StudyGroup *const data = groups.data(); // detached once, before the threads share it
    std::atomic<int> next{0};
    std::mutex reporting;
    int done = 0;
    const auto work = [&] {
        for (int g = next++; g < groups.size(); g = next++) {
            fitOne(data[g], rows, options, seed + static_cast<std::uint64_t>(g));
            const std::lock_guard<std::mutex> lock(reporting);
            progress(++done);
        }
    };
    std::vector<std::thread> threads(std::max(1U, std::thread::hardware_concurrency()) - 1);
    for (std::thread &t : threads)
        t = std::thread(work);
    work();
    for (std::thread &t : threads)
        t.join();
}
