// SPDX-License-Identifier: GPL-3.0-or-later
#include "listener.h"
#include "optionvalue.h"
#include "plot.h"
#include "plotfigures.h"
#include "report.h"
#include "runfiles.h"
#include "simulation.h"
#include "simulationsummary.h"
#include "toolkitmessages.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTextStream>

#include <algorithm>
#include <cstdlib>
#include <random>

namespace
{
// The start value of each tracked quantity lies 6 to 26 dB below 0 dB; these
// defaults put the listener's threshold well inside the reach of the track.
constexpr double defaultAlphaDepthDb = -20.0;     // modulation depth 10 %
constexpr double defaultAlphaFrequencyDb = -46.0; // 0.5 % of the carrier, 5 Hz at 1000 Hz

// A bad option: its one line with the hint, and status 2.
[[noreturn]] void fail(const QString &message)
{
    QTextStream(stderr) << "simulate-listener: " << message << "; see --help\n";
    std::exit(2);
}

double number(const QCommandLineParser &parser, const QString &name)
{
    bool ok = false;
    const double value = parser.value(name).toDouble(&ok);
    if (!ok)
        fail(QStringLiteral("--%1 needs a number, not '%2'").arg(name, parser.value(name)));
    return value;
}

int integer(const QCommandLineParser &parser, const QString &name, int min)
{
    int value = 0;
    const QString problem = OptionValue::wholeNumber(parser, name, min, &value);
    if (!problem.isEmpty())
        fail(problem);
    return value;
}

bool writeText(const QString &path, const QString &text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate))
        return false;
    const QByteArray bytes = text.toUtf8();
    return file.write(bytes) == bytes.size() && file.flush();
}
} // namespace

