// kivplay: plays media files through the player manager, as an application
// of the device does: it registers its media types with the built-in driver,
// makes a data source and a player per file and follows the player's events.
// On a terminal it shows the file, its tags, the state, a progress bar, the
// volume and the lyrics when a ".lrc" file lies beside the media, and takes
// keys; otherwise it prints the tags and then one line per event. With
// --info it prints every tag of each file and exits.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <kiv/KivFramework.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>
#include "common/KeyboardMode.h"
#include "foundation/Text.h"

namespace {

using Clock = std::chrono::steady_clock;
using kiv::media::IDataSource;
using kiv::media::IDriver;
using kiv::media::ILrcControl;
using kiv::media::IMetaDataControl;
using kiv::media::IPlayer;
using kiv::media::MPlayerEvent;
using kiv::media::MPlayerManager;

constexpr const char* kDriver = "ms.directshow";
constexpr const char* kExtensions[] = {"mp3", "wav", "wma", "asf",  "wmv", "avi",
                                       "mp4", "m4a", "ogg", "flac", "mpg", "mkv"};
constexpr int kSeekStepMs = 5000;
constexpr int kVolumeStep = 10;

volatile std::sig_atomic_t g_stopSignal = 0;
int g_wake[2] = {-1, -1};

void Wake() {
    const int saved = errno;
    const char byte = 1;
    (void)!write(g_wake[1], &byte, 1);  // a full pipe already wakes the reader
    errno = saved;
}

void OnStopSignal(int) {
    g_stopSignal = 1;
    Wake();
}

const char* EventName(unsigned char type) {
    static const char* const kNames[] = {
        "INITIALIZED",          "DEINITIALIZED",   "STARTED",        "STOPPED_BY_REQUEST",
        "STOPPED_END_OF_MEDIA", "RESTARTED",       "RECORD_STARTED", "RECORD_STOPPED",
        "LRC_LINE_CHANGE",      "LRC_WORD_CHANGE", "MEDIA_TIME_SET", "MOUSE_CLICK_VIDEO",
        "STOPPED_ERRORABORT"};
    return type < sizeof kNames / sizeof kNames[0] ? kNames[type] : "UNKNOWN";
}

// Collects the events of one player on its dispatcher thread; the main
// thread takes them. The player itself is only touched by the main thread.
class EventQueue : public kiv::media::IPlayerListener {
public:
    void OnPlayerEvent(const MPlayerEvent& event) override {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(event.GetEventType());
        }
        Wake();
    }
    std::optional<unsigned char> Take() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_events.empty()) {
            return std::nullopt;
        }
        const unsigned char type = m_events.front();
        m_events.pop_front();
        return type;
    }

private:
    std::mutex m_mutex;
    std::deque<unsigned char> m_events;
};

// Control characters of a tag or lyric would move the cursor or end the line.
std::string Printable(const std::wstring& s) {
    std::wstring clean = s;
    for (wchar_t& c : clean) {
        if (c < 0x20 || c == 0x7F) {
            c = L' ';
        }
    }
    return kiv::text::ToUtf8(clean);
}

