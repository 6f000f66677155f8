// Tags and audio properties through TagLib. TagLib decodes the tag formats
// (ID3v2 text encodings, unsynchronisation, version 2.2 frames); this file
// picks the values, keeps genre texts as stored so that numbers go through
// the device's list rather than TagLib's, and walks the frames of variable
// bit rate MP3 files that carry no Xing or VBRI frame, whose duration TagLib
// would estimate from the first frame's bit rate.
#include <fcntl.h>
#include <sys/stat.h>
#include <taglib/apetag.h>
#include <taglib/asffile.h>
#include <taglib/asfpicture.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/fileref.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>
#include <taglib/wavfile.h>
#include <unistd.h>

#include <exception>
#include <memory>

#include "platform/MpegFrames.h"
#include "platform/TagReader.h"

namespace kiv::platform {
namespace {

// Frames in each sample that tells a constant bit rate file from a variable one.
constexpr std::uint64_t kSampleFrames = 12;
constexpr std::uint64_t kAllFrames = ~std::uint64_t{0};

// The size of a regular file; false for anything else (a pipe would block).
bool RegularFileSize(const std::string& path, std::uint64_t& size) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        return false;
    }
    size = static_cast<std::uint64_t>(st.st_size);
    return true;
}

// TagLib keeps text as UTF-16 units, one per wchar_t, so a character beyond
// the first plane arrives as two surrogates; they are joined here.
std::wstring Wide(const TagLib::String& s) {
    const std::wstring units = s.toWString();
    std::wstring out;
    out.reserve(units.size());
    for (std::size_t i = 0; i < units.size(); ++i) {
        const auto c = static_cast<std::uint32_t>(units[i]);
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size()) {
            const auto low = static_cast<std::uint32_t>(units[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                out.push_back(
                    static_cast<wchar_t>(0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00)));
                ++i;
                continue;
            }
        }
        out.push_back(static_cast<wchar_t>(c));
    }
    return out;
}

void FillEmpty(std::wstring& field, const TagLib::String& value) {
    if (field.empty() && !value.isEmpty()) {
        field = Wide(value);
    }
}

// The common fields of any tag; fields already set are kept.
void ReadCommon(const TagLib::Tag* tag, TagFields& fields) {
    if (tag == nullptr) {
        return;
    }
    FillEmpty(fields.title, tag->title());
    FillEmpty(fields.artist, tag->artist());
    FillEmpty(fields.album, tag->album());
    FillEmpty(fields.comment, tag->comment());
    if (fields.year == 0) {
        fields.year = tag->year();
    }
    if (fields.track == 0) {
        fields.track = tag->track();
    }
}

void SetPicture(TagFields& fields, const TagLib::String& mime, const TagLib::ByteVector& data) {
    if (data.isEmpty()) {
        return;
    }
    fields.pictureMime = mime.to8Bit(true);
    fields.picture.assign(data.begin(), data.end());
}

// ID3v2: the genre frame's texts and the front cover (else the first picture).
void ReadId3v2(const TagLib::ID3v2::Tag* tag, TagFields& fields) {
    if (tag == nullptr || tag->isEmpty()) {
        return;
    }
    ReadCommon(tag, fields);
    const TagLib::ID3v2::FrameListMap& frames = tag->frameListMap();
    if (fields.genres.empty() && frames.contains("TCON")) {
        for (const TagLib::ID3v2::Frame* frame : frames["TCON"]) {
            const auto* text = dynamic_cast<const TagLib::ID3v2::TextIdentificationFrame*>(frame);
            if (text == nullptr) {
                continue;
            }
            for (const TagLib::String& field : text->fieldList()) {
                fields.genres.push_back(Wide(field));
            }
        }
    }
    if (fields.picture.empty() && frames.contains("APIC")) {
        const TagLib::ID3v2::AttachedPictureFrame* chosen = nullptr;
        for (const TagLib::ID3v2::Frame* frame : frames["APIC"]) {
            const auto* picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frame);
            if (picture == nullptr || picture->picture().isEmpty()) {
                continue;
            }
            if (chosen == nullptr ||
                (picture->type() == TagLib::ID3v2::AttachedPictureFrame::FrontCover &&
                 chosen->type() != TagLib::ID3v2::AttachedPictureFrame::FrontCover)) {
                chosen = picture;
            }
        }
        if (chosen != nullptr) {
            SetPicture(fields, chosen->mimeType(), chosen->picture());
        }
    }
}

