#pragma once

#include "platform/Defaults.h"

#include <QDateTime>

// A believable fortnight of work for showing the program without anyone's real data:
// several applications and kinds of work each day, a day off, a recovery break, and today
// up to `now`. Deterministic, so pictures made from it are the same every time.
namespace DemoData {

void fill(Defaults& defaults, const QDateTime& now);

} // namespace DemoData
