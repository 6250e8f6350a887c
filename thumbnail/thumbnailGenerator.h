#ifndef VEXODL_THUMBNAIL_THUMBNAIL_GENERATOR_H
#define VEXODL_THUMBNAIL_THUMBNAIL_GENERATOR_H

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// @file
/// The preview pictures of a download task.

/// Kind of a thumbnail's source file.
enum VEXODL_MEDIA_TYPE : int {
    VEXODL_MEDIA_TYPE_VIDEO = 0, ///< five thumbnails a file
    VEXODL_MEDIA_TYPE_PHOTO = 1, ///< one thumbnail a file
};

/// One thumbnail of one file of a download task: planned, made, or read back from the thumbnail database.
///
/// A plain value: copies are independent, and one thread uses it at a time.
class Thumbnail {
public:
    std::int32_t thumbnail_id = -1;    ///< number of the database row; given by the database
    std::int32_t task_id = -1;         ///< the download task
    std::int32_t file_index = -1;      ///< 0-based position of the source file in the torrent item's "files"
    std::int32_t thumbnail_index = -1; ///< 0-based number among the thumbnails of the same file
    std::int32_t thumbnail_second =
        -1;                         ///< second of the video that the picture shows, 0 for a photo, -1 before it is made
    std::string thumbnail_filename; ///< name of the JPEG in the task's work directory, empty before it is made
    std::int32_t create_time = -1;  ///< when it was made, seconds since the Unix epoch, -1 before
    std::string file_path;          ///< source file relative to the task's directory; never read from a row
    VEXODL_MEDIA_TYPE media_type = VEXODL_MEDIA_TYPE_VIDEO; ///< kind of the source file; not part of a row

    /// A planned thumbnail, not made yet.
    Thumbnail(int taskId, int fileIndex, int thumbnailIndex, std::string filePath, VEXODL_MEDIA_TYPE mediaType);

    /// A thumbnail read from a database row. What the row lacks, or holds in another JSON type, keeps its default. The
    /// row may have any shape and is not changed.
    explicit Thumbnail(Json::Value& row);

    /// Records how the picture was made. @param second, createTime as in the fields of these names.
    void setThumbnail(std::string fileName, int second, int createTime);

    /// Writes the eight members of the database row into `row`; other members of it stay. Anything but an object
    /// becomes one.
    void toJson(Json::Value& row);

    /// Do both name the same thumbnail, that is the same task, file and thumbnail index?
    bool IsSameThumbnail(Thumbnail& other);
};

#pragma GCC visibility pop

#endif
