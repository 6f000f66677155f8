#include "platform/TextDecoder.h"

#include <gtest/gtest.h>

#include <string>

#include "MediaTestFiles.h"
#include "foundation/Text.h"

using kiv::platform::DecodeText;

namespace {

std::wstring Wide(const std::string& utf8) {
    return kiv::text::FromUtf8(std::string_view(utf8));
}

}  // namespace

TEST(TextDecoder, ByteOrderMarksChooseTheUnicodeFormAndAreDropped) {
    const std::string text = "[00:01.00]Grüße 歌 \xF0\x9F\x8E\xB5\n";
    struct Case {
        std::string bytes;
        const char* charset;
    };
    const Case cases[] = {
        {text, "UTF-8"},
        {"\xEF\xBB\xBF" + text, "UTF-8"},
        {"\xFF\xFE" + kiv::test::Encode(text, "UTF-16LE"), "UTF-16LE"},
        {"\xFE\xFF" + kiv::test::Encode(text, "UTF-16BE"), "UTF-16BE"},
        {std::string("\xFF\xFE\0\0", 4) + kiv::test::Encode(text, "UTF-32LE"), "UTF-32LE"},
        {std::string("\0\0\xFE\xFF", 4) + kiv::test::Encode(text, "UTF-32BE"), "UTF-32BE"},
    };
    for (const Case& c : cases) {
        std::string charset;
        EXPECT_EQ(DecodeText(c.bytes, &charset), Wide(text)) << c.charset;
        EXPECT_EQ(charset, c.charset);
    }
    EXPECT_EQ(DecodeText(""), L"");
    EXPECT_EQ(DecodeText("\xFF\xFE"), L"");
}

TEST(TextDecoder, LegacyCodePagesAreDetectedAndConverted) {
    struct Case {
        const char* charset;
        std::string utf8;
    };
    const Case cases[] = {
        {"SHIFT_JIS",
         "[00:01.00]こんにちは、今日はいい天気ですね。\n[00:05.00]"
         "私たちは一緒に歌を歌いましょう。\n"
         "[00:09.00]この歌詞はテストのために書かれました。\n[00:13.00]明日もまた会いましょう。\n"},
        {"EUC-KR",
         "[00:01.00]안녕하세요, 오늘 날씨가 정말 좋네요.\n[00:05.00]우리 함께 노래를 불러요.\n"
         "[00:09.00]이 가사는 시험을 위해 쓰였습니다.\n[00:13.00]내일 다시 만나요.\n"},
        {"WINDOWS-1251",
         "[00:01.00]Привет, как дела? Сегодня хорошая погода.\n[00:05.00]Мы будем петь эту песню "
         "вместе.\n"
         "[00:09.00]Этот текст написан для проверки кодировки.\n"},
        {"WINDOWS-1252",
         "[00:01.00]Ça va très bien, merci. L’été est arrivé à Paris.\n"
         "[00:05.00]Où est la gare? Voilà le café “Chez André”.\n"},
    };
    for (const Case& c : cases) {
        std::string charset;
        EXPECT_EQ(DecodeText(kiv::test::Encode(c.utf8, c.charset), &charset), Wide(c.utf8))
            << c.charset << " seen as " << charset;
    }
}
