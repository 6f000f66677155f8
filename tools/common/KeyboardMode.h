// Keys without line editing or echo while a terminal tool runs, so that a
// single key acts at once; Ctrl-C still raises SIGINT. Restored when it goes.
#pragma once

#include <termios.h>
#include <unistd.h>

namespace kiv::tools {

class KeyboardMode {
public:
    KeyboardMode() {
        if (isatty(STDIN_FILENO) == 0 || tcgetattr(STDIN_FILENO, &m_saved) != 0) {
            return;
        }
        termios raw = m_saved;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        m_active = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
    }
    ~KeyboardMode() {
        if (m_active) {
            tcsetattr(STDIN_FILENO, TCSANOW, &m_saved);
        }
    }
    KeyboardMode(const KeyboardMode&) = delete;
    KeyboardMode& operator=(const KeyboardMode&) = delete;
    /// Whether standard input is a terminal that now delivers single keys.
    bool Active() const { return m_active; }

private:
    termios m_saved{};
    bool m_active = false;
};

}  // namespace kiv::tools
