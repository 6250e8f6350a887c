#include "util/jsonAccess.h"

#include <json/reader.h>

#include <cstring>
#include <exception>
#include <memory>

namespace jsonAccess {

namespace {

constexpr int kMaxDepth = 32;

// A number in an array takes 96 bytes of memory, a short string in an object 160, an object in an object 190. Texts of
// 64 MiB with as many values as this, of all shapes that were tried, peak at 875 MiB with their tree: objects nested 29
// deep and one long string. A task of 100,000 files has 1,000,000 values at most.
constexpr std::size_t kMaxValues = 4'000'000;

bool fitsInt64(double number) {
    // The upper bound is 2^63 itself: the largest 64-bit integer has no double of its own.
    return number >= -9223372036854775808.0 && number < 9223372036854775808.0;
}

} // namespace

const Json::Value& member(const Json::Value& value, const char* key) {
    if (!value.isObject()) {
        return Json::Value::nullSingleton();
    }
    const Json::Value* found = value.find(key, key + std::strlen(key));
    return found != nullptr ? *found : Json::Value::nullSingleton();
}

const Json::Value& element(const Json::Value& value, int index) {
    if (!value.isArray() || index < 0) {
        return Json::Value::nullSingleton();
    }
    return value[static_cast<Json::ArrayIndex>(index)];
}

bool toBool(const Json::Value& value) {
    return (value.isBool() || value.isNumeric()) && value.asBool();
}

std::int64_t toInt64(const Json::Value& value) {
    if (value.type() == Json::realValue) {
        const double number = value.asDouble();
        return fitsInt64(number) ? static_cast<std::int64_t>(number) : 0;
    }
    return value.isInt64() || value.isBool() ? value.asInt64() : 0;
}

std::string_view toText(const Json::Value& value) {
    const char* begin = nullptr;
    const char* end = nullptr;
    if (!value.isString() || !value.getString(&begin, &end)) {
        return {};
    }
    return {begin, static_cast<std::size_t>(end - begin)};
}

bool hasTooManyValues(std::string_view text) {
    std::size_t values = 1;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '"') {
            while (++at < text.size() && text[at] != '"') {
                at += text[at] == '\\' ? 1 : 0;
            }
        } else if (text[at] == ',' || text[at] == '[' || text[at] == '{') {
            ++values;
        }
    }
    return values > kMaxValues;
}

bool parse(const std::string& text, Json::Value& value) {
    if (hasTooManyValues(text)) {
        return false;
    }
    Json::CharReaderBuilder builder;
    builder["allowComments"] = false; // a quotation mark in one would hide values from the count
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    builder["stackLimit"] = kMaxDepth;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value parsed;
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &parsed, nullptr)) {
            return false;
        }
    } catch (const std::exception&) { // what the reader does at its depth limit
        return false;
    }
    value = std::move(parsed);
    return true;
}

} // namespace jsonAccess
