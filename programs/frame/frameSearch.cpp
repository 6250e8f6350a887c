#include "programs/frame/frameSearch.h"

#include "programs/media/messages.h"

#include <algorithm>
#include <array>
#include <optional>

namespace {

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

/// Tells what kind of frame a packet holds.
class PacketReader {
public:
    explicit PacketReader(const AVStream& stream) {
        const AVCodecID codec = stream.codecpar->codec_id;
        if (codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC) {
            context_ = owned(avcodec_alloc_context3(nullptr));
            checked(avcodec_parameters_to_context(context_.get(), stream.codecpar), "cannot set up the parser");
            parser_ = owned(av_parser_init(codec));
            parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
        }
    }

    void look(const AVPacket& packet) {
        intra_ = (packet.flags & AV_PKT_FLAG_KEY) != 0;
        field_ = false;
        if (parser_ && packet.size > 0) {
            std::uint8_t* data = nullptr;
            int size = 0;
            parser_->pict_type = AV_PICTURE_TYPE_NONE;
            av_parser_parse2(parser_.get(), context_.get(), &data, &size, packet.data, packet.size, packet.pts,
                             packet.dts, packet.pos);
            if (parser_->pict_type != AV_PICTURE_TYPE_NONE) {
                intra_ = parser_->pict_type == AV_PICTURE_TYPE_I;
            }
            field_ = parser_->picture_structure == AV_PICTURE_STRUCTURE_TOP_FIELD ||
                     parser_->picture_structure == AV_PICTURE_STRUCTURE_BOTTOM_FIELD;
        }
        intra_ = intra_ && (packet.flags & AV_PKT_FLAG_DISCARD) == 0;
    }

    [[nodiscard]] bool isIntra() const { return intra_; }
    [[nodiscard]] bool isField() const { return field_; }

private:
    Libav<AVCodecContext> context_;
    Libav<AVCodecParserContext> parser_;
    bool intra_ = false;
    bool field_ = false;
};

class FrameSearch {
public:
    FrameSearch(VideoFile& file, int second)
        : file_(file), second_(second), sought_(file.timeStamp(second)), decoder_(openDecoder(file.video())),
          alone_(standsAlone(file.video().codecpar->codec_id)), reader_(file.video()) {}

    Libav<AVFrame> run() {
        Libav<AVFrame> frame = findAfter();
        if (damaged_ && alone_ && !file_.hasHole(begin_, end_)) {
            alone_ = false; // it may need its neighbours after all
            frame = findAfter();
        }
        if (file_.hasHole(begin_, end_)) {
            throw MediaError("no data of this second is there yet");
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

    Libav<AVFrame> findAfter() {
        start(second_);
        while (std::optional<Step> step = nextStep()) {
            const bool early = step->time != AV_NOPTS_VALUE && step->time < sought_;
            if (early && file_.hasTimes()) {
                begin_ = std::max(begin_, step->packet->pos);
            }
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
        const std::optional<std::int64_t> place = file_.seek(second);
        avcodec_flush_buffers(decoder_.get());
        waiting_.reset();
        beginKnown_ = place.has_value();
        begin_ = place.value_or(0);
        end_ = begin_;
        damaged_ = false;
    }

    Libav<AVPacket> nextPacket() {
        if (waiting_) {
            return std::move(waiting_);
        }
        Libav<AVPacket> packet = owned(av_packet_alloc());
        return file_.read(*packet) ? std::move(packet) : nullptr;
    }

    std::optional<Step> nextStep() {
        Step step;
        step.packet = nextPacket();
        if (!step.packet) {
            return std::nullopt;
        }
        end_ = std::max(end_, file_.position());
        if (!beginKnown_) {
            begin_ = std::max<std::int64_t>(step.packet->pos, 0);
            beginKnown_ = true;
        }
        reader_.look(*step.packet);
        step.intra = reader_.isIntra();
        step.time = step.packet->pts != AV_NOPTS_VALUE ? step.packet->pts : step.packet->dts;
        if (step.intra) {
            lookAhead(step);
        }
        return step;
    }

    void lookAhead(Step& step) {
        const bool delayed = step.packet->pts == AV_NOPTS_VALUE && file_.video().codecpar->video_delay > 0;
        if (delayed || reader_.isField()) {
            waiting_ = nextPacket();
        }
        if (waiting_ && delayed && waiting_->dts != AV_NOPTS_VALUE) {
            step.time = waiting_->dts; // a frame is shown when the next one is decoded
        }
        if (waiting_ && reader_.isField()) {
            step.otherField = owned(av_packet_clone(waiting_.get()));
        }
    }

    /// The frame of an intra-coded packet, which comes out at once; none where the packet holds none, or a damaged one.
    Libav<AVFrame> decodeAlone(const Step& step) {
        const unsigned long complaints = complaintCount();
        bool sound = (step.packet->flags & AV_PKT_FLAG_CORRUPT) == 0;
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
        if (file_.hasHole(before_.packet->pos, std::max(end_, before_.packet->pos + before_.packet->size))) {
            throw MediaError("the last picture before this second is not there yet");
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
    Libav<AVPacket> waiting_;
    Step before_; ///< the last intra-coded packet before the second
    Libav<AVFrame> frameBefore_;
    std::int64_t begin_ = 0; ///< bytes from here to end_ decide which frame is the one sought
    std::int64_t end_ = 0;
    bool beginKnown_ = false;
    bool damaged_ = false;
};

} // namespace

Libav<AVFrame> findFrame(VideoFile& file, int second) {
    return FrameSearch(file, second).run();
}
