#include "server/settingsFile.h"

#include "server/trouble.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace server {
namespace {

constexpr const char* kTasksAtOnce = "VEXODL_TASKS_AT_ONCE";
constexpr const char* kPage = "VEXODL_PAGE";
constexpr std::string_view kBlanks = " \t\r";

bool isName(std::string_view name) {
    constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
    return !name.empty() && kLetters.find(name.front()) != std::string_view::npos &&
           name.find_first_not_of(std::string(kLetters) + "0123456789") == std::string_view::npos;
}

std::string trimmedAtEnd(std::string text) {
    text.resize(text.find_last_not_of(kBlanks) + 1); // npos + 1 is 0
    return text;
}

/// Takes a text apart, from its front.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool atEnd() const { return text_.empty(); }
    bool isAt(std::string_view any) const { return !atEnd() && any.find(text_.front()) != std::string_view::npos; }

    void skip(std::string_view any) { text_.remove_prefix(std::min(text_.find_first_not_of(any), text_.size())); }

    char take() {
        const char character = text_.front();
        text_.remove_prefix(1);
        return character;
    }

    /// Up to one of the characters `ends`, which is taken too. A backslash takes the meaning of what stands behind it
    /// and, at the end of a line, the line's end; it stays in front of what is not in `escapable`, unless that is
    /// empty.
    std::string takeUntil(std::string_view ends, std::string_view escapable = "") {
        std::string taken;
        while (!atEnd()) {
            const bool isEnd = isAt(ends);
            const char character = take();
            if (isEnd) {
                break;
            }
            if (character != '\\' || atEnd()) {
                taken += character;
            } else if (isAt("\n")) {
                take();
            } else {
                taken += escapable.empty() || isAt(escapable) ? "" : "\\";
                taken += take();
            }
        }
        return taken;
    }

    /// What stands behind the equals sign.
    std::string value() {
        std::string value;
        for (skip(kBlanks); !atEnd(); skip(kBlanks)) {
            if (isAt("'")) {
                take();
                const std::string_view quoted = text_.substr(0, text_.find('\''));
                value += quoted;
                text_.remove_prefix(std::min(quoted.size() + 1, text_.size()));
            } else if (isAt("\"")) {
                take();
                value += takeUntil("\"", "\"\\`$");
            } else {
                return value + trimmedAtEnd(takeUntil("\n"));
            }
        }
        return value;
    }

private:
    std::string_view text_;
};

/// Empty where the environment has none.
std::string_view valueOf(const char* name) {
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody sets it by now
    return value == nullptr ? "" : value;
}

} // namespace

std::vector<std::pair<std::string, std::string>> parseSettings(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> settings;
    Reader reader(text);
    while (!reader.atEnd()) {
        reader.skip(" \t\r\n");
        if (reader.isAt("#;")) {
            (void)reader.takeUntil("\n");
            continue;
        }
        std::string name;
        while (!reader.atEnd() && !reader.isAt("=\n")) {
            name += reader.take();
        }
        if (reader.isAt("=")) {
            reader.take();
            std::string value = reader.value();
            if (name = trimmedAtEnd(name); isName(name)) {
                settings.emplace_back(std::move(name), std::move(value));
            }
        }
    }
    return settings;
}

void readSettings(const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::vector<std::pair<std::string, std::string>> settings = parseSettings(text);
    // From the end, since the last of one name counts, and setenv() leaves what is there.
    for (auto setting = settings.rbegin(); setting != settings.rend(); ++setting) {
        constexpr std::string_view kPrefix = "VEXODL_";
        if (setting->first.compare(0, kPrefix.size(), kPrefix) == 0) {
            (void)setenv(setting->first.c_str(), setting->second.c_str(), 0); // NOLINT(concurrency-mt-unsafe)
        }
    }
}

std::size_t tasksAtOnce() {
    constexpr std::size_t kUnset = 2;
    constexpr std::size_t kMost = 64;
    const std::string_view text = valueOf(kTasksAtOnce);
    if (text.empty()) {
        return kUnset;
    }
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0 || number > kMost) {
        throw Trouble(std::string(kTasksAtOnce) + " is no number from 1 to " + std::to_string(kMost));
    }
    return number;
}

bool isPageWanted() {
    const std::string_view word = valueOf(kPage);
    if (!word.empty() && word != "on" && word != "off") {
        throw Trouble(std::string(kPage) + " is neither on nor off");
    }
    return word != "off";
}

} // namespace server
