#include <asm/termbits.h>
#include <sys/ioctl.h>

#include "platform/posix/SerialSpeedPosix.h"

namespace kiv::platform {

bool SetArbitrarySpeed(int fd, unsigned int baud) {
    struct termios2 tio {};
    if (ioctl(fd, TCGETS2, &tio) != 0) {
        return false;
    }
    tio.c_cflag &= ~static_cast<tcflag_t>(CBAUD | (CBAUD << IBSHIFT));
    tio.c_cflag |= BOTHER | (BOTHER << IBSHIFT);
    tio.c_ispeed = baud;
    tio.c_ospeed = baud;
    return ioctl(fd, TCSETS2, &tio) == 0;
}

unsigned int CurrentSpeed(int fd) {
    struct termios2 tio {};
    return ioctl(fd, TCGETS2, &tio) == 0 ? tio.c_ospeed : 0;
}

}  // namespace kiv::platform
