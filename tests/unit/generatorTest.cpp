// The record of one thumbnail.

#include "fakePlatform.h"
#include "thumbnail/thumbnailGenerator.h"

#include <gtest/gtest.h>

namespace {

constexpr auto kVideo = VEXODL_MEDIA_TYPE_VIDEO;
constexpr auto kPhoto = VEXODL_MEDIA_TYPE_PHOTO;

// One row a case, also where that is a long line.
// clang-format off

} // namespace

TEST(ThumbnailTest, GoesToARowAndComesBack) {
    Thumbnail thumbnail(12, 3, 2, "Movies/a.mkv", kPhoto);
    Json::Value row = json(R"({"kept":1,"task_id":"old"})");
    thumbnail.toJson(row);
    EXPECT_EQ(row, json(R"({"kept":1,"thumbnail_id":-1,"task_id":12,"file_index":3,"thumbnail_index":2,
        "thumbnail_second":-1,"thumbnail_filename":"","file_path":"Movies/a.mkv","create_time":-1})"));
    thumbnail.setThumbnail("3_2.jpeg", 7, 1700000000);
    thumbnail.toJson(row);
    Json::Value again("not an object");
    Thumbnail(row).toJson(again);
    EXPECT_EQ(again, json(R"({"thumbnail_id":-1,"task_id":12,"file_index":3,"thumbnail_index":2,"thumbnail_second":7,
        "thumbnail_filename":"3_2.jpeg","file_path":"","create_time":1700000000})"));
}

TEST(ThumbnailTest, ReadsARowOfAnyShape) {
    for (const char* text : {"5", "null", "[1]", R"("row")", R"({"task_id":"12","file_index":true,"thumbnail_index":null,
             "thumbnail_second":4294967296,"thumbnail_filename":5,"create_time":{},"file_path":"x"})"}) {
        Json::Value row = json(text), back;
        Thumbnail(row).toJson(back);
        EXPECT_EQ(back, json(R"({"thumbnail_id":-1,"task_id":-1,"file_index":-1,"thumbnail_index":-1,
            "thumbnail_second":-1,"thumbnail_filename":"","file_path":"","create_time":-1})")) << text;
        EXPECT_EQ(row, json(text));
    }
}

TEST(ThumbnailTest, IsTheSameByTaskFileAndIndexAlone) {
    Thumbnail one(12, 3, 2, "a", kVideo), same(12, 3, 2, "b", kPhoto);
    same.setThumbnail("other", 9, 9);
    EXPECT_TRUE(one.IsSameThumbnail(same));
    for (Thumbnail other : {Thumbnail(13, 3, 2, "a", {}), Thumbnail(12, 4, 2, "a", {}), Thumbnail(12, 3, 1, "a", {})}) {
        EXPECT_FALSE(one.IsSameThumbnail(other));
    }
}
