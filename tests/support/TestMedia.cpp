#include "support/TestMedia.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <vector>

#include "support/KivTestEnvironment.h"

namespace kiv::test {
namespace {

std::string FindProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        const std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

// gst-launch-1.0 joins its arguments into one description: each element,
// property and link is one argument here.
std::vector<std::string> Split(const std::string& description) {
    std::vector<std::string> words;
    std::stringstream in(description);
    std::string word;
    while (in >> word) {
        words.push_back(word);
    }
    return words;
}

}  // namespace

const char* MediaExtension(MediaFormat format) {
    switch (format) {
        case MediaFormat::MP3:
            return "mp3";
        case MediaFormat::WAV:
            return "wav";
        case MediaFormat::WMA:
            return "wma";
        case MediaFormat::AVI:
            return "avi";
    }
    return "";
}

TestMediaFile MakeTestMedia(MediaFormat format, int ms) {
    const std::string path = TempPath("tone" + std::to_string(ms) + "." + MediaExtension(format));
    // Sound is made in buffers of 100 ms or 20 ms (the WMA encoder takes at
    // most 2048 samples at once), so `ms` is rounded down to whole tenths.
    const int tenths = ms / 100;
    std::string pipeline;
    TestMediaFile file{path, tenths * 100, 2};
    switch (format) {
        case MediaFormat::MP3:
            pipeline = "audiotestsrc num-buffers=" + std::to_string(tenths * 5) +
                       " samplesperbuffer=882 ! audio/x-raw,rate=44100,channels=2 ! lamemp3enc "
                       "target=bitrate cbr=true bitrate=128 ! taginject "
                       "tags=title=KivTone,artist=Kiv ! id3v2mux";
            file.durationMs = -1;
            file.toleranceMs = 27;  // 1152 samples at 44.1 kHz
            break;
        case MediaFormat::WAV:
            pipeline = "audiotestsrc num-buffers=" + std::to_string(tenths) +
                       " samplesperbuffer=800 ! audio/x-raw,format=S16LE,rate=8000,channels=1 ! "
                       "wavenc";
            break;
        case MediaFormat::WMA:
            pipeline = "audiotestsrc num-buffers=" + std::to_string(tenths * 5) +
                       " samplesperbuffer=441 ! audio/x-raw,rate=22050,channels=1 ! avenc_wmav2 "
                       "! avmux_asf";
            file.toleranceMs = 93;  // 2048 samples at 22.05 kHz
            break;
        case MediaFormat::AVI:
            pipeline = "videotestsrc pattern=red num-buffers=" + std::to_string(tenths * 15 / 10) +
                       " ! video/x-raw,width=160,height=120,framerate=15/1 ! jpegenc ! avimux "
                       "name=mux ! filesink location=" +
                       path + " audiotestsrc num-buffers=" + std::to_string(tenths) +
                       " samplesperbuffer=1100 ! audio/x-raw,format=S16LE,rate=11000,channels=1 "
                       "! mux.";
            file.toleranceMs = 67;  // one picture at 15 frames/s
            break;
    }
    if (format != MediaFormat::AVI) {
        pipeline += " ! filesink location=" + path;
    }
    if (access(path.c_str(), R_OK) != 0) {
        const std::string launcher = FindProgram("gst-launch-1.0");
        // --no-fault: a crashing element must fail the test, not spin.
        std::vector<std::string> args{"-q", "--no-fault"};
        for (auto& word : Split(pipeline)) {
            args.push_back(word);
        }
        if (launcher.empty() || RunProcess(launcher, args) != 0) {
            return {{}, -1, 0};
        }
    }
    if (format == MediaFormat::MP3) {
        file.durationMs = Mp3FramesDurationMs(path);
    }
    return file;
}

int Mp3FramesDurationMs(const std::string& path) {
    const std::string bytes = ReadFileBytes(path);
    auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    std::size_t pos = 0;
    if (bytes.size() >= 10 && bytes.compare(0, 3, "ID3") == 0) {
        const std::size_t size = (at(6) << 21) | (at(7) << 14) | (at(8) << 7) | at(9);
        pos = 10 + size + ((at(5) & 0x10) != 0 ? 10 : 0);
    }
    static const int kKbps[16] = {0,   32,  40,  48,  56,  64,  80,  96,
                                  112, 128, 160, 192, 224, 256, 320, 0};
    static const int kRates[4] = {44100, 48000, 32000, 0};
    long frames = 0;
    int rate = 0;
    while (pos + 4 <= bytes.size()) {
        const bool sync = at(pos) == 0xFF && (at(pos + 1) & 0xE0) == 0xE0;
        const bool mpeg1Layer3 = ((at(pos + 1) >> 3) & 3) == 3 && ((at(pos + 1) >> 1) & 3) == 1;
        const int kbps = kKbps[at(pos + 2) >> 4];
        const int frameRate = kRates[(at(pos + 2) >> 2) & 3];
        if (!sync || !mpeg1Layer3 || kbps == 0 || frameRate == 0) {
            break;
        }
        const auto length =
            static_cast<std::size_t>(144 * kbps * 1000 / frameRate + ((at(pos + 2) >> 1) & 1));
        if (pos + length > bytes.size()) {
            break;
        }
        rate = frameRate;
        pos += length;
        ++frames;
    }
    return frames == 0 ? -1 : static_cast<int>(frames * 1152 * 1000 / rate);
}

}  // namespace kiv::test
