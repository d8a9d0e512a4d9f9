#include "X11IdleSource.h"

#include <xcb/screensaver.h>
#include <xcb/xcb.h>

#include <cstdlib>

X11IdleSource::X11IdleSource(xcb_connection_t* connection, quint32 root)
    : m_connection(connection)
    , m_root(root) {}

X11IdleSource::~X11IdleSource() {
    xcb_disconnect(m_connection);
}

std::unique_ptr<X11IdleSource> X11IdleSource::open(QString* error) {
    int screen = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screen);
    if (xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        if (error)
            *error = QStringLiteral("cannot connect to the X11 display");
        return nullptr;
    }
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_screensaver_id);
    if (!ext || !ext->present) {
        xcb_disconnect(c);
        if (error)
            *error = QStringLiteral("the X server has no MIT-SCREEN-SAVER extension");
        return nullptr;
    }
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screen && it.rem; ++i)
        xcb_screen_next(&it);
    return std::unique_ptr<X11IdleSource>(new X11IdleSource(c, it.data->root));
}

double X11IdleSource::secondsSinceLastInput() const {
    xcb_screensaver_query_info_reply_t* reply = xcb_screensaver_query_info_reply(
        m_connection, xcb_screensaver_query_info(m_connection, m_root), nullptr);
    if (!reply)
        return 0.0; // no answer (server gone): treat the user as present rather than idle
    const double seconds = double(reply->ms_since_user_input) / 1000.0;
    std::free(reply);
    return seconds;
}
