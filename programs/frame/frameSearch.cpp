#include "programs/frame/frameSearch.h"

#include "programs/media/messages.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <optional>

namespace {

constexpr std::size_t kMostLeading = 64;                     // packets
constexpr std::int64_t kMostPixels = std::int64_t{64} << 20; // 8K has 32 million

/// Codecs whose intra-coded frames need no other packet. In the first two they can stand in any packet, and a parser
/// tells; in the others each is a key packet of the container.
constexpr std::array kStandAlone = {
    AV_CODEC_ID_H264,      AV_CODEC_ID_HEVC,      AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MPEG4,
    AV_CODEC_ID_MSMPEG4V2, AV_CODEC_ID_MSMPEG4V3, AV_CODEC_ID_WMV1,       AV_CODEC_ID_WMV2,       AV_CODEC_ID_FLV1,
    AV_CODEC_ID_H263,      AV_CODEC_ID_VP6,       AV_CODEC_ID_VP6F,       AV_CODEC_ID_VP8,        AV_CODEC_ID_VP9,
    AV_CODEC_ID_AV1,       AV_CODEC_ID_THEORA};

bool standsAlone(AVCodecID codec) {
    return std::find(kStandAlone.begin(), kStandAlone.end(), codec) != kStandAlone.end();
}

/// Whether libav knows that something of it is missing.
bool isCut(const AVPacket& packet) {
    return (packet.flags & AV_PKT_FLAG_CORRUPT) != 0;
}

bool isIntra(const AVFrame& frame) {
    return frame.pict_type == AV_PICTURE_TYPE_I || (frame.pict_type == AV_PICTURE_TYPE_NONE && frame.key_frame != 0);
}

Libav<AVCodecContext> openDecoder(const AVStream& stream) {
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (codec == nullptr) {
        throw MediaError(std::string("no decoder for ") + avcodec_get_name(stream.codecpar->codec_id));
    }
    Libav<AVCodecContext> decoder = owned(avcodec_alloc_context3(codec));
    checked(avcodec_parameters_to_context(decoder.get(), stream.codecpar), "cannot set up the decoder");
    decoder->pkt_timebase = stream.time_base;
    decoder->framerate = stream.avg_frame_rate;
    decoder->thread_count = 1;
    decoder->max_pixels = kMostPixels;
    decoder->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT; // a frame without its predecessors is suspect to H.264, but whole
    checked(avcodec_open2(decoder.get(), codec, nullptr), "cannot open the decoder");
    return decoder;
}

/// What kind of frame a packet holds.
struct Kind {
    bool intra = false;
    bool field = false;         ///< one field only
    bool bidirectional = false; ///< in MPEG-1, 2 and 4
    int order = 0; ///< in which frames are shown, of H.264 and HEVC; begins anew with some intra-coded ones

    /// Whether it is shown before an intra-coded frame that is decoded before it.
    [[nodiscard]] bool leads(const Kind& intraFrame) const {
        return !intra && (bidirectional || order < intraFrame.order);
    }
};

/// Tells the kinds of packets, one after the other.
class PacketReader {
public:
    explicit PacketReader(const AVStream& stream) {
        const AVCodecID codec = stream.codecpar->codec_id;
        modern_ = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC;
        if (modern_ || codec == AV_CODEC_ID_MPEG1VIDEO || codec == AV_CODEC_ID_MPEG2VIDEO ||
            codec == AV_CODEC_ID_MPEG4) {
            context_ = owned(avcodec_alloc_context3(nullptr));
            checked(avcodec_parameters_to_context(context_.get(), stream.codecpar), "cannot set up the parser");
            parser_ = owned(av_parser_init(codec));
            parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
        }
    }

    Kind look(const AVPacket& packet) {
        Kind kind;
        kind.intra = (packet.flags & AV_PKT_FLAG_KEY) != 0;
        if (parser_ && packet.size > 0) {
            parse(packet);
            kind.bidirectional = !modern_ && parser_->pict_type == AV_PICTURE_TYPE_B;
        }
        if (modern_ && packet.size > 0) {
            if (parser_->pict_type != AV_PICTURE_TYPE_NONE) {
                kind.intra = parser_->pict_type == AV_PICTURE_TYPE_I;
            }
            kind.field = parser_->picture_structure == AV_PICTURE_STRUCTURE_TOP_FIELD ||
                         parser_->picture_structure == AV_PICTURE_STRUCTURE_BOTTOM_FIELD;
            kind.order = parser_->output_picture_number;
        }
        kind.intra = kind.intra && (packet.flags & AV_PKT_FLAG_DISCARD) == 0;
        return kind;
    }

    /// Whether it tells the order in which frames are shown.
    [[nodiscard]] bool knowsOrder() const { return modern_; }

private:
    void parse(const AVPacket& packet) {
        std::uint8_t* data = nullptr;
        int size = 0;
        parser_->pict_type = AV_PICTURE_TYPE_NONE;
        av_parser_parse2(parser_.get(), context_.get(), &data, &size, packet.data, packet.size, packet.pts, packet.dts,
                         packet.pos);
    }

