#include "programs/media/mediaFile.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

constexpr int kReadAtOnce = 32 << 10;
constexpr std::int64_t kProbe = 64 << 10;

int refuseToOpen(AVFormatContext* /*format*/, AVIOContext** /*reader*/, const char* /*url*/, int /*flags*/,
                 AVDictionary** /*options*/) {
    return AVERROR(EACCES);
}

/// Whether libav has read an index of AVI that tells where all frames are.
bool isIndexed(AVFormatContext& format) {
    const int video = av_find_best_stream(&format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    AVStream* const stream = video < 0 ? nullptr : format.streams[video];
    const int count = stream == nullptr ? 0 : avformat_index_get_entries_count(stream);
    return count > 0 && avformat_index_get_entry(stream, count - 1)->timestamp >= stream->duration * 99 / 100;
}

/// The time that a frame of MPEG-4 begins with, in whole seconds of its encoder; -1 where it tells none.
int timeCode(const AVPacket& packet) {
    constexpr std::array<std::uint8_t, 4> kMark = {0, 0, 1, 0xb3};
    constexpr std::ptrdiff_t kLength = 7;
    const std::uint8_t* const data = packet.data;
    const std::uint8_t* const end = data + packet.size;
    const std::uint8_t* const mark = std::search(data, end, kMark.begin(), kMark.end());
    if (end - mark < kLength) {
        return -1;
    }
    const auto bits = static_cast<int>(AV_RB24(mark + kMark.size())); // 5 of hours, 6 of minutes, one, 6 of seconds
    return (bits >> 19) * 3600 + (bits >> 13 & 63) * 60 + (bits >> 6 & 63);
}

bool isMpegStream(const AVInputFormat& kind) {
    return std::strcmp(kind.name, "mpegts") == 0 || std::strcmp(kind.name, "mpeg") == 0;
}

/// Whether libav, set down anywhere in it, finds the next packet with a time by itself.
bool isSelfSynchronizing(const AVInputFormat& kind) {
    return isMpegStream(kind) || std::strcmp(kind.name, "asf") == 0 || std::strcmp(kind.name, "ogg") == 0;
}

} // namespace

int MediaFile::readBytes(void* input, std::uint8_t* buffer, int size) {
    auto& self = *static_cast<Input*>(input);
    if (stopped_ != 0) {
        return AVERROR_EXIT;
    }
    if (self.leaps) {
        self.offset = self.bytes.next(self.offset);
    }
    const std::int64_t wanted = std::max<std::int64_t>(0, std::min<std::int64_t>(size, self.end - self.offset));
    const std::int64_t count = self.syncPoints ? self.syncPoints->read(buffer, wanted, self.offset)
                                               : self.bytes.read(buffer, wanted, self.offset);
    if (count <= 0) {
        self.stop = self.offset;
        return count == 0 ? AVERROR_EOF : AVERROR(errno);
    }
    self.offset += count;
    return static_cast<int>(count);
}

std::int64_t MediaFile::seekByte(void* input, std::int64_t offset, int whence) {
    auto& self = *static_cast<Input*>(input);
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return self.bytes.size();
    case SEEK_SET:
        return self.offset = offset;
    case SEEK_CUR:
        return self.offset += offset;
    case SEEK_END:
        return self.offset = self.bytes.size() + offset;
    default:
        return AVERROR(EINVAL);
    }
}

MediaFile::MediaFile(int descriptor, Download download) : input_(new Input{{descriptor, download}}) {
    checked(input_->bytes.size() >= 0 ? 0 : AVERROR(errno), "cannot find the file's end");
    if (download == Download::finished) {
        open(nullptr);
        return;
    }
    input_->offset = input_->bytes.next(0);
    lacksBeginning_ = input_->offset > 0;
    if (const AVInputFormat* kind = mpegStreamFromHere(); kind != nullptr || lacksBeginning_) {
        if (kind == nullptr) {
            throw MediaError("the head of the file is not there yet");
        }
        input_->leaps = true;
        open(kind);
        input_->leaps = false;
        return;
    }
    std::optional<SyncPoints>& syncPoints = input_->syncPoints;
    syncPoints.emplace(input_->bytes);
    if (const std::optional<std::int64_t> first = syncPoints->find(syncPoints->headEnd())) {
        lacksBeginning_ = !syncPoints->isWholeUntil(*first);
        first_ = *first;
    }
    if (first_ >= 0 && !syncPoints->areCounted()) {
        syncPoints->leadTo(first_);
    }
    open(nullptr);
    if (syncPoints->areCounted() && isIndexed(*format_)) {
        syncPoints.reset();
    } else if (syncPoints->areCounted() && !lacksBeginning_) {
        readFirstCode();
    }
}