int main(int argc, char **argv)
{
    // The plot is drawn off screen; without a platform chosen by the caller
    // the tool needs no display at all.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    ToolkitMessages::keepOffStderr("simulate-listener");
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("simulate-listener"));
    QApplication::setApplicationVersion(QStringLiteral(VELTRANE_VERSION));

    const SessionParameters defaults;
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Runs complete runs of Veltrane's own staircase (reversal rule, steps, upper limit,\n"
        "threshold) against a simulated participant in the four-interval, two-alternative\n"
        "task, and reports what the procedure's threshold estimates.\n\n"
        "Logistic listener: p(x) = 0.5 + (0.5 - lapse) / (1 + exp(-(20 log10 x - alpha) / beta)),\n"
        "x the tracked value as a fraction (modulation depth, or frequency difference / carrier).\n"
        "Step listener: always right above alpha dB, always wrong at or below.");
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOptions({
        {"quantity",
         "Tracked quantity: depth (modulation depth) or frequency (frequency "
         "difference). Default: depth.",
         "depth|frequency", "depth"},
        {"listener", "Listener model: logistic or step. Default: logistic.", "logistic|step",
         "logistic"},
        {"alpha",
         "Listener's threshold (logistic) or switching value (step) in dB re the "
         "stored fraction. Default: -20 (depth 10 %) or -46 (frequency 0.5 %).",
         "dB"},
        {"beta", "Slope of the logistic listener in dB. Default: 2.", "dB", "2"},
        {"lapse", "Lapse rate of the logistic listener, 0 to below 0.5. Default: 0.", "rate", "0"},
        {"runs", "Number of runs. Default: 1000.", "N", "1000"},
        {"seed",
         "Seed of the simulation's generator; the same seed gives the same output. "
         "Default: a random seed, printed in the table.",
         "S"},
        {"reversals",
         QStringLiteral("Number of reversals. Default: %1.").arg(defaults.numberOfReversals), "N",
         QString::number(defaults.numberOfReversals)},
        {"calculate",
         QStringLiteral("Reversals to calculate (lowered to --reversals like the "
                        "panel does). Default: %1.")
             .arg(defaults.reversalsToCalculate),
         "N", QString::number(defaults.reversalsToCalculate)},
        {"carrier",
         "Standard's carrier frequency in Hz, for showing a frequency difference in "
         "Hz. Default: 1000.",
         "Hz", "1000"},
        {"max-trials", "Trials after which an unfinished run is abandoned. Default: 1000.", "N",
         "1000"},
        {"tsv",
         "Also write one tab-separated line per run to this file, and what its columns hold to the "
         "same name with .json (not for a pipe or a terminal).",
         "file"},
        {"plot",
         "Also draw the threshold histogram and the first run's track into this PNG "
         "file.",
         "file"},
        {"save-runs",
         "Also save each run as a results file and sidecar into this folder, named as "
         "the program names them.",
         "dir"},
        {"runs-per-subject",
         "Runs per simulated participant (SIM001, SIM002, ...) in --save-runs. Default: "
         "all runs.",
         "N"},
    });
    const QString problem = OptionValue::parse(parser, QApplication::arguments());
    if (!problem.isEmpty())
        fail(problem);
    if (!parser.positionalArguments().isEmpty())
        fail(QStringLiteral("unexpected argument '%1'").arg(parser.positionalArguments().first()));

    const QString quantity = parser.value("quantity");
    if (quantity != "depth" && quantity != "frequency")
        fail(QStringLiteral("--quantity is depth or frequency, not '%1'").arg(quantity));
    const int mainParameter = quantity == "frequency" ? 0 : 1;

    const double carrier = number(parser, "carrier");
    if (!(carrier > 0.0))
        fail(QStringLiteral("--carrier must be above 0 Hz"));

    SimulationSettings settings;
    settings.start = Simulation::startRecord(mainParameter, carrier);
    settings.start.numberOfReversals = integer(parser, "reversals", 1);
    settings.start.reversalsToCalculate =
        std::min(integer(parser, "calculate", 1), settings.start.numberOfReversals);
    settings.runs = integer(parser, "runs", 1);
    const int runsPerSubject =
        parser.isSet("runs-per-subject") ? integer(parser, "runs-per-subject", 1) : settings.runs;
    settings.maxTrials = integer(parser, "max-trials", 1);
    if (parser.isSet("seed")) {
        bool ok = false;
        settings.seed = parser.value("seed").toULongLong(&ok);
        if (!ok)
            fail(QStringLiteral("--seed needs a whole number, not '%1'").arg(parser.value("seed")));
    } else {
        settings.seed = std::random_device{}();
    }

    const double alpha = parser.isSet("alpha") ? number(parser, "alpha")
                         : mainParameter == 0  ? defaultAlphaFrequencyDb
                                               : defaultAlphaDepthDb;
    const QString model = parser.value("listener");
    if (model != "logistic" && model != "step")
        fail(QStringLiteral("--listener is logistic or step, not '%1'").arg(model));
    const double beta = number(parser, "beta");
    const double lapse = number(parser, "lapse");
    if (!(beta > 0.0))
        fail(QStringLiteral("--beta must be above 0 dB"));
    if (!(lapse >= 0.0 && lapse < 0.5))
        fail(QStringLiteral("--lapse must lie from 0 to below 0.5"));
    const Listener listener =
        model == "step" ? Listener::step(alpha) : Listener::logistic(alpha, beta, lapse);

    const QVector<RunOutcome> outcomes = Simulation::runMany(settings, listener);
    const SimulationSummary summary = SimulationSummary::of(outcomes, listener, settings.start);
    QTextStream(stdout) << Report::table(settings.start, listener, summary, settings.seed,
                                         settings.maxTrials);

    int status = 0;
    if (parser.isSet("tsv")) {
        // The columns are described beside a table written to a file (not to
        // a pipe or a terminal): runs.tsv by runs.json.
        const QString tsv = parser.value("tsv");
        const QString json = (tsv.endsWith(".tsv") ? tsv.chopped(4) : tsv) + ".json";
        const QString failed =
            !writeText(tsv, Report::tabSeparated(settings.start, outcomes)) ? tsv
            : QFileInfo(tsv).isFile() &&
                    !writeText(json,
                               QJsonDocument(Report::tableDescription(settings.start)).toJson())
                ? json
                : QString();
        if (!failed.isEmpty()) {
            QTextStream(stderr) << "simulate-listener: cannot write " << failed << '\n';
            status = 1;
        }
    }
    if (parser.isSet("plot") &&
        !Plot::writePng(parser.value("plot"),
                        PlotFigures::of(settings.start, listener, outcomes))) {
        QTextStream(stderr) << "simulate-listener: cannot write " << parser.value("plot") << '\n';
        status = 1;
    }
    if (parser.isSet("save-runs")) {
        for (int i = 0; i < outcomes.size(); ++i) {
            const QString failed = RunFiles::save(parser.value("save-runs"), settings.start,
                                                  outcomes[i], i, runsPerSubject, settings.seed);
            if (!failed.isEmpty()) {
                QTextStream(stderr) << "simulate-listener: cannot write " << failed << '\n';
                return 1;
            }
        }
    }
    return status;
}
