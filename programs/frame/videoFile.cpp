#include "programs/frame/videoFile.h"

extern "C" {
#include <libavutil/dovi_meta.h>
}

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr std::int64_t kHoleBytes = 4096; // of zeros
constexpr std::int64_t kHoleBytesAtEnd = 64;

bool isPicture(const AVStream& stream) {
    return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

bool isVideo(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !isPicture(stream);
}

bool isTimed(const AVStream& stream) {
    return isVideo(stream) || stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
}

bool isText(const AVStream& stream) {
    const AVMediaType type = stream.codecpar->codec_type;
    return type == AVMEDIA_TYPE_SUBTITLE || type == AVMEDIA_TYPE_DATA;
}

/// Profile 5, and those from 8 on that tell of no compatible base layer: their colours are none of any matrix. Older
/// profiles have such a layer and need not tell.
bool isDolbyVisionAlone(const AVStream& stream) {
    constexpr int kAlone = 5;
    constexpr int kFirstToTell = 8;
    const std::uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DOVI_CONF, nullptr);
    const auto* vision = reinterpret_cast<const AVDOVIDecoderConfigurationRecord*>(data);
    return vision != nullptr && (vision->dv_profile == kAlone ||
                                 (vision->dv_profile >= kFirstToTell && vision->dv_bl_signal_compatibility_id == 0));
}

std::int64_t inMicroseconds(std::int64_t time, const AVStream& stream) {
    return av_rescale_q(time, stream.time_base, AV_TIME_BASE_Q);
}

} // namespace

VideoFile::VideoFile(int descriptor, Download download) : download_(download), file_(descriptor) {
    readHead();
    chooseStream();
    if (isDolbyVisionAlone(*video_)) {
        throw MediaError("Dolby Vision without a base layer for other screens");
    }
}

/// A container with an index tells about its streams in its head, all but their first time stamps. The others want
/// packets read and pictures decoded, and so does the choice between several video streams.
void VideoFile::readHead() {
    const auto streams = [&](bool (*kind)(const AVStream&)) {
        return std::count_if(format_.streams, format_.streams + format_.nb_streams,
                             [&](const AVStream* stream) { return kind(*stream); });
    };
    const bool complete = (isIndexed() || std::strncmp(format_.iformat->name, "matroska", 8) == 0) &&
                          streams(isVideo) == 1 && readFirstTimes();
    if (!complete) {
        checked(avformat_find_stream_info(&format_, nullptr), "cannot read the streams");
    }
}

/// Reads packets until each stream has told when it begins. False when one does not within what is sensible.
bool VideoFile::readFirstTimes() {
    constexpr int kMostPackets = 500;
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    AVStream** const end = format_.streams + format_.nb_streams;
    for (int count = 0; count < kMostPackets; ++count) {
        const bool known = std::all_of(format_.streams, end, [](const AVStream* stream) {
            return !isTimed(*stream) || stream->start_time != AV_NOPTS_VALUE;
        });
        if (known || av_read_frame(&format_, packet.get()) < 0) {
            return known;
        }
        AVStream& stream = *format_.streams[packet->stream_index];
        if (stream.start_time == AV_NOPTS_VALUE) { // libavformat waits for the order in which frames are decoded
            stream.start_time = packet->pts;
        }
        av_packet_unref(packet.get());
    }
    return false;
}

void VideoFile::chooseStream() {
    constexpr std::int64_t kDefaultBonus = 5'000'000; // in pixels
    constexpr std::int64_t kAliveBonus = 100'000'000;
    std::int64_t best = 0;
    for (unsigned i = 0; i < format_.nb_streams; ++i) {
        AVStream& stream = *format_.streams[i];
        const std::int64_t score = std::int64_t{stream.codecpar->width} * stream.codecpar->height +
                                   ((stream.disposition & AV_DISPOSITION_DEFAULT) != 0 ? kDefaultBonus : 0) +
                                   ((stream.event_flags & AVSTREAM_EVENT_FLAG_NEW_PACKETS) != 0 ? kAliveBonus : 0);
        if (isVideo(stream) && score > best) {
            best = score;
            video_ = &stream;
        }
    }
    if (video_ == nullptr) {
        throw MediaError("the file has no video stream");
    }
    setDiscard(AVDISCARD_ALL);
}

void VideoFile::setDiscard(AVDiscard others) {
    for (unsigned i = 0; i < format_.nb_streams; ++i) {
        AVStream* stream = format_.streams[i];
        stream->discard = stream == video_ ? AVDISCARD_DEFAULT : others;
    }
}

/// Whether the head of the file tells the place of each sample.
bool VideoFile::isIndexed() const {
    return std::strncmp(format_.iformat->name, "mov", 3) == 0;
}

/// Of the whole file in microseconds: the earliest stream's, a text that begins less than a second earlier included.
std::int64_t VideoFile::startTime() const {
    if (file_.isBare()) {
        return 0;
    }
    if (format_.start_time != AV_NOPTS_VALUE) {
        return format_.start_time;
    }
    std::int64_t start = INT64_MAX;
    std::int64_t text = INT64_MAX;
    for (unsigned i = 0; i < format_.nb_streams; ++i) {
        const AVStream& stream = *format_.streams[i];
        if (stream.start_time != AV_NOPTS_VALUE) {
            std::int64_t& earliest = isText(stream) ? text : start;
            earliest = std::min(earliest, inMicroseconds(stream.start_time, stream));
        }
    }
    if (start == INT64_MAX) {
        return 0;
    }
    return start > text && start - text < AV_TIME_BASE ? text : start;
}

