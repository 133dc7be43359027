#include "playbackwatch.h"
#include "pulsedaemon.h"
#include "runharness.h"
#include "stimulus/randomsource.h"
#include "support/savedialogfiller.h"
#include "support/simulatedparticipant.h"

#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>
#include <QtTest>

#include <cmath>
#include <memory>
#include <random>

using namespace RunHarness;

// Random sessions typed into the panel, as by someone who types anything
// anywhere: numbers of every size and sign, nothing, "nan", "inf", huge and
// tiny exponents, words, very long strings, other scripts; the combo and check
// boxes set at random; View and Go pressed in any order; a run started
// whenever Go takes the panel, answered by a simulated listener, and either
// finished (and saved when asked) or abandoned by closing the participant
// window. The program must never crash, hang, trip a sanitizer, show "nan"
// or "inf", or leave the window in a state from which the next run cannot
// start.
//
// The test command runs it for 40 seconds. A longer session, from the
// repository folder once scripts/test.sh has built the tests (build/sanitize
// for the sanitizer build), runs for VELTRANE_FUZZ_SECONDS seconds:
//
//   VELTRANE_FUZZ_SECONDS=3600 QT_QPA_PLATFORM=offscreen build/release/tests/tst_panelfuzz
//
// VELTRANE_FUZZ_SESSIONS stops it after that many sessions instead, and
// VELTRANE_FUZZ_SEED changes the first session's seed. A failure prints the
// two values that replay it.

namespace
{

using Random = std::mt19937_64;

// A run that has not finished after this long is abandoned.
const int runBudgetMs = 3000;
// Slack on the timing of a trial for a loaded machine and the sanitizer build.
const int slackMs = 1000;

int pick(Random &random, int low, int high)
{
    return std::uniform_int_distribution<int>(low, high)(random);
}

bool chance(Random &random, double p)
{
    return std::bernoulli_distribution(p)(random);
}

// Any text at all.
QString wildText(Random &random)
{
    static const QStringList specials{"",
                                      "0",
                                      "-0",
                                      "+0",
                                      "nan",
                                      "NaN",
                                      "-nan",
                                      "inf",
                                      "-inf",
                                      "Infinity",
                                      "1e308",
                                      "-1e308",
                                      "1e309",
                                      "-1e309",
                                      "1e-320",
                                      "4.9e-324",
                                      "2147483647",
                                      "2147483648",
                                      "-2147483648",
                                      "-2147483649",
                                      "9223372036854775808",
                                      "0x1F",
                                      "1,5",
                                      " 12 ",
                                      "+5",
                                      "12abc",
                                      "--3",
                                      ".",
                                      "e5",
                                      "1e",
                                      "1.2.3",
                                      "١٢٣",
                                      "Ω",
                                      "日本語",
                                      "🎧🎧",
                                      "שלום",
                                      "e\u0301",
                                      "\t",
                                      "a\nb",
                                      "\\",
                                      "../../",
                                      "/",
                                      " ",
                                      "%1",
                                      "%n",
                                      "'; DROP",
                                      "NULL",
                                      "true"};
    switch (pick(random, 0, 6)) {
    case 0:
    case 1:
        return specials[pick(random, 0, specials.size() - 1)];
    case 2: { // a number of any size and sign
        const double magnitude = std::pow(10.0, std::uniform_real_distribution<>(-15, 15)(random));
        const double value = (chance(random, 0.3) ? -1 : 1) * magnitude;
        const char format = "fgeG"[pick(random, 0, 3)];
        return QString::number(value, format, pick(random, 0, 17));
    }
    case 3:
        return QString::number(pick(random, -2000000000, 2000000000));
    case 4: { // a very long string
        const int length = pick(random, 300, 5000);
        QString text;
        text.reserve(length);
        const QString alphabet = chance(random, 0.5) ? "0123456789" : "0123456789.e-+ xyzäß\u20ac";
        for (int i = 0; i < length; ++i)
            text += alphabet[pick(random, 0, alphabet.size() - 1)];
        return text;
    }
    default: { // characters from everywhere, control characters included
        QString text;
        const int length = pick(random, 1, 12);
        for (int i = 0; i < length; ++i) {
            const char32_t code =
                chance(random, 0.7) ? pick(random, 1, 0x7f) : pick(random, 0x80, 0x2ffff);
            if ((code >= 0xd800 && code <= 0xdfff))
                continue;
            text += QString::fromUcs4(&code, 1);
        }
        return text;
    }
    }
}

// A number from low to high, whole or with two decimals.
QString shortValue(Random &random, int low, int high)
{
    if (chance(random, 0.2))
        return QString::number(std::uniform_real_distribution<>(low, high)(random), 'f', 2);
    return QString::number(pick(random, low, high));
}

// Text that shows a number that is not finite.
bool showsNonFinite(const QString &text)
{
    return text.contains("nan", Qt::CaseInsensitive) || text.contains("inf", Qt::CaseInsensitive);
}

struct Tally {
    int sessions = 0;
    int views = 0;
    int viewsRefused = 0;
    int runsStarted = 0;
    int runsCompleted = 0;
    int runsAbandoned = 0;
    int saved = 0;
    int trials = 0;
};

// What was last typed into each line edit of a window, by any session: a
// text that differs from it was written by the program.
using Typed = QHash<const QLineEdit *, QString>;

class Session
{
public:
    Session(MainWindow &window, Typed &typed, std::uint64_t seed, const QString &folder,
            Tally &tally)
        : w(window), typed(typed), random(seed), folder(folder), tally(tally)
    {
        RandomSource::seed(seed);
        // From mostly sensible typing to chaos, session by session.
        const double levels[] = {0.0, 0.01, 0.03, 0.1, 0.5};
        wildness = levels[pick(random, 0, 4)];
    }

