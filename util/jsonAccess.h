#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <string_view>

/// Reads of JSON whose shape is unknown.
///
/// jsoncpp's own accessors throw on a value of another type, and its non-const ones add what they look for. These do
/// neither: where there is nothing to read, or it does not convert, the answer is null, false, 0 or empty. References
/// and views point into the argument.
namespace jsonAccess {

/// Member of an object.
const Json::Value& member(const Json::Value& value, const char* key);

/// Element of an array.
const Json::Value& element(const Json::Value& value, int index);

/// A boolean, or a number other than 0.
bool toBool(const Json::Value& value);

/// An integer, or the whole part of a number in the range of 64 bits.
std::int64_t toInt64(const Json::Value& value);

/// A string, raw bytes.
std::string_view toText(const Json::Value& value);

/// Would its tree take more memory than any honest text's? More than 4,000,000 values may.
bool hasTooManyValues(std::string_view text);

/// Reads one JSON text without too many values, nested 32 deep at most: more would not fit the stack of a small thread.
///
/// @param text  a std::string, because the reader looks at the byte behind a malformed one.
/// @return false when `text` is no JSON, or more than that; `value` stays as it was then.
bool parse(const std::string& text, Json::Value& value);

} // namespace jsonAccess
