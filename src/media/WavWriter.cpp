#include "media/WavWriter.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "platform/FileSystem.h"
#include "platform/MediaEngine.h"

namespace kiv::media {

using platform::MediaStatus;

const std::size_t WavWriter::HEADER_SIZE = 44;

namespace {

// Without a sample, a file still needs a format: mono at CD rate.
constexpr int kDefaultRate = 44100;
constexpr int kDefaultChannels = 1;
// The RIFF sizes are 32-bit.
constexpr std::size_t kMaxData = 0xFFFFFFFFu - 36;

void Put16(unsigned char* at, unsigned int value) {
    at[0] = static_cast<unsigned char>(value);
    at[1] = static_cast<unsigned char>(value >> 8);
}

void Put32(unsigned char* at, std::uint32_t value) {
    Put16(at, value & 0xFFFF);
    Put16(at + 2, value >> 16);
}

std::array<unsigned char, 44> Header(int rate, int channels, std::size_t dataBytes) {
    std::array<unsigned char, 44> h{'R', 'I', 'F', 'F', 0,   0,  0, 0, 'W', 'A', 'V',
                                    'E', 'f', 'm', 't', ' ', 16, 0, 0, 0,   1,   0};
    const auto blockAlign = static_cast<unsigned int>(channels * 2);
    Put32(&h[4], static_cast<std::uint32_t>(36 + dataBytes));
    Put16(&h[22], static_cast<unsigned int>(channels));
    Put32(&h[24], static_cast<std::uint32_t>(rate));
    Put32(&h[28], static_cast<std::uint32_t>(rate) * blockAlign);
    Put16(&h[32], blockAlign);
    Put16(&h[34], 16);
    h[36] = 'd';
    h[37] = 'a';
    h[38] = 't';
    h[39] = 'a';
    Put32(&h[40], static_cast<std::uint32_t>(dataBytes));
    return h;
}

std::string PartName(const std::string& path) {
    return path + ".part";
}

}  // namespace

WavWriter::~WavWriter() {
    Discard();
}

unsigned int WavWriter::Create(const std::string& path) {
    Discard();
    if (path.empty()) {
        return MediaStatus::INVALID_ARGUMENT;
    }
    std::FILE* file = std::fopen(PartName(path).c_str(), "wb");
    if (file == nullptr) {
        return MediaStatus::WRITE_FAILED;
    }
    // A placeholder until the format and the length are known.
    const std::array<unsigned char, 44> blank{};
    if (std::fwrite(blank.data(), 1, blank.size(), file) != blank.size()) {
        std::fclose(file);
        platform::RemoveFile(PartName(path));
        return MediaStatus::WRITE_FAILED;
    }
    m_file = file;
    m_path = path;
    m_dataBytes = 0;
    m_rate = 0;
    m_channels = 0;
    return 0;
}

std::size_t WavWriter::Append(const unsigned char* data, std::size_t bytes, int rate, int channels,
                              long long limit, bool& ok) {
    ok = true;
    if (m_file == nullptr || rate <= 0 || channels <= 0) {
        return 0;
    }
    if (m_rate == 0) {
        m_rate = rate;
        m_channels = channels;
    } else if (rate != m_rate || channels != m_channels) {
        return 0;
    }
    std::size_t room = kMaxData - m_dataBytes;
    if (limit >= 0) {
        const auto cap = static_cast<unsigned long long>(limit);
        room = cap > FileSize() ? std::min<std::size_t>(room, cap - FileSize()) : 0;
    }
    const auto frame = static_cast<std::size_t>(channels) * 2;
    const std::size_t take = std::min(bytes, room) / frame * frame;
    if (take == 0) {
        return 0;
    }
    if (std::fwrite(data, 1, take, m_file) != take) {
        ok = false;
        return 0;
    }
    m_dataBytes += take;
    return take;
}

unsigned int WavWriter::Commit() {
    if (m_file == nullptr) {
        return MediaStatus::INVALID_ARGUMENT;
    }
    const auto header = Header(m_rate > 0 ? m_rate : kDefaultRate,
                               m_channels > 0 ? m_channels : kDefaultChannels, m_dataBytes);
    const bool written = std::fseek(m_file, 0, SEEK_SET) == 0 &&
                         std::fwrite(header.data(), 1, header.size(), m_file) == header.size();
    const bool closed = std::fclose(m_file) == 0;
    m_file = nullptr;
    if (!written || !closed || platform::Rename(PartName(m_path), m_path, true) != 0) {
        platform::RemoveFile(PartName(m_path));
        return MediaStatus::WRITE_FAILED;
    }
    return 0;
}

void WavWriter::Discard() {
    if (m_file == nullptr) {
        return;
    }
    std::fclose(m_file);
    m_file = nullptr;
    platform::RemoveFile(PartName(m_path));
}

}  // namespace kiv::media
