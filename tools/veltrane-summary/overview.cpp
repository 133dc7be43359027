// SPDX-License-Identifier: GPL-3.0-or-later
#include "overview.h"

#include "statistics.h"
#include "study.h"

#include <QMap>

#include <algorithm>
#include <cmath>

QString conditionLabel(const RunRow &r)
{
    QString label = QStringList{r.soundType, r.mainParameter}.join(", ");
    if (!r.hasSidecar)
        return label + ", no sidecar: " + r.file;
    if (std::isfinite(r.carrierHz))
        label += QString(", carrier %1 Hz").arg(r.carrierHz);
    return label + QString(", modulation %1 Hz, standard depth %2 %, %3 ms")
                       .arg(r.modulationHz)
                       .arg(r.standardDepthPct)
                       .arg(r.durationMs);
}

Overview Overview::of(const QVector<StudyGroup> &groups, const QVector<RunRow> &rows, int unusable)
{
    Overview o;
    o.unusable = unusable;
    o.read = rows.size() + unusable;
    for (const RunRow &r : rows) {
        o.included += r.included();
        for (const QString &reason : r.excludedBecause) {
            auto it = std::find_if(o.excluded.begin(), o.excluded.end(),
                                   [&](const QPair<QString, int> &e) { return e.first == reason; });
            if (it == o.excluded.end())
                o.excluded.append({reason, 1});
            else
                ++it->second;
        }
    }

    QMap<QString, Condition> byLabel;
    for (int i = 0; i < groups.size(); ++i) {
        Condition &c = byLabel[conditionLabel(rows[groups[i].first])];
        c.label = conditionLabel(rows[groups[i].first]);
        c.groups.append(i);
    }
    for (Condition c : byLabel) {
        QVector<double> means;
        for (int g : c.groups)
            if (std::isfinite(groups[g].meanDb))
                means.append(groups[g].meanDb);
        c.subjects = means.size();
        c.meanDb = Statistics::mean(means);
        const double half = Study::halfWidth95(means);
        c.ciLowDb = c.meanDb - half;
        c.ciHighDb = c.meanDb + half;
        o.conditions.append(c);
    }
    return o;
}
