// Uses the installed framework through its umbrella header only: decodes a
// status word, reads typed values from bytes, and round-trips a file.
#include <kiv/KivFramework.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    // A status word the GPS client returns when the daemon cannot start.
    kiv::MError error;
    error = 0x07000002u;
    wchar_t message[64];
    int len = 64;
    error.GetErrorMessage(message, len);
    std::printf("status 0x%08X: category 0x%08X, code %u, message \"%ls\" (%d characters)\n",
                error.GetValue(), error.GetCategory(), error.GetCode(), message, len);

    // Big-endian values out of a byte array.
    char bytes[] = {0x12, 0x34, 0x56, 0x78, 0x00, 0x2A};
    kiv::system::MByteBuffer buffer;
    buffer.Wrap(bytes, sizeof bytes);
    buffer.SetEndian(kiv::system::MByteBuffer::BIG_ENDIAN);
    const int first = buffer.GetInt();
    const short second = buffer.GetShort();
    std::printf("big-endian int 0x%08X, short %d, cursor at %d\n", first, second,
                buffer.GetPosition());

    // A file written and read back through a byte buffer.
    const char* dir = argc > 1 ? argv[1] : std::getenv("TMPDIR");
    std::string path = std::string(dir != nullptr ? dir : "/tmp") + "/kiv-consumer.bin";
    std::wstring wpath(path.begin(), path.end());
    {
        kiv::system::MFile out(wpath.c_str(), L"wb");
        buffer.SetPosition(0);  // Write takes the bytes from the cursor on.
        out.Write(&buffer, 6);
    }  // The destructor closes the file.
    kiv::system::MFile in(wpath.c_str(), L"rb");
    kiv::system::MByteBuffer readBack;
    readBack.Allocate(6);
    const unsigned int got = in.Read(&readBack, 6);
    in.Seek(0, kiv::system::MFile::SEEK_FILE_END);
    std::printf("file of %u bytes, read %u, identical: %s\n", in.Tell(), got,
                std::memcmp(readBack.GetBuffer(), bytes, 6) == 0 ? "yes" : "no");
    std::remove(path.c_str());

    const bool ok = len == 27 && first == 0x12345678 && second == 42 && got == 6;
    std::printf("%s\n", ok ? "kiv-consumer: all checks passed" : "kiv-consumer: FAILED");
    return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}
