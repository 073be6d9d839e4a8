#ifndef HYTORC_TORQUE_H
#define HYTORC_TORQUE_H

#include <cmath>
#include <limits>

// A torque in the host's hundredths, truncated toward zero. A value past what an int
// holds (or "inf", "nan" read from the tool) gives 0, as text that is not a number does.
inline int torqueHundredths(double torque)
{
    const double hundredths = torque * 100.0;
    return std::abs(hundredths) < double(std::numeric_limits<int>::max()) ? int(hundredths) : 0;
}

#endif // HYTORC_TORQUE_H
