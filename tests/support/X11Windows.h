#pragma once

#include <QProcess>
#include <QStringList>

#include <memory>
#include <vector>

// Opens real windows on the test's X server and drives them with xdotool.
class X11Windows {
public:
    ~X11Windows() {
        for (auto& p : m_processes) {
            p->kill();
            p->waitForFinished(2000);
        }
    }

    // An xterm whose WM_CLASS is (instance, className); returns its window id, 0 on failure.
    quint32 openTerminal(const QString& instance, const QString& className) {
        auto p = std::make_unique<QProcess>();
        p->start("xterm", {"-name", instance, "-class", className, "-e", "sleep", "600"});
        if (!p->waitForStarted())
            return 0;
        m_processes.push_back(std::move(p));
        const QString out =
            xdotool({"search", "--sync", "--classname", QString("^%1$").arg(instance)});
        return out.split(u'\n', Qt::SkipEmptyParts).value(0).toUInt();
    }

    static void activate(quint32 window) {
        xdotool({"windowactivate", "--sync", QString::number(window)});
    }
    static void moveMouse(int x, int y) {
        xdotool({"mousemove", QString::number(x), QString::number(y)});
    }

    static QString xdotool(const QStringList& args) {
        QProcess p;
        p.start("xdotool", args);
        p.waitForFinished(20000);
        return QString::fromUtf8(p.readAllStandardOutput());
    }

private:
    std::vector<std::unique_ptr<QProcess>> m_processes;
};
