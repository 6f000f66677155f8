// Reading the metadata of 1,000 MP3 files (ID3v2.4 tag with a cover, about
// five seconds of constant bit rate frames each) as an application does:
// one player of the built-in driver, each file set as its data source, every
// key and the cover read through the metadata control; against plain TagLib
// calls that fetch the same values from the same files. The library's reader
// alone shows what the player and control add. Run with repetitions and
// random interleaving so that all see the same machine speed.
#include <benchmark/benchmark.h>
#include <kiv/media/IDataSource.h>
#include <kiv/media/IDriver.h>
#include <kiv/media/IMetaDataControl.h>
#include <kiv/media/IPlayer.h>
#include <kiv/media/MPlayerManager.h>
#include <stdlib.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/fileref.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "MediaTestFiles.h"
#include "foundation/Text.h"
#include "media/MediaMetaData.h"

namespace {

constexpr int kFiles = 1000;

std::string g_dir;
std::vector<std::string> g_paths;
std::vector<std::wstring> g_widePaths;

void MakeFiles() {
    const std::string frames = kiv::test::MpegStream({kiv::test::kKbps128}, 190, 1, false);
    const std::string cover = "\xFF\xD8\xFF\xE0" + std::string(2048, '\x42');
    for (int i = 0; i < kFiles; ++i) {
        const std::string path = g_dir + "/song" + std::to_string(i) + ".mp3";
        std::ofstream(path, std::ios::binary) << frames;
        TagLib::MPEG::File file(path.c_str(), false);
        TagLib::ID3v2::Tag* tag = file.ID3v2Tag(true);
        tag->setTitle("Song number " + TagLib::String::number(i));
        tag->setArtist("Generated Artist");
        tag->setAlbum("Benchmark Album");
        tag->setComment("a comment");
        tag->setYear(2000 + static_cast<unsigned int>(i % 25));
        tag->setTrack(static_cast<unsigned int>(i % 20 + 1));
        tag->setGenre(TagLib::String::number(i % 148));
        auto* picture = new TagLib::ID3v2::AttachedPictureFrame;
        picture->setMimeType("image/jpeg");
        picture->setType(TagLib::ID3v2::AttachedPictureFrame::FrontCover);
        picture->setPicture(
            TagLib::ByteVector(cover.data(), static_cast<unsigned int>(cover.size())));
        tag->addFrame(picture);
        file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripOthers, TagLib::ID3v2::v4);
        g_paths.push_back(path);
        g_widePaths.push_back(kiv::text::FromUtf8(path));
    }
}

void BM_MetaDataControl(benchmark::State& state) {
    using namespace kiv::media;
    MPlayerManager manager;
    manager.RegisterMediaType("mp3", "ms.directshow");
    IDriver* driver = MPlayerManager::GetDriver("ms.directshow");
    std::vector<IDataSource*> sources;
    for (const std::wstring& path : g_widePaths) {
        sources.push_back(manager.CreateDataSource(path));
    }
    IPlayer* player = manager.CreatePlayer(sources.front());
    std::size_t total = 0;
    std::vector<std::string> keys;
    std::vector<unsigned char> picture;
    std::string mime;
    for (auto _ : state) {
        for (IDataSource* source : sources) {
            player->SetDataSource(source);
            auto* control = static_cast<IMetaDataControl*>(
                player->GetControl(IMetaDataControl::DEFAULT_NAME()));
            keys.clear();
            control->GetKeys(keys);
            for (const std::string& key : keys) {
                total += control->GetKeyValue(key).size();
            }
            if (control->GetPicture(picture, mime) == 0) {
                total += picture.size() + mime.size();
            }
        }
    }
    driver->ReleasePlayer(player);
    for (IDataSource* source : sources) {
        driver->ReleaseDataSource(source);
    }
    benchmark::DoNotOptimize(total);
    state.SetItemsProcessed(state.iterations() * kFiles);
}

void BM_LibraryReader(benchmark::State& state) {
    std::size_t total = 0;
    for (auto _ : state) {
        for (const std::wstring& path : g_widePaths) {
            kiv::media::MediaMetaData meta;
            meta.Read(path);
            for (const std::string& key : meta.Keys()) {
                total += meta.Value(key)->size();
            }
            total += meta.Picture().size();
        }
    }
    benchmark::DoNotOptimize(total);
    state.SetItemsProcessed(state.iterations() * kFiles);
}

// What an application would write with TagLib alone for the same values.
void BM_PlainTagLib(benchmark::State& state) {
    std::size_t total = 0;
    for (auto _ : state) {
        for (const std::string& path : g_paths) {
            TagLib::MPEG::File file(path.c_str(), true, TagLib::AudioProperties::Average);
            const TagLib::Tag* tag = file.tag();
            total += tag->title().size() + tag->artist().size() + tag->album().size() +
                     tag->comment().size() + tag->genre().size() + tag->year() + tag->track();
            const TagLib::MPEG::Properties* p = file.audioProperties();
            total += static_cast<std::size_t>(p->lengthInMilliseconds() + p->bitrate() +
                                              p->sampleRate() + p->channelMode());
            const TagLib::ID3v2::FrameList pictures = file.ID3v2Tag()->frameListMap()["APIC"];
            if (!pictures.isEmpty()) {
                const auto* frame =
                    static_cast<const TagLib::ID3v2::AttachedPictureFrame*>(pictures.front());
                total += frame->picture().size() + frame->mimeType().size();
            }
        }
    }
    benchmark::DoNotOptimize(total);
    state.SetItemsProcessed(state.iterations() * kFiles);
}

BENCHMARK(BM_MetaDataControl)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_LibraryReader)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_PlainTagLib)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    char dir[] = "/tmp/kiv-bench-media-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        return 1;
    }
    g_dir = dir;
    MakeFiles();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(g_dir);
    return 0;
}