    Libav<AVCodecContext> context_;
    Libav<AVCodecParserContext> parser_;
    bool modern_ = false; ///< H.264 or HEVC
};

class FrameSearch {
public:
    FrameSearch(VideoFile& file, int second)
        : file_(file), second_(second), sought_(file.timeStamp(second)), decoder_(openDecoder(file.video())),
          alone_(standsAlone(file.video().codecpar->codec_id)), reader_(file.video()) {}

    Libav<AVFrame> run() {
        if (file_.isUnfinished()) {
            return findWhole();
        }
        Libav<AVFrame> frame = findAfter();
        if (damaged_ && alone_) {
            alone_ = false; // it may need its neighbours after all
            frame = findAfter();
        }
        if (damaged_) {
            throw MediaError("the picture of this second is damaged");
        }
        return frame ? std::move(frame) : findBefore();
    }

private:
    /// One packet, and the next one where that holds the other field of its frame.
    struct Step {
        Libav<AVPacket> packet;
        Libav<AVPacket> otherField;
        std::int64_t time = AV_NOPTS_VALUE;
        bool intra = false;
    };

    struct Waiting {
        Libav<AVPacket> packet;
        Kind kind;
    };

    Libav<AVFrame> findAfter() {
        start(second_);
        while (std::optional<Step> step = nextStep()) {
            const bool early = step->time != AV_NOPTS_VALUE && step->time < sought_;
            Libav<AVFrame> frame;
            if (!alone_) {
                frame = decodeNext(step->packet.get());
            } else if (step->intra && !early) {
                frame = decodeAlone(*step);
            }
            if (frame || damaged_) {
                return frame;
            }
            if (early && step->intra) {
                before_ = std::move(*step);
            }
        }
        return alone_ ? nullptr : decodeNext(nullptr);
    }

    void start(int second) {
        file_.seek(second);
        startReading();
    }

    void startReading() {
        avcodec_flush_buffers(decoder_.get());
        waiting_.clear();
        reader_ = PacketReader(file_.video());
        complaints_ = complaintCount();
        fed_ = false;
        damaged_ = false;
    }

    /// Of an unfinished file: the first intra-coded frame that is there and whole. One that is shown much later than
    /// the second would be another second's.
    Libav<AVFrame> findWhole() {
        constexpr int kSeconds = 6;
        const std::int64_t last = file_.timeStamp(second_ + kSeconds);
        start(second_);
        for (std::optional<Step> step = nextStep(); step && step->time <= last; step = nextStep()) {
            const std::int64_t latest = last - file_.slack();
            Libav<AVFrame> frame;
            if (alone_ && step->intra && step->time >= sought_ && step->time <= latest) {
                frame = decodeAlone(*step);
            } else if (!alone_) {
                frame = decodeWhole(*step, latest);
            }
            if (frame) {
                return frame;
            }
        }
        throw MediaError("no whole picture of this second is there yet");
    }

    /// Decodes a packet after its predecessors, none of which is missing since the last intra-coded one.
    Libav<AVFrame> decodeWhole(const Step& step, std::int64_t latest) {
        fed_ = (fed_ || step.intra) && !isCut(*step.packet);
        Libav<AVFrame> frame = fed_ ? decodeNext(step.packet.get()) : nullptr;
        const bool sound = frame && complaintCount() == complaints_ && frame->best_effort_timestamp <= latest;
        return sound ? std::move(frame) : nullptr;
    }

    /// The next packet is waiting. False at the end.
    bool wait(std::size_t place) {
        while (waiting_.size() <= place) {
            Libav<AVPacket> packet = owned(av_packet_alloc());
            if (!file_.read(*packet)) {
                return false;
            }
            const Kind kind = reader_.look(*packet);
            waiting_.push_back({std::move(packet), kind});
        }
        return true;
    }

    std::optional<Step> nextStep() {
        while (!wait(0)) {
            if (!file_.skipHole()) {
                return std::nullopt;
            }
            startReading();
        }
        Step step;
        step.packet = std::move(waiting_.front().packet);
        const Kind kind = waiting_.front().kind;
        waiting_.pop_front();
        step.intra = kind.intra;
        step.time = step.packet->pts != AV_NOPTS_VALUE ? step.packet->pts : step.packet->dts;
        if (step.intra) {
            lookAhead(step, kind);
        }
        return step;
    }

    void lookAhead(Step& step, const Kind& kind) {
        if (kind.field && wait(0)) {
            step.otherField = owned(av_packet_clone(waiting_.front().packet.get()));
        }
        const int delay = file_.video().codecpar->video_delay;
        if (step.packet->pts != AV_NOPTS_VALUE || step.time == AV_NOPTS_VALUE || delay == 0) {
            return;
        }
        std::size_t place = kind.field ? 1 : 0;
        while (place < kMostLeading && wait(place) && waiting_[place].kind.leads(kind)) {
            ++place;
        }
        if (const std::optional<std::int64_t> time = timeByOrder(kind)) {
            step.time = *time;
            return;
        }
        // With a delay of one it is shown when the next frame that it does not lead is decoded.
        const std::int64_t length = step.packet->duration;
        const auto frames = static_cast<std::int64_t>(place);
        const bool known = wait(place) && waiting_[place].packet->dts != AV_NOPTS_VALUE;
        step.time = known ? waiting_[place].packet->dts + (delay - 1) * length : step.time + (delay + frames) * length;
    }

