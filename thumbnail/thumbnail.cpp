#include "thumbnail/thumbnailGenerator.h"

#include "util/jsonAccess.h"

#include <utility>

namespace {

void readInt(const Json::Value& row, const char* key, std::int32_t& field) {
    const Json::Value& value = jsonAccess::member(row, key);
    if (value.isInt()) {
        field = value.asInt();
    }
}

} // namespace

Thumbnail::Thumbnail(int taskId, int fileIndex, int thumbnailIndex, std::string filePath, VEXODL_MEDIA_TYPE mediaType)
    : task_id(taskId), file_index(fileIndex), thumbnail_index(thumbnailIndex), file_path(std::move(filePath)),
      media_type(mediaType) {}

Thumbnail::Thumbnail(Json::Value& row) {
    readInt(row, "thumbnail_id", thumbnail_id);
    readInt(row, "task_id", task_id);
    readInt(row, "file_index", file_index);
    readInt(row, "thumbnail_index", thumbnail_index);
    readInt(row, "thumbnail_second", thumbnail_second);
    thumbnail_filename = jsonAccess::toText(jsonAccess::member(row, "thumbnail_filename"));
    readInt(row, "create_time", create_time);
}

void Thumbnail::setThumbnail(std::string fileName, int second, int createTime) {
    thumbnail_filename = std::move(fileName);
    thumbnail_second = second;
    create_time = createTime;
}

void Thumbnail::toJson(Json::Value& row) {
    if (!row.isObject()) {
        row = Json::Value(Json::objectValue);
    }
    row["thumbnail_id"] = thumbnail_id;
    row["task_id"] = task_id;
    row["file_index"] = file_index;
    row["thumbnail_index"] = thumbnail_index;
    row["thumbnail_second"] = thumbnail_second;
    row["thumbnail_filename"] = thumbnail_filename;
    row["file_path"] = file_path;
    row["create_time"] = create_time;
}

bool Thumbnail::IsSameThumbnail(Thumbnail& other) {
    return task_id == other.task_id && file_index == other.file_index && thumbnail_index == other.thumbnail_index;
}
