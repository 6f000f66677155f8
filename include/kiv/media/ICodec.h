// A converter of frames from one format into another.
#pragma once

#include <kiv/media/IFormat.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API ICodec {
public:
    ICodec();
    ICodec(const ICodec&);
    ICodec& operator=(const ICodec&);
    virtual ~ICodec();

    /// Converts the frame `in` into `out`; returns a status word.
    virtual unsigned long Transform(unsigned char* in, int inLen, unsigned char* out,
                                    int outLen) = 0;
    /// Describes the frames given to Transform; the format stays the caller's.
    virtual void SetInputFormat(IFormat* format) = 0;
    /// Describes the wanted result; the format stays the caller's.
    virtual void SetOutputFormat(IFormat* format) = 0;
};

}  // namespace kiv::media