std::int64_t VideoFile::timeStamp(int second) const {
    return av_rescale_q(second * std::int64_t{AV_TIME_BASE} + startTime(), AV_TIME_BASE_Q, video_->time_base);
}

AVRational VideoFile::pixelRatio(AVFrame& frame) const {
    return av_guess_sample_aspect_ratio(&format_, video_, &frame);
}

std::optional<std::int64_t> VideoFile::seek(int second) {
    packetEnd_ = 0;
    nextTime_ = AV_NOPTS_VALUE;
    if (file_.isBare()) { // frames are counted from the first one
        nextTime_ = 0;
        checked(av_seek_frame(&format_, -1, 0, AVSEEK_FLAG_BYTE), "cannot go back to the beginning");
        return 0;
    }
    // Key frames are indexed by the time they are decoded in many containers: that is a few pictures earlier.
    constexpr std::int64_t kReorder = 3 * AV_TIME_BASE / 23;
    const std::int64_t shown = second * std::int64_t{AV_TIME_BASE} + startTime();
    const bool byDecoding = (format_.iformat->flags & AVFMT_SEEK_TO_PTS) == 0;
    const std::int64_t place = byDecoding ? shown - kReorder : shown;
    const bool sought = avformat_seek_file(&format_, -1, INT64_MIN, place, place, 0) >= 0;
    return sought && !isIndexed() ? std::optional(file_.position()) : std::nullopt;
}

/// libav's answer to the reading of a packet of any stream.
int VideoFile::readAny(AVPacket& packet) {
    const int answer = av_read_frame(&format_, &packet);
    if (answer < 0 || packet.stream_index != video_->index) {
        return answer;
    }
    if (file_.isBare()) {
        packet.pts = AV_NOPTS_VALUE;
        packet.dts = nextTime_ - packet.duration * video_->codecpar->video_delay;
        nextTime_ += packet.duration;
        return answer;
    }
    if (packet.pts == AV_NOPTS_VALUE && packet.dts == AV_NOPTS_VALUE) {
        packet.dts = nextTime_;
    }
    nextTime_ = packet.dts == AV_NOPTS_VALUE ? AV_NOPTS_VALUE : packet.dts + packet.duration;
    return answer;
}

bool VideoFile::read(AVPacket& packet) {
    do {
        av_packet_unref(&packet);
        if (readAny(packet) < 0) {
            return false;
        }
    } while (packet.stream_index != video_->index);
    packetEnd_ = packet.pos + packet.size;
    const bool cutOff = (packet.flags & AV_PKT_FLAG_CORRUPT) != 0 && packetEnd_ >= file_.sizeInBytes();
    return !cutOff;
}

std::int64_t VideoFile::position() const {
    return isIndexed() ? packetEnd_ : std::max<std::int64_t>(packetEnd_, file_.position());
}

bool VideoFile::hasTimes() const {
    return !file_.isBare() && (format_.iformat->flags & AVFMT_NOTIMESTAMPS) == 0 &&
           std::strcmp(format_.iformat->name, "avi") != 0;
}

bool VideoFile::hasHole(std::int64_t begin, std::int64_t end) const {
    const AVCodecDescriptor* codec = avcodec_descriptor_get(video_->codecpar->codec_id);
    if (download_ == Download::finished || codec == nullptr || (codec->props & AV_CODEC_PROP_LOSSY) == 0) {
        return false;
    }
    std::vector<std::uint8_t> block(256 << 10);
    std::int64_t place = std::max<std::int64_t>(0, begin - kHoleBytes);
    std::int64_t zeros = 0;
    while (place < end + kHoleBytes) {
        const auto wanted = static_cast<std::size_t>(
            std::min<std::int64_t>(static_cast<std::int64_t>(block.size()), end + kHoleBytes - place));
        const ssize_t count = pread(file_.descriptor(), block.data(), wanted, place);
        if (count <= 0) {
            return zeros >= kHoleBytesAtEnd;
        }
        for (ssize_t i = 0; i < count; ++i, ++place) {
            zeros = block[static_cast<std::size_t>(i)] == 0 ? zeros + 1 : 0;
            if (zeros >= kHoleBytes && place >= begin && place - zeros < end) {
                return true;
            }
        }
    }
    return false;
}

bool VideoFile::endsWhole(int second) {
    constexpr std::int64_t kSlack = std::int64_t{2} * AV_TIME_BASE;
    const std::optional<std::int64_t> begin = seek(second);
    setDiscard(AVDISCARD_DEFAULT);
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    std::int64_t last = 0;
    bool damaged = false;
    int answer = 0;
    while ((answer = readAny(*packet)) >= 0) {
        const AVStream& stream = *format_.streams[packet->stream_index];
        const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        if ((isTimed(stream) || download_ == Download::finished) && time != AV_NOPTS_VALUE) {
            last = std::max(last, inMicroseconds(time + packet->duration, stream));
        }
        damaged = damaged || (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
        av_packet_unref(packet.get());
    }
    setDiscard(AVDISCARD_ALL);
    const bool lengthKnown = download_ == Download::unfinished && format_.duration > 0 &&
                             format_.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
    return answer == AVERROR_EOF && !damaged && !(begin && hasHole(*begin, file_.sizeInBytes())) &&
           last + kSlack / 2 >= startTime() + second * std::int64_t{AV_TIME_BASE} &&
           (!lengthKnown || last + kSlack >= startTime() + format_.duration);
}
