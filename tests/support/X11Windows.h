#pragma once

#include <QProcess>
#include <QStringList>

#include <xcb/xcb.h>

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
        if (m_connection)
            xcb_disconnect(m_connection);
    }

    // A window of this process with WM_CLASS (instance, className), transient for `owner`
    // as a dialog is; returns its id once it is shown, 0 on failure.
    quint32 openDialog(const QByteArray& instance, const QByteArray& className, quint32 owner) {
        if (!m_connection)
            m_connection = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(m_connection))
            return 0;
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        const xcb_window_t w = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, w, screen->root, 10, 10, 200, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
        const QByteArray wmClass = instance + '\0' + className + '\0';
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_CLASS,
                            XCB_ATOM_STRING, 8, wmClass.size(), wmClass.constData());
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_TRANSIENT_FOR,
                            XCB_ATOM_WINDOW, 32, 1, &owner);
        xcb_map_window(m_connection, w);
        xcb_flush(m_connection);
        const QString found = xdotool({QStringLiteral("search"), QStringLiteral("--sync"),
                                       QStringLiteral("--classname"),
                                       QStringLiteral("^%1$").arg(QString::fromUtf8(instance))});
        return found.split(u'\n', Qt::SkipEmptyParts).contains(QString::number(w)) ? w : 0;
    }

    // An xterm whose WM_CLASS is (instance, className); returns its window id, 0 on failure.
    quint32 openTerminal(const QString& instance, const QString& className) {
        auto p = std::make_unique<QProcess>();
        p->start(QStringLiteral("xterm"),
                 {QStringLiteral("-name"), instance, QStringLiteral("-class"), className,
                  QStringLiteral("-e"), QStringLiteral("sleep"), QStringLiteral("600")});
        if (!p->waitForStarted())
            return 0;
        m_processes.push_back(std::move(p));
        const QString out =
            xdotool({QStringLiteral("search"), QStringLiteral("--sync"),
                     QStringLiteral("--classname"), QStringLiteral("^%1$").arg(instance)});
        return out.split(u'\n', Qt::SkipEmptyParts).value(0).toUInt();
    }

    static void activate(quint32 window) {
        xdotool(
            {QStringLiteral("windowactivate"), QStringLiteral("--sync"), QString::number(window)});
    }
    static void moveMouse(int x, int y) {
        xdotool({QStringLiteral("mousemove"), QString::number(x), QString::number(y)});
    }

    static QString xdotool(const QStringList& args) {
        QProcess p;
        p.start(QStringLiteral("xdotool"), args);
        p.waitForFinished(20000);
        return QString::fromUtf8(p.readAllStandardOutput());
    }

private:
    std::vector<std::unique_ptr<QProcess>> m_processes;
    xcb_connection_t* m_connection = nullptr;
};