    // Some rounds of typing, pressing and running; stops at the first failed
    // check.
    void play()
    {
        const int rounds = pick(random, 1, 4);
        for (int round = 0; round < rounds && !QTest::currentTestFailed(); ++round) {
            fillPanel();
            pressButtons();
        }
    }

private:
    QList<QLineEdit *> edits() const
    {
        return {w.lineEditCarrierFreqStd, w.lineEditModFreqStd,   w.lineEditModDepthStd,
                w.lineEditFreqDiffStd,    w.lineEditDurationStd,  w.lineEditCarrierFreqDev,
                w.lineEditModFreqDev,     w.lineEditModDepthDev,  w.lineEditFreqDiffDev,
                w.lineEditDurationDev,    w.lineEditNumReversals, w.lineEditRevToCalc,
                w.lineEditSilentInterval, w.lineEditSamplingRate, w.lineEditSubCode,
                w.lineEditSesNum,         w.lineEditFilePath};
    }

    void type(QLineEdit *edit, const QString &text)
    {
        // Short texts are typed key by key, as a person would; long ones set.
        if (text.size() <= 12 && chance(random, 0.3)) {
            edit->selectAll();
            QTest::keyClick(edit, Qt::Key_Delete);
            for (const QChar c : text) {
                if (c.unicode() >= 0x20 && c.unicode() < 0x7f) {
                    QTest::keyClick(edit, c.toLatin1());
                } else {
                    // Characters without a key of their own arrive as text.
                    QKeyEvent press(QEvent::KeyPress, Qt::Key_unknown, Qt::NoModifier, c);
                    QApplication::sendEvent(edit, &press);
                }
            }
        } else {
            edit->setText(text);
        }
        typed[edit] = edit->text();
    }

    // A value a lab might type into the field, kept small where it sets how
    // long a run takes, so that runs happen often and end soon.
    QString plausible(const QLineEdit *edit)
    {
        if (edit == w.lineEditCarrierFreqStd || edit == w.lineEditCarrierFreqDev)
            return shortValue(random, 50, 3900);
        if (edit == w.lineEditModFreqStd || edit == w.lineEditModFreqDev)
            return shortValue(random, 0, 200);
        if (edit == w.lineEditModDepthStd || edit == w.lineEditModDepthDev)
            return shortValue(random, 0, 100);
        if (edit == w.lineEditFreqDiffStd || edit == w.lineEditFreqDiffDev)
            return shortValue(random, 0, 100);
        if (edit == w.lineEditDurationStd || edit == w.lineEditDurationDev)
            return shortValue(random, 1, 30);
        if (edit == w.lineEditSilentInterval)
            return shortValue(random, 0, 20);
        if (edit == w.lineEditNumReversals)
            return QString::number(pick(random, 1, 3));
        if (edit == w.lineEditRevToCalc)
            return QString::number(pick(random, 1, 4));
        if (edit == w.lineEditSamplingRate) {
            static const QStringList rates{"8000",  "16000", "22050", "40000",
                                           "44100", "48000", "96000", "192000"};
            return rates[pick(random, 0, rates.size() - 1)];
        }
        return wildText(random); // subject code, session number, folder: anything goes
    }

