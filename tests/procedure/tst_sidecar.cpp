// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/sessionparameters.h"
#include "procedure/sidecar.h"

#include <QtTest>

// Set before the system locale is first read: a locale with its own digits.
static const bool persian = qputenv("LC_ALL", "fa_IR.UTF-8");

// What the whole-run test cannot vary: the sidecar's name, times in ASCII ISO 8601 with the UTC
// offset in one form whatever the locale, and a seed beyond a double's precision.
class TestSidecar : public QObject
{
    Q_OBJECT

private slots:
    void namesTimesAndSeed()
    {
        QVERIFY(persian && QLocale::system().zeroDigit() != '0');
        QLocale::setDefault(QLocale(QLocale::Persian, QLocale::Iran));
        QCOMPARE(Sidecar::path("/data/run.txt"), QString("/data/run.json"));
        const QDate day(2024, 6, 11);
        const QTime time(14, 3, 12, 600);
        QCOMPARE(Sidecar::isoDateTime(QDateTime(day, time, Qt::OffsetFromUTC, -34200)),
                 QString("2024-06-11T14:03:12-09:30"));
        QCOMPARE(Sidecar::isoDateTime(QDateTime(day, time, Qt::UTC)),
                 QString("2024-06-11T14:03:12+00:00"));
        RunFacts facts;
        facts.started = QDateTime::currentDateTime();
        facts.randomSeed = UINT64_MAX;
        const SessionParameters p;
        const QJsonObject json = Sidecar::content(p, p, facts);
        QCOMPARE(json["RandomSeed"].toString(), QString("18446744073709551615"));
        const QRegularExpression iso(
            "^[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}[+-][0-9]{2}:[0-9]{2}$");
        QVERIFY(iso.match(json["AcquisitionDateTime"].toString()).hasMatch());
    }
};

QTEST_APPLESS_MAIN(TestSidecar)
#include "tst_sidecar.moc"