    /// The time of a frame of H.264 or HEVC by those of two frames that follow, where packets tell times.
    std::optional<std::int64_t> timeByOrder(const Kind& kind) {
        const Waiting* first = nullptr;
        const bool tell = reader_.knowsOrder() && file_.hasTimes();
        for (std::size_t place = 0; tell && place < kMostLeading && wait(place); ++place) {
            const Waiting& next = waiting_[place];
            if (next.kind.intra) {
                break; // the order may begin anew
            }
            if (next.packet->pts == AV_NOPTS_VALUE || (first != nullptr && next.kind.order == first->kind.order)) {
                continue;
            }
            if (first != nullptr) {
                const double slope = static_cast<double>(next.packet->pts - first->packet->pts) /
                                     (static_cast<double>(next.kind.order) - first->kind.order);
                const double distance = static_cast<double>(kind.order) - first->kind.order;
                return first->packet->pts + std::llround(slope * distance);
            }
            first = &next;
        }
        return std::nullopt;
    }

    /// The frame of an intra-coded packet, which comes out at once; none where the packet holds none, or a damaged one.
    Libav<AVFrame> decodeAlone(const Step& step) {
        const unsigned long complaints = complaintCount();
        bool sound = !isCut(*step.packet) && !(step.otherField && isCut(*step.otherField));
        sound = avcodec_send_packet(decoder_.get(), step.packet.get()) >= 0 && sound;
        if (step.otherField) {
            avcodec_send_packet(decoder_.get(), step.otherField.get());
        }
        avcodec_send_packet(decoder_.get(), nullptr);
        Libav<AVFrame> frame = receiveFrame();
        while (frame && !isIntra(*frame)) {
            frame = receiveFrame();
        }
        avcodec_flush_buffers(decoder_.get());
        damaged_ = !sound || complaintCount() != complaints || (frame && frame->decode_error_flags != 0);
        return damaged_ ? nullptr : std::move(frame);
    }

    /// Decodes a packet like any player, or the rest for a null one; returns the frame sought when it comes out.
    Libav<AVFrame> decodeNext(const AVPacket* packet) {
        avcodec_send_packet(decoder_.get(), packet);
        while (Libav<AVFrame> frame = receiveFrame()) {
            const bool late = frame->best_effort_timestamp >= sought_;
            if (isIntra(*frame) && late) {
                damaged_ = frame->decode_error_flags != 0;
                return damaged_ ? nullptr : std::move(frame);
            }
            if (isIntra(*frame) && frame->decode_error_flags == 0) {
                frameBefore_ = std::move(frame);
            }
        }
        return nullptr;
    }

    Libav<AVFrame> receiveFrame() {
        Libav<AVFrame> frame = owned(av_frame_alloc());
        return avcodec_receive_frame(decoder_.get(), frame.get()) >= 0 ? std::move(frame) : nullptr;
    }

    /// Where the end of the video is its true end, the last frame is right for every second behind it.
    Libav<AVFrame> findBefore() {
        if (!file_.endsWhole(second_)) {
            throw MediaError("the data ends before this second");
        }
        const std::int64_t second = second_;
        for (std::int64_t back = 2; !before_.packet && back < 2 * second + 2; back *= 2) {
            lookBack(static_cast<int>(std::max<std::int64_t>(0, second - back)));
        }
        if (!before_.packet) {
            throw MediaError("the video has no intra-coded frame");
        }
        Libav<AVFrame> frame = alone_ ? decodeAlone(before_) : std::move(frameBefore_);
        if (!frame) {
            throw MediaError("the last picture before this second is damaged");
        }
        return frame;
    }

    void lookBack(int second) {
        start(second);
        while (std::optional<Step> step = nextStep()) {
            if (!alone_) {
                decodeNext(step->packet.get());
            }
            if (step->intra) {
                before_ = std::move(*step);
            }
        }
        if (!alone_) {
            decodeNext(nullptr);
        }
    }

    VideoFile& file_;
    int second_;
    std::int64_t sought_;
    Libav<AVCodecContext> decoder_;
    bool alone_; ///< intra-coded frames are decoded alone, the others not at all
    PacketReader reader_;
    std::deque<Waiting> waiting_; ///< packets read ahead
    Step before_;                 ///< the last intra-coded packet before the second
    Libav<AVFrame> frameBefore_;
    unsigned long complaints_ = 0; ///< of decoders, before reading began
    bool fed_ = false;             ///< a decoder that needs neighbours has had an intra-coded frame since then
    bool damaged_ = false;
};

} // namespace

Libav<AVFrame> findFrame(VideoFile& file, int second) {
    return FrameSearch(file, second).run();
}
