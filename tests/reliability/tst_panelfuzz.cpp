// SPDX-License-Identifier: GPL-3.0-or-later
#include "stimulus/randomsource.h"
#include "support/runharness.h"

#include <QTemporaryDir>
#include <QtCharts/QValueAxis>
#include <QtTest>
#include <QtWidgets>

#include <cmath>
#include <random>

namespace
{

std::mt19937_64 r;
int pick(int low, int high)
{
    return std::uniform_int_distribution<int>(low, high)(r);
}

// An odd number or word, or a short or very long string of characters from
// everywhere, control characters included.
QString wildText()
{
    static const QStringList odd{"",         "-0",    "nan",  "-inf",   "1e309",
                                 "4.9e-324", "-1e15", "0x1F", "1,5",    " 12 ",
                                 "12abc",    "١٢٣",   "1e",   "-99999", "2147483648"};
    if (pick(0, 1))
        return odd[pick(0, odd.size() - 1)];
    QString text;
    for (int i = pick(0, 1) ? pick(1, 12) : pick(300, 5000); i > 0; --i) {
        const char32_t code = pick(0, 9) < 7 ? pick(1, 0x7f) : pick(0x80, 0x2ffff);
        text += code < 0xd800 || code > 0xdfff ? QString::fromUcs4(&code, 1) : "9";
    }
    return text;
}

const QRegularExpression nonFinite("nan|inf", QRegularExpression::CaseInsensitiveOption);

} // namespace

// Random sessions, each in a fresh window: every field typed, the combo and
// check boxes set at random, View and Go pressed in any order, each run that
// Go starts answered by a simulated listener and finished (saved when asked)
// or abandoned. Two sessions in three type numbers a lab might use, so that
// most get past the panel guard; the third types anything into some number
// fields. Runs for VELTRANE_FUZZ_SECONDS (40 by default; beyond 300 raise
// QTEST_FUNCTION_TIMEOUT) from the seed VELTRANE_FUZZ_SEED; a failure prints
// the seed that replays it.
class TestPanelFuzz : public QObject
{
    Q_OBJECT

private slots:
    void randomSessions()
    {
        QString problem;
        if (!server.start(&problem))
            QSKIP(qPrintable("no private PulseAudio daemon: " + problem));
        const int seconds = qEnvironmentVariableIsSet("VELTRANE_FUZZ_SECONDS")
                                ? qEnvironmentVariableIntValue("VELTRANE_FUZZ_SECONDS")
                                : 40;
        quint64 seed = qgetenv("VELTRANE_FUZZ_SEED").toULongLong();
        QElapsedTimer clock;
        clock.start();
        for (; clock.elapsed() < 1000 * seconds; ++seed) {
            w = std::make_unique<MainWindow>();
            r.seed(seed);
            RandomSource::seed(seed);
            const bool wild = pick(0, 2) == 0;
            for (int round = pick(1, 3); round > 0 && !QTest::currentTestFailed(); --round) {
                fillPanel(wild);
                for (int press = pick(1, 4); press > 0 && !QTest::currentTestFailed(); --press)
                    pressViewOrGo(pick(0, 1));
            }
            if (QTest::currentTestFailed())
                QFAIL(qPrintable(QString("replay: VELTRANE_FUZZ_SEED=%1").arg(seed)));
        }
    }

private:
    void fillPanel(bool wild)
    {
        ModalCatcher boxes; // conflict warnings
        boxes.answerSaveDialogs({});
        // What a lab might type into each number field, kept small where it
        // sets how long a run takes; the text fields (0 to 0) take anything.
        const QList<QLineEdit *> fields{
            w->lineEditCarrierFreqStd, w->lineEditModFreqStd,   w->lineEditModDepthStd,
            w->lineEditFreqDiffStd,    w->lineEditDurationStd,  w->lineEditCarrierFreqDev,
            w->lineEditModFreqDev,     w->lineEditModDepthDev,  w->lineEditFreqDiffDev,
            w->lineEditDurationDev,    w->lineEditNumReversals, w->lineEditRevToCalc,
            w->lineEditSilentInterval, w->lineEditSamplingRate, w->lineEditSubCode,
            w->lineEditSesNum,         w->lineEditFilePath};
        const int ranges[][2] = {{50, 3900}, {0, 200},       {0, 100}, {0, 40}, {1, 30}, {50, 3900},
                                 {0, 200},   {0, 100},       {0, 40},  {1, 30}, {1, 3},  {1, 4},
                                 {0, 20},    {8000, 192000}, {0, 0},   {0, 0},  {0, 0}};
        for (int i = 0; i < fields.size(); ++i) {
            const auto [low, high] = ranges[i];
            // The two counts are whole numbers: "2.5" would be refused.
            const QString number = QString::number(std::uniform_real_distribution<>(low, high)(r),
                                                   'f', high > 4 ? pick(0, 2) : 0);
            fields[i]->setText(high == 0 || (wild && pick(0, 3) == 0) ? wildText() : number);
            typed[fields[i]] = fields[i]->text();
        }
        for (QComboBox *combo :
             {w->comboBoxSesType, w->comboBoxSoundType, w->comboBoxMainParameter})
            combo->setCurrentIndex(pick(0, 1));
        for (QCheckBox *box : {w->checkBoxResetMdFd, w->checkBoxSaveData})
            box->setChecked(pick(0, 1));
        checkShown();
    }

