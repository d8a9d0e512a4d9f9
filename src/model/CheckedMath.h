#pragma once

#include <QtGlobal>

#include <cstdint>

// Running sums of tokens trap on overflow: a wrapped total would silently corrupt the
// day, so it is treated as a programming error and stops the process.
inline qint64 checkedAdd(qint64 a, qint64 b) {
    qint64 r = 0;
    if (__builtin_add_overflow(a, b, &r))
        qFatal("token count overflow: %lld + %lld", static_cast<long long>(a),
               static_cast<long long>(b));
    return r;
}

inline qint64 checkedMultiply(qint64 a, qint64 b) {
    qint64 r = 0;
    if (__builtin_mul_overflow(a, b, &r))
        qFatal("token count overflow: %lld * %lld", static_cast<long long>(a),
               static_cast<long long>(b));
    return r;
}

// A double truncated toward zero to a 64-bit integer. A value that is not finite or does not
// fit is a programming error (as a checked conversion would be) and stops the process.
inline qint64 checkedTruncate(double d) {
    // ±2^63 are exact as doubles: [-2^63, 2^63) is exactly the range that converts.
    if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0))
        qFatal("number not representable as a 64-bit integer: %g", d);
    return static_cast<qint64>(d);
}
