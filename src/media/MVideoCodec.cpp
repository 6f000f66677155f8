#include <kiv/media/MVideoCodec.h>
#include <kiv/media/MVideoFormat.h>

#include "media/YuvToBgr.h"

namespace kiv::media {

MVideoCodec::MVideoCodec() : m_inputFormat(nullptr), m_outputFormat(nullptr) {}

MVideoCodec::MVideoCodec(const MVideoCodec& other)
    : ICodec(other), m_inputFormat(other.m_inputFormat), m_outputFormat(other.m_outputFormat) {}

MVideoCodec& MVideoCodec::operator=(const MVideoCodec& other) {
    ICodec::operator=(other);
    m_inputFormat = other.m_inputFormat;
    m_outputFormat = other.m_outputFormat;
    return *this;
}

// The formats belong to the caller.
MVideoCodec::~MVideoCodec() = default;

unsigned long MVideoCodec::Transform(unsigned char* in, int /*inLen*/, unsigned char* out,
                                     int /*outLen*/) {
    // The type tests name the opposite of the conversion made (YUV 4:2:0 in,
    // RGB out): callers label the input 0 and the output 3. Intended.
    if (m_inputFormat->GetType() != IFormat::FORMAT_RGB_888) {
        return 0;
    }
    if (m_outputFormat->GetType() != IFormat::FORMAT_YUV_420) {
        return 0;
    }
    return ConvertYUV2RGB(in, out);
}

void MVideoCodec::SetInputFormat(IFormat* format) {
    m_inputFormat = format;
}

void MVideoCodec::SetOutputFormat(IFormat* format) {
    m_outputFormat = format;
}

unsigned long MVideoCodec::ConvertYUV2RGB(unsigned char* in, unsigned char* out) {
    // Only a video format carries a size; any other input format converts
    // nothing.
    auto* video = dynamic_cast<MVideoFormat*>(m_inputFormat);
    if (video == nullptr) {
        return 0;
    }
    int width = 0;
    int height = 0;
    video->GetSize(width, height);
    detail::ConvertFrame(in, width, height, out);
    return 0;
}

unsigned long MVideoCodec::YUV2RGB(unsigned char y, unsigned char cb, unsigned char cr, int* r,
                                   int* g, int* b) {
    const detail::ChromaTerms terms = detail::ChromaTermsOf(cb, cr);
    *r = detail::ChannelOf(y, terms.red);
    *g = detail::ChannelOf(y, terms.green);
    *b = detail::ChannelOf(y, terms.blue);
    return 0;
}

}  // namespace kiv::media
