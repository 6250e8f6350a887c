#pragma once

#include "programs/media/mediaFile.h"

#include <cstdint>
#include <optional>

/// Whether a file may lack bytes that a torrent engine has not downloaded yet.
enum class Download : std::uint8_t { finished, unfinished };

/// The video of one media file. Every member may throw MediaError.
class VideoFile {
public:
    /// Reads the head of the file open as `descriptor` and chooses its video stream: the largest one, a stream marked
    /// as the default first. An attached cover picture is not a video. Dolby Vision whose base layer fits no other
    /// screen is refused: this program cannot tell its colours.
    VideoFile(int descriptor, Download download);

    [[nodiscard]] AVStream& video() const { return *video_; }

    /// The time stamp of the video stream that lies `second` after the start of the file.
    [[nodiscard]] std::int64_t timeStamp(int second) const;

    /// The width of a frame's pixels by their height, as container and codec have it; 0 where neither tells.
    [[nodiscard]] AVRational pixelRatio(AVFrame& frame) const;

    /// Goes to a place from which everything from `second` on is read: the key frame before, as a rule.
    ///
    /// @return the byte where reading goes on; none where the packets come by an index or the file cannot be sought in:
    ///         reading then goes on at the first packet's.
    std::optional<std::int64_t> seek(int second);

    /// The next packet of the video stream. False at the end, or where nothing more can be read. One that tells no time
    /// gets that at which it is decoded: where the packet before ended.
    bool read(AVPacket& packet);

    /// The byte behind all that the last packet took.
    [[nodiscard]] std::int64_t position() const;

    /// Whether a packet's time is its own. In the other containers it is counted from where reading began, and a hole
    /// on the way makes it wrong.
    [[nodiscard]] bool hasTimes() const;

    /// Whether bytes of [begin, end) of an unfinished file have not been downloaded yet. A torrent engine fills files
    /// in pieces of 16 KiB and more, and what it has not written reads as zeros, in a sparse file as in a preallocated
    /// one. No video codec writes thousands of zeros, but for lossless ones, where this always answers false.
    [[nodiscard]] bool hasHole(std::int64_t begin, std::int64_t end) const;

    /// Whether the file can be read from `second` to an end that is its true one: no hole, nothing cut off. The length
    /// of a finished file may be another than its container tells, as long as something of it belongs to `second`.
    /// Where the container tells none, an end about `second` or later is taken for true.
    bool endsWhole(int second);

private:
    void readHead();
    bool readFirstTimes();
    void chooseStream();
    int readAny(AVPacket& packet);
    void setDiscard(AVDiscard others);
    [[nodiscard]] bool isIndexed() const;
    [[nodiscard]] std::int64_t startTime() const;

    Download download_;
    MediaFile file_;
    AVFormatContext& format_ = file_.format();
    AVStream* video_ = nullptr;
    std::int64_t packetEnd_ = 0;
    std::int64_t nextTime_ = AV_NOPTS_VALUE; ///< when the next packet of the video is decoded
};
