// The terminal settings a serial port gets when it is opened.
#pragma once

#include <termios.h>

namespace kiv::platform {

/// Raw mode for `tio` (no line editing, echo, signals, flow control or
/// output processing; reads return what is there) that leaves data bits,
/// parity and stop bits as the driver set them: only Configure changes those,
/// and ports it does not configure keep the driver's line.
void MakeRawKeepingLine(termios& tio);

}  // namespace kiv::platform
