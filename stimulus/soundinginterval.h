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
// longer active, or at its limit whatever its state. `trial` and `sound`
// number the interval within its run; a trial of 0 marks one left over from
// a run that has ended.
struct SoundingInterval {
    QAudioOutput *output;
    QBuffer *buffer;
    QByteArray *bytes;
    QDeadlineTimer deadline;
    QDeadlineTimer limit;
    int trial;
    int sound;
};
