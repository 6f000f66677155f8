// Converts planar YUV 4:2:0 frames into bottom-up 24-bit BGR pictures.
//
// Input, for a W x H frame: the W x H luma plane, then H / 2 chroma rows of W
// bytes, each W / 2 Cb samples followed by W / 2 Cr samples. Output: H rows of
// 3 x W bytes without padding, the bottom picture row first, each pixel blue,
// green, red: what a bottom-up 24-bit bitmap holds.
#pragma once

#include <kiv/media/ICodec.h>
#include <kiv/media/IFormat.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API MVideoCodec : public ICodec {
public:
    /// Both formats unset.
    MVideoCodec();
    MVideoCodec(const MVideoCodec& other);
    MVideoCodec& operator=(const MVideoCodec& other);
    ~MVideoCodec() override;

    /// Converts one frame when the input format's type is FORMAT_RGB_888 and
    /// the output format's is FORMAT_YUV_420 (the labels callers use), else
    /// writes nothing. The size comes from the input format; the lengths are
    /// not used. Always returns 0.
    unsigned long Transform(unsigned char* in, int inLen, unsigned char* out, int outLen) override;
    /// Stores the pointer; no check, no copy. Must be a MVideoFormat to convert.
    void SetInputFormat(IFormat* format) override;
    /// Stores the pointer; no check, no copy.
    void SetOutputFormat(IFormat* format) override;

private:
    unsigned long ConvertYUV2RGB(unsigned char* in, unsigned char* out);
    unsigned long YUV2RGB(unsigned char y, unsigned char cb, unsigned char cr, int* r, int* g,
                          int* b);

    IFormat* m_inputFormat;
    IFormat* m_outputFormat;
};

}  // namespace kiv::media
