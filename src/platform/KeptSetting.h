#pragma once

#include "Defaults.h"

// One setting as a reader that asks at every tick wants it: read through its accessor
// (AppPreferences::idleTimeout, say) again only once the store may have changed.
template <typename T> class KeptSetting {
public:
    using Read = T (*)(const Defaults&);

    KeptSetting(const Defaults& defaults, Read read)
        : m_defaults(defaults)
        , m_read(read) {}

    T operator()() const {
        const quint64 stamp = m_defaults.changeStamp();
        if (stamp != m_stamp) {
            m_value = m_read(m_defaults);
            m_stamp = stamp;
        }
        return m_value;
    }

private:
    const Defaults& m_defaults;
    Read m_read;
    mutable T m_value{};
    mutable quint64 m_stamp = 0; // no answer of changeStamp() is 0
};