void MediaFile::open(const AVInputFormat* kind) {
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kReadAtOnce));
    checked(buffer != nullptr ? 0 : AVERROR(ENOMEM), "cannot read the file");
    Libav<AVIOContext> reader =
        owned(avio_alloc_context(buffer, kReadAtOnce, 0, input_.get(), readBytes, nullptr, seekByte));
    reader->pos = input_->offset;
    AVFormatContext* context = owned(avformat_alloc_context()).release();
    context->pb = reader.get();
    context->io_open = refuseToOpen;
    // A failure frees the context.
    checked(avformat_open_input(&context, nullptr, kind, nullptr), "cannot read the container");
    Libav<AVFormatContext> format(context);
    const unsigned known = format_ ? format_->nb_streams : 0;
    checked(format->nb_streams >= known ? 0 : AVERROR_INVALIDDATA, "cannot find the streams again");
    for (unsigned i = 0; i < known; ++i) {
        checked(avcodec_parameters_copy(format->streams[i]->codecpar, format_->streams[i]->codecpar), "no memory");
        format->streams[i]->discard = format_->streams[i]->discard;
    }
    format_ = std::move(format);
    reader_ = std::move(reader);
    input_->stop = INT64_MAX;
}

/// The kind of a container that needs no head, if this is one; null else.
const AVInputFormat* MediaFile::mpegStreamFromHere() {
    std::vector<std::uint8_t> bytes(kProbe + AVPROBE_PADDING_SIZE);
    std::int64_t count = 0;
    for (std::int64_t place = input_->offset; count < kProbe && (place = input_->bytes.next(place)) < sizeInBytes();) {
        const std::int64_t more =
            std::max<std::int64_t>(input_->bytes.read(bytes.data() + count, kProbe - count, place), 0);
        place += std::max<std::int64_t>(more, 1);
        count += more;
    }
    const AVProbeData probe = {"", bytes.data(), static_cast<int>(count), nullptr};
    const AVInputFormat* kind = av_probe_input_format(&probe, 1);
    return kind != nullptr && isMpegStream(*kind) ? kind : nullptr;
}

/// MPEG streams repeat what has to be known of them: any part of them tells.
void MediaFile::readStreams() {
    input_->leaps = isMpegStream(*format_->iformat);
    checked(avformat_find_stream_info(format_.get(), nullptr), "cannot read the streams");
    input_->leaps = false;
}

std::optional<std::int64_t> MediaFile::enter(std::int64_t place) {
    forgetHole();
    if (isSelfSynchronizing(*format_->iformat)) {
        place = entered_ = input_->bytes.next(place);
        const bool there = place < sizeInBytes() && av_seek_frame(format_.get(), -1, place, AVSEEK_FLAG_BYTE) >= 0;
        return there ? std::optional(place) : std::nullopt;
    }
    std::optional<std::int64_t> point;
    while (input_->syncPoints && (point = input_->syncPoints->find(place))) {
        input_->syncPoints->leadTo(*point);
        input_->offset = 0;
        entered_ = *point;
        lacksCount_ = input_->syncPoints->areCounted() && (lacksBeginning_ || *point != first_);
        try {
            open(format_->iformat);
            return point;
        } catch (const MediaError&) { // what looked like a place to begin at was none
            place = *point + 1;
        }
    }
    return std::nullopt;
}

int MediaFile::read(AVPacket& packet) {
    const int answer = av_read_frame(format_.get(), &packet);
    if (answer >= 0 && lacksCount_) {
        packet.dts = AV_NOPTS_VALUE;
        packet.pts = timeByCode(packet);
    }
    return answer;
}

