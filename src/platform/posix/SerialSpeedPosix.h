// Setting a serial rate that has no B-constant. It lives in a file of its
// own because the kernel's termios2 header cannot be included together with
// the C library's <termios.h>.
#pragma once

namespace kiv::platform {

/// Sets both directions of `fd` to `baud` bits per second; false on failure.
bool SetArbitrarySpeed(int fd, unsigned int baud);

/// The output rate of `fd` as the kernel reports it; 0 if it cannot be read.
unsigned int CurrentSpeed(int fd);

}  // namespace kiv::platform