void ReadId3v1(const TagLib::ID3v1::Tag* tag, TagFields& fields) {
    if (tag == nullptr || tag->isEmpty()) {
        return;
    }
    ReadCommon(tag, fields);
    const unsigned int genre = tag->genreNumber();
    if (fields.genres.empty() && genre != 255) {
        fields.genres.push_back(std::to_wstring(genre));
    }
}

void ReadProperties(const TagLib::AudioProperties* properties, TagFields& fields) {
    if (properties == nullptr) {
        return;
    }
    fields.durationMs = properties->lengthInMilliseconds();
    fields.bitrateKbps = properties->bitrate();
    fields.sampleRateHz = properties->sampleRate();
    fields.channels = properties->channels();
}

MpegChannelMode ChannelModeOf(TagLib::MPEG::Header::ChannelMode mode) {
    switch (mode) {
        case TagLib::MPEG::Header::Stereo:
            return MpegChannelMode::Stereo;
        case TagLib::MPEG::Header::JointStereo:
            return MpegChannelMode::JointStereo;
        case TagLib::MPEG::Header::DualChannel:
            return MpegChannelMode::DualChannel;
        case TagLib::MPEG::Header::SingleChannel:
            return MpegChannelMode::Mono;
    }
    return MpegChannelMode::None;
}

// Without a Xing or VBRI frame TagLib assumes a constant bit rate. Two
// samples of frames, at the start and in the middle (variable bit rate
// encoders often begin with a run of equal silent frames), tell whether that
// holds; if not, every frame is counted. The samples start after the ID3v2
// tag, and the walk finds the first frame itself: TagLib's own search for it
// costs more than the samples.
void CorrectVariableBitrate(TagLib::MPEG::File& file, const std::string& path,
                            std::uint64_t fileSize, TagFields& fields) {
    const TagLib::MPEG::Properties* properties = file.audioProperties();
    if (properties == nullptr || properties->xingHeader() != nullptr) {
        return;
    }
    std::uint64_t begin = 0;
    if (const TagLib::ID3v2::Tag* tag = file.ID3v2Tag(false)) {
        begin = tag->header()->completeTagSize();
    }
    std::uint64_t end = fileSize;
    if (file.hasID3v1Tag() && end >= 128) {
        end -= 128;
    }
    if (begin >= end) {
        return;
    }
    // Read directly, not through TagLib's stream: each of its reads measures
    // the file again, which costs more than the samples themselves.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    const ByteReader read = [fd](std::uint64_t offset, std::uint8_t* buffer,
                                 std::size_t size) -> std::size_t {
        const ssize_t n = ::pread(fd, buffer, size, static_cast<off_t>(offset));
        return n > 0 ? static_cast<std::size_t>(n) : 0;
    };
    const MpegStreamSummary head = WalkMpegFrames(read, begin, end, kSampleFrames);
    const MpegStreamSummary middle =
        WalkMpegFrames(read, begin + (end - begin) / 2, end, kSampleFrames);
    const bool constant = !head.variableBitrate && !middle.variableBitrate &&
                          (middle.frames == 0 || middle.firstBitrateKbps == head.firstBitrateKbps);
    if (!constant) {
        const MpegStreamSummary all = WalkMpegFrames(read, begin, end, kAllFrames);
        if (all.frames > 0) {
            fields.durationMs = all.DurationMs();
            fields.bitrateKbps = all.AverageBitrateKbps();
        }
    }
    ::close(fd);
}

