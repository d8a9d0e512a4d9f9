// The least work that following keyboard idleness needs on X11: ask the X server for the
// time since the last input once every ten seconds, and nothing else. The idle benchmark
// (bench/idle_footprint.sh) measures the tray app and `mindmeter track` beside it.
//
//   idle_floor [INTERVAL_MS]        (default 10000; prints nothing, runs until killed)

#include <xcb/screensaver.h>
#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

int main(int argc, char** argv) {
    const long intervalMs = argc > 1 ? std::atol(argv[1]) : 10000;
    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "idle_floor: cannot connect to the X server\n");
        return 1;
    }
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screenNumber && it.rem; ++i)
        xcb_screen_next(&it);
    const xcb_window_t root = it.data->root;

    // Absolute deadlines on the monotonic clock, so the rhythm does not drift.
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    unsigned idleMs = 0;
    for (;;) {
        xcb_screensaver_query_info_reply_t* reply =
            xcb_screensaver_query_info_reply(c, xcb_screensaver_query_info(c, root), nullptr);
        if (!reply)
            return 1; // the server went away
        idleMs = reply->ms_since_user_input;
        std::free(reply);
        asm volatile("" : : "r"(idleMs)); // the answer counts as used
        next.tv_sec += intervalMs / 1000;
        next.tv_nsec += (intervalMs % 1000) * 1000000;
        if (next.tv_nsec >= 1000000000) {
            next.tv_sec += 1;
            next.tv_nsec -= 1000000000;
        }
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) != 0) {
        }
    }
}
