#include "staircase.h"

#include "../app/sessionparameters.h"

void Staircase::resetStartValues(SessionParameters &params)
{
    if (params.mainParameter == 0) {
        params.modulationDepth[1] = 0.0;
        params.frequencyDifference[1] = 0.05;
        params.carrierFrequency[1] = params.carrierFrequency[0] * (1 - 0.05);
    } else if (params.mainParameter == 1) {
        params.modulationDepth[1] = 0.5;
        params.frequencyDifference[1] = 0.0;
        params.carrierFrequency[1] = params.carrierFrequency[0];
    }
}
