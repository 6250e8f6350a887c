#include "util/printableText.h"

#include <gtest/gtest.h>

TEST(PrintableText, EscapesWhatActsAndKeepsWhatIsSeen) {
    const struct {
        const char* name;
        std::string_view text;
        const char* expected;
        std::size_t limit = 99;
    } cases[] = {{"seen", "G\u00DC \u00A0\u061B\u200D\u2010\u2029\u202F\u2065\u206A\uFFFD\U00010000\U0010FFFF~",
                  "G\u00DC \u00A0\u061B\u200D\u2010\u2029\u202F\u2065\u206A\uFFFD\U00010000\U0010FFFF~"},
                 {"controls", "\x1B[2J\n\x1F\x7F", R"(\x1B[2J\x0A\x1F\x7F)"},
                 {"second controls", "\xC2\x80\xC2\x9F", R"(\xC2\x80\xC2\x9F)"},
                 {"an escape", R"(\x41)", R"(\x5Cx41)"},
                 {"marks of direction", "\u061C\u200E\u200F", R"(\xD8\x9C\xE2\x80\x8E\xE2\x80\x8F)"},
                 {"embedded direction", "\u202Agpj.\u202E", R"(\xE2\x80\xAAgpj.\xE2\x80\xAE)"},
                 {"isolated direction", "\u2066\u2069", R"(\xE2\x81\xA6\xE2\x81\xA9)"},
                 {"too long forms", "\xC1\xBF\xE0\x9F\xBF\xF0\x8F\xBF\xBF", R"(\xC1\xBF\xE0\x9F\xBF\xF0\x8F\xBF\xBF)"},
                 {"surrogates", "\xED\xA0\x80\xED\xBF\xBF", R"(\xED\xA0\x80\xED\xBF\xBF)"},
                 {"too large", "\xF4\x90\x80\x80\xF5\x80\x80\x80\xFF", R"(\xF4\x90\x80\x80\xF5\x80\x80\x80\xFF)"},
                 {"torn", {"\x80\xE2\x82z\xF0\x9F\x98\x80", 7}, R"(\x80\xE2\x82z\xF0\x9F\x98)"},
                 {"as long as may be", "ab\u00DC", "ab\u00DC", 4},
                 {"cut", "ab\u00DC", "ab...", 3},
                 {"cut escape", "ab\n", "ab...", 5}};
    for (const auto& it : cases) {
        EXPECT_EQ(printable(it.text, it.limit), it.expected) << it.name;
    }
}
