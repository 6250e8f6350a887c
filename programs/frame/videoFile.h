#pragma once

#include "programs/media/mediaFile.h"

#include <cstdint>
#include <optional>

/// The video of one media file. Every member may throw MediaError.
class VideoFile {
public:
    /// Reads the head of the file open as `descriptor` and chooses its video stream: the largest one, a stream marked
    /// as the default first. An attached cover picture is not a video. Dolby Vision whose base layer fits no other
    /// screen is refused: this program cannot tell its colours.
    VideoFile(int descriptor, Download download);

    [[nodiscard]] AVStream& video() const { return *format().streams[video_]; }

    /// The time stamp of the video stream that lies `second` after the start of the file.
    [[nodiscard]] std::int64_t timeStamp(int second) const;

    /// The width of a frame's pixels by their height, as container and codec have it; 0 where neither tells.
    [[nodiscard]] AVRational pixelRatio(AVFrame& frame) const;

    /// Goes to a place from which everything from `second` on is read: the key frame before, as a rule. Of an
    /// unfinished file what is not there is left out.
    void seek(int second);

    /// The next packet of the video stream. False at the end, or where nothing more can be read. One that tells no time
    /// gets that at which it is decoded: where the packet before ended.
    bool read(AVPacket& packet);

    /// Of an unfinished file in which read() ended at a hole: goes on behind it. False where that cannot be.
    bool skipHole();

    /// Whether a packet's time is its own. In the other containers it is counted from where reading began.
    [[nodiscard]] bool hasTimes() const;

    [[nodiscard]] bool isUnfinished() const { return download_ == Download::unfinished; }

    /// Whether the file can be read from `second` to an end that is its true one: nothing cut off, whatever length its
    /// container tells, as long as something of it belongs to `second`. Where the container tells none, an end about
    /// `second` or later is taken for true.
    bool endsWhole(int second);

    /// How much later than its time tells a frame may be shown, in units of the stream.
    [[nodiscard]] std::int64_t slack() const { return av_rescale_q(file_.slack(), AV_TIME_BASE_Q, video().time_base); }

private:
    [[nodiscard]] AVFormatContext& format() const { return file_.format(); }
    void readHead();
    bool readFirstTimes();
    void chooseStream();
    int readAny(AVPacket& packet);
    void setDiscard(AVDiscard others);
    bool readNext(AVPacket& packet);
    bool skipByIndex();
    bool begin(std::optional<std::int64_t> place);
    void enterBefore(std::int64_t time);
    [[nodiscard]] bool isIndexed() const;
    [[nodiscard]] std::int64_t startTime() const;

    Download download_;
    MediaFile file_;
    int video_ = -1;         ///< number of the stream
    Libav<AVPacket> ahead_;  ///< the packet behind the last one that read() gave, where one has to look ahead
    std::int64_t start_ = 0; ///< of the whole file, in microseconds
    std::int64_t nextTime_ = AV_NOPTS_VALUE; ///< when the next packet of the video is decoded
    int entry_ = -1;                         ///< of the index, the last one to which skipByIndex() went
};
