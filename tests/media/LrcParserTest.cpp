#include "media/LrcParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MediaTestFiles.h"
#include "foundation/Text.h"
#include "support/KivTestEnvironment.h"

using kiv::media::LrcLine;
using kiv::media::LrcLyrics;
using kiv::media::LrcParser;
using kiv::media::LrcWord;
using Ints = std::vector<int>;
using Strings = std::vector<std::wstring>;

namespace {

// One field of each line or word, in order.
template <typename Item, typename Field>
std::vector<Field> Each(const std::vector<Item>& items, Field Item::*field) {
    std::vector<Field> values;
    for (const Item& item : items) {
        values.push_back(item.*field);
    }
    return values;
}

Ints Times(const LrcLyrics& lyrics) {
    return Each(lyrics.lines, &LrcLine::timeMs);
}

Strings Texts(const LrcLyrics& lyrics) {
    return Each(lyrics.lines, &LrcLine::text);
}

}  // namespace

TEST(LrcParser, TimeTagFormsAndHeadersAreReadAndLinesSortedByTime) {
    const LrcLyrics lyrics = LrcParser::Parse(
        L"\xFEFF[ti:Song Title]\r\n"
        L"[ar: Some Artist ]\r\n"
        L"[al:An Album]\n"
        L"[by:lrc maker]\n"
        L"[length:03:20]\n"
        L"[00:20.50]third\n"
        L"[00:05:25]first, colon before hundredths\n"
        L"[00:10]second, no fraction\r"
        L"[01:02.345]milliseconds\n"
        L"[00:30.5]tenths\n"
        L"[00:40.00]\n"
        L"[105:00.00]past an hour");
    EXPECT_EQ(lyrics.title, L"Song Title");
    EXPECT_EQ(lyrics.artist, L"Some Artist");
    EXPECT_EQ(lyrics.album, L"An Album");
    EXPECT_EQ(lyrics.author, L"lrc maker");
    EXPECT_EQ(lyrics.offsetMs, 0);
    EXPECT_EQ(Times(lyrics), (Ints{5250, 10000, 20500, 30500, 40000, 62345, 6300000}));
    EXPECT_EQ(Texts(lyrics), (Strings{L"first, colon before hundredths", L"second, no fraction",
                                      L"third", L"tenths", L"", L"milliseconds", L"past an hour"}));
}

TEST(LrcParser, SeveralTagsOnOneLineRepeatItAndEqualTimesKeepFileOrder) {
    const LrcLyrics lyrics = LrcParser::Parse(
        L"[00:30.00][00:10.00][01:00.00]chorus\n"
        L"[00:20.00]verse\n"
        L"[00:10.00]same time, later in the file\n");
    EXPECT_EQ(Times(lyrics), (Ints{10000, 10000, 20000, 30000, 60000}));
    EXPECT_EQ(Texts(lyrics), (Strings{L"chorus", L"same time, later in the file", L"verse",
                                      L"chorus", L"chorus"}));
}

TEST(LrcParser, OffsetShiftsEveryLineAndWordAndClampsAtZero) {
    const std::wstring body = L"[00:00.20]<00:00.20>a <00:01.00>b\n[00:10.00]ten\n";
    const LrcLyrics later = LrcParser::Parse(L"[offset:-500]\n" + body);
    EXPECT_EQ(later.offsetMs, -500);
    EXPECT_EQ(Times(later), (Ints{700, 10500}));
    EXPECT_EQ(later.lines[0].words[1].timeMs, 1500);

    // The offset may come after the lines it applies to.
    const LrcLyrics sooner = LrcParser::Parse(body + L"[offset:+300]");
    EXPECT_EQ(Times(sooner), (Ints{0, 9700}));
    EXPECT_EQ(sooner.lines[0].words[0].timeMs, 0);
    EXPECT_EQ(sooner.lines[0].words[1].timeMs, 700);

    EXPECT_EQ(LrcParser::Parse(L"[offset:12x]\n" + body).offsetMs, 0)
        << "a malformed offset is ignored";
}

TEST(LrcParser, WordTimingSplitsTheLineAndRepeatsKeepTheWordSpacing) {
    const LrcLyrics lyrics = LrcParser::Parse(
        L"[00:12.00]Oh <00:12.50>hel<00:12.80>lo <00:13.40>world<00:14.00>\n"
        L"[00:20.00][00:40.00]<00:20.00>again <00:20.75>and<00:21.00> <bad>x\n"
        L"[00:30.00]no words here\n");
    ASSERT_EQ(lyrics.lines.size(), 4u);
    const LrcLine& first = lyrics.lines[0];
    EXPECT_EQ(first.text, L"Oh hello world");
    EXPECT_EQ(Each(first.words, &LrcWord::text), (Strings{L"Oh ", L"hel", L"lo ", L"world"}));
    EXPECT_EQ(Each(first.words, &LrcWord::timeMs), (Ints{12000, 12500, 12800, 13400}));
    EXPECT_EQ(lyrics.lines[1].text, L"again and <bad>x");
    EXPECT_EQ(Each(lyrics.lines[1].words, &LrcWord::text),
              (Strings{L"again ", L"and", L" <bad>x"}));
    EXPECT_EQ(Each(lyrics.lines[1].words, &LrcWord::timeMs), (Ints{20000, 20750, 21000}));
    EXPECT_EQ(lyrics.lines[3].timeMs, 40000);
    EXPECT_EQ(Each(lyrics.lines[3].words, &LrcWord::timeMs), (Ints{40000, 40750, 41000}));
    EXPECT_TRUE(lyrics.lines[2].words.empty());
}

