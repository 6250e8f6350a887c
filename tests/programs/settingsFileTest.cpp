#include "server/settingsFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace {

using Settings = std::vector<std::pair<std::string, std::string>>;

TEST(SettingsFile, IsReadAsAUnitReadsIt) {
    EXPECT_EQ(server::parseSettings("# A=1 \\\nB=2\n; C=3\n  D = 4 \t\n\nno setting\nE=\n2F=5\nG=6"),
              (Settings{{"D", "4"}, {"E", ""}, {"G", "6"}}));
    EXPECT_EQ(
        server::parseSettings("A='$x \\ \"'\nB=\"\\$x \\n \\\" '\"\nC='two\nlines'\"and\\\n more\" end \nD=a'b\"c # d"),
        (Settings{{"A", "$x \\ \""},
                  {"B", "$x \\n \" '"},
                  {"C", "two\nlinesand more"
                        "end"},
                  {"D", "a'b\"c # d"}}));
    EXPECT_EQ(server::parseSettings("A=`touch x` $(touch x)\nB=a\\ b\\\nc\nD='open\nE=1"),
              (Settings{{"A", "`touch x` $(touch x)"}, {"B", "a bc"}, {"D", "open\nE=1"}}));
}

TEST(SettingsFile, GivesWayToTheEnvironment) {
    const std::string path = testing::TempDir() + "/settings";
    std::ofstream(path) << "VEXODL_FIRST=file\nVEXODL_SECOND=early\nVEXODL_SECOND=late\nOTHER_SETTING=file\n";
    setenv("VEXODL_FIRST", "environment", 1); // NOLINT(concurrency-mt-unsafe)
    server::readSettings(path.c_str());
    EXPECT_STREQ(std::getenv("VEXODL_FIRST"), "environment"); // NOLINT(concurrency-mt-unsafe)
    EXPECT_STREQ(std::getenv("VEXODL_SECOND"), "late");       // NOLINT(concurrency-mt-unsafe)
    EXPECT_EQ(std::getenv("OTHER_SETTING"), nullptr);         // NOLINT(concurrency-mt-unsafe)
}

} // namespace
