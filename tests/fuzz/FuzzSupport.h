#pragma once

#include "platform/NotificationSink.h"

#include <QCoreApplication>

#include <cstdlib>

// What the fuzz targets that run the store and the alerts share: a notification sink that
// shows nothing, and an application in a fixed time zone.
class NullSink final : public NotificationSink {
public:
    void requestAuthorization(std::function<void(bool)> completion) override { completion(true); }
    void add(const NotificationRequest&) override {}
    void removePending(const QStringList&) override {}
};

inline void initializeFuzzApplication(int* argc, char*** argv) {
    setenv("TZ", "UTC", 1);
    static QCoreApplication app(*argc, *argv);
}