    // A press refused shows one warning and changes nothing; View taken makes
    // finite sounds and enables Go, Go taken starts a run, which is played.
    void pressViewOrGo(bool go)
    {
        const bool goBefore = w->pushButtonGo->isEnabled();
        auto boxes = std::make_unique<ModalCatcher>();
        boxes->answerSaveDialogs({});
        (go ? w->pushButtonGo : w->pushButtonView)->click();
        QVERIFY(boxes->boxes.size() <= 1);
        const bool taken = boxes->boxes.isEmpty();
        boxes.reset(); // the run's save dialog and closing question are its own
        const bool started = w->subjectWindow && w->subjectWindow->isVisible();
        QVERIFY(started == (go && goBefore && taken) && started != w->isEnabled());
        QVERIFY(go || w->pushButtonGo->isEnabled() == (taken || goBefore));
        for (const double x : w->standardSound + w->deviantSound)
            QVERIFY(std::isfinite(x));
        checkShown();
        if (!started)
            return;
        // A listener whose threshold lies within a factor of two of the start
        // value, so that most runs end soon; a run not finished in 3 s is
        // abandoned. Either way the window can start the next one.
        SessionParameters &p = w->params;
        RunHarness harness(*w, Staircase::trackedValue(p) * std::pow(10, pick(-3, 3) / 10.0),
                           pick(0, 30));
        const QString path = folder.filePath("run.txt");
        QFile::remove(path);
        auto saver = std::make_unique<ModalCatcher>();
        saver->answerSaveDialogs({path});
        harness.pressReady();
        const bool finished = RunHarness::waitUntil(
            [&] { return harness.finished && saver->saveDialogs.size() == p.saveData; }, 3000);
        if (finished) {
            QCOMPARE(p.reversalCount, p.numberOfReversals);
            QVERIFY(std::isfinite(p.threshold) && std::isfinite(p.reactionTime));
            QFile file(path);
            QCOMPARE(file.open(QIODevice::ReadOnly) ? file.readAll().count('\n') : 0,
                     p.saveData ? p.trials.size() + 1 : 0);
        }
        saver.reset();
        checkShown();
        if (!finished) {
            // An abandoned run may still end, with its boxes, at any moment:
            // the window goes with it, as when the program is closed mid-run.
            w = std::make_unique<MainWindow>();
            typed.clear();
            return;
        }
        QVERIFY(RunHarness::closeParticipantWindow(*w));
        QVERIFY(w->isEnabled() && w->pushButtonView->isEnabled() && !w->pushButtonGo->isEnabled());
    }

    // Nothing the program writes on the panel, in the participant window or on
    // the charts' axes shows a number that is not finite.
    void checkShown()
    {
        for (QLineEdit *edit : w->findChildren<QLineEdit *>())
            QVERIFY(edit->text() == typed.value(edit) ||
                    !edit->text().remove(w->lineEditSubCode->text()).contains(nonFinite));
        QVERIFY(!w->subjectWindow || !w->subjectWindow->labelResult->text().contains(nonFinite));
        for (const QtCharts::QValueAxis *axis :
             {w->axisXWaveStd, w->axisYWaveStd, w->axisXWaveDev, w->axisYWaveDev, w->axisXSpecStd,
              w->axisYSpecStd, w->axisXSpecDev, w->axisYSpecDev, w->axisXTrend, w->axisYTrend})
            QVERIFY(!axis || (std::isfinite(axis->min()) && std::isfinite(axis->max())));
    }

    PulseServer server;
    QTemporaryDir folder;
    std::unique_ptr<MainWindow> w;
    QHash<QLineEdit *, QString> typed; // what was last typed: other text is the program's
};

QTEST_MAIN(TestPanelFuzz)
#include "tst_panelfuzz.moc"
