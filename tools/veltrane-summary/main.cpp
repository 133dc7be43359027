// SPDX-License-Identifier: GPL-3.0-or-later
#include "optionvalue.h"
#include "report.h"
#include "runreader.h"
#include "study.h"
#include "tables.h"
#include "toolkitmessages.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTextStream>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <unistd.h>

namespace
{
const char *const tool = "veltrane-summary";

void message(const QString &text)
{
    QTextStream(stderr) << tool << ": " << text << '\n';
}

[[noreturn]] void usage(const QString &text)
{
    message(text + "; see --help");
    std::exit(2);
}

double number(const QCommandLineParser &parser, const QString &name, double min, double max)
{
    bool ok = false;
    const double value = parser.value(name).toDouble(&ok);
    if (!ok || !(value >= min && value <= max))
        usage(QString("--%1 needs a number from %2 to %3, not '%4'")
                  .arg(name)
                  .arg(min)
                  .arg(max)
                  .arg(parser.value(name)));
    return value;
}

int whole(const QCommandLineParser &parser, const QString &name, int min)
{
    int value = 0;
    const QString problem = OptionValue::wholeNumber(parser, name, min, &value);
    if (!problem.isEmpty())
        usage(problem);
    return value;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(bytes) != bytes.size() || !file.flush()) {
        message(QString("%1: cannot be written").arg(path));
        return false;
    }
    return true;
}

// Refuses an output folder inside an input folder (or a results file's
// folder): nothing is ever written where the data are.
void checkOutside(const QString &option, const QString &folder, const QStringList &inputs)
{
    const QString out = QDir::cleanPath(QDir(folder).absolutePath());
    for (const QString &input : inputs) {
        const QFileInfo info(input);
        const QString in = info.isDir() ? info.canonicalFilePath() : info.canonicalPath();
        if (!in.isEmpty() && (out == in || out.startsWith(in + '/')))
            usage(QString("%1 %2 lies inside the input folder %3").arg(option, folder, in));
    }
}

// Progress on a terminal only; scripts and logs see nothing.
std::function<void(int)> progress(const QString &what, int total)
{
    if (!isatty(fileno(stderr)))
        return [](int) {};
    return [what, total](int done) {
        QTextStream(stderr) << '\r' << tool << ": " << what << ' ' << done << '/' << total
                            << (done == total ? "\n" : "") << Qt::flush;
    };
}
} // namespace

