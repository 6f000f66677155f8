#include "platform/MpegFrames.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "MediaTestFiles.h"

using namespace kiv::platform;

namespace {

MpegFrameHeader Parse(const char* bytes) {
    MpegFrameHeader header;
    EXPECT_TRUE(ParseMpegFrameHeader(reinterpret_cast<const std::uint8_t*>(bytes), header));
    return header;
}

ByteReader ReaderOf(const std::string& data) {
    return [&data](std::uint64_t offset, std::uint8_t* buffer, std::size_t size) -> std::size_t {
        if (offset >= data.size()) {
            return 0;
        }
        const std::size_t n =
            std::min<std::size_t>(size, data.size() - static_cast<std::size_t>(offset));
        std::memcpy(buffer, data.data() + offset, n);
        return n;
    };
}

}  // namespace

TEST(MpegFrames, HeadersGiveTheFrameSizesOfEachVersionAndLayer) {
    const MpegFrameHeader l3 = Parse("\xFF\xFB\x92\x40");  // MPEG-1 III 128k 44.1k padded, joint
    EXPECT_EQ(l3.version, 10);
    EXPECT_EQ(l3.layer, 3);
    EXPECT_EQ(l3.bitrateKbps, 128);
    EXPECT_EQ(l3.sampleRateHz, 44100);
    EXPECT_EQ(l3.samplesPerFrame, 1152);
    EXPECT_EQ(l3.channelMode, 1);
    EXPECT_EQ(l3.frameBytes, 418u);

    const MpegFrameHeader mpeg2 = Parse("\xFF\xF3\x80\xC0");  // MPEG-2 III 64k 22.05k, mono
    EXPECT_EQ(mpeg2.version, 20);
    EXPECT_EQ(mpeg2.sampleRateHz, 22050);
    EXPECT_EQ(mpeg2.samplesPerFrame, 576);
    EXPECT_EQ(mpeg2.frameBytes, 208u);

    const MpegFrameHeader l2 = Parse("\xFF\xFD\xA4\x00");  // MPEG-1 II 192k 48k
    EXPECT_EQ(l2.layer, 2);
    EXPECT_EQ(l2.frameBytes, 576u);

    const MpegFrameHeader l1 = Parse("\xFF\xFF\x84\x00");  // MPEG-1 I 256k 48k
    EXPECT_EQ(l1.layer, 1);
    EXPECT_EQ(l1.samplesPerFrame, 384);
    EXPECT_EQ(l1.frameBytes, 256u);

    MpegFrameHeader ignored;
    for (const char* bad : {"\xFF\xFB\x02\x40", "\xFF\xFB\xF2\x40", "\xFF\xFB\x9C\x40",
                            "\xFF\xE9\x90\x00", "\xFF\xF9\x90\x00", "\xFE\xFB\x90\x00"}) {
        EXPECT_FALSE(ParseMpegFrameHeader(reinterpret_cast<const std::uint8_t*>(bad), ignored));
    }
}

TEST(MpegFrames, WalkCountsFramesAcrossGarbageAndStopsAtTheEndOrAfterLostSync) {
    using kiv::test::MpegFrame;
    const std::string a = MpegFrame(kiv::test::kKbps128, 1);
    const std::string b = MpegFrame(kiv::test::kKbps320, 1);
    std::string data = a + b + std::string(100, '\0') + a;
    data += b.substr(0, 200);  // truncated: not counted
    MpegStreamSummary summary = WalkMpegFrames(ReaderOf(data), 0, data.size(), ~0ull);
    EXPECT_EQ(summary.frames, 3u);
    EXPECT_EQ(summary.samples, 3u * 1152);
    EXPECT_EQ(summary.bytes, 2 * a.size() + b.size());
    EXPECT_TRUE(summary.variableBitrate);
    EXPECT_EQ(summary.DurationMs(), 3 * 1152 * 1000 / 44100);

    EXPECT_EQ(WalkMpegFrames(ReaderOf(data), 0, data.size(), 2).frames, 2u);

    // Sync bits followed by no second header are not a first frame; 64 KiB
    // without a frame end the walk.
    const std::string stray = "\xFF\xFB\x90\x40" + std::string(500, '\x11');
    std::string lost = stray + a + a + std::string(70 * 1024, '\x11') + a;
    EXPECT_EQ(WalkMpegFrames(ReaderOf(lost), 0, lost.size(), ~0ull).frames, 2u);

    std::string constant;
    for (int i = 0; i < 200; ++i) {
        constant += a;  // spans several reads of the walk's window
    }
    summary = WalkMpegFrames(ReaderOf(constant), 0, constant.size(), ~0ull);
    EXPECT_EQ(summary.frames, 200u);
    EXPECT_FALSE(summary.variableBitrate);
    EXPECT_EQ(summary.AverageBitrateKbps(), 128);
}
