// Opens a media file in an engine of a fresh process and prints the status
// word, so a test can start the media framework with an environment of its
// own (GStreamer reads it once per process).
#include <cstdio>

#include "platform/MediaEngine.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    auto engine = kiv::platform::MediaEngine::Create();
    std::printf("%08X\n", engine->Open(argv[1]));
    return 0;
}
