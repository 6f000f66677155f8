#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/Text.h"
#include "platform/DebugOutput.h"

namespace kiv::platform {

void OutputDebugText(std::wstring_view text) {
    const char* target = std::getenv("KIV_DEBUG_OUTPUT");
    if (target == nullptr || *target == '\0') {
        return;
    }
    const std::string bytes = text::ToUtf8(text);
    if (std::strcmp(target, "stderr") == 0) {
        [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, bytes.data(), bytes.size());
        return;
    }
    // One append per text, so texts of several threads and processes never
    // interleave within one another.
    const int fd = open(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd >= 0) {
        [[maybe_unused]] const ssize_t n = write(fd, bytes.data(), bytes.size());
        close(fd);
    }
}

}  // namespace kiv::platform