/// The time of a packet by its time code; none where it has none, or one that does not fit to the packet's place: the
/// codes of a film that was joined from several begin anew.
std::int64_t MediaFile::timeByCode(const AVPacket& packet) const {
    constexpr int kUneven = 20; // a part of the film's length by which bit rates may shift a time
    constexpr std::int64_t kAlways = std::int64_t{2} * AV_TIME_BASE;
    const AVStream& stream = *format_->streams[packet.stream_index];
    const std::int64_t length = av_rescale_q(stream.duration, stream.time_base, AV_TIME_BASE_Q);
    const std::int64_t expected = av_rescale(length, packet.pos, sizeInBytes());
    const int code = timeCode(packet);
    const std::int64_t time = std::int64_t{code - firstCode_} * AV_TIME_BASE;
    const bool fits = code >= 0 && firstCode_ >= 0 && std::abs(time - expected) <= length / kUneven + kAlways;
    return fits ? av_rescale_q(time, AV_TIME_BASE_Q, stream.time_base) : AV_NOPTS_VALUE;
}

/// A film that was cut keeps the time codes that its encoder wrote.
void MediaFile::readFirstCode() {
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    while (firstCode_ < 0 && av_read_frame(format_.get(), packet.get()) >= 0) {
        if (format_->streams[packet->stream_index]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            firstCode_ = timeCode(*packet);
            break;
        }
        av_packet_unref(packet.get());
    }
    input_->offset = 0;
    open(format_->iformat);
}

std::optional<MediaFile::Arrival> MediaFile::arrive(std::int64_t begin, std::int64_t end) {
    const Libav<AVPacket> packet = owned(av_packet_alloc());
    for (std::optional<std::int64_t> place = enter(begin); place && *place < end; place = enter(behindHole())) {
        while (read(*packet) >= 0) {
            const AVStream& stream = *format_->streams[packet->stream_index];
            const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
            av_packet_unref(packet.get());
            if (stream.discard < AVDISCARD_ALL && time != AV_NOPTS_VALUE) {
                return Arrival{*place, av_rescale_q(time, stream.time_base, AV_TIME_BASE_Q)};
            }
        }
    }
    return std::nullopt;
}

/// Whether libavformat wrote the stream, which then begins at 1.4 to 1.6 s.
bool MediaFile::isOfLibav() const {
    const AVProgram* program = format_->nb_programs > 0 ? format_->programs[0] : nullptr;
    const AVDictionaryEntry* name =
        program != nullptr ? av_dict_get(program->metadata, "service_provider", nullptr, 0) : nullptr;
    return name != nullptr && std::strcmp(name->value, "FFmpeg") == 0;
}

/// Matroska and MP4 begin at 0. MPEG streams begin within a second and a half, unless they are a part of a broadcast:
/// the times that are there have to fit to the bytes that are missing.
std::int64_t MediaFile::guessStart() {
    constexpr std::int64_t kUneven = 3; // times the mean bit rate
    if (!isMpegStream(*format_->iformat)) {
        return 0;
    }
    const std::int64_t latest = (isOfLibav() ? 16 : 15) * std::int64_t{AV_TIME_BASE} / 10;
    slack_ = isOfLibav() ? AV_TIME_BASE / 5 : latest;
    const std::optional<Arrival> first = arrive(0, sizeInBytes());
    const std::optional<Arrival> other = first ? arrive((first->place + sizeInBytes()) / 2, sizeInBytes()) : first;
    if (other && other->place > first->place) {
        const std::int64_t missing = av_rescale(other->time - first->time, first->place, other->place - first->place);
        if (first->time <= kUneven * missing + latest && first->time >= missing / kUneven) {
            return latest;
        }
    }
    throw MediaError("the beginning of the file is not there yet");
}

/// libavformat reads over a short distance rather than seek, into the hole, and takes an end for one until it seeks.
void MediaFile::forgetHole() {
    avio_seek(reader_.get(), 0, SEEK_SET);
    input_->stop = INT64_MAX;
}

bool MediaFile::canEnter() const {
    return isSelfSynchronizing(*format_->iformat) || (input_->syncPoints && input_->syncPoints->exist());
}

bool MediaFile::tellsSizes() const {
    return !isMpegStream(*format_->iformat) && !isBare();
}

bool MediaFile::isBare() const {
    constexpr std::array<std::string_view, 4> kBare = {"h264", "hevc", "m4v", "mpegvideo"};
    return std::find(kBare.begin(), kBare.end(), format_->iformat->name) != kBare.end();
}
