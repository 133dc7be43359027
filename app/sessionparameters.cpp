// SPDX-License-Identifier: GPL-3.0-or-later
#include "sessionparameters.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

namespace
{
const double degreesToRadians = 0.017453292519943295;
}

SessionParameters::SessionParameters()
    : trialCount(0),
      samplingRate(40000.0), duration{0.6, 0.6}, nSamples{24000, 24000}, displayDuration{0.05,
                                                                                         0.05},
      displaySamples{2000, 2000}, spectrumMaxFrequency{2000.0, 2000.0}, spectrumPoints{1638, 1638},
      filePath(
          QString("%1").arg(QStandardPaths::writableLocation(QStandardPaths::DesktopLocation))),
      subjectCode("SUB001"), fileName(), sessionTypes{"practice", "test"},
      sessionType(0), soundTypes{"sinusoid", "noise"},
      soundType(0), mainParameters{"carrier frequency", "modulation depth"}, mainParameter(0),
      sessionNumber(1), amplitude{1.0, 1.0}, modulationFrequency{40.0, 40.0}, modulationDepth{0.0,
                                                                                              0.5},
      frequencyDifference{0.0, 0.05}, carrierFrequency{1000.0, 1000.0}, carrierPhaseDeg{0.0, 0.0},
      modulationPhaseDeg{180.0, 180.0}, carrierPhase{carrierPhaseDeg[0] * degreesToRadians,
                                                     carrierPhaseDeg[1] * degreesToRadians},
      modulationPhase{modulationPhaseDeg[0] * degreesToRadians,
                      modulationPhaseDeg[1] * degreesToRadians},
      normaliseModulation(true), equaliseRms(true), numberOfReversals(14), reversalsToCalculate(8),
      silentInterval(1.0), reversalValues(numberOfReversals, 0.0), stepUp(2), stepDown(-1),
      stepDirection(-1), reversalCount(0), stepSizes{2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
      trials(), stimPosition(0), threshold(0.0), reactionTime(0.0), resetMdFd(true), saveData(false)
{
}

QString SessionParameters::composedFileName() const
{
    return subjectCode + "_" + sessionTypes.value(sessionType) +
           QString("%1").arg(sessionNumber, 3, 10, QChar('0')) + "_" + soundTypes.value(soundType) +
           "_" + mainParameters.value(mainParameter) + ".txt";
}

bool SessionParameters::takeFileName(const QString &name)
{
    // Anchored at the end: a subject code may itself hold underscores.
    const QString pattern =
        QString("^(.*)_(%1)(\\d{3,})_(%2)_(%3)\\.txt$")
            .arg(sessionTypes.join('|'), soundTypes.join('|'), mainParameters.join('|'));
    const QRegularExpressionMatch match =
        QRegularExpression(pattern).match(QFileInfo(name).fileName());
    if (!match.hasMatch())
        return false;
    subjectCode = match.captured(1);
    sessionType = sessionTypes.indexOf(match.captured(2));
    sessionNumber = match.captured(3).toInt();
    soundType = soundTypes.indexOf(match.captured(4));
    mainParameter = mainParameters.indexOf(match.captured(5));
    return true;
}
