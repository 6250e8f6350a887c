#pragma once

#include "programs/media/presentBytes.h"

#include <cstdint>
#include <optional>
#include <string>

/// Where reading can begin inside of a container, behind a hole: at each cluster of Matroska, fragment of MP4, chunk of
/// AVI. libav reads from there on when it takes what lies between the file's head and that place for padding.
class SyncPoints {
public:
    /// Of a file whose head is there; another one, or one of another container, has none.
    explicit SyncPoints(PresentBytes& bytes);

    [[nodiscard]] bool exist() const { return kind_ != Kind::none; }

    /// Whether all between the head and `place` is there.
    bool isWholeUntil(std::int64_t place) { return isThere(headEnd_, place); }

    /// The first one at or behind `place`; none where there is none within what is sensible.
    std::optional<std::int64_t> find(std::int64_t place);

    /// Behind all that libav has to see of the file's beginning.
    [[nodiscard]] std::int64_t headEnd() const { return headEnd_; }

    /// From now on read() shows padding in place of all that lies between the head and a point found.
    void leadTo(std::int64_t point) { point_ = point; }

    /// As PresentBytes::read().
    std::int64_t read(std::uint8_t* buffer, std::int64_t size, std::int64_t place);

    /// Whether they tell no times: then libav counts them from the place where it began.
    [[nodiscard]] bool areCounted() const { return kind_ == Kind::chunk; }

private:
    enum class Kind : std::uint8_t { none, cluster, fragment, chunk };

    /// An EBML element, a box, a chunk.
    struct Part {
        std::string name;
        std::int64_t content; ///< where it begins
        std::int64_t end;
    };

    std::string bytesAt(std::int64_t place, std::int64_t size);
    [[nodiscard]] std::string paddingHeader(std::int64_t size) const;
    std::optional<Part> partAt(std::int64_t place);
    std::int64_t findHeadEnd();
    bool isThere(std::int64_t begin, std::int64_t end);
    bool isSyncPoint(std::int64_t place);

    PresentBytes& bytes_;
    Kind kind_ = Kind::none;
    std::int64_t headEnd_ = 0;
    std::int64_t point_ = 0;
};
