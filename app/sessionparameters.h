// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "trialrecord.h"

#include <QString>
#include <QStringList>
#include <QVector>

// Every setting of a session, the sizes derived from them and the state of a
// running measurement. Pairs hold the standard at element 0 and the deviant at
// element 1. Times are in seconds, depths and frequency differences are fractions.
class SessionParameters
{
public:
    SessionParameters();

    // The results file's name composed from the panel:
    // <subject code>_<session type><session, at least 3 digits>_<sound type>_<main parameter>.txt
    QString composedFileName() const;

    // Takes the subject code, session type and number, sound type and main
    // parameter back from a name in that pattern (with or without a folder).
    // False, and nothing changed, when the name does not follow it.
    bool takeFileName(const QString &name);

    int trialCount;
    double samplingRate;
    QVector<double> duration;
    QVector<int> nSamples;
    QVector<double> displayDuration;
    QVector<int> displaySamples;
    QVector<double> spectrumMaxFrequency;
    QVector<int> spectrumPoints;
    QString filePath;
    QString subjectCode;
    QString fileName;
    QStringList sessionTypes;
    int sessionType;
    QStringList soundTypes;
    int soundType;
    QStringList mainParameters;
    int mainParameter;
    int sessionNumber;
    QVector<double> amplitude;
    QVector<double> modulationFrequency;
    QVector<double> modulationDepth;
    QVector<double> frequencyDifference;
    QVector<double> carrierFrequency;
    QVector<double> carrierPhaseDeg;
    QVector<double> modulationPhaseDeg;
    QVector<double> carrierPhase;
    QVector<double> modulationPhase;
    bool normaliseModulation;
    bool equaliseRms;
    int numberOfReversals;
    int reversalsToCalculate;
    double silentInterval;
    QVector<double> reversalValues;
    int stepUp;
    int stepDown;
    int stepDirection;
    int reversalCount;
    QVector<int> stepSizes;
    QVector<TrialRecord> trials;
    int stimPosition;
    double threshold;
    double reactionTime;
    bool resetMdFd;
    bool saveData;
};