    void fillPanel()
    {
        // With the modal boxes of the combo boxes' rules answered.
        SaveDialogFiller boxes("");
        for (QLineEdit *edit : edits()) {
            if (chance(random, 0.4))
                continue;
            type(edit, chance(random, wildness) ? wildText(random) : plausible(edit));
        }
        // The file name box is the program's: typing into it changes nothing.
        const QString fileName = w.lineEditFileName->text();
        QTest::keyClicks(w.lineEditFileName, "x");
        QCOMPARE(w.lineEditFileName->text(), fileName);

        for (QComboBox *combo : {w.comboBoxSesType, w.comboBoxSoundType, w.comboBoxMainParameter})
            if (chance(random, 0.3))
                combo->setCurrentIndex(pick(random, 0, combo->count() - 1));
        for (QCheckBox *box : {w.checkBoxResetMdFd, w.checkBoxSaveData})
            if (chance(random, 0.3))
                box->setChecked(chance(random, 0.5));
        // The combo boxes' rules leave a pair that goes together.
        QVERIFY(!(w.comboBoxSoundType->currentIndex() == 1 &&
                  w.comboBoxMainParameter->currentIndex() == 0));
        for (const SaveDialogFiller::Box &box : boxes.otherBoxes)
            QCOMPARE(box.title, QString("Conflicting Parameters"));
        checkShown();
    }

    void pressButtons()
    {
        const int presses = pick(random, 1, 3);
        for (int i = 0; i < presses && !QTest::currentTestFailed(); ++i) {
            if (chance(random, 0.6)) {
                pressView();
            } else {
                pressGo();
                if (w.subjectWindow && w.subjectWindow->isVisible())
                    run();
            }
        }
    }

    void pressView()
    {
        SaveDialogFiller boxes("");
        const bool goBefore = w.pushButtonGo->isEnabled();
        w.pushButtonView->click();
        ++tally.views;
        if (!boxes.otherBoxes.isEmpty()) {
            // Refused: one warning that says why, and nothing else changed.
            ++tally.viewsRefused;
            QCOMPARE(boxes.otherBoxes.size(), 1);
            QCOMPARE(boxes.otherBoxes[0].title, QString("Warning"));
            QVERIFY(boxes.otherBoxes[0].text.startsWith("No session can be made"));
            QCOMPARE(w.pushButtonGo->isEnabled(), goBefore);
        } else {
            QVERIFY(w.pushButtonGo->isEnabled());
            QCOMPARE(w.standardSound.size(), w.params.nSamples[0]);
            QCOMPARE(w.deviantSound.size(), w.params.nSamples[1]);
            for (const QVector<double> *sound : {&w.standardSound, &w.deviantSound})
                QVERIFY(std::all_of(sound->begin(), sound->end(),
                                    [](double x) { return std::isfinite(x); }));
        }
        checkShown();
    }

    void pressGo()
    {
        SaveDialogFiller boxes("");
        const bool goEnabled = w.pushButtonGo->isEnabled();
        w.pushButtonGo->click();
        if (!goEnabled)
            QVERIFY(!w.subjectWindow || !w.subjectWindow->isVisible());
        else if (boxes.otherBoxes.isEmpty())
            QVERIFY(w.subjectWindow && w.subjectWindow->isVisible() && !w.isEnabled());
        checkShown();
    }

