#pragma once

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

/// Makes the preview pictures of one download task.
///
/// The service calls the constructor, generate() and getTotalThumbnailNumber(); the other members are the stages of
/// these two. Rules common to all members:
/// - The result is negative on failure and 0 or a count otherwise. Nothing throws, whatever the torrent engine, the
///   database or a program answers, and a failed call leaves the object usable.
/// - Everything runs on the caller's thread and blocks until the programs that it starts have ended. One thread uses an
///   object at a time; objects of different tasks may be used in different threads. Two runs for one task are not kept
///   apart.
/// - With `debug` set every failure writes a line to the system log (LOG_ERR); results do not depend on it.
/// - Lists are filled through reference parameters. A file index is a 0-based position in the torrent item's "files".
class ThumbnailGenerator {
public:
    std::int32_t taskId;   ///< the download task
    Json::Value taskFiles; ///< the torrent item that the engine last reported; null before the first fetch
    bool debug;            ///< failures are logged, and the duration helper runs in its debug mode

    /// Touches neither the engine, the database nor a file.
    ThumbnailGenerator(int taskId, bool debug);

    /// Makes every thumbnail of the task that the database does not hold yet and records each as a row.
    ///
    /// Every missing thumbnail is tried once, videos first, each file's in ascending order; a failed one does not stop
    /// the others, and the rows recorded before a failure stay, so that the next call makes only what is missing.
    /// @return 0 when nothing is missing any more, -1 otherwise.
    int generate();

    /// Counts the thumbnails that the task should have, recorded or not; makes none.
    /// @return 0 to 30, or -1.
    int getTotalThumbnailNumber();

    // Stages, in the order of a run.

    /// Fetches the torrent item of `taskId` (the argument) into `taskFiles`, which stays as it was on failure.
    int getTaskFileList(int taskId);

    /// Keeps the first torrent of an engine's reply in `taskFiles`. @return -1 when the reply has none.
    int getFirstTorrentItem(Json::Value reply);

    /// Appends the indices of the task's video files, ascending; subtitles are none. @return -1 without a file list.
    int getVideoFile(std::vector<int>& indices);

    /// Appends the indices of the task's photo files, ascending. @return -1 without a file list.
    int getPhotoFile(std::vector<int>& indices);

    /// Replaces candidates of one kind by those that get thumbnails: the five largest wanted files, largest first (of
    /// equal ones the higher index), of videos only those of at least 50 MiB (52428800 bytes).
    /// @return -1 when there are no candidates, which stay as they are.
    int getNeedThumbnail(std::vector<int>& indices, VEXODL_MEDIA_TYPE type);

    /// Appends the task's plan: five records a chosen video, one a chosen photo. On failure records already appended
    /// stay.
    int getThumbnailList(std::vector<Thumbnail>& list);

    /// Appends one record per database row of the task. @return -1 when they could not be read, `list` unchanged.
    int getExistThumbnailList(std::vector<Thumbnail>& list);

    /// Removes from a plan what the database holds already. @return -1 when that could not be read, `list` unchanged.
    int filterExistThumbnail(std::vector<Thumbnail>& list);

    /// Makes and records each thumbnail of `list`, whose records are completed in place.
    /// @return 0 when all were made and recorded, -1 otherwise.
    int generateThumbnailByList(std::vector<Thumbnail>& list);

    /// Makes the picture of one record in the task's work directory and completes the record, which stays as it was on
    /// failure. Records nothing in the database.
    int generateThumbnail(Thumbnail& thumbnail);

    /// Writes one frame of a video as JPEG. @param second position in the video, above 0.
    int generateThumbnailByFFMPEG(const char* inputPath, const char* outputPath, int second);

    /// Writes a shrunken JPEG copy of a photo.
    int generateThumbnailByConvertThumb(const std::string& inputPath, const std::string& outputPath);

    /// Runs the duration helper on a file. @param mediaInfo replaced by the JSON that it printed; any shape.
    int getMediaInfo(std::string& path, Json::Value& mediaInfo);

    /// @return 0 when something not empty stands at `path`; a link is judged itself, not its target.
    int isValidThumbnail(const std::string& path);
};

#pragma GCC visibility pop
