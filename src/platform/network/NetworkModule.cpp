// The network module's entry point, looked up by name by the executable.
#include "QtHttpFetcher.h"

extern "C" Q_DECL_EXPORT HttpFetcher* mindmeter_create_http_fetcher() {
    return new QtHttpFetcher;
}
