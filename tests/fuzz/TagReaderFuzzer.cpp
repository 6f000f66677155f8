// Writes arbitrary bytes to a file and reads its metadata, as a media file
// of the type its first byte chooses (MP3, WAV, WMA, or by content). Checks
// that every key the reader reports has a value and that the numbers it
// reports are numbers.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "foundation/Text.h"
#include "media/MediaMetaData.h"

namespace {

void Check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

std::string g_directory;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool once = [] {
        static char root[] = "/tmp/kiv-tag-fuzz-XXXXXX";
        Check(mkdtemp(root) != nullptr);
        g_directory = root;
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(g_directory, ignored);
        });
        return true;
    }();
    (void)once;
    if (size == 0) {
        return 0;
    }
    static const char* const kExtensions[] = {".mp3", ".wav", ".wma", ".bin"};
    const std::string path = g_directory + "/input" + kExtensions[data[0] % 4];
    FILE* file = std::fopen(path.c_str(), "wb");
    Check(file != nullptr);
    Check(std::fwrite(data + 1, 1, size - 1, file) == size - 1);
    std::fclose(file);

    kiv::media::MediaMetaData meta;
    meta.Read(kiv::text::FromUtf8(path));
    for (const std::string& key : meta.Keys()) {
        const std::wstring* value = meta.Value(key);
        Check(value != nullptr && !value->empty());
        if (key == "duration" || key == "bitrate" || key == "frequency") {
            Check(value->find_first_not_of(L"0123456789") == std::wstring::npos);
        }
    }
    Check(meta.Value("coverPicture") == nullptr || !meta.Picture().empty());
    std::remove(path.c_str());
    return 0;
}
