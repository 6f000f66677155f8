// Writes 16-bit PCM into a WAV file without ever showing a half-written file
// under its name: the data goes to "<name>.part" beside it, and Commit
// completes the header and renames the file into place.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace kiv::media {

class WavWriter {
public:
    /// Bytes of the header before the samples.
    static const std::size_t HEADER_SIZE;

    WavWriter() = default;
    /// Discards an uncommitted file.
    ~WavWriter();
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;

    /// Starts a file that Commit will name `path` (replacing one there);
    /// discards the file in progress. A media status on failure.
    unsigned int Create(const std::string& path);
    bool IsOpen() const { return m_file != nullptr; }
    /// The bytes the committed file would have now, header included.
    std::size_t FileSize() const { return HEADER_SIZE + m_dataBytes; }

    /// Appends the whole sample frames of `data` that keep the file within
    /// `limit` bytes (none when negative). The first call fixes the format;
    /// data of another format is refused. Returns the bytes taken; false in
    /// `ok` when writing failed.
    std::size_t Append(const unsigned char* data, std::size_t bytes, int rate, int channels,
                       long long limit, bool& ok);
    /// Completes the header and moves the file to its name.
    unsigned int Commit();
    /// Removes the file in progress.
    void Discard();

private:
    std::FILE* m_file = nullptr;
    std::string m_path;
    std::size_t m_dataBytes = 0;
    int m_rate = 0;
    int m_channels = 0;
};

}  // namespace kiv::media