TEST(LrcParser, MalformedAndGarbageLinesAreSkipped) {
    const LrcLyrics lyrics = LrcParser::Parse(
        L"just text\n"
        L"[00:61.00]seconds out of range\n"
        L"[aa:bb.cc]letters\n"
        L"[00:01.00\n"
        L"[00:02.1234]four fraction digits\n"
        L"[123456:00.00]too many minutes\n"
        L"[-01:00.00]negative\n"
        L"[unknown:tag]\n"
        L"[]\n"
        L"\x0001\x0002\xFFFD garbage \n"
        L"[00:03.00]kept[00:04.00] inner tag is text\n"
        L"  [00:05.00]  leading blanks  \n");
    EXPECT_EQ(Times(lyrics), (Ints{3000, 5000}));
    EXPECT_EQ(Texts(lyrics), (Strings{L"kept[00:04.00] inner tag is text", L"leading blanks"}));
    EXPECT_TRUE(lyrics.title.empty());
    EXPECT_TRUE(LrcParser::Parse(L"").lines.empty());
}

TEST(LrcParser, LookupFindsTheLineAndWordShowingAtAMediaTime) {
    const LrcLyrics lyrics = LrcParser::Parse(
        L"[00:01.00]<00:01.00>one <00:01.50>two\n"
        L"[00:03.00]three\n"
        L"[00:03.00]three again\n"
        L"[00:07.00]seven\n");
    for (const auto& [ms, line] :
         {std::pair{0, -1}, {999, -1}, {1000, 0}, {2999, 0}, {3000, 2}, {6999, 2}, {1 << 30, 3}}) {
        EXPECT_EQ(LrcParser::LineAt(lyrics, ms), line) << ms << " ms";  // 3000: the last of equals
    }
    EXPECT_EQ(LrcParser::LineAt(LrcLyrics{}, 5000), -1);
    for (const auto& [ms, word] : {std::pair{999, -1}, {1000, 0}, {1499, 0}, {1500, 1}}) {
        EXPECT_EQ(LrcParser::WordAt(lyrics.lines[0], ms), word) << ms << " ms";
    }
    EXPECT_EQ(LrcParser::WordAt(lyrics.lines[1], 3500), -1);
}

TEST(LrcParser, FilesInLegacyChineseEncodingsAndUtf16AreDecoded) {
    const std::string poem =
        "[ti:静夜思]\n"
        "[ar:李白]\n"
        "[00:01.00]床前明月光，疑是地上霜。\n"
        "[00:05.00]举头望明月，低头思故乡。\n"
        "[00:09.00]我们的歌声在这里回荡，我们一起唱这首歌。\n"
        "[00:13.00]今天的天气很好，我们去公园散步吧。\n"
        "[00:17.00]这是一个关于中国的故事，请大家注意听。\n";
    const std::string traditional =
        "[ti:靜夜思]\n"
        "[00:01.00]床前明月光，疑是地上霜。\n"
        "[00:05.00]舉頭望明月，低頭思故鄉。\n"
        "[00:09.00]我們的歌聲在這裡迴盪，我們一起唱這首歌。\n"
        "[00:13.00]今天的天氣很好，我們去公園散步吧。\n"
        "[00:17.00]這是一個關於台灣的故事，請大家注意聽。\n";
    struct Case {
        const char* name;
        std::string bytes;
        const std::string& utf8;
    };
    const Case cases[] = {
        {"gbk.lrc", kiv::test::Encode(poem, "GBK"), poem},
        {"big5.lrc", kiv::test::Encode(traditional, "BIG5"), traditional},
        {"utf16le.lrc", "\xFF\xFE" + kiv::test::Encode(poem, "UTF-16LE"), poem},
    };
    const LrcLyrics expected = LrcParser::Parse(kiv::text::FromUtf8(std::string_view(poem)));
    ASSERT_EQ(expected.lines.size(), 5u);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = kiv::test::TempPath(c.name);
        ASSERT_TRUE(kiv::test::WriteFileBytes(path, c.bytes));
        LrcLyrics lyrics;
        ASSERT_TRUE(LrcParser::ParseFile(kiv::text::FromUtf8(path), lyrics));
        const LrcLyrics reference = LrcParser::Parse(kiv::text::FromUtf8(std::string_view(c.utf8)));
        EXPECT_EQ(Texts(lyrics), Texts(reference));
        EXPECT_EQ(Times(lyrics), Times(expected));
        EXPECT_EQ(lyrics.title, reference.title);
    }
    EXPECT_EQ(expected.lines[1].text, L"举头望明月，低头思故乡。");

    LrcLyrics none;
    EXPECT_FALSE(
        LrcParser::ParseFile(kiv::text::FromUtf8(kiv::test::TempPath("absent.lrc")), none));
}