int main(int argc, char **argv)
{
    // The report is drawn off screen: on a server, over ssh or in CI the tool
    // needs no display and no variable set.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    ToolkitMessages::keepOffStderr(tool);
    QApplication application(argc, argv);
    QApplication::setApplicationName(tool);
    QApplication::setApplicationVersion(VELTRANE_VERSION);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Reads Veltrane results files and their sidecars, checks them, recomputes each run's\n"
        "threshold with the program's staircase, averages the thresholds in dB per subject and\n"
        "condition, fits the psychometric function 0.5 + (0.5 - lapse) F((x - alpha) / beta)\n"
        "(x in dB, F logistic) to the pooled trials, and writes runs.tsv, summary.tsv,\n"
        "trials.tsv, figures.tsv (the points of the report's figures), summary.json and\n"
        "report.pdf. Exit status: 0 all files used, 1 some left out, 2 bad options or no\n"
        "results file found.");
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument("PATH", "A results file, or a folder searched recursively.",
                                 "PATH...");
    parser.addOptions({
        {"out", "Folder for the tables and the report. Default: ./summary.", "DIR", "summary"},
        {"png", "Also write each report page as a PNG picture into this folder.", "DIR"},
        {"include-practice", "Practice runs count like test runs."},
        {"include-faulty", "Runs with sounds that did not play count too."},
        {"max-reversal-sd",
         "Leave out runs whose averaged reversals scatter by more than this SD. Default: off.",
         "dB"},
        {"last", "Summarise only each group's last N included runs. Default: all.", "N"},
        {"lapse", "Fixed lapse rate of the fit (the start value with --free-lapse). Default: 0.02.",
         "rate", "0.02"},
        {"free-lapse", "Fit the lapse rate within 0 to 0.06."},
        {"bootstrap", "Parametric bootstrap replicates per fit. Default: 1000.", "N", "1000"},
        {"seed",
         "Seed of the bootstrap; the same inputs and seed give the same tables. Default: a "
         "random seed, written into summary.json.",
         "S"},
    });
    const QString problem = OptionValue::parse(parser, QApplication::arguments());
    if (!problem.isEmpty())
        usage(problem);

    const QStringList inputs = parser.positionalArguments();
    if (inputs.isEmpty())
        usage("no PATH given");
    RunRules rules;
    rules.includePractice = parser.isSet("include-practice");
    rules.includeFaulty = parser.isSet("include-faulty");
    if (parser.isSet("max-reversal-sd"))
        rules.maxReversalSdDb = number(parser, "max-reversal-sd", 0.0, 1e6);
    const int last = parser.isSet("last") ? whole(parser, "last", 1) : 0;
    FitOptions fitOptions;
    fitOptions.freeLapse = parser.isSet("free-lapse");
    fitOptions.lapse =
        number(parser, "lapse", 0.0, fitOptions.freeLapse ? FitOptions::maxLapse : 0.49);
    fitOptions.bootstrap = whole(parser, "bootstrap", 0);
    std::uint64_t seed = std::random_device{}();
    if (parser.isSet("seed")) {
        bool ok = false;
        seed = parser.value("seed").toULongLong(&ok);
        if (!ok)
            usage(QString("--seed needs a whole number, not '%1'").arg(parser.value("seed")));
    }
    const QString out = parser.value("out");
    const QString png = parser.value("png");
    checkOutside("--out", out, inputs);
    if (!png.isEmpty())
        checkOutside("--png", png, inputs);

    QStringList missing;
    const QStringList files = RunReader::candidates(inputs, missing);
    for (const QString &path : missing)
        message(path + ": no such file or folder");
    if (!missing.isEmpty())
        usage("every PATH must exist");

    QVector<RunRow> rows;
    int leftOut = 0;
    for (const QString &file : files) {
        const RunReading reading = RunReader::read(file, rules);
        if (reading.kind == RunReading::Kind::Usable) {
            rows.append(reading.row);
        } else if (reading.kind == RunReading::Kind::LeftOut) {
            ++leftOut;
            message(
                reading.line > 0
                    ? QString("%1:%2: %3").arg(reading.where).arg(reading.line).arg(reading.reason)
                    : QString("%1: %2").arg(reading.where, reading.reason));
        }
    }
    if (rows.isEmpty() && leftOut == 0)
        usage("no results file found in " + inputs.join(", "));
    if (rows.isEmpty())
        return 1;

    QVector<StudyGroup> groups = Study::group(rows, last);
    // Runs played at different volumes are not one condition.
    for (const StudyGroup &g : groups) {
        QStringList volumes;
        for (double v : g.outputVolumes)
            volumes << QString::number(v) + " %";
        const RunRow &r = rows[g.first];
        if (volumes.size() > 1)
            message(QString("%1, %2, %3: included runs played at output volumes %4")
                        .arg(g.subject, r.soundType, r.mainParameter, volumes.join(", ")));
    }
    Study::fitAll(groups, rows, fitOptions, seed, progress("fitting", groups.size()));

    const QJsonObject options{{"include-practice", rules.includePractice},
                              {"include-faulty", rules.includeFaulty},
                              {"max-reversal-sd", std::isfinite(rules.maxReversalSdDb)
                                                      ? QJsonValue(rules.maxReversalSdDb)
                                                      : QJsonValue()},
                              {"last", last > 0 ? QJsonValue(last) : QJsonValue()},
                              {"lapse", fitOptions.lapse},
                              {"free-lapse", fitOptions.freeLapse},
                              {"bootstrap", fitOptions.bootstrap}};
    const QJsonObject about{
        {"Software", QJsonObject{{"Name", tool}, {"Version", VELTRANE_VERSION}}},
        {"Seed", QString::number(seed)}, // text: a JSON number keeps only 53 bits
        {"Options", options},
        {"Inputs", QJsonArray::fromStringList(inputs)}};

    if (!QDir().mkpath(out) || (!png.isEmpty() && !QDir().mkpath(png))) {
        message(QString("%1: cannot be created").arg(QDir().mkpath(out) ? png : out));
        return 1;
    }
    const QDir folder(out);
    bool written = writeFile(folder.filePath("runs.tsv"), Tables::runs(rows).toUtf8());
    written &= writeFile(folder.filePath("summary.tsv"), Tables::summary(groups, rows).toUtf8());
    written &= writeFile(folder.filePath("trials.tsv"), Tables::trials(rows).toUtf8());
    const Overview overview = Overview::of(groups, rows, leftOut);
    written &= writeFile(
        folder.filePath("summary.json"),
        QJsonDocument(Tables::description(about, overview)).toJson(QJsonDocument::Indented));
    const QVector<ReportPage> pages = ReportPage::all(overview, groups, rows);
    written &= writeFile(folder.filePath("figures.tsv"), Tables::figures(pages).toUtf8());
    if (!Report::write(folder.filePath("report.pdf"), png, pages,
                       progress("drawing", groups.size()))) {
        message(folder.filePath("report.pdf") + ": the report could not be written whole");
        written = false;
    }
    return leftOut > 0 || !written ? 1 : 0;
}