    void run()
    {
        ++tally.runsStarted;
        // A listener whose threshold lies within 6 dB of the start value
        // reverses soon, so that most runs end within the budget.
        const double threshold =
            Staircase::trackedValue(w.params) *
            std::pow(10.0, std::uniform_real_distribution<>(-6, 6)(random) / 20);
        auto participant =
            std::make_unique<SimulatedParticipant>(w, threshold, pick(random, 0, 30));
        PlaybackWatch watch(w);
        const bool save = w.params.saveData;
        const QString path = folder + QString("/run%1.txt").arg(tally.runsStarted);
        auto filler = std::make_unique<SaveDialogFiller>(path);
        const int periodMs = static_cast<int>(
            1000 * (qMax(w.params.duration[0], w.params.duration[1]) + w.params.silentInterval));
        const int soundMs =
            static_cast<int>(std::ceil(1000 * qMax(w.standardSound.size(), w.deviantSound.size()) /
                                       qMax(1.0, w.params.samplingRate)));

        participant->pressReady();
        const bool finished =
            waitUntil([&] { return participant->finished == 1 && (!save || filler->dialogs == 1); },
                      runBudgetMs);
        filler.reset();
        participant.reset();
        tally.trials += w.params.trials.size();
        if (finished) {
            ++tally.runsCompleted;
            QCOMPARE(w.params.reversalCount, w.params.numberOfReversals);
            QVERIFY(std::isfinite(w.params.threshold) && std::isfinite(w.params.reactionTime));
            QVERIFY(w.subjectWindow->labelResult->isVisible());
            if (save) {
                ++tally.saved;
                QFile file(path);
                QVERIFY(file.open(QIODevice::ReadOnly));
                const int lines = file.readAll().count('\n');
                const bool tracked = w.params.mainParameter == 0 || w.params.mainParameter == 1;
                QCOMPARE(lines, tracked ? w.params.trials.size() + 1 : 0);
            }
        } else {
            ++tally.runsAbandoned;
        }
        // Every trial that began ended in time: the fourth sound's end came
        // no later than three periods after the first sound, the sound and
        // the longest wait for an output.
        for (int t = 0; t < watch.trialEndMs.size(); ++t) {
            const qint64 lasted = watch.trialEndMs[t] - watch.intervals.value(4 * t).startMs;
            QVERIFY2(lasted <= 3LL * periodMs + soundMs + 3000 + slackMs,
                     qPrintable(QString("trial %1 took %2 ms, period %3 ms")
                                    .arg(t + 1)
                                    .arg(lasted)
                                    .arg(periodMs)));
        }
        checkShown();
        QVERIFY(closeParticipantWindow(w));
        QVERIFY(w.isEnabled() && w.pushButtonView->isEnabled() && !w.pushButtonGo->isEnabled());
    }

    // Nothing the program writes on the panel, in the participant window or
    // on the charts' axes shows a number that is not finite.
    void checkShown()
    {
        for (QLineEdit *edit : edits()) {
            if (!typed.contains(edit) || edit->text() != typed.value(edit))
                QVERIFY2(!showsNonFinite(edit->text()),
                         qPrintable(edit->accessibleName() + ": " + edit->text().left(80)));
        }
        QString fileName = w.lineEditFileName->text();
        if (fileName.startsWith(w.lineEditSubCode->text()))
            fileName.remove(0, w.lineEditSubCode->text().size());
        QVERIFY2(!showsNonFinite(fileName), qPrintable(fileName.left(80)));
        if (w.subjectWindow)
            QVERIFY2(!showsNonFinite(w.subjectWindow->labelResult->text()),
                     qPrintable(w.subjectWindow->labelResult->text()));
        for (const QtCharts::QValueAxis *axis :
             {w.axisXWaveStd, w.axisYWaveStd, w.axisXWaveDev, w.axisYWaveDev, w.axisXSpecStd,
              w.axisYSpecStd, w.axisXSpecDev, w.axisYSpecDev, w.axisXTrend, w.axisYTrend}) {
            if (axis)
                QVERIFY2(std::isfinite(axis->min()) && std::isfinite(axis->max()) &&
                             axis->min() <= axis->max(),
                         qPrintable(axis->titleText()));
        }
        for (const QtCharts::QLineSeries *series :
             {w.seriesWaveStd, w.seriesWaveDev, w.seriesSpecStd, w.seriesSpecDev, w.seriesTrend}) {
            if (!series)
                continue;
            const QVector<QPointF> points = series->pointsVector();
            QVERIFY2(std::all_of(points.begin(), points.end(),
                                 [](const QPointF &p) {
                                     return std::isfinite(p.x()) && std::isfinite(p.y());
                                 }),
                     qPrintable(series->name()));
        }
    }

