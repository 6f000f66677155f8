// A helper program started by a test reports on file descriptor 3 that it
// is ready; the test side is ChildProcess.
#pragma once

#include <unistd.h>

#include "support/KivTestEnvironment.h"

namespace kiv::test {

/// In a helper program: tells the test that it is ready.
inline void ReportReady() {
    const char byte = 'r';
    (void)!write(kReadyFd, &byte, 1);
}

using HelperProcess = ChildProcess;

}  // namespace kiv::test
