#pragma once

#include <QtGlobal>

#include <atomic>

// The process-wide backend of one platform interface. The composition root sets it before
// first use; using it unset is a programming error and stops the process.
template <typename Interface> class StandardInstance {
public:
    static Interface& get(const char* what) {
        Interface* p = s_instance.load();
        if (!p)
            qFatal("%s used before the composition root chose a backend", what);
        return *p;
    }
    static void set(Interface* p) { s_instance.store(p); }

private:
    inline static std::atomic<Interface*> s_instance{nullptr};
};
