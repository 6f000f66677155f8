// What the monitor prints: one line per reading when the output is not a
// terminal, or a whole screen redrawn in place on a terminal.
#pragma once

#include <cstddef>
#include <string>

#include "Reading.h"

namespace kivgpsmon {

/// What the screen shows besides the reading.
struct Status {
    std::string source;  ///< "demo drive /path" or "receiver on COM3 at 4800 baud"
    unsigned int fixEvents = 0;
    unsigned int movingEvents = 0;
    std::string gpxPath;  ///< empty: no track is written
    std::size_t gpxPoints = 0;
};

/// One line, ending in '\n'.
std::string FormatLine(const Reading& reading);

/// The screen, drawn from the top left corner with ANSI escapes; without a
/// reading it says that it waits for the first fix.
std::string FormatScreen(const Reading* reading, const Status& status);

}  // namespace kivgpsmon
