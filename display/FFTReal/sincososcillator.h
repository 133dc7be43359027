// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cmath>

// A point on the unit circle advanced by a fixed angle per step, using only
// multiplications and additions. It supplies the twiddle factors of the large
// FFT passes without a trigonometric call inside the transform.
class SinCosOscillator
{
public:
    void set_step(double angle_rad)
    {
        cos_step = std::cos(angle_rad);
        sin_step = std::sin(angle_rad);
    }

    // Back to angle 0; the step is kept.
    void clear_buffers()
    {
        cos_value = 1;
        sin_value = 0;
    }

    // Rotates the current point by the step angle.
    void step()
    {
        const double old_cos = cos_value;
        const double old_sin = sin_value;
        cos_value = old_cos * cos_step - old_sin * sin_step;
        sin_value = old_cos * sin_step + old_sin * cos_step;
    }

    double get_cos() const { return cos_value; }
    double get_sin() const { return sin_value; }

private:
    double cos_value = 1;
    double sin_value = 0;
    double cos_step = 1;
    double sin_step = 0;
};
