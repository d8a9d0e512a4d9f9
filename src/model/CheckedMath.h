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

// The same additions for values that come from outside (stored days): report instead of trap.
inline bool addWouldOverflow(qint64 a, qint64 b, qint64* result) {
    return __builtin_add_overflow(a, b, result);
}
