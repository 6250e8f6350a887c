#include "util/printableText.h"

#include <gtest/gtest.h>

TEST(PrintableText, EscapesWhatActsAndKeepsWhatIsSeen) {
    const std::string seen = "G\u00DC \u00A0\u061B\u200D\u2010\u2029\u202F\u2065\u206A\uFFFD\U00010000\U0010FFFF~";
    const std::pair<std::string_view, std::string> cases[] = {
        {seen, seen},
        {"\x1B[2J\n\x1F\x7F \xC2\x80\xC2\x9F", R"(\x1B[2J\x0A\x1F\x7F \xC2\x80\xC2\x9F)"},
        {R"(C:\a \x41)", R"(C:\a \x41)"},
        {"\u061C\u200E\u200F", R"(\xD8\x9C\xE2\x80\x8E\xE2\x80\x8F)"}, // directions
        {"\u202Agpj.\u202E \u2066\u2069", R"(\xE2\x80\xAAgpj.\xE2\x80\xAE \xE2\x81\xA6\xE2\x81\xA9)"},
        {"\xC1\xBF\xE0\x9F\xBF\xF0\x8F\xBF\xBF", R"(\xC1\xBF\xE0\x9F\xBF\xF0\x8F\xBF\xBF)"}, // longer than need be
        {"\xED\xA0\x80\xED\xBF\xBF", R"(\xED\xA0\x80\xED\xBF\xBF)"},                         // halves of a pair
        {"\xF4\x90\x80\x80\xF5\x80\x80\x80\xFF", R"(\xF4\x90\x80\x80\xF5\x80\x80\x80\xFF)"}, // beyond the last
        {{"\x80\xE2\x82z\xF0\x9F\x98\x80", 7}, R"(\x80\xE2\x82z\xF0\x9F\x98)"},              // torn
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(printable(text, 99), expected);
    }
    EXPECT_EQ(printable("ab\u00DC", 4), "ab\u00DC");
    EXPECT_EQ(printable("ab\u00DC", 3) + printable("ab\n", 5), "ab...ab...");
}
