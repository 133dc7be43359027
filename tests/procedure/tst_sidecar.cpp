// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/sessionparameters.h"
#include "procedure/sidecar.h"

#include <QtTest>

// What the whole-run test cannot vary: the sidecar's name for any chosen
// name, the UTC offset in one form, and a seed beyond a double's precision.
class TestSidecar : public QObject
{
    Q_OBJECT

private slots:
    void namesTimesAndSeed()
    {
        QCOMPARE(Sidecar::path("/data/run.txt"), QString("/data/run.json"));
        QCOMPARE(Sidecar::path("/data/run.txt.bak"), QString("/data/run.txt.bak.json"));
        const QDate day(2024, 6, 11);
        const QTime time(14, 3, 12, 600);
        QCOMPARE(Sidecar::isoDateTime(QDateTime(day, time, Qt::OffsetFromUTC, -34200)),
                 QString("2024-06-11T14:03:12-09:30"));
        QCOMPARE(Sidecar::isoDateTime(QDateTime(day, time, Qt::UTC)),
                 QString("2024-06-11T14:03:12+00:00"));
        RunFacts facts;
        facts.randomSeed = UINT64_MAX;
        const SessionParameters p;
        QCOMPARE(Sidecar::content(p, p, facts)["RandomSeed"].toString(),
                 QString("18446744073709551615"));
    }
};

QTEST_APPLESS_MAIN(TestSidecar)
#include "tst_sidecar.moc"
