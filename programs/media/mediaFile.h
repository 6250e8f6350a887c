#pragma once

#include "programs/media/libav.h"
#include "programs/media/presentBytes.h"
#include "programs/media/syncPoints.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// The container of one media file, read through a descriptor only: whatever its bytes name, nothing else is ever
/// opened.
class MediaFile {
public:
    /// Reads the head of the file open as `descriptor`, which the caller keeps open. Its file offset is not used, but
    /// moved. Throws MediaError where the file is no container that is known here.
    ///
    /// Of an unfinished file libav reads as far as the bytes are there, as if a hole were the end.
    explicit MediaFile(int descriptor, Download download = Download::finished);

    /// libav's view of it, until the next enter().
    [[nodiscard]] AVFormatContext& format() const { return *format_; }

    /// libav's answer to the reading of the next packet. Its times are none where nobody can tell them.
    int read(AVPacket& packet);

    /// Whether it is a stream without a container, which has no times.
    [[nodiscard]] bool isBare() const;

    /// Whether the size of a packet is told. Of the others the last one before a hole is not whole, and nothing says
    /// so.
    [[nodiscard]] bool tellsSizes() const;

    [[nodiscard]] std::int64_t sizeInBytes() const { return input_->bytes.size(); }

    /// Has libav read about the streams until it knows enough of them.
    void readStreams();

    // Of an unfinished file:

    /// Whether the first packets are not there: libav began with later ones.
    [[nodiscard]] bool lacksBeginning() const { return lacksBeginning_; }

    /// Whether it can be read from places in its middle, without an index.
    [[nodiscard]] bool canEnter() const;

    /// Goes to the first place at or behind `place` where reading can begin. Streams keep their numbers, and what is
    /// known of them; pointers to them do not last.
    ///
    /// @return that place, in bytes; none where there is none.
    std::optional<std::int64_t> enter(std::int64_t place);

    /// A place where reading can begin, in bytes, and the first time that a packet tells there, in microseconds.
    struct Arrival {
        std::int64_t place;
        std::int64_t time;
    };

    /// Enters at or behind `begin`, and where no packet tells a time behind the next hole; none before `end`.
    std::optional<Arrival> arrive(std::int64_t begin, std::int64_t end);

    /// When the film begins, in microseconds, where its beginning is not there: as containers do as a rule. Throws
    /// MediaError where what is there speaks against it.
    std::int64_t guessStart();

    /// Whether libav met a hole since it began to read or the last forgetHole().
    [[nodiscard]] bool metHole() const { return input_->stop < input_->bytes.size(); }

    /// The first byte behind that hole.
    std::int64_t behindHole() { return input_->bytes.next(std::max(input_->stop, entered_ + 1)); }

    /// Before libav seeks to a place behind a hole: it has nothing of it in its buffer then.
    void forgetHole();

    /// How much later than its time tells a packet may be shown, in microseconds: some codecs tell whole
    /// seconds, and a guessed start may be late.
    [[nodiscard]] std::int64_t slack() const { return slack_ + (lacksCount_ ? AV_TIME_BASE : 0); }

    /// From now on no file gives a byte more: libav then ends whatever it is at. Safe in a signal handler.
    static void stopReading() { stopped_ = 1; }
    static bool isStopped() { return stopped_ != 0; }

    /// Has libav take `end` for the end of what it can read.
    void endAt(std::int64_t end) { input_->end = end; }

    /// The byte that libav takes next.
    [[nodiscard]] std::int64_t position() const { return avio_tell(reader_.get()); }

private:
    /// What libav reads: it keeps its address.
    struct Input {
        PresentBytes bytes;
        std::int64_t offset = 0;                   ///< of the next byte
        bool leaps = false;                        ///< over holes, as if what is there were a file
        std::int64_t end = INT64_MAX;              ///< none is read from here on
        std::int64_t stop = INT64_MAX;             ///< where it was last refused bytes
        std::optional<SyncPoints> syncPoints = {}; ///< of an unfinished file
    };
    static inline volatile std::sig_atomic_t stopped_ = 0;
    static int readBytes(void* input, std::uint8_t* buffer, int size);
    static std::int64_t seekByte(void* input, std::int64_t offset, int whence);

    void open(const AVInputFormat* kind);
    const AVInputFormat* mpegStreamFromHere();
    void readFirstCode();
    [[nodiscard]] bool isOfLibav() const;
    [[nodiscard]] std::int64_t timeByCode(const AVPacket& packet) const;

    std::unique_ptr<Input> input_;
    Libav<AVIOContext> reader_; // outlives what reads through it
    Libav<AVFormatContext> format_;
    bool lacksBeginning_ = false;
    std::int64_t entered_ = -1; ///< the place that was last entered
    std::int64_t first_ = -1;   ///< the first place that can be entered, where libav has to be led there
    bool lacksCount_ = false;   ///< reading began in the middle of a container that tells times by counting
    std::int64_t slack_ = 0;
    int firstCode_ = -1; ///< the time code of the first frame
};
