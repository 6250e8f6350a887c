#include "programs/frame/videoFile.h"

extern "C" {
#include <libavutil/dovi_meta.h>
}

#include <algorithm>
#include <cstring>

namespace {

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

VideoFile::VideoFile(int descriptor, Download download) : download_(download), file_(descriptor, download) {
    readHead();
    chooseStream();
    start_ = file_.lacksBeginning() ? file_.guessStart() : startTime();
    if (isDolbyVisionAlone(video())) {
        throw MediaError("Dolby Vision without a base layer for other screens");
    }
}

/// A container with an index tells about its streams in its head, all but their first time stamps. The others want
/// packets read and pictures decoded, and so does the choice between several video streams.
void VideoFile::readHead() {
    const auto streams = [&](bool (*kind)(const AVStream&)) {
        return std::count_if(format().streams, format().streams + format().nb_streams,
                             [&](const AVStream* stream) { return kind(*stream); });
    };
    const bool complete = (isIndexed() || std::strncmp(format().iformat->name, "matroska", 8) == 0) &&
                          streams(isVideo) == 1 && readFirstTimes();
    if (!complete) {
        file_.readStreams();
    }
}

/// Reads packets until each stream has told when it begins. False when one does not within what is sensible.
bool VideoFile::readFirstTimes() {
    constexpr int kMostPackets = 500;
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    AVStream** const end = format().streams + format().nb_streams;
    for (int count = 0; count < kMostPackets; ++count) {
        const bool known = std::all_of(format().streams, end, [](const AVStream* stream) {
            return !isTimed(*stream) || stream->start_time != AV_NOPTS_VALUE;
        });
        if (known || av_read_frame(&format(), packet.get()) < 0) {
            return known;
        }
        AVStream& stream = *format().streams[packet->stream_index];
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
    std::int64_t best = -1;
    for (unsigned i = 0; i < format().nb_streams; ++i) {
        AVStream& stream = *format().streams[i];
        const std::int64_t score = std::int64_t{stream.codecpar->width} * stream.codecpar->height +
                                   ((stream.disposition & AV_DISPOSITION_DEFAULT) != 0 ? kDefaultBonus : 0) +
                                   ((stream.event_flags & AVSTREAM_EVENT_FLAG_NEW_PACKETS) != 0 ? kAliveBonus : 0);
        if (isVideo(stream) && score > best) {
            best = score;
            video_ = static_cast<int>(i);
        }
    }
    if (video_ < 0) {
        throw MediaError("the file has no video stream");
    }
    setDiscard(AVDISCARD_ALL);
}

void VideoFile::setDiscard(AVDiscard others) {
    for (unsigned i = 0; i < format().nb_streams; ++i) {
        AVStream* stream = format().streams[i];
        stream->discard = stream->index == video_ ? AVDISCARD_DEFAULT : others;
    }
}

/// Whether the head of the file tells the place of each sample.
bool VideoFile::isIndexed() const {
    return std::strncmp(format().iformat->name, "mov", 3) == 0;
}

/// Of the whole file in microseconds: the earliest stream's, a text that begins less than a second earlier included.
std::int64_t VideoFile::startTime() const {
    if (file_.isBare()) {
        return 0;
    }
    if (format().start_time != AV_NOPTS_VALUE) {
        return format().start_time;
    }
    std::int64_t start = INT64_MAX;
    std::int64_t text = INT64_MAX;
    for (unsigned i = 0; i < format().nb_streams; ++i) {
        const AVStream& stream = *format().streams[i];
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
    return av_rescale_q(second * std::int64_t{AV_TIME_BASE} + start_, AV_TIME_BASE_Q, video().time_base);
}

AVRational VideoFile::pixelRatio(AVFrame& frame) const {
    return av_guess_sample_aspect_ratio(&format(), &video(), &frame);
}

void VideoFile::seek(int second) {
    nextTime_ = AV_NOPTS_VALUE;
    if (file_.isBare()) { // frames are counted from the first one
        nextTime_ = 0;
        checked(av_seek_frame(&format(), -1, 0, AVSEEK_FLAG_BYTE), "cannot go back to the beginning");
        return;
    }
    // Key frames are indexed by the time they are decoded in many containers: that is a few pictures earlier.
    constexpr std::int64_t kReorder = 3 * AV_TIME_BASE / 23;
    const std::int64_t shown = second * std::int64_t{AV_TIME_BASE} + start_;
    if (isUnfinished() && file_.canEnter()) {
        enterBefore(shown - AV_TIME_BASE);
        return;
    }
    const bool byDecoding = (format().iformat->flags & AVFMT_SEEK_TO_PTS) == 0;
    const std::int64_t place = byDecoding ? shown - kReorder : shown;
    if (isUnfinished()) {
        file_.forgetHole();
    }
    avformat_seek_file(&format(), -1, INT64_MIN, place, place, 0);
}

/// libav's answer to the reading of a packet of any stream.
int VideoFile::readAny(AVPacket& packet) {
    const int answer = file_.read(packet);
    if (answer < 0 || packet.stream_index != video_) {
        return answer;
    }
    if (file_.isBare()) {
        packet.pts = AV_NOPTS_VALUE;
        packet.dts = nextTime_ - packet.duration * video().codecpar->video_delay;
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
    av_packet_unref(&packet);
    if (!isUnfinished() || file_.tellsSizes()) {
        return readNext(packet);
    }
    // A packet ends where the next one begins: of the last one before a hole nobody knows what is missing.
    if (!ahead_) {
        ahead_ = owned(av_packet_alloc());
        readNext(*ahead_);
    }
    av_packet_move_ref(&packet, ahead_.get());
    return packet.data != nullptr && (readNext(*ahead_) || !file_.metHole());
}

bool VideoFile::readNext(AVPacket& packet) {
    do {
        av_packet_unref(&packet);
        if (readAny(packet) < 0) {
            return false;
        }
    } while (packet.stream_index != video_);
    const bool cutOff = (packet.flags & AV_PKT_FLAG_CORRUPT) != 0 && packet.pos + packet.size >= file_.sizeInBytes();
    return !cutOff;
}

bool VideoFile::skipHole() {
    if (!isUnfinished() || !file_.metHole()) {
        return false;
    }
    return file_.canEnter() ? begin(file_.enter(file_.behindHole())) : skipByIndex();
}

/// Goes to the first frame behind the hole that an index names.
bool VideoFile::skipByIndex() {
    const std::int64_t behind = file_.behindHole();
    const int count = avformat_index_get_entries_count(&video());
    while (++entry_ < count) {
        const AVIndexEntry& entry = *avformat_index_get_entry(&video(), entry_);
        if (entry.pos >= behind) {
            file_.forgetHole();
            return av_seek_frame(&format(), video_, entry.timestamp, AVSEEK_FLAG_ANY) >= 0;
        }
    }
    return false;
}

/// Has packets come from the place that was entered.
bool VideoFile::begin(std::optional<std::int64_t> place) {
    nextTime_ = AV_NOPTS_VALUE;
    ahead_.reset();
    return place.has_value();
}

/// Goes to a place shortly before a time, in microseconds.
void VideoFile::enterBefore(std::int64_t time) {
    constexpr std::int64_t kNear = 256 << 10;
    std::int64_t low = 0;
    std::int64_t high = file_.sizeInBytes();
    while (high - low > kNear) {
        const std::int64_t middle = low + (high - low) / 2;
        const std::optional<MediaFile::Arrival> first = file_.arrive(middle, high);
        (first && first->time <= time ? low : high) = middle;
    }
    begin(file_.enter(low));
}

bool VideoFile::hasTimes() const {
    return !file_.isBare() && (format().iformat->flags & AVFMT_NOTIMESTAMPS) == 0 &&
           std::strcmp(format().iformat->name, "avi") != 0;
}

bool VideoFile::endsWhole(int second) {
    seek(second);
    setDiscard(AVDISCARD_DEFAULT);
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    std::int64_t last = 0;
    bool damaged = false;
    int answer = 0;
    while ((answer = readAny(*packet)) >= 0) {
        const AVStream& stream = *format().streams[packet->stream_index];
        const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        if (time != AV_NOPTS_VALUE) {
            last = std::max(last, inMicroseconds(time + packet->duration, stream));
        }
        damaged = damaged || (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
        av_packet_unref(packet.get());
    }
    setDiscard(AVDISCARD_ALL);
    return answer == AVERROR_EOF && !damaged && last + AV_TIME_BASE >= start_ + second * std::int64_t{AV_TIME_BASE};
}