std::string BaseName(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string FormatTime(int ms) {
    if (ms < 0) {
        return "--:--";
    }
    char text[32];
    const int seconds = ms / 1000;
    std::snprintf(text, sizeof text, "%d:%02d.%d", seconds / 60, seconds % 60, (ms % 1000) / 100);
    return text;
}

// The tags shown while a file plays, read before it is initialized.
struct Tags {
    std::string title;
    std::string author;
    std::string album;
    std::string year;
    std::string genre;
    int durationMs = -1;
};

Tags ReadTags(IPlayer& player) {
    Tags tags;
    auto* meta =
        static_cast<IMetaDataControl*>(player.GetControl(IMetaDataControl::DEFAULT_NAME()));
    if (meta == nullptr) {
        return tags;
    }
    tags.title = Printable(meta->GetKeyValue(IMetaDataControl::TITLE_KEY()));
    tags.author = Printable(meta->GetKeyValue(IMetaDataControl::AUTHOR_KEY()));
    tags.album = Printable(meta->GetKeyValue(IMetaDataControl::ALBUM_KEY()));
    tags.year = Printable(meta->GetKeyValue(IMetaDataControl::YEAR_KEY()));
    tags.genre = Printable(meta->GetKeyValue(IMetaDataControl::GENRE_KEY()));
    const std::wstring duration = meta->GetKeyValue(IMetaDataControl::DURATION_KEY());
    if (!duration.empty()) {
        tags.durationMs = static_cast<int>(std::wcstol(duration.c_str(), nullptr, 10));
    }
    return tags;
}

ILrcControl* Lyrics(IPlayer& player) {
    auto* lyrics = static_cast<ILrcControl*>(player.GetControl(ILrcControl::DEFAULT_NAME()));
    return lyrics != nullptr && lyrics->GetLineCount() > 0 ? lyrics : nullptr;
}

struct Options {
    std::vector<std::string> files;
    double duration = -1;
    bool info = false;
};

void Usage(std::FILE* out) {
    std::fputs(
        "usage: kivplay [--duration SECONDS] FILE...\n"
        "       kivplay --info FILE...\n"
        "Plays the files one after the other through the library's player manager,\n"
        "with their tags and, when FILE.lrc lies beside a file, its lyrics.\n"
        "\n"
        "  --duration SECONDS  end after SECONDS (default: after the last file)\n"
        "  --info              print every tag of each file and exit\n"
        "  --help              this text\n"
        "\n"
        "Keys on a terminal: space pause/resume, left/right seek 5 s, up/down volume,\n"
        "n next file, q quit. Without a terminal the tags are printed, then one line per\n"
        "player event (a lyrics line with its text; word events are not printed).\n"
        "KIV_AUDIO_SINK and KIV_VIDEO_SINK pick the outputs (\"discard\" drops them in\n"
        "real time); video opens a window of its own when a display is present.\n",
        out);
}

[[noreturn]] void BadUsage(const std::string& message) {
    std::fprintf(stderr, "kivplay: %s (see --help)\n", message.c_str());
    std::exit(2);
}

Options ParseOptions(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            std::exit(0);
        } else if (arg == "--info") {
            o.info = true;
        } else if (arg == "--duration") {
            if (i + 1 >= argc) {
                BadUsage("--duration needs a value");
            }
            char* end = nullptr;
            o.duration = std::strtod(argv[++i], &end);
            if (end == argv[i] || *end != '\0' || o.duration < 0) {
                BadUsage("--duration takes a number of seconds");
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            BadUsage("unknown option '" + arg + "'");
        } else {
            o.files.push_back(arg);
        }
    }
    if (o.files.empty()) {
        BadUsage("no file to play");
    }
    return o;
}

using kiv::tools::KeyboardMode;

enum class Key { NONE, PAUSE, BACK, FORWARD, LOUDER, SOFTER, NEXT, QUIT };

// Splits what the keyboard sent into keys (arrows are escape sequences).
std::vector<Key> ParseKeys(const char* bytes, std::size_t n) {
    std::vector<Key> keys;
    for (std::size_t i = 0; i < n; ++i) {
        if (bytes[i] == '\x1b' && i + 2 < n && (bytes[i + 1] == '[' || bytes[i + 1] == 'O')) {
            switch (bytes[i + 2]) {
                case 'A':
                    keys.push_back(Key::LOUDER);
                    break;
                case 'B':
                    keys.push_back(Key::SOFTER);
                    break;
                case 'C':
                    keys.push_back(Key::FORWARD);
                    break;
                case 'D':
                    keys.push_back(Key::BACK);
                    break;
                default:
                    break;
            }
            i += 2;
            continue;
        }
        switch (bytes[i]) {
            case ' ':
                keys.push_back(Key::PAUSE);
                break;
            case 'n':
            case 'N':
                keys.push_back(Key::NEXT);
                break;
            case 'q':
            case 'Q':
                keys.push_back(Key::QUIT);
                break;
            default:
                break;
        }
    }
    return keys;
}

bool WriteOut(const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
           std::fflush(stdout) == 0;
}

enum class Outcome { NEXT, QUIT, FAILED };

class Session {
public:
    Session(const Options& options, MPlayerManager& manager, IDriver& driver)
        : m_options(options), m_manager(manager), m_driver(driver) {
        m_terminal = isatty(STDOUT_FILENO) != 0;
        if (options.duration >= 0) {
            m_deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                            std::chrono::duration<double>(options.duration));
        }
    }

    int Run() {
        KeyboardMode keyboard;
        m_watchKeys = keyboard.Active();
        if (m_terminal) {
            WriteOut("\x1b[2J\x1b[?25l");
        }
        int played = 0;
        for (m_index = 0; m_index < m_options.files.size(); ++m_index) {
            const Outcome outcome = PlayFile(m_options.files[m_index]);
            if (outcome != Outcome::FAILED) {
                ++played;
            }
            if (outcome == Outcome::QUIT) {
                break;
            }
        }
        if (m_terminal) {
            WriteOut("\x1b[?25h\n");
        }
        return played > 0 ? 0 : 1;
    }

