// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QDeadlineTimer>

class QAudioOutput;
class QBuffer;
class QByteArray;

// The objects of one interval whose sound is still playing after the next
// tick has started the following interval (a silent interval shorter than the
// output's latency). They are released when that output reports idle; one
// that never does is released once its deadline has passed and it is no
// longer active, or at its limit whatever its state. `run` is the number of
// the run that played it (runs count from 1), `trial` and `sound` number the
// interval within that run.
struct SoundingInterval {
    QAudioOutput *output;
    QBuffer *buffer;
    QByteArray *bytes;
    QDeadlineTimer deadline;
    QDeadlineTimer limit;
    int run;
    int trial;
    int sound;
};