    MainWindow &w;
    Typed &typed;
    Random random;
    double wildness = 0;
    QString folder;
    Tally &tally;
};

// Hundreds of runs log thousands of lines; the trials' debug lines and the
// offscreen platform's notes on what it cannot do are dropped.
QtMessageHandler defaultHandler = nullptr;
void quietHandler(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtDebugMsg || text.startsWith("This plugin does not support"))
        return;
    defaultHandler(type, context, text);
}

} // namespace

class TestPanelFuzz : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // A private audio server, so that the sounds really play and report
        // their end in time, whatever the machine has.
        QString problem;
        if (!daemon.start(&problem))
            QSKIP(qPrintable("no private PulseAudio daemon: " + problem));
        defaultHandler = qInstallMessageHandler(quietHandler);
    }
    void cleanupTestCase() { qInstallMessageHandler(defaultHandler); }

    void randomSessions()
    {
        const int seconds = qEnvironmentVariableIsSet("VELTRANE_FUZZ_SECONDS")
                                ? qEnvironmentVariableIntValue("VELTRANE_FUZZ_SECONDS")
                                : 40;
        const int sessionLimit = qEnvironmentVariableIntValue("VELTRANE_FUZZ_SESSIONS");
        const std::uint64_t firstSeed = qEnvironmentVariableIsSet("VELTRANE_FUZZ_SEED")
                                            ? qgetenv("VELTRANE_FUZZ_SEED").toULongLong()
                                            : 1;
        QTemporaryDir dir;
        Tally tally;
        QElapsedTimer clock;
        clock.start();
        std::unique_ptr<MainWindow> w;
        Typed typed;
        std::uint64_t windowSeed = firstSeed;
        while (sessionLimit > 0 ? tally.sessions < sessionLimit
                                : clock.elapsed() < 1000LL * seconds) {
            const std::uint64_t seed = firstSeed + tally.sessions;
            // A fresh window every tenth session; the others go on in a window
            // that earlier sessions have left in whatever state they left it.
            if (!w || tally.sessions % 10 == 0) {
                w = std::make_unique<MainWindow>();
                typed.clear();
                windowSeed = seed;
            }
            Session session(*w, typed, seed, dir.path(), tally);
            session.play();
            ++tally.sessions;
            if (QTest::currentTestFailed()) {
                // The window it ran in was made for the session with
                // windowSeed; replaying from there repeats its state.
                qWarning().noquote() << QString("Session %1 (seed %2) failed; replay it with "
                                                "VELTRANE_FUZZ_SEED=%3 VELTRANE_FUZZ_SESSIONS=%4")
                                            .arg(tally.sessions)
                                            .arg(seed)
                                            .arg(windowSeed)
                                            .arg(seed - windowSeed + 1);
                return;
            }
        }
        w.reset();
        qInfo().noquote() << QString("%1 sessions fuzzed in %2 s: %3 View presses (%4 refused), "
                                     "%5 runs started, %6 completed (%7 saved), %8 abandoned, "
                                     "%9 trials answered")
                                 .arg(tally.sessions)
                                 .arg(clock.elapsed() / 1000)
                                 .arg(tally.views)
                                 .arg(tally.viewsRefused)
                                 .arg(tally.runsStarted)
                                 .arg(tally.runsCompleted)
                                 .arg(tally.saved)
                                 .arg(tally.runsAbandoned)
                                 .arg(tally.trials);
        QVERIFY(tally.sessions > 0);
    }

private:
    PulseDaemon daemon;
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    // A long fuzzing session runs longer than the test library's default
    // limit for one test function (5 minutes).
    const qint64 tenMinutes = 10LL * 60 * 1000;
    const qint64 limitMs =
        qEnvironmentVariableIsSet("VELTRANE_FUZZ_SECONDS")
            ? 1000LL * qMax(0, qEnvironmentVariableIntValue("VELTRANE_FUZZ_SECONDS")) + tenMinutes
            : (qEnvironmentVariableIsSet("VELTRANE_FUZZ_SESSIONS") ? 144 * tenMinutes : tenMinutes);
    if (!qEnvironmentVariableIsSet("QTEST_FUNCTION_TIMEOUT"))
        qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number(limitMs));
    TestPanelFuzz test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_panelfuzz.moc"