private:
    Outcome PlayFile(const std::string& path) {
        m_name = BaseName(path);
        IDataSource* source = m_manager.CreateDataSource(kiv::text::FromUtf8(path));
        IPlayer* player = source != nullptr ? m_manager.CreatePlayer(source) : nullptr;
        if (player == nullptr) {
            Note("cannot play: unknown file type");
            if (source != nullptr) {
                m_driver.ReleaseDataSource(source);
            }
            return Outcome::FAILED;
        }
        m_tags = ReadTags(*player);
        if (!m_terminal) {
            PrintTags();
        }
        EventQueue events;
        player->AddPlayerListener(&events);
        player->SetAudioVolume(m_volume);
        Outcome outcome = Outcome::NEXT;
        unsigned int status = player->Initialize();
        if (status == 0) {
            status = player->Start();
        }
        if (status != 0) {
            char text[64];
            std::snprintf(text, sizeof text, "cannot play (0x%08X)", status);
            Note(text);
            outcome = Outcome::FAILED;
        } else {
            outcome = Follow(*player, events);
        }
        player->Close();
        // Events of the closing (stopped, deinitialized) still count.
        Drain(*player, events);
        player->RemovePlayerListener(&events);
        m_driver.ReleasePlayer(player);
        m_driver.ReleaseDataSource(source);
        return outcome;
    }

    // Plays until the media ends, a key or the deadline says otherwise.
    Outcome Follow(IPlayer& player, EventQueue& events) {
        for (;;) {
            if (g_stopSignal != 0) {
                return Outcome::QUIT;
            }
            const auto now = Clock::now();
            if (m_deadline && now >= *m_deadline) {
                return Outcome::QUIT;
            }
            bool ended = false;
            while (auto type = events.Take()) {
                Report(player, *type);
                ended = ended || *type == MPlayerEvent::STOPPED_END_OF_MEDIA ||
                        *type == MPlayerEvent::STOPPED_ERRORABORT;
            }
            if (ended) {
                return Outcome::NEXT;
            }
            if (m_terminal) {
                Draw(&player);
            }
            int timeoutMs = m_terminal ? 200 : -1;
            if (m_deadline) {
                const auto left = std::chrono::ceil<std::chrono::milliseconds>(*m_deadline - now);
                const int leftMs = static_cast<int>(std::max<long long>(0, left.count()));
                timeoutMs = timeoutMs < 0 ? leftMs : std::min(timeoutMs, leftMs);
            }
            pollfd fds[2] = {{g_wake[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
            if (poll(fds, m_watchKeys ? 2 : 1, timeoutMs) <= 0) {
                continue;
            }
            if ((fds[0].revents & POLLIN) != 0) {
                char drain[64];
                while (read(g_wake[0], drain, sizeof drain) > 0) {
                }
            }
            if (m_watchKeys && fds[1].revents != 0) {
                char bytes[32];
                const ssize_t n = read(STDIN_FILENO, bytes, sizeof bytes);
                if (n <= 0) {
                    m_watchKeys = false;
                    continue;
                }
                for (Key key : ParseKeys(bytes, static_cast<std::size_t>(n))) {
                    if (key == Key::QUIT) {
                        return Outcome::QUIT;
                    }
                    if (key == Key::NEXT) {
                        return Outcome::NEXT;
                    }
                    Apply(player, key);
                }
            }
        }
    }

    void Apply(IPlayer& player, Key key) {
        switch (key) {
            case Key::PAUSE:
                if (player.GetState() == IPlayer::STARTED) {
                    player.Pause();
                } else {
                    player.Start();
                }
                break;
            case Key::BACK:
            case Key::FORWARD: {
                const int now = std::max(player.GetMediaTime(), 0);
                const int step = key == Key::BACK ? -kSeekStepMs : kSeekStepMs;
                int target = std::max(now + step, 0);
                const int duration = player.GetDuration();
                if (duration > 0) {
                    target = std::min(target, duration);
                }
                player.SetMediaTime(target);
                break;
            }
            case Key::LOUDER:
            case Key::SOFTER:
                m_volume = std::clamp(m_volume + (key == Key::LOUDER ? kVolumeStep : -kVolumeStep),
                                      0, 100);
                player.SetAudioVolume(m_volume);
                break;
            default:
                break;
        }
    }

    void Drain(IPlayer& player, EventQueue& events) {
        // The dispatcher delivers on its own thread; the closing events
        // follow Close within moments.
        const auto until = Clock::now() + std::chrono::milliseconds(500);
        bool deinitialized = false;
        while (!deinitialized && Clock::now() < until) {
            while (auto type = events.Take()) {
                Report(player, *type);
                deinitialized = deinitialized || *type == MPlayerEvent::DEINITIALIZED;
            }
            if (!deinitialized) {
                pollfd fd{g_wake[0], POLLIN, 0};
                if (poll(&fd, 1, 50) > 0) {
                    char drain[64];
                    while (read(g_wake[0], drain, sizeof drain) > 0) {
                    }
                }
            }
        }
    }

    void Report(IPlayer& player, unsigned char type) {
        if (type == MPlayerEvent::LRC_LINE_CHANGE || type == MPlayerEvent::LRC_WORD_CHANGE) {
            // The lyrics are drawn from the control; a line printed per word
            // would bury the others.
            if (!m_terminal && type == MPlayerEvent::LRC_LINE_CHANGE) {
                ILrcControl* lyrics = Lyrics(player);
                const int index = lyrics != nullptr ? lyrics->GetCurrentLine() : -1;
                char line[256];
                std::snprintf(line, sizeof line, "%s: %s at %s, line %d", m_name.c_str(),
                              EventName(type), FormatTime(player.GetMediaTime()).c_str(), index);
                WriteOut(std::string(line) +
                         (index >= 0 ? " \"" + Printable(lyrics->GetLineText(index)) + "\"" : "") +
                         "\n");
            }
            return;
        }
        if (m_terminal) {
            m_lastEvent = EventName(type);
            return;
        }
        char line[512];
        std::snprintf(line, sizeof line, "%s: %s at %s of %s, volume %d\n", m_name.c_str(),
                      EventName(type), FormatTime(player.GetMediaTime()).c_str(),
                      FormatTime(player.GetDuration()).c_str(), m_volume);
        WriteOut(line);
    }

    // One line with the tags there are: title "...", author "...", ...
    void PrintTags() {
        std::string line;
        const auto add = [&line](const char* name, const std::string& value) {
            if (!value.empty()) {
                line += (line.empty() ? "" : ", ") + std::string(name) + " \"" + value + "\"";
            }
        };
        add("title", m_tags.title);
        add("author", m_tags.author);
        add("album", m_tags.album);
        add("year", m_tags.year);
        add("genre", m_tags.genre);
        if (m_tags.durationMs >= 0) {
            line += (line.empty() ? "" : ", ") + std::string("duration ") +
                    FormatTime(m_tags.durationMs);
        }
        if (!line.empty()) {
            WriteOut(m_name + ": " + line + "\n");
        }
    }

    void Note(const std::string& text) {
        if (m_terminal) {
            m_lastEvent = text;
            Draw(nullptr);
        } else {
            WriteOut(m_name + ": " + text + "\n");
        }
    }

    void Draw(IPlayer* player) {
        winsize size{};
        int columns = 80;
        if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 20) {
            columns = size.ws_col;
        }
        const int time = player != nullptr ? player->GetMediaTime() : -1;
        const int duration = player != nullptr ? player->GetDuration() : -1;
        const signed char state = player != nullptr ? player->GetState() : IPlayer::UNINITIALIZED;
        const char* stateText = state == IPlayer::STARTED ? "\x1b[32mplaying\x1b[0m"
                                : state == IPlayer::READY ? "\x1b[33mpaused\x1b[0m"
                                                          : "stopped";
        const std::string times = " " + FormatTime(time) + " / " + FormatTime(duration);
        const int barWidth = std::max(10, columns - static_cast<int>(times.size()) - 4);
        const int filled = duration > 0 && time >= 0
                               ? std::min(barWidth, static_cast<int>(static_cast<long long>(time) *
                                                                     barWidth / duration))
                               : 0;
        std::string screen = "\x1b[H";
        char head[512];
        std::snprintf(head, sizeof head,
                      "\x1b[1mkivplay\x1b[0m  [%zu/%zu]  \x1b[1m%s\x1b[0m\x1b[K\n", m_index + 1,
                      m_options.files.size(), m_name.c_str());
        screen += head;
        char status[256];
        std::snprintf(status, sizeof status, "%s   volume %3d %%   %s%s\x1b[K\n\n", stateText,
                      m_volume, player != nullptr && player->HasVideo() ? "video   " : "",
                      m_lastEvent.c_str());
        screen += status;
        screen += TagLines();
        screen += " [\x1b[36m" + std::string(static_cast<std::size_t>(filled), '#') + "\x1b[0m" +
                  std::string(static_cast<std::size_t>(barWidth - filled), '-') + "]" + times +
                  "\x1b[K\n\n";
        screen +=
            "\x1b[2mspace pause/resume   \xe2\x86\x90/\xe2\x86\x92 seek 5 s   "
            "\xe2\x86\x91/\xe2\x86\x93 volume   n next   q quit\x1b[0m\x1b[K\n";
        if (player != nullptr) {
            screen += LyricLines(*player);
        }
        screen += "\x1b[J";
        WriteOut(screen);
    }

    // Title, then "author - album (year)  genre", then a blank line.
    std::string TagLines() const {
        const Tags& t = m_tags;
        std::string second = t.author;
        if (!t.album.empty()) {
            second += (second.empty() ? "" : " \xe2\x80\x94 ") + t.album;
        }
        if (!t.year.empty()) {
            second += (second.empty() ? "" : " ") + ("(" + t.year + ")");
        }
        if (!t.genre.empty()) {
            second += (second.empty() ? "" : "   ") + ("\x1b[2m" + t.genre + "\x1b[0m");
        }
        if (t.title.empty() && second.empty()) {
            return {};
        }
        return " \x1b[1;35m" + (t.title.empty() ? std::string("(untitled)") : t.title) +
               "\x1b[0m\x1b[K\n " + second + "\x1b[K\n\n";
    }

    // The current lyrics line and, dimmed, the next one.
    static std::string LyricLines(IPlayer& player) {
        ILrcControl* lyrics = Lyrics(player);
        if (lyrics == nullptr) {
            return {};
        }
        const int current = lyrics->GetCurrentLine();
        const std::string now = current >= 0 ? Printable(lyrics->GetLineText(current)) : "";
        const std::string next = Printable(lyrics->GetLineText(current + 1));
        return "\n   \x1b[1;33m" + now + "\x1b[0m\x1b[K\n   \x1b[2m" + next + "\x1b[0m\x1b[K\n";
    }

    const Options& m_options;
    MPlayerManager& m_manager;
    IDriver& m_driver;
    bool m_terminal = false;
    bool m_watchKeys = false;
    std::optional<Clock::time_point> m_deadline;
    std::size_t m_index = 0;
    std::string m_name;
    std::string m_lastEvent;
    Tags m_tags;
    int m_volume = 100;
};

// --info: every key and value of each file, and its lyrics file if any.
int PrintInfo(const Options& options, MPlayerManager& manager, IDriver& driver) {
    int read = 0;
    for (const std::string& path : options.files) {
        IDataSource* source = manager.CreateDataSource(kiv::text::FromUtf8(path));
        IPlayer* player = source != nullptr ? manager.CreatePlayer(source) : nullptr;
        auto* meta = player != nullptr ? static_cast<IMetaDataControl*>(
                                             player->GetControl(IMetaDataControl::DEFAULT_NAME()))
                                       : nullptr;
        std::vector<std::string> keys;
        if (meta != nullptr) {
            meta->GetKeys(keys);
        }
        std::string text = path + ":\n";
        if (meta == nullptr) {
            text += "  (unknown file type)\n";
        } else if (keys.empty()) {
            text += "  (no tags or properties can be read)\n";
        } else {
            ++read;
        }
        for (const std::string& key : keys) {
            text += "  " + key + ": " + Printable(meta->GetKeyValue(key));
            std::vector<unsigned char> bytes;
            std::string mime;
            if (key == IMetaDataControl::PICTURE_KEY() && meta->GetPicture(bytes, mime) == 0) {
                text += " (" + std::to_string(bytes.size()) + " bytes)";
            }
            text += "\n";
        }
        if (player != nullptr) {
            if (ILrcControl* lyrics = Lyrics(*player)) {
                text += "  lyrics: " + std::to_string(lyrics->GetLineCount()) + " lines\n";
            }
            driver.ReleasePlayer(player);
        }
        if (source != nullptr) {
            driver.ReleaseDataSource(source);
        }
        WriteOut(text);
    }
    return read > 0 ? 0 : 1;
}

void InstallSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    IDriver* driver = MPlayerManager::GetDriver(kDriver);
    if (driver == nullptr) {
        std::fprintf(stderr, "kivplay: the built-in driver is missing\n");
        return 1;
    }
    MPlayerManager manager;
    for (const char* extension : kExtensions) {
        manager.RegisterMediaType(extension, kDriver);
    }
    if (pipe2(g_wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("kivplay: pipe");
        return 1;
    }
    if (options.info) {
        return PrintInfo(options, manager, *driver);
    }
    InstallSignalHandlers();
    Session session(options, manager, *driver);
    return session.Run();
}