void ReadMpeg(TagLib::MPEG::File& file, const std::string& path, std::uint64_t fileSize,
              TagFields& fields) {
    ReadId3v2(file.ID3v2Tag(false), fields);
    ReadCommon(file.APETag(false), fields);
    ReadId3v1(file.ID3v1Tag(false), fields);
    if (fields.genres.empty() && file.APETag(false) != nullptr &&
        !file.APETag(false)->genre().isEmpty()) {
        fields.genres.push_back(Wide(file.APETag(false)->genre()));
    }
    const TagLib::MPEG::Properties* properties = file.audioProperties();
    ReadProperties(properties, fields);
    if (properties != nullptr) {
        fields.channelMode = ChannelModeOf(properties->channelMode());
        CorrectVariableBitrate(file, path, fileSize, fields);
    }
}

void ReadWav(TagLib::RIFF::WAV::File& file, TagFields& fields) {
    if (file.hasID3v2Tag()) {
        ReadId3v2(file.ID3v2Tag(), fields);
    }
    if (file.hasInfoTag()) {
        const TagLib::RIFF::Info::Tag* info = file.InfoTag();
        ReadCommon(info, fields);
        const TagLib::String genre = info->fieldText("IGNR");
        if (fields.genres.empty() && !genre.isEmpty()) {
            fields.genres.push_back(Wide(genre));
        }
    }
    ReadProperties(file.audioProperties(), fields);
}

void ReadAsf(TagLib::ASF::File& file, TagFields& fields) {
    const TagLib::ASF::Tag* tag = file.tag();
    ReadCommon(tag, fields);
    if (tag != nullptr) {
        if (!tag->genre().isEmpty()) {
            fields.genres.push_back(Wide(tag->genre()));
        }
        const TagLib::ASF::AttributeListMap& attributes = tag->attributeListMap();
        if (attributes.contains("WM/Picture")) {
            for (const TagLib::ASF::Attribute& attribute : attributes["WM/Picture"]) {
                const TagLib::ASF::Picture picture = attribute.toPicture();
                if (picture.isValid() && !picture.picture().isEmpty()) {
                    SetPicture(fields, picture.mimeType(), picture.picture());
                    break;
                }
            }
        }
    }
    ReadProperties(file.audioProperties(), fields);
}

bool Read(const std::string& path, TagFields& fields, bool properties) {
    std::uint64_t size = 0;
    if (!RegularFileSize(path, size)) {
        return false;
    }
    TagLib::FileRef ref(path.c_str(), properties, TagLib::AudioProperties::Average);
    if (ref.isNull() || !ref.file()->isValid()) {
        return false;
    }
    TagLib::File* file = ref.file();
    if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(file)) {
        ReadMpeg(*mpeg, path, size, fields);
    } else if (auto* wav = dynamic_cast<TagLib::RIFF::WAV::File*>(file)) {
        ReadWav(*wav, fields);
    } else if (auto* asf = dynamic_cast<TagLib::ASF::File*>(file)) {
        ReadAsf(*asf, fields);
    } else {
        ReadCommon(ref.tag(), fields);
        if (ref.tag() != nullptr && !ref.tag()->genre().isEmpty()) {
            fields.genres.push_back(Wide(ref.tag()->genre()));
        }
        ReadProperties(ref.audioProperties(), fields);
    }
    return true;
}

}  // namespace

bool ReadTagFields(const std::string& path, TagFields& fields) {
    fields = TagFields{};
    try {
        return Read(path, fields, true);
    } catch (const std::exception&) {
        // A broken file that made the tag library give up: what was read stays.
        return !fields.title.empty() || fields.durationMs >= 0;
    }
}

int ReadDurationMs(const std::string& path) {
    TagFields fields;
    return ReadTagFields(path, fields) ? fields.durationMs : -1;
}

}  // namespace kiv::platform
